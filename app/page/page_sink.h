// SPDX-License-Identifier: MIT
//
// What the rows of a page go into: several sinks may take the same page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
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
  int mediaType = 1;             // that the page was separated for
  std::uint32_t layoutCode = 0;  // `RasterFormat` of the rows
  int bitsPerPixel = 1;          // 1: binary planes, 8: contone planes
  std::uint32_t rows = 0;
  double verticalDpi = 0;
  std::size_t rowBytes = 0;        // of a whole row, what lies behind the last plane included
  std::size_t announcedBytes = 0;  // `RowBytes` of the rasters that the rows leave the chain in
  std::vector<PlaneShape> planes;
};

// What a sink has made of a page's rows, for sinks of its kind that take pages with the same rows.
class KeptRows {
 public:
  virtual ~KeptRows() = default;

  // Of memory, about.
  virtual std::size_t Bytes() const = 0;
};

// Takes one page. Its members throw Failure.
class PageSink {
 public:
  virtual ~PageSink() = default;

  // Asks the sink, before the page starts, to keep what it makes of the rows. False when it cannot.
  virtual bool KeepRows() { return false; }
  // Instead of `WriteRow` for the rows up to `end`: takes them from a page of the same shape, which
  // a sink of the same kind has kept. Only for a sink that keeps rows itself.
  virtual void CopyRows(const KeptRows&, std::uint32_t /*end*/) {}
  // After the page, if it was asked to keep.
  virtual std::shared_ptr<const KeptRows> Kept() { return nullptr; }

  virtual void StartPage(const PageShape& page) = 0;
  // `rowBytes` bytes, valid during the call; rows come in order.
  virtual void WriteRow(const std::uint8_t* row) = 0;
  virtual void EndPage() = 0;
};

}  // namespace corvane
