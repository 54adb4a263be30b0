// SPDX-License-Identifier: MIT
//
// What the rows of a page go into: several sinks may take the same page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "printmode/print_mode.h"

namespace corvane {

// One plane of a page's rows.
struct PlaneShape {
  std::string name;  // ink, and the bit of the drop count where the ink has two planes: "C bit 0"
  Ink ink = Ink::K;
  int bit = 0;
  std::size_t offset = 0;   // of the plane in a row, bytes
  std::size_t bytes = 0;    // a row of the plane
  std::uint32_t width = 0;  // pixels
  double horizontalDpi = 0;
};

// A page as its rows leave the chain.
struct PageShape {
  std::string title;  // of the document: the image, and its page where it has several
  const PrintMode* mode = nullptr;
  int alternateMode = 0;
  std::uint32_t layoutCode = 0;  // `RasterFormat` of the rows
  int bitsPerPixel = 1;          // 1: binary planes, 8: contone planes
  std::uint32_t rows = 0;
  double verticalDpi = 0;
  std::size_t rowBytes = 0;  // of a whole row, what lies behind the last plane included
  std::vector<PlaneShape> planes;
};

// Takes one page. Its members throw Failure.
class PageSink {
 public:
  virtual ~PageSink() = default;

  virtual void StartPage(const PageShape& page) = 0;
  // `rowBytes` bytes, valid during the call; rows come in order.
  virtual void WriteRow(const std::uint8_t* row) = 0;
  virtual void EndPage() = 0;
};

}  // namespace corvane
