// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "app/calibration/agreement.h"
#include "app/support/markup.h"

namespace corvane {
namespace {

constexpr std::size_t kWorst = 15;

std::string Web(const Triple& lab) {
  const Triple srgb = SrgbFromLinear(LinearSrgbFromBands(BandsFromLab(lab)));
  return fmt::format("#{:02x}{:02x}{:02x}", std::lround(srgb[0] * 255), std::lround(srgb[1] * 255),
                     std::lround(srgb[2] * 255));
}

// A plot of two values; y grows upwards.
class Plot {
 public:
  Plot(std::string title, std::array<double, 2> x, std::array<double, 2> y, double step)
      : title_(std::move(title)), x_(x), y_(y) {
    for (double at = std::ceil(x[0] / step) * step; at <= x[1] + 1e-9; at += step) {
      Line(at, y[0], at, y[1], "grid");
      Label(X(at), kHeight - kMargin + 13, "middle", fmt::format("{:g}", at));
    }
  }

  void RowsEvery(double step) {
    for (double at = std::ceil(y_[0] / step) * step; at <= y_[1] + 1e-9; at += step) {
      Line(x_[0], at, x_[1], at, "grid");
      Label(kMargin - 5, Y(at) + 4, "end", fmt::format("{:g}", at));
    }
  }
  void Axes(const char* x, const char* y) {
    Label(kWidth - kRight, kHeight - 4, "end", x);
    Label(4, 12, "start", y);
  }
  void Line(double x0, double y0, double x1, double y1, const char* style) {
    body_ += fmt::format(
        "<line x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\" class=\"{}\"/>\n", X(x0),
        Y(y0), X(x1), Y(y1), style);
  }
  void Path(const std::vector<std::array<double, 2>>& points, const std::string& color,
            bool closed = false) {
    std::string path;
    for (const auto& [x, y] : points) {
      path += fmt::format("{}{:.1f} {:.1f}", path.empty() ? "M" : "L", X(x), Y(y));
    }
    body_ += fmt::format("<path d=\"{}{}\" fill=\"none\" stroke=\"{}\" stroke-width=\"1.2\"/>\n",
                         path, closed ? "Z" : "", color);
  }
  void Dot(double x, double y, const std::string& fill, const std::string& edge = "none") {
    body_ +=
        fmt::format("<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"2.6\" fill=\"{}\" stroke=\"{}\"/>\n",
                    X(x), Y(y), fill, edge);
  }
  void Square(double x, double y, const std::string& fill, const std::string& edge = "none") {
    body_ += fmt::format(
        "<rect x=\"{:.1f}\" y=\"{:.1f}\" width=\"4.6\" height=\"4.6\" fill=\"{}\" "
        "stroke=\"{}\"/>\n",
        X(x) - 2.3, Y(y) - 2.3, fill, edge);
  }
  // Names behind the ends of curves, kept apart where they would cover each other.
  void EndLabels(std::vector<std::pair<double, std::string>> ends) {
    constexpr double kApart = 10;
    std::sort(ends.begin(), ends.end());
    double free = kHeight;
    for (const auto& [y, name] : ends) {
      const double at = std::min(Y(y) + 4, free);
      Label(kWidth - kRight + 5, at, "start", name);
      free = at - kApart;
    }
  }

  std::string Svg() const {
    return fmt::format(
        "<figure><svg viewBox=\"0 0 {} {}\" role=\"img\" aria-label=\"{}\">\n{}</svg>"
        "<figcaption>{}</figcaption></figure>\n",
        kWidth, kHeight, title_, body_, title_);
  }

 private:
  static constexpr double kWidth = 420, kHeight = 340, kMargin = 36, kRight = 22;

  double X(double x) const {
    return kMargin + (x - x_[0]) / (x_[1] - x_[0]) * (kWidth - kMargin - kRight);
  }
  double Y(double y) const {
    return kHeight - kMargin - (y - y_[0]) / (y_[1] - y_[0]) * (kHeight - kMargin - 18);
  }
  void Label(double x, double y, const char* anchor, const std::string& text) {
    body_ += fmt::format("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\">{}</text>\n", x, y,
                         anchor, text);
  }

  std::string title_;
  std::array<double, 2> x_, y_;
  std::string body_;
};

// The most colourful that two dyes give, by hue.
std::vector<std::array<double, 2>> GamutEdge(const PrintModel& model, const ChartChoice& choice) {
  constexpr int kHues = 72, kParts = 20;
  std::vector<std::array<double, 2>> edge(kHues);
  const auto take = [&](const InkAmounts& amounts) {
    const Triple lab = LabFromBands(model.Bands(amounts));
    const double hue = std::atan2(lab[2], lab[1]);
    const int bin =
        (static_cast<int>(std::floor(hue / (2 * std::numbers::pi) * kHues)) + kHues) % kHues;
    auto& best = edge[static_cast<std::size_t>(bin)];
    if (std::hypot(lab[1], lab[2]) > std::hypot(best[0], best[1])) best = {lab[1], lab[2]};
  };
  for (std::size_t i = 0; i < choice.inks.size(); ++i) {
    for (std::size_t j = i; j < choice.inks.size(); ++j) {
      for (int a = 0; a <= kParts; ++a) {
        for (int b = 0; b <= kParts; ++b) {
          InkAmounts amounts{};
          amounts[static_cast<int>(choice.inks[i])] = static_cast<double>(a) / kParts;
          amounts[static_cast<int>(choice.inks[j])] = static_cast<double>(b) / kParts;
          take(amounts);
        }
      }
    }
  }
  std::erase(edge, std::array<double, 2>{0, 0});
  return edge;
}

std::string GamutPlot(const Agreement& agreement, const PrintModel& model,
                      const ChartChoice& choice) {
  Plot plot(
      "Measured colours (dots), each with a line to what is predicted; around them the most "
      "colourful that two inks give",
      {-100, 100}, {-100, 110}, 50);
  plot.RowsEvery(50);
  plot.Axes("a*", "b*");
  plot.Path(GamutEdge(model, choice), "#444", true);
  for (const PatchAgreement& patch : agreement.patches) {
    plot.Line(patch.measured[1], patch.measured[2], patch.predicted[1], patch.predicted[2],
              "error");
    plot.Dot(patch.measured[1], patch.measured[2], Web(patch.measured));
  }
  return plot.Svg();
}

std::string NeutralPlot(const Agreement& agreement) {
  constexpr double kNeutral = 10;
  Plot plot("Near-neutral patches: a* as red dots, b* as blue squares; predicted in outline",
            {0, 100}, {-12, 12}, 20);
  plot.RowsEvery(4);
  plot.Axes("L*", "a*, b*");
  for (const PatchAgreement& patch : agreement.patches) {
    if (std::hypot(patch.predicted[1], patch.predicted[2]) > kNeutral) continue;
    plot.Dot(patch.measured[0], std::clamp(patch.measured[1], -12.0, 12.0), "#c03030");
    plot.Dot(patch.predicted[0], patch.predicted[1], "none", "#c03030");
    plot.Square(patch.measured[0], std::clamp(patch.measured[2], -12.0, 12.0), "#6f9be8");
    plot.Square(patch.predicted[0], patch.predicted[2], "none", "#3050c0");
  }
  return plot.Svg();
}

double MainDensity(Ink ink, const Triple& lab) {
  const Triple bands = BandsFromLab(lab);
  const auto density = [&](int band) { return -std::log10(std::max(bands[band], 1e-5)); };
  const Dye dye = DyeOf(ink);
  return dye == Dye::Black ? (density(0) + density(1) + density(2)) / 3.0
                           : density(static_cast<int>(dye));
}

std::string TonePlot(const Agreement& agreement, const PrintModel& model,
                     const ChartChoice& choice) {
  double most = 0.5;
  for (const Ink ink : choice.inks) {
    InkAmounts amounts{};
    amounts[static_cast<int>(ink)] = 1;
    most = std::max(most, MainDensity(ink, LabFromBands(model.Bands(amounts))));
  }
  Plot plot("Density of each ink where it absorbs most: measured dots, predicted lines", {0, 100},
            {0, std::ceil(most * 2.2) / 2}, 20);
  plot.RowsEvery(0.5);
  plot.Axes("% ink", "density");
  std::vector<std::pair<double, std::string>> ends;
  for (const Ink ink : choice.inks) {
    InkAmounts amounts{};
    std::vector<std::array<double, 2>> line;
    for (int part = 0; part <= 50; ++part) {
      amounts[static_cast<int>(ink)] = part / 50.0;
      line.push_back({part * 2.0, MainDensity(ink, LabFromBands(model.Bands(amounts)))});
    }
    const std::string color = Web(LabFromBands(model.Bands(amounts)));
    plot.Path(line, color);
    ends.emplace_back(line.back()[1], kInkNames[static_cast<int>(ink)]);
    for (const PatchAgreement& patch : agreement.patches) {
      const std::uint8_t level = patch.patch.levels[static_cast<int>(ink)];
      if (patch.patch.group != PatchGroup::Ramp || level == 0) continue;
      plot.Dot(level / 2.55, MainDensity(ink, patch.measured), color, "#666");
    }
  }
  plot.EndLabels(std::move(ends));
  return plot.Svg();
}

std::string SummaryRow(const char* what, const DifferenceSummary& summary) {
  if (summary.count == 0) return {};
  return fmt::format(
      "<tr><th>{}</th><td>{}</td><td>{:.2f}</td><td>{:.2f}</td><td>{:.2f}</td></tr>\n", what,
      summary.count, summary.mean, summary.most95, summary.most);
}

std::string WorstTable(const Agreement& agreement) {
  std::string rows;
  for (const PatchAgreement* patch : WorstOf(agreement, kWorst, agreement.heldBack.count > 0)) {
    const auto lab = [](const Triple& c) {
      return fmt::format("{:.1f} {:.1f} {:.1f}", c[0], c[1], c[2]);
    };
    rows += fmt::format(
        "<tr><th>{}</th><td class=\"inks\">{}</td><td class=\"swatch\" "
        "style=\"background:{}\"></td><td>{}</td>"
        "<td class=\"swatch\" style=\"background:{}\"></td><td>{}</td><td>{:.2f}</td></tr>\n",
        MarkupText(patch->name), PatchText(patch->patch.levels), Web(patch->predicted),
        lab(patch->predicted), Web(patch->measured), lab(patch->measured), patch->difference);
  }
  return rows;
}

constexpr const char* kStyle =
    R"(body { font: 14px sans-serif; max-width: 900px; margin: 2em auto; color: #222; }
table { border-collapse: collapse; margin: 1em 0; }
th, td { padding: 2px 9px; text-align: right; border-bottom: 1px solid #ddd; font-weight: normal; }
th, td.inks { text-align: left; }
td:not(.inks) { white-space: nowrap; }
td.swatch { width: 26px; print-color-adjust: exact; -webkit-print-color-adjust: exact; }
figure { display: inline-block; width: 420px; margin: 0 12px 1em 0; vertical-align: top; break-inside: avoid; }
figcaption { font-size: 12px; color: #555; }
@media print { body { margin: 0; } figure { width: 47%; } table { font-size: 12px; } tr { break-inside: avoid; } }
svg text { font: 11px sans-serif; fill: #555; }
.grid { stroke: #e2e2e2; } .error { stroke: #000; stroke-width: 0.8; }
)";

}  // namespace

std::string AgreementPage(const Agreement& agreement, const InkData& inks, int media,
                          const ChartChoice& choice, const std::string& title) {
  const PrintModel model(inks, media);
  std::string page = fmt::format(
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\"><title>{0}</title>\n"
      "<style>\n{1}</style></head>\n<body>\n<h1>{0}</h1>\n<p>{2} on {3}, paper L* {4:.1f}, a* "
      "{5:.1f}, b* {6:.1f}; inks {7}, total ink to {8:.0f} %. Differences are CIEDE2000 of "
      "predicted "
      "and measured colours, against the paper.</p>\n",
      MarkupText(title), kStyle, MarkupText(inks.name), MarkupText(inks.media[media].name),
      agreement.paper[0], agreement.paper[1], agreement.paper[2], InkCombination(choice.inks),
      inks.media[media].inkLimit * 100);
  page += "<table><tr><th></th><th>patches</th><th>mean</th><th>95 %</th><th>worst</th></tr>\n";
  page += SummaryRow("chart", agreement.fitted) + SummaryRow("held back", agreement.heldBack);
  page += "</table>\n" + GamutPlot(agreement, model, choice) + NeutralPlot(agreement) +
          TonePlot(agreement, model, choice);
  page += fmt::format(
      "<h2>Worst {}patches</h2>\n<table><tr><th></th><th>inks</th><th></th>"
      "<th>predicted Lab</th><th></th><th>measured Lab</th><th>difference</th></tr>\n",
      agreement.heldBack.count > 0 ? "held-back " : "");
  page += WorstTable(agreement) + "</table>\n</body>\n</html>\n";
  return page;
}

}  // namespace corvane
