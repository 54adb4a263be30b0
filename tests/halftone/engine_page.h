// SPDX-License-Identifier: MIT
//
// A page on which tests and benchmarks run a halftone kernel: all the state that a kernel touches,
// with guard bytes around what it writes.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "halftone/engine.h"

namespace corvane {

class EnginePage {
 public:
  static constexpr std::uint8_t kGuardByte = 0xA5;
  static constexpr std::int16_t kGuardEntry = 0x5A5A;
  static constexpr int kGuards = 64;

  EnginePage(const Kernel& kernel, std::uint32_t numPix, std::uint32_t width)
      : kernel_(kernel),
        planeBytes_((numPix * width - 1) / 8 + 1),
        lineEntries_(numPix * width + 2),
        output_(kGuards + planeBytes_ * (kernel.planeCount + 1) + kGuards, kGuardByte) {
    for (int ink = 0; ink < kInkCount; ++ink) {
      lines_[ink].assign(kGuards + lineEntries_ + kGuards, kGuardEntry);
      std::fill_n(lines_[ink].begin() + kGuards, lineEntries_, std::int16_t{0});
      linePointers_[ink] = lines_[ink].data() + kGuards;
    }
    std::fill_n(output_.begin() + kGuards, output_.size() - 2 * kGuards, std::uint8_t{0});
    state.ShiftCMY = 2;
    state.Shiftcmy = 2;
    state.ShiftK = 2;
    state.NumPix = numPix;
    state.width = width;
    state.outputWidth = numPix * width;
    state.ErrorRows = linePointers_;
    state.CarriedError = carriedError.data();
    state.DotCount = dotCount.data();
    state.RowPhase = &rowPhase;
    state.output = output_.data() + kGuards;
    state.stride = width;
    state.end = width;
  }
  EnginePage(const EnginePage&) = delete;
  EnginePage& operator=(const EnginePage&) = delete;

  const Kernel& kernel() const { return kernel_; }

  // Entry p + 1 belongs to binary pixel p.
  std::int16_t* Line(Ink ink) { return linePointers_[static_cast<int>(ink)]; }
  std::uint32_t lineEntries() const { return lineEntries_; }
  std::int16_t& Error(Ink ink) { return carriedError[static_cast<int>(ink)]; }
  std::uint32_t Dots(Ink ink) const { return dotCount[static_cast<int>(ink)]; }
  const std::uint8_t* Plane(int plane) const { return state.output + plane * planeBytes_; }
  std::uint32_t planeBytes() const { return planeBytes_; }
  bool Bit(int plane, std::uint32_t pixel) const {
    return (Plane(plane)[pixel / 8] >> (7 - pixel % 8) & 1) != 0;
  }

  // Everything that a kernel may have written, guards included.
  const std::vector<std::uint8_t>& output() const { return output_; }
  const std::array<std::vector<std::int16_t>, kInkCount>& lines() const { return lines_; }

  RowState state{};
  std::array<std::int16_t, kInkCount> carriedError{};
  std::array<std::uint32_t, kInkCount> dotCount{};
  std::uint32_t rowPhase = 0;

 private:
  const Kernel& kernel_;
  std::uint32_t planeBytes_;
  std::uint32_t lineEntries_;
  std::array<std::vector<std::int16_t>, kInkCount> lines_;
  std::array<std::int16_t*, kInkCount> linePointers_;
  std::vector<std::uint8_t> output_;
};

}  // namespace corvane
