// SPDX-License-Identifier: MIT
#include "fuzz/pictures.h"

#include <memory>

#include "app/image/reader.h"
#include "app/image/srgb.h"

namespace corvane::fuzz {
namespace {

constexpr int kMostPages = 3;
constexpr std::uint64_t kMostPixels = 1 << 20;  // of a page: a file of a few bytes may claim any

void ReadPicture(const std::string& path, int page) {
  std::unique_ptr<ImageReader> image = OpenImage(path, page);
  const ImageInfo& info = image->Info();
  FUZZ_EXPECT(info.width > 0 && info.height > 0);
  FUZZ_EXPECT(info.orientation >= 1 && info.orientation <= 8);
  if (std::uint64_t{info.width} * info.height > kMostPixels) return;
  const int orientation = info.orientation;
  const std::unique_ptr<RowSource> rows =
      MakeUprightRows(MakeSrgbRows(std::move(image)), orientation);
  std::vector<std::uint8_t> row(rows->RowBytes());
  for (std::uint32_t y = 0; y < rows->Height(); ++y) rows->ReadRow(row.data());
}

// A module that does not find all its symbols refuses every input, which nobody would notice.
template <class Work>
bool Reads(const Work& work) {
  return Succeeds([&] {
    try {
      work();
    } catch (const Failure& failure) {
      FUZZ_EXPECT(std::string_view(failure.what()).find("undefined symbol") == std::string::npos);
      throw;
    }
  });
}

}  // namespace

void ReadPictures(Bytes file) {
  const std::string path = FileOf(file);
  int pages = 0;
  if (!Reads([&] { pages = CountImagePages(path); })) return;
  for (int page = 0; page < std::min(pages, kMostPages); ++page) {
    Reads([&] { ReadPicture(path, page); });
  }
}

}  // namespace corvane::fuzz
