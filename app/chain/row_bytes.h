// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "host/raster.h"

namespace corvane {

// How many bytes the elements of a chain may read of a row. They trust a row's fields, and its
// memory has to hold at least so many.
class RowBytesRead {
 public:
  // To be told of every page start. An element may still hold an earlier page, so the widest one
  // counts and that of most planes.
  void NotePage(const QStartPage& page);

  std::uint64_t Of(const QRaster& row) const;

  // Pixels of the widest page, its overspray included.
  std::uint64_t Widest() const { return widest_; }

 private:
  std::uint64_t widest_ = 0;  // pixels
  int planes_ = 0;            // contone planes
};

}  // namespace corvane
