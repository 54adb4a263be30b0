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
  // counts and that of most planes. Returns the page's own pixels, its overspray included.
  std::uint64_t NotePage(const QStartPage& page);

  std::uint64_t Of(const QRaster& row) const;

 private:
  std::uint64_t widest_ = 0;  // pixels
  int planes_ = 0;            // contone planes
};

}  // namespace corvane
