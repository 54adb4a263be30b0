// SPDX-License-Identifier: MIT
#include "app/calibration/chart_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "app/drawing/font.h"

namespace corvane {
namespace {

constexpr double kInch = 25.4;
constexpr int kCapital = 6;  // grid units of the font

Contone Full(Ink ink) {
  Contone levels{};
  levels[static_cast<int>(ink)] = 255;
  return levels;
}

// The ink that labels are legible in.
Ink LabelInk(std::span<const Ink> inks) {
  for (const Ink ink : {Ink::K, Ink::M, Ink::C}) {
    if (std::find(inks.begin(), inks.end(), ink) != inks.end()) return ink;
  }
  return inks.front();
}

double MillimetresX(const Sheet& sheet, double pixels) {
  return pixels / sheet.horizontalDpi * kInch;
}
double MillimetresY(const Sheet& sheet, double pixels) {
  return pixels / sheet.verticalDpi * kInch;
}

std::uint32_t PixelX(const Sheet& sheet, double mm) {
  return static_cast<std::uint32_t>(mm * sheet.horizontalDpi / kInch);
}
std::uint32_t PixelY(const Sheet& sheet, double mm) {
  return static_cast<std::uint32_t>(mm * sheet.verticalDpi / kInch);
}

// Cross-hairs near the corners, of every ink one over the other.
void AddRegistration(InkPage& page, std::span<const Ink> inks) {
  constexpr double kAt = 7, kArm = 3, kLine = 0.15;
  const double width = MillimetresX(page.Size(), page.Size().width);
  const double height = MillimetresY(page.Size(), page.Size().height);
  Contone all{};
  for (const Ink ink : inks) {
    all[static_cast<int>(ink)] =
        static_cast<std::uint8_t>(std::min<std::size_t>(255, 765 / inks.size()));
  }
  for (const double x : {kAt, width - kAt}) {
    for (const double y : {kAt, height - kAt}) {
      page.Rect(x - kArm, y - kLine / 2, 2 * kArm, kLine, all);
      page.Rect(x - kLine / 2, y - kArm, kLine, 2 * kArm, all);
    }
  }
}

void AddTitle(InkPage& page, const std::string& title, Ink ink) {
  constexpr double kLeft = 14, kBase = 10.5, kSize = 2.4;
  const double room = MillimetresX(page.Size(), page.Size().width) - 2 * kLeft;
  const double size = std::min(kSize, kSize * room / InkPage::TextWidth(kSize, title));
  page.Text(kLeft, kBase, size, title, Full(ink));
}

// Lines of an ink that lie a pixel further apart than those of the reference beside them: across
// the feed, and to the right of that along it.
class Vernier {
 public:
  Vernier(InkPage& page, double height, Ink reference, Ink ink)
      : page_(page), sheet_(page.Size()), height_(height), reference_(reference), ink_(ink) {
    // On a small sheet there is room for fewer lines.
    reach_ = LinesApart(kReach) >= kLeastPitch ? kReach : kReach / 2;
  }

  static double Width(const Sheet& sheet) {
    return MillimetresX(sheet, Wide(kReach)) + kBetween + 4 * kLength;
  }

  void Draw(double left, double top) const {
    DrawAcross(left, top);
    DrawAlong(left + MillimetresX(sheet_, Wide(kReach)) + kBetween, top);
  }

 private:
  static constexpr int kReach = 10;                                        // lines to each side
  static constexpr std::uint32_t kPitch = 24, kLeastPitch = 8, kLine = 3;  // pixels
  static constexpr double kLength = 4, kNumber = 1.3, kBetween = 10, kBelow = 4;  // mm

  static double Wide(int reach) { return 2.0 * (reach + 1) * (kPitch + 1); }
  static std::uint32_t At(std::uint32_t middle, int line, std::uint32_t pitch) {
    return static_cast<std::uint32_t>(static_cast<int>(middle) + line * static_cast<int>(pitch));
  }
  static std::string NumberOf(int line) { return line == 0 ? "0" : fmt::format("{:+}", line); }

  std::uint32_t LinesApart(int reach) const {
    return std::min(kPitch, PixelY(sheet_, std::max(0.0, height_ - kBelow)) /
                                static_cast<std::uint32_t>(2 * reach + 1));
  }

  void DrawAcross(double left, double top) const {
    const std::uint32_t middle = PixelX(sheet_, left) + (kReach + 1) * (kPitch + 1);
    const std::uint32_t length = PixelY(sheet_, std::min(kLength, (height_ - kBelow) / 2));
    const std::uint32_t first = PixelY(sheet_, top);
    for (int line = -kReach; line <= kReach; ++line) {
      const std::uint32_t x = At(middle, line, kPitch);
      page_.Pixels(x, first, kLine, length, Full(reference_));
      page_.Pixels(At(middle, line, kPitch + 1), first + length, kLine, length, Full(ink_));
      if (line % 5 != 0) continue;
      const double half = InkPage::TextWidth(kNumber, NumberOf(line)) / 2;
      page_.Text(MillimetresX(sheet_, x) - half, top - 0.8, kNumber, NumberOf(line),
                 Full(reference_));
    }
  }

  void DrawAlong(double left, double top) const {
    const std::uint32_t pitch = LinesApart(reach_);
    const std::uint32_t middle =
        PixelY(sheet_, top) + static_cast<std::uint32_t>(reach_) * (pitch + 1);
    const std::uint32_t first = PixelX(sheet_, left), length = PixelX(sheet_, 2 * kLength);
    for (int line = -reach_; line <= reach_; ++line) {
      const std::uint32_t y = At(middle, line, pitch);
      page_.Pixels(first, y, length, kLine, Full(reference_));
      page_.Pixels(first + length, At(middle, line, pitch + 1), length, kLine, Full(ink_));
      if (line % 5 != 0) continue;
      page_.Text(left - 5, MillimetresY(sheet_, y) + kNumber / 2, kNumber, NumberOf(line),
                 Full(reference_));
    }
  }

  InkPage& page_;
  const Sheet& sheet_;
  double height_;  // mm, of one ink's part of the page
  Ink reference_, ink_;
  int reach_;
};

}  // namespace

void InkPage::Rect(double x, double y, double width, double height, const Contone& levels) {
  const auto pixel = [](double mm, double dpi) {
    return std::lround(std::max(0.0, mm) * dpi / kInch);
  };
  const long left = pixel(x, sheet_.horizontalDpi), top = pixel(y, sheet_.verticalDpi);
  const long right = std::max(left + 1, pixel(x + width, sheet_.horizontalDpi));
  const long bottom = std::max(top + 1, pixel(y + height, sheet_.verticalDpi));
  Pixels(static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(top),
         static_cast<std::uint32_t>(right - left), static_cast<std::uint32_t>(bottom - top),
         levels);
}

void InkPage::Pixels(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height,
                     const Contone& levels) {
  if (x >= sheet_.width || y >= sheet_.height) return;
  boxes_.push_back(
      {x, y, std::min(sheet_.width, x + width), std::min(sheet_.height, y + height), levels});
}

void InkPage::Stroke(double x0, double y0, double x1, double y1, double width,
                     const Contone& levels) {
  const double length = std::max(std::abs(x1 - x0), std::abs(y1 - y0));
  const bool slanted = x0 != x1 && y0 != y1;
  if (!slanted) {
    Rect(std::min(x0, x1) - width / 2, std::min(y0, y1) - width / 2, std::abs(x1 - x0) + width,
         std::abs(y1 - y0) + width, levels);
    return;
  }
  const int steps = static_cast<int>(std::ceil(3 * length / width));
  for (int i = 0; i <= steps; ++i) {
    const double t = static_cast<double>(i) / steps;
    Rect(x0 + t * (x1 - x0) - width / 2, y0 + t * (y1 - y0) - width / 2, width, width, levels);
  }
}

void InkPage::Text(double x, double y, double size, std::string_view text, const Contone& levels) {
  const double unit = size / kCapital;
  for (const char character : text) {
    const FontGlyph& glyph = GlyphOf(character);
    for (const FontStroke& stroke : glyph.strokes) {
      Stroke(x + stroke.x0 * unit, y + (stroke.y0 - kCapital) * unit, x + stroke.x1 * unit,
             y + (stroke.y1 - kCapital) * unit, 0.7 * unit, levels);
    }
    x += (glyph.width + 2) * unit;
  }
}

double InkPage::TextWidth(double size, std::string_view text) {
  double units = 0;
  for (const char character : text) units += GlyphOf(character).width + 2;
  return units * size / kCapital;
}

void InkPage::Row(std::uint32_t row, std::span<const Ink> inks, std::span<std::uint8_t> planes) {
  if (byTop_.size() != boxes_.size()) {
    byTop_.resize(boxes_.size());
    std::iota(byTop_.begin(), byTop_.end(), std::size_t{0});
    std::stable_sort(byTop_.begin(), byTop_.end(),
                     [&](std::size_t a, std::size_t b) { return boxes_[a].y < boxes_[b].y; });
  }
  std::erase_if(active_, [&](std::size_t box) { return boxes_[box].bottom <= row; });
  const std::size_t before = active_.size();
  while (next_ < byTop_.size() && boxes_[byTop_[next_]].y <= row)
    active_.push_back(byTop_[next_++]);
  if (active_.size() != before) std::sort(active_.begin(), active_.end());

  std::fill(planes.begin(), planes.end(), std::uint8_t{0});
  for (const std::size_t index : active_) {
    const Box& box = boxes_[index];
    for (std::size_t plane = 0; plane < inks.size(); ++plane) {
      std::fill_n(planes.begin() + static_cast<std::ptrdiff_t>(plane * sheet_.width + box.x),
                  box.right - box.x, box.levels[static_cast<int>(inks[plane])]);
    }
  }
}

std::vector<InkPage> ChartPages(const std::vector<ChartPatch>& patches, const ChartLayout& layout,
                                const Sheet& sheet, std::span<const Ink> inks,
                                const std::string& title) {
  constexpr double kLabel = 2.2, kStepLabel = 1.8, kAbove = 1.4;
  const Ink ink = LabelInk(inks);
  std::vector<InkPage> pages(static_cast<std::size_t>(layout.Pages()), InkPage(sheet));
  for (std::size_t page = 0; page < pages.size(); ++page) {
    AddRegistration(pages[page], inks);
    AddTitle(pages[page], fmt::format("{}, page {} of {}", title, page + 1, pages.size()), ink);
  }
  for (std::size_t i = 0; i < layout.Filled(); ++i) {
    const PatchPlace place = layout.PlaceOf(i);
    InkPage& page = pages[static_cast<std::size_t>(place.page)];
    if (place.step == 0) {
      const std::string name = StripName(place.strip);
      page.Text(place.x - 2.0 - InkPage::TextWidth(kLabel, name),
                place.y + place.height / 2 + kLabel / 2, kLabel, name, Full(ink));
    }
    if (layout.IsFirstOfPage(place.strip)) {
      const std::string step = fmt::format("{}", place.step + 1);
      page.Text(place.x + (place.width - InkPage::TextWidth(kStepLabel, step)) / 2,
                place.y - kAbove, kStepLabel, step, Full(ink));
    }
    if (i < patches.size()) {
      page.Rect(place.x, place.y, place.width, place.height, patches[i].levels);
    }
  }
  return pages;
}

InkPage NozzlePage(const Sheet& sheet, std::span<const Ink> inks, const std::string& title) {
  constexpr std::uint32_t kSteps = 24;  // rows from one line of a column to the next
  constexpr double kLeft = 16, kTop = 18, kLabel = 3;
  InkPage page(sheet);
  AddRegistration(page, inks);
  AddTitle(page, title, LabelInk(inks));
  const double width = MillimetresX(sheet, sheet.width) - 2 * kLeft;
  const double height =
      (MillimetresY(sheet, sheet.height) - kTop - 12) / static_cast<double>(inks.size());
  for (std::size_t i = 0; i < inks.size(); ++i) {
    const double top = kTop + height * static_cast<double>(i);
    page.Text(kLeft - 8, top + kLabel, kLabel, kInkNames[static_cast<int>(inks[i])],
              Full(LabelInk(inks)));
    const std::uint32_t rows = PixelY(sheet, height - 4), first = PixelY(sheet, top);
    const std::uint32_t line = PixelX(sheet, width * 0.86 / kSteps);
    for (std::uint32_t row = 0; row < rows; ++row) {
      page.Pixels(PixelX(sheet, kLeft) + row % kSteps * line, first + row, line, 1, Full(inks[i]));
    }
    page.Rect(kLeft + width * 0.9, top, width * 0.1, height - 4, Full(inks[i]));
  }
  return page;
}

InkPage AlignmentPage(const Sheet& sheet, std::span<const Ink> inks, const std::string& title) {
  constexpr double kTop = 22, kLabel = 3;
  InkPage page(sheet);
  const Ink reference = LabelInk(inks);
  AddRegistration(page, inks);
  AddTitle(page, title, reference);
  const double height =
      (MillimetresY(sheet, sheet.height) - kTop - 14) / static_cast<double>(inks.size());
  // On both sides of a sheet that is wide enough, for a carriage may run unevenly.
  constexpr double kLeft = 20, kMargin = 4;
  const double half = MillimetresX(sheet, sheet.width) / 2;
  std::vector<double> columns = {kLeft};
  if (kLeft + Vernier::Width(sheet) < half && half + 6 + Vernier::Width(sheet) < 2 * half - kMargin)
    columns.push_back(half + 6);
  for (std::size_t i = 0; i < inks.size(); ++i) {
    const double top = kTop + height * static_cast<double>(i);
    page.Text(8, top + kLabel, kLabel, kInkNames[static_cast<int>(inks[i])], Full(reference));
    const Vernier vernier(page, height, reference, inks[i]);
    for (const double left : columns) vernier.Draw(left, top);
  }
  return page;
}

}  // namespace corvane
