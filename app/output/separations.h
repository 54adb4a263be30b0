// SPDX-License-Identifier: MIT
//
// Binary planes read back from the TIFF file that TiffSink has written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "app/image/tiff_file.h"
#include "app/page/page_sink.h"

namespace corvane {

// Reads the planes of a page side by side, each through a handle of its own on the same file, and
// holds one strip of each. Its members throw Failure, naming the file.
class SeparationReader {
 public:
  explicit SeparationReader(const std::string& path);

  // The page as the file tells of it: planes lie without padding, and there is no layout code.
  const PageShape& Shape() const { return shape_; }

  // The next row of all planes, valid until the next call, with bits behind the last pixel of a
  // plane clear and 8 bytes of room behind the last plane.
  const std::uint8_t* ReadRow();

  // Makes `row` the next. Going back costs the strips from there on once more.
  void GoTo(std::uint32_t row) { rowNumber_ = row; }

 private:
  struct Plane {
    TiffFile file;
    std::uint32_t rowsPerStrip = 0;
    std::uint32_t held = 0;           // the strip in `strip`
    std::vector<std::uint8_t> strip;  // empty: none is held
    std::size_t stripBytes = 0;       // 0: too large to hold, so that rows are read one by one
    std::uint8_t lastByte = 0xFF;     // the pixels in the last byte of a row
  };

  [[noreturn]] void FailOfKind() const;
  void AddPlane(tdir_t directory);
  void ReadPlaneRow(std::size_t index, std::uint8_t* to);

  std::string path_;
  std::vector<Plane> planes_;
  PageShape shape_;
  std::vector<std::uint8_t> row_;
  std::uint32_t rowNumber_ = 0;
};

}  // namespace corvane
