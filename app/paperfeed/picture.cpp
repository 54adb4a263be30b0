// SPDX-License-Identifier: MIT
#include "app/paperfeed/picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

#include "app/support/units.h"

namespace corvane {
namespace {

constexpr double kWidth = 1400;
constexpr double kHeight = 1050;
constexpr DrawBox kSheetPanel{80, 115, 900, 600};
constexpr DrawBox kPassPanel{1010, 115, 130, 600};
constexpr DrawBox kAdvancePanel{80, 750, 900, 70};
constexpr DrawBox kNozzlePanels[kLocations] = {{80, 848, 900, 70}, {80, 946, 900, 70}};
constexpr double kLegendX = 1170;
constexpr double kChecksY = 760;

// Room above and below the sheet, as a part of its length.
constexpr double kBeyondSheet = 0.03;

constexpr double kTextSize = 12;
constexpr double kSmallSize = 11;

constexpr DrawColor kInk{0x22, 0x26, 0x2B};
constexpr DrawColor kFaintInk{0x6B, 0x72, 0x7B};
constexpr DrawColor kPanel{0xEC, 0xEF, 0xF2};
constexpr DrawColor kSheet{0xFF, 0xFF, 0xFF};
constexpr DrawColor kGrid{0xD5, 0xDA, 0xDF};
constexpr DrawColor kGood{0x3C, 0x8D, 0x5A};
constexpr DrawColor kMarked{0xF4, 0xB6, 0xB6};
constexpr DrawColor kTooFew{0xC6, 0x28, 0x28};
constexpr DrawColor kTooMany{0xE0, 0x8A, 0x1E};

constexpr DrawColor kRegionColors[kSwathRegionCount] = {
    {0x3B, 0x6F, 0xB0},  // body
    {0xE9, 0xA2, 0x3B},  // two moves from zone
    {0xD9, 0x6B, 0x1F},  // one move from zone
    {0xB0, 0x3A, 0x48},  // bottom zone
    {0x6A, 0x3D, 0x7C},  // past the zone
    {0x2F, 0x93, 0x8A},  // e2e first
    {0x86, 0xB0, 0x3C},  // e2e transition
    {0x3B, 0x6F, 0xB0},  // e2e middle
    {0xB0, 0x3A, 0x48},  // e2e last
};

DrawColor ColorOf(SwathRegion region, double opacity = 1) {
  DrawColor color = kRegionColors[static_cast<int>(region)];
  color.opacity = opacity;
  return color;
}

// The smallest of 1, 2 and 5 times a power of ten that is not below `least`.
int RoundStep(double least) {
  int power = 1;
  for (;; power *= 10) {
    for (const int factor : {1, 2, 5}) {
      if (factor * power >= least) return factor * power;
    }
  }
}

class Picture {
 public:
  explicit Picture(const SwathPlan& plan) : plan_(plan), drawing_(kWidth, kHeight) {}

  Drawing Draw() {
    drawing_.Rect({0, 0, kWidth, kHeight}, kSheet);
    DrawTitle();
    DrawSheet();
    DrawBounds();
    DrawSheetSwaths();
    DrawPasses();
    DrawAdvances();
    for (int location = 0; location < kLocations; ++location) DrawNozzles(location);
    DrawSwathNumbers();
    DrawLegend();
    DrawChecks();
    return std::move(drawing_);
  }

 private:
  // Positions.

  double YOf(double row) const {
    const double beyond = plan_.sheetRows * kBeyondSheet;
    const double y =
        kSheetPanel.y + (row + beyond) / (plan_.sheetRows + 2 * beyond) * kSheetPanel.height;
    return std::clamp(y, kSheetPanel.y, kSheetPanel.Bottom());
  }

  // The rows' box at the full width of a panel.
  DrawBox BoxOf(const Range& rows, double x, double width) const {
    return {x, YOf(rows.first), width, YOf(rows.last + 1) - YOf(rows.first)};
  }

  double Column() const {
    return kSheetPanel.width / static_cast<double>(std::max<std::size_t>(plan_.swaths.size(), 1));
  }
  double ColumnX(std::size_t swath) const {
    return kSheetPanel.x + static_cast<double>(swath) * Column();
  }
  double BarWidth() const { return Column() > 3 ? Column() - 1 : Column(); }

  // Texts.

  void Label(double x, double y, std::string text, TextAnchor anchor = TextAnchor::Start,
             DrawColor color = kInk, double size = kSmallSize) {
    drawing_.Text({x, y, size, anchor, false, color, std::move(text)});
  }

  // The drawing.

  void DrawTitle() {
    const PrintMode& mode = *plan_.mode;
    drawing_.Text(
        {kSheetPanel.x, 36, 20, TextAnchor::Start, true, kInk,
         fmt::format("{}, mode {}: {} {} on {}{}", mode.name, static_cast<int>(mode.descriptor),
                     mode.passes, mode.passes == 1 ? "pass" : "passes", plan_.paper.name,
                     plan_.settings.endToEnd ? ", end to end" : "")});
    Label(kSheetPanel.x, 58,
          fmt::format("{}: {} nozzles a column, {} per inch. {} swaths, advances in 1/{} inch, {} "
                      "from nozzle to nozzle.",
                      plan_.head.name, plan_.head.nozzlesPerColumn, plan_.head.nozzlesPerInch,
                      plan_.swaths.size(), mode.verticalDpi, plan_.settings.modeFactor),
          TextAnchor::Start, kFaintInk, kTextSize);
    Label(kSheetPanel.x, 76,
          "Each column is a swath: solid where its nozzles print, pale where they are within the "
          "limits but have no rows left to print.",
          TextAnchor::Start, kFaintInk, kTextSize);
    Label(kSheetPanel.x, kSheetPanel.y - 8, "rows of the sheet below each swath");
    Label(kSheetPanel.x - 8, kSheetPanel.y - 8, "mm", TextAnchor::End);
  }

  void DrawSheet() {
    drawing_.Rect(kSheetPanel, kPanel);
    drawing_.Rect(kPassPanel, kPanel);
    const Range sheet{0, plan_.sheetRows - 1};
    const DrawBox box = BoxOf(sheet, kSheetPanel.x, kSheetPanel.width);
    drawing_.Rect(box, kSheet);
    drawing_.Rect(BoxOf(sheet, kPassPanel.x, kPassPanel.width), kSheet);
    const double rowsPerMm = plan_.mode->verticalDpi / kMillimetresPerInch;
    const int step = RoundStep(plan_.paper.heightMm / 14);
    for (int mm = 0; mm <= plan_.paper.heightMm; mm += step) {
      const double y = YOf(mm * rowsPerMm);
      drawing_.Rect({kSheetPanel.x, y, kSheetPanel.width, 0.5}, kGrid);
      drawing_.Rect({kPassPanel.x, y, kPassPanel.width, 0.5}, kGrid);
      Label(kSheetPanel.x - 8, y + 4, std::to_string(mm), TextAnchor::End);
    }
    drawing_.Frame(box, kFaintInk);
  }

  // Where the movement object's rules change. A position is where the highest nozzle stands.
  void DrawBounds() {
    const FeedSettings& settings = plan_.settings;
    if (settings.endToEnd) {
      DrawBound(settings.e2eLimits[0], "limit 1");
      DrawBound(settings.e2eLimits[1], "limit 2");
      DrawBound(settings.e2eLimits[2], "limit 3");
    } else {
      DrawBound(settings.bopStart, "BOP start");
      DrawBound(settings.bopZone, "BOP zone");
    }
  }

  // The label keeps to the side that the staircase of swaths leaves free, off the sheet's edge and
  // beside the label of a bound that lies close above.
  void DrawBound(int position, const char* name) {
    constexpr double kLabelWidth = 110;
    const double y = YOf(position);
    drawing_.DashedHorizontal(kSheetPanel.x, y, kSheetPanel.width, kFaintInk);
    const bool upperHalf = position < plan_.sheetRows / 2;
    boundInset_ = y - boundY_ < kSmallSize + 2 ? boundInset_ + kLabelWidth : 6;
    boundY_ = y;
    Label(upperHalf ? kSheetPanel.Right() - boundInset_ : kSheetPanel.x + boundInset_,
          position >= plan_.sheetRows ? y + 12 : y - 4, fmt::format("{} at {}", name, position),
          upperHalf ? TextAnchor::End : TextAnchor::Start, kFaintInk);
  }

  void DrawSheetSwaths() {
    for (std::size_t i = 0; i < plan_.swaths.size(); ++i) {
      const Swath& swath = plan_.swaths[i];
      drawing_.Rect(BoxOf(RowsWithinLimits(plan_, swath), ColumnX(i), BarWidth()),
                    ColorOf(swath.region, 0.22));
      if (swath.rows.Empty()) continue;
      drawing_.Rect(BoxOf(swath.rows, ColumnX(i), BarWidth()), ColorOf(swath.region));
    }
  }

  void DrawPasses() {
    const int passes = plan_.mode->passes;
    const double unit = kPassPanel.width * 0.7 / passes;
    for (const RowRun& run : RunsOf(plan_.passes, plan_.printable)) {
      const double length = std::min(run.count * unit, kPassPanel.width);
      DrawBox box = BoxOf(run.rows, kPassPanel.x, length);
      if (run.count == passes) {
        drawing_.Rect(box, kGood);
        continue;
      }
      // Wrong rows have to be seen, however few they are.
      box.height = std::max(box.height, 2.0);
      drawing_.Rect({box.x, box.y, kPassPanel.width, box.height}, kMarked);
      drawing_.Rect(box, run.count < passes ? kTooFew : kTooMany);
    }
    const double x = kPassPanel.x + passes * unit;
    drawing_.Rect({x - 0.5, kPassPanel.y, 1, kPassPanel.height}, kInk);
    Label(kPassPanel.x, kPassPanel.y - 8, "passes over each row");
    Label(kPassPanel.x, kPassPanel.Bottom() + 14, "0", TextAnchor::Middle);
    Label(x, kPassPanel.Bottom() + 14, std::to_string(passes), TextAnchor::Middle);
  }

  // A panel of one bar a swath from `low` to `high` of a scale from 0 to `top`.
  DrawBox Bar(const DrawBox& panel, std::size_t swath, double low, double high, double top) const {
    const double unit = panel.height / top;
    return {ColumnX(swath), panel.Bottom() - high * unit, BarWidth(), (high - low) * unit};
  }

  void DrawScale(const DrawBox& panel, int top, const std::string& title) {
    drawing_.Rect(panel, kPanel);
    Label(panel.x - 8, panel.Bottom(), "0", TextAnchor::End);
    Label(panel.x - 8, panel.y + 8, std::to_string(top), TextAnchor::End);
    Label(panel.x, panel.y - 6, title);
  }

  void DrawAdvances() {
    int longest = 1;
    for (const Swath& swath : plan_.swaths) longest = std::max(longest, swath.advance);
    DrawScale(kAdvancePanel, longest, "advance before each swath");
    for (std::size_t i = 0; i < plan_.swaths.size(); ++i) {
      drawing_.Rect(Bar(kAdvancePanel, i, 0, plan_.swaths[i].advance, longest),
                    ColorOf(plan_.swaths[i].region));
    }
  }

  void DrawNozzles(int location) {
    const DrawBox& panel = kNozzlePanels[location];
    const int top = plan_.head.nozzlesPerColumn;
    std::string title = fmt::format("nozzles, {} cartridge", location == 0 ? "left" : "right");
    for (const Cartridge& cartridge : plan_.head.cartridges) {
      if (cartridge.location == location) title += fmt::format(" ({})", cartridge.name);
    }
    DrawScale(panel, top - 1, title);
    for (std::size_t i = 0; i < plan_.swaths.size(); ++i) {
      const Swath& swath = plan_.swaths[i];
      const auto draw = [&](const Range& range, double opacity) {
        if (range.Empty()) return;
        drawing_.Rect(Bar(panel, i, range.first, range.last + 1, top),
                      ColorOf(swath.region, opacity));
      };
      draw(swath.allowed[location], 0.22);
      draw(swath.used[location], 1);
    }
  }

  void DrawSwathNumbers() {
    const double y = kNozzlePanels[kLocations - 1].Bottom() + 15;
    const std::size_t count = plan_.swaths.size();
    const auto step = static_cast<std::size_t>(RoundStep(static_cast<double>(count) / 20));
    Label(kSheetPanel.x - 8, y, "swath", TextAnchor::End);
    for (std::size_t number = step; number <= count; number += step) {
      Label(ColumnX(number - 1) + BarWidth() / 2, y, std::to_string(number), TextAnchor::Middle);
    }
  }

  void DrawLegend() {
    Label(kLegendX, kSheetPanel.y + 4, "why the paper moved", TextAnchor::Start, kFaintInk);
    double y = kSheetPanel.y + 26;
    for (int i = 0; i < kSwathRegionCount; ++i) {
      const auto region = static_cast<SwathRegion>(i);
      const auto count = std::count_if(plan_.swaths.begin(), plan_.swaths.end(),
                                       [&](const Swath& s) { return s.region == region; });
      if (count == 0) continue;
      drawing_.Rect({kLegendX, y - 10, 12, 12}, ColorOf(region));
      Label(kLegendX + 18, y, fmt::format("{}: {}", NameOf(region), count), TextAnchor::Start, kInk,
            kTextSize);
      y += 20;
    }
  }

  void DrawChecks() {
    double y = kChecksY;
    drawing_.Text({kPassPanel.x, y, kTextSize + 2, TextAnchor::Start, true,
                   plan_.Sound() ? kGood : kTooFew,
                   plan_.Sound() ? "The plan holds" : "The plan has faults"});
    for (const PlanCheck& check : plan_.checks) {
      y += 24;
      drawing_.Rect({kPassPanel.x, y - 9, 9, 9}, check.passed ? kGood : kTooFew);
      Label(kPassPanel.x + 16, y, check.name, TextAnchor::Start, kInk, kTextSize);
      y += 15;
      Label(kPassPanel.x + 16, y, check.detail, TextAnchor::Start, kFaintInk);
    }
  }

  const SwathPlan& plan_;
  Drawing drawing_;
  double boundY_ = -100;   // of the last bound's line
  double boundInset_ = 0;  // of its label
};

}  // namespace

Drawing DrawSwaths(const SwathPlan& plan) { return Picture(plan).Draw(); }

}  // namespace corvane
