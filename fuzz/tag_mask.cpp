// SPDX-License-Identifier: MIT
//
// Masks of --tags: grey images of any kind of file.
#include <memory>

#include "app/image/reader.h"
#include "app/image/srgb.h"
#include "fuzz/fuzz.h"

namespace {

using namespace corvane;

constexpr std::uint64_t kMostPixels = 1 << 20;

void ReadMask(const std::string& path) {
  std::unique_ptr<ImageReader> image = OpenImage(path);
  if (std::uint64_t{image->Info().width} * image->Info().height > kMostPixels) return;
  const int orientation = image->Info().orientation;
  const std::unique_ptr<RowSource> rows =
      MakeUprightRows(MakeGreyRows(std::move(image)), orientation);
  FUZZ_EXPECT(rows->BytesPerPixel() == 1);
  std::vector<std::uint8_t> row(rows->RowBytes());
  for (std::uint32_t y = 0; y < rows->Height(); ++y) rows->ReadRow(row.data());
}

}  // namespace

FUZZ_TARGET(tag_mask, input) {
  const std::string path = fuzz::FileOf(input);
  fuzz::Succeeds([&] { ReadMask(path); });
}
