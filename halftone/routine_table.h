// SPDX-License-Identifier: MIT
//
// What the halftone element does for each print mode: the kernel and its settings, and the buffers
// that a page needs.
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
  std::uint16_t baseResolution;  // NumPix = this / input resolution, both per inch
  bool BothDirections;
  std::int8_t ShiftCMY, Shiftcmy, ShiftK;  // -1: the shift of the page before stays
  std::uint8_t layout;                     // code of the binary raster
  const char* loggedModes[2];              // names of print modes; the second may be null
};

// The buffers of a print mode.
struct HalftoneBuffers {
  tagBinaryCMYKDescriptor descriptor;
  std::int32_t alternateMode;       // as in HalftoneRoutine
  std::uint8_t planes;              // of the output row buffer
  std::span<const Ink> errorLines;  // the inks that have one, in the order of allocation
  std::uint8_t colourLineScale;     // what the size of the lines before K's is multiplied by
};

// The row of a print mode and "UseAlternateModes", or null when the descriptor is no print mode.
const HalftoneRoutine* FindHalftoneRoutine(std::int32_t descriptor, std::int32_t alternateMode);
const HalftoneBuffers* FindHalftoneBuffers(std::int32_t descriptor, std::int32_t alternateMode);

}  // namespace corvane
