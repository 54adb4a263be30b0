// SPDX-License-Identifier: MIT
//
// Images that are much finer than the sheet.
#pragma once

#include <cstdint>
#include <vector>

#include "app/image/row_source.h"
#include "app/page/place.h"

namespace corvane {

// Pixels of an image that are averaged before it is resampled. A resampling filter holds rows in
// the measure in which it makes the image smaller, and reads each pixel as often: what is left to
// it stays below eight, so that an image of any size takes the same memory.
struct Shrink {
  std::uint32_t across = 1, down = 1;

  explicit Shrink(const Placement& placement);
  bool IsNeeded() const { return across > 1 || down > 1; }
  // The same place in the averaged image.
  Placement Of(const Placement& placement) const;
};

// An image whose pixels are the averages of `shrink.across` x `shrink.down` pixels of another; the
// last of a row and the last row may have fewer. The other must outlive it.
class ShrunkRows : public RowSource {
 public:
  ShrunkRows(RowSource& image, const Shrink& shrink);

  void ReadRow(std::uint8_t* row) override;

 private:
  void AddRow();

  RowSource& image_;
  Shrink shrink_;
  std::uint32_t rowsRead_ = 0;
  std::vector<std::uint8_t> imageRow_;
  std::vector<std::uint64_t> sums_;
};

}  // namespace corvane
