// SPDX-License-Identifier: MIT
//
// What the halftone element does for each print mode: the kernel and its settings, and the buffers
// that a page needs. The resolution that it makes and the layout of its rows are in the print mode.
#pragma once

#include <cstdint>
#include <span>

#include "halftone/kernel_table.h"
#include "printmode/print_mode.h"

namespace corvane {

// The kernel of a print mode. A shift s gives an ink a largest coverage of 100 * 2^(s - 4) per
// cent.
struct HalftoneRoutine {
  tagBinaryCMYKDescriptor descriptor;
  std::int32_t alternateMode;  // "UseAlternateModes"; -1: every value without a row of its own
  KernelName kernel;
  bool BothDirections;
  std::int8_t ShiftCMY, Shiftcmy, ShiftK;  // -1: the shift of the page before stays
  std::uint8_t rowPlanes;                  // of the output row buffer
  std::span<const Ink> errorLines;         // the inks that have one, in the order of allocation
  std::uint8_t colourLineScale;            // what the size of the lines before K's is multiplied by
  const char* loggedModes[2];              // names of print modes; the second may be null
};

// The row of a print mode and "UseAlternateModes", or null when the descriptor is no print mode.
const HalftoneRoutine* FindHalftoneRoutine(std::int32_t descriptor, std::int32_t alternateMode);

// The drops per binary pixel that contone values of 255 of this ink alone make of an even area: 0
// for an ink of which the routine sends none.
double CoverageOf(const HalftoneRoutine& routine, Ink ink);

}  // namespace corvane
