// SPDX-License-Identifier: MIT
//
// Pictures that are read where the nth allocation fails: all their pixels come, in the colours of
// their profile, or memory is said to have been short. Libraries tell of that as of damage, or not.
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <vector>

#include "app/image/profile.h"
#include "app/image/reader.h"
#include "app/image/srgb.h"
#include "app/support/failure.h"
#include "tests/app/image/test_images.h"
#include "tests/faults/allocator.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using Pixels = std::vector<std::uint8_t>;

long allocationsLeft = 0;
bool allLaterFail = false;

bool AllowAllocation() {
  if (allocationsLeft > 0) return --allocationsLeft, true;
  return allocationsLeft-- < 0 && !allLaterFail;
}

Pixels ReadPicture(const std::string& path) {
  const auto rows = MakeSrgbRows(OpenImage(path));
  Pixels pixels(rows->RowBytes() * rows->Height());
  for (std::size_t y = 0; y < rows->Height(); ++y) rows->ReadRow(&pixels[y * rows->RowBytes()]);
  return pixels;
}

void WriteProfiledJpeg(const std::string& path, const TestImage& image) {
  WriteJpeg(path, image);
  const std::vector<std::uint8_t> profile = MakeRgbProfile({}, 1.0);
  const std::string mark("ICC_PROFILE\0\1\1", 14);
  const std::size_t size = 2 + mark.size() + profile.size();
  std::string bytes = ReadFile(path);
  bytes.insert(2, std::string("\xFF\xE2") + static_cast<char>(size >> 8) +
                      static_cast<char>(size & 0xFF) + mark +
                      std::string(profile.begin(), profile.end()));
  WriteFile(path, bytes);
}

// Whether the picture came.
bool Came(const std::string& path, const Pixels& expected, const std::string& fault) {
  faults::SetAllocationGate(AllowAllocation);
  try {
    const Pixels pixels = ReadPicture(path);
    faults::SetAllocationGate(nullptr);
    EXPECT_TRUE(pixels == expected) << fault << ": other pixels";
    return true;
  } catch (const std::bad_alloc&) {
    faults::SetAllocationGate(nullptr);
  } catch (const Failure& failure) {
    faults::SetAllocationGate(nullptr);
    EXPECT_TRUE(dynamic_cast<const TransientFailure*>(&failure) != nullptr)
        << fault << ": " << failure.what();
  }
  return false;
}

TEST(PictureFaults, AreShortMemoryAndNotDamage) {
  const auto noise = [](int x, int y, int c) { return (x * 7919 + y * 104729 + c * 1299709) >> 3; };
  const TestImage colours = MakeImage(40, 30, 3, 8, noise), lines = MakeImage(64, 30, 1, 1, noise);
  const auto tiff = [](const TestImage& image, const TiffOptions& options) {
    return [=](const std::string& path) { WriteTiff(path, image, options); };
  };
  const struct {
    const char* name;
    std::function<void(const std::string& path)> write;
  } kPictures[] = {
      {"a.png",
       [&](const auto& path) { WritePng(path, colours, {.profile = MakeRgbProfile({}, 1.0)}); }},
      {"interlaced.png", [&](const auto& path) { WritePng(path, colours, {.interlaced = true}); }},
      {"a.jpg", [&](const auto& path) { WriteProfiledJpeg(path, colours); }},
      {"fax.tif", tiff(lines, {.photometric = 0, .compression = 4})},
      {"lzw.tif", tiff(colours, {.photometric = 2, .compression = 5, .separate = true})},
      {"jpeg.tif", tiff(colours, {.photometric = 2, .compression = 7, .rowsPerStrip = 8})},
      {"deflate.tif", tiff(colours, {.photometric = 2, .compression = 8, .tile = 16})},
      {"palette.tif", tiff(MakeImage(9, 9, 1, 4, noise), {.photometric = 3, .palette = {1, 2, 3}})},
  };
  const ScratchFolder folder;
  for (const auto& picture : kPictures) {
    const std::string path = folder.File(picture.name);
    picture.write(path);
    const Pixels expected = ReadPicture(path);
    int failed = 0;
    for (const bool later : {false, true}) {
      allLaterFail = later;
      for (long number = 0;; number += 1 + number / 16) {
        allocationsLeft = number;
        const std::string fault = std::string(picture.name) + ", allocation " +
                                  std::to_string(number) + (later ? " and all later" : "");
        if (!Came(path, expected, fault)) ++failed;
        if (allocationsLeft >= 0) break;
      }
    }
    EXPECT_GT(failed, 20) << picture.name;
  }
}

}  // namespace
}  // namespace corvane
