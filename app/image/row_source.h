// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane {

// An image that is read once, row by row from the top.
class RowSource {
 public:
  virtual ~RowSource() = default;

  std::uint32_t Width() const { return width_; }    // pixels
  std::uint32_t Height() const { return height_; }  // rows
  std::size_t BytesPerPixel() const { return bytesPerPixel_; }
  std::size_t RowBytes() const { return bytesPerPixel_ * width_; }

  // The next row: `RowBytes()` bytes. Throws Failure when it cannot be read.
  virtual void ReadRow(std::uint8_t* row) = 0;

 protected:
  RowSource(std::uint32_t width, std::uint32_t height, std::size_t bytesPerPixel)
      : width_(width), height_(height), bytesPerPixel_(bytesPerPixel) {}

 private:
  std::uint32_t width_;
  std::uint32_t height_;
  std::size_t bytesPerPixel_;
};

}  // namespace corvane
