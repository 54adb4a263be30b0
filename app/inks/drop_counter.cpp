// SPDX-License-Identifier: MIT
#include "app/inks/drop_counter.h"

#include "app/inks/bit_count.h"

namespace corvane {

void DropCounter::StartPage(const PageShape& page) { page_ = page; }

void DropCounter::WriteRow(const std::uint8_t* row) {
  static const auto countSetBits =
      CORVANE_OF_LEVEL(SelectedCpuLevel(), &plain::CountSetBits, CountSetBits);
  for (const PlaneShape& plane : page_.planes) {
    drops_[static_cast<std::size_t>(plane.ink)] += countSetBits(row + plane.offset, plane.bytes)
                                                   << plane.bit;
  }
  if (kept_) kept_->before.push_back(drops_);
}

bool DropCounter::KeepRows() {
  kept_ = std::make_shared<Sums>();
  return true;
}

void DropCounter::CopyRows(const KeptRows& rows, std::uint32_t end) {
  const std::vector<Counts>& from = static_cast<const Sums&>(rows).before;
  std::vector<Counts>& to = kept_->before;
  while (to.size() <= end) {
    const std::size_t row = to.size() - 1;
    for (std::size_t ink = 0; ink < drops_.size(); ++ink) {
      drops_[ink] += from[row + 1][ink] - from[row][ink];
    }
    to.push_back(drops_);
  }
}

}  // namespace corvane
