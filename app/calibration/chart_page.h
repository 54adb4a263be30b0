// SPDX-License-Identifier: MIT
//
// Pages in ink amounts, row by row: chart patches with their labels, and the pages that show
// whether a printhead is in order before a chart is printed.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/calibration/chart_layout.h"
#include "app/calibration/patches.h"
#include "app/page/place.h"

namespace corvane {

// Rectangles of ink on a sheet; what was drawn later covers.
class InkPage {
 public:
  explicit InkPage(const Sheet& sheet) : sheet_(sheet) {}

  // In millimetres; edges go to the nearest pixel, and at least one pixel is drawn.
  void Rect(double x, double y, double width, double height, const Contone& levels);
  // In pixels.
  void Pixels(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height,
              const Contone& levels);
  // With capitals `size` mm high that stand on `y`; `x` is the left end.
  void Text(double x, double y, double size, std::string_view text, const Contone& levels);
  static double TextWidth(double size, std::string_view text);

  const Sheet& Size() const { return sheet_; }

  // Fills a row of contone planes, `inks` in their order, `width` bytes each. Rows come from the
  // top.
  void Row(std::uint32_t row, std::span<const Ink> inks, std::span<std::uint8_t> planes);

 private:
  struct Box {
    std::uint32_t x, y, right, bottom;
    Contone levels;
  };

  void Stroke(double x0, double y0, double x1, double y1, double width, const Contone& levels);

  Sheet sheet_;
  std::vector<Box> boxes_;
  std::vector<std::size_t> byTop_;   // of boxes_, sorted when the first row is asked for
  std::size_t next_ = 0;             // of byTop_
  std::vector<std::size_t> active_;  // boxes that reach into the row, in drawing order
};

// The pages of a chart. `title` is printed at the top of each.
std::vector<InkPage> ChartPages(const std::vector<ChartPatch>& patches, const ChartLayout& layout,
                                const Sheet& sheet, std::span<const Ink> inks,
                                const std::string& title);

// Of each ink, lines that no other line of the ink touches: a nozzle that is out leaves a gap.
InkPage NozzlePage(const Sheet& sheet, std::span<const Ink> inks, const std::string& title);

// Of each ink, lines against those of the first dark ink, across and along the feed, a pixel
// further apart each: they meet at the offset.
InkPage AlignmentPage(const Sheet& sheet, std::span<const Ink> inks, const std::string& title);

}  // namespace corvane
