// SPDX-License-Identifier: MIT
//
// Prints whose every dot a test decides.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "app/output/tiff.h"
#include "app/page/planes.h"
#include "app/support/output_stage.h"
#include "printmode/print_modes.h"

namespace corvane {

// A file of the test's own: tests may run at one time.
inline std::string Temporary(const std::string& name) {
  return testing::TempDir() + testing::UnitTest::GetInstance()->current_test_info()->name() + '-' +
         name;
}

using IsDot = std::function<bool(std::size_t plane, std::uint32_t x, std::uint32_t y)>;

// Writes a page of `width` by `height` pixels of 600 dpi, or 300 in the modes that print so.
inline PageShape WritePrint(const std::string& file, int mode, int alternateMode,
                            std::uint32_t width, std::uint32_t height, const IsDot& isDot) {
  const PrintMode& printMode = *FindPrintMode(mode);
  PageShape page = BinaryPageShape(printMode, alternateMode, width, height,
                                   printMode.horizontalDpi < 600 ? 300 : 600, 600);
  page.title = "a test";
  OutputStage stage;
  TiffSink sink(stage.Create(file), 1);
  sink.StartPage(page);
  std::vector<std::uint8_t> row(page.rowBytes);
  for (std::uint32_t y = 0; y < page.rows; ++y) {
    std::ranges::fill(row, std::uint8_t{0});
    for (std::size_t plane = 0; plane < page.planes.size(); ++plane) {
      const PlaneShape& shape = page.planes[plane];
      for (std::uint32_t x = 0; x < shape.width; ++x) {
        if (isDot(plane, x, y))
          row[shape.offset + x / 8] |= static_cast<std::uint8_t>(0x80 >> x % 8);
      }
    }
    sink.WriteRow(row.data());
  }
  sink.EndPage();
  stage.Commit();
  return page;
}

// Dots as if by chance, the same in every run: one in `oneIn`.
inline bool Strewn(std::size_t plane, std::uint32_t x, std::uint32_t y, std::uint32_t oneIn) {
  std::uint32_t hash =
      static_cast<std::uint32_t>(plane) * 0x9E3779B1u + x * 0x85EBCA77u + y * 0xC2B2AE3Du;
  hash = (hash ^ hash >> 15) * 0x2C1B3C6Du;
  hash = (hash ^ hash >> 12) * 0x297A2D39u;
  return (hash ^ hash >> 15) % oneIn == 0;
}

}  // namespace corvane
