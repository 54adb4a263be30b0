// SPDX-License-Identifier: MIT
#include "app/page/shrink.h"

#include <algorithm>
#include <cstddef>

namespace corvane {
namespace {

constexpr double kLeftToFilter = 4;

std::uint32_t Factor(double pixels, std::uint32_t drawn) {
  const double smaller = pixels / drawn;
  return smaller < 2 * kLeftToFilter ? 1 : static_cast<std::uint32_t>(smaller / kLeftToFilter);
}

std::uint32_t Parts(std::uint32_t pixels, std::uint32_t factor) {
  return (pixels - 1) / factor + 1;
}

}  // namespace

Shrink::Shrink(const Placement& placement)
    : across(Factor(placement.sourceWidth, placement.width)),
      down(Factor(placement.sourceHeight, placement.height)) {}

Placement Shrink::Of(const Placement& placement) const {
  Placement shrunk = placement;
  shrunk.sourceLeft /= across;
  shrunk.sourceWidth /= across;
  shrunk.sourceTop /= down;
  shrunk.sourceHeight /= down;
  return shrunk;
}

ShrunkRows::ShrunkRows(RowSource& image, const Shrink& shrink)
    : RowSource(Parts(image.Width(), shrink.across), Parts(image.Height(), shrink.down),
                image.BytesPerPixel()),
      image_(image),
      shrink_(shrink),
      imageRow_(image.RowBytes()),
      sums_(RowBytes()) {}

void ShrunkRows::AddRow() {
  image_.ReadRow(imageRow_.data());
  const std::size_t channels = BytesPerPixel();
  const std::uint8_t* pixel = imageRow_.data();
  std::uint64_t* sum = sums_.data();
  for (std::uint32_t left = image_.Width(); left > 0; sum += channels) {
    const std::uint32_t count = std::min(shrink_.across, left);
    for (std::uint32_t i = 0; i < count; ++i) {
      for (std::size_t c = 0; c < channels; ++c) sum[c] += *pixel++;
    }
    left -= count;
  }
}

void ShrunkRows::ReadRow(std::uint8_t* row) {
  std::fill(sums_.begin(), sums_.end(), 0);
  const std::uint32_t rows = std::min(shrink_.down, image_.Height() - rowsRead_);
  for (std::uint32_t i = 0; i < rows; ++i) AddRow();
  rowsRead_ += rows;
  const std::size_t channels = BytesPerPixel();
  for (std::uint32_t x = 0; x < Width(); ++x) {
    const std::uint32_t across = std::min(shrink_.across, image_.Width() - x * shrink_.across);
    const std::uint64_t count = std::uint64_t{across} * rows;
    for (std::size_t c = 0; c < channels; ++c) {
      const std::size_t at = x * channels + c;
      // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): a row and a pixel are left at least.
      row[at] = static_cast<std::uint8_t>((sums_[at] + count / 2) / count);
    }
  }
}

}  // namespace corvane
