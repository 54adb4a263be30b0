// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "app/support/output_stage.h"

namespace corvane {

// Writes an sRGB picture of 8 bits a channel as PNG, row by row.
class PngWriter {
 public:
  // `comment` is what the file says of itself. Throws Failure, as do the members.
  PngWriter(StagedFile& file, std::uint32_t width, std::uint32_t height, double dpi,
            const std::string& comment);
  ~PngWriter();
  PngWriter(const PngWriter&) = delete;
  PngWriter& operator=(const PngWriter&) = delete;

  // `rgb` holds 3 bytes a pixel.
  void WriteRow(const std::uint8_t* rgb);
  // After the last row.
  void Finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace corvane
