// SPDX-License-Identifier: MIT
#include "app/calibration/chart_layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "app/support/failure.h"

namespace corvane {
namespace {

// Millimetres. Strip instruments look through 4.5 mm at about 10 mm a step of a slow pull; ones
// that are set down need room to be aimed.
struct PatchSize {
  double width, height, gap, stripGap;
};
constexpr PatchSize kStrip = {7.6, 8.0, 0.4, 1.5}, kHandHeld = {13, 13, 1.0, 1.0};
constexpr double kLeft = 16, kRight = 12, kTop = 26, kBottom = 16;
constexpr int kMostSteps = 40, kFewestSteps = 5, kFewestStrips = 5;

const PatchSize& SizeOf(ChartReading reading) {
  return reading == ChartReading::Strip ? kStrip : kHandHeld;
}

int HowMany(double room, double size, double gap) {
  return static_cast<int>(std::floor((room + gap) / (size + gap)));
}

}  // namespace

ChartLayout::ChartLayout(const PaperSize& paper, ChartReading reading, std::size_t patches)
    : reading_(reading), patches_(patches), left_(kLeft) {
  const PatchSize& size = SizeOf(reading);
  steps_ = std::min(kMostSteps, HowMany(paper.widthMm - kLeft - kRight, size.width, size.gap));
  stripsPerPage_ = HowMany(paper.heightMm - kTop - kBottom, size.height, size.stripGap);
  if (steps_ < kFewestSteps || stripsPerPage_ < kFewestStrips) {
    throw UsageFailure(fmt::format("{}: is too small for a chart", paper.name));
  }
}

int ChartLayout::Strips() const {
  return static_cast<int>((patches_ + static_cast<std::size_t>(steps_) - 1) /
                          static_cast<std::size_t>(steps_));
}

std::size_t ChartLayout::Filled() const {
  return static_cast<std::size_t>(Strips()) * static_cast<std::size_t>(steps_);
}

int ChartLayout::Pages() const { return (Strips() + stripsPerPage_ - 1) / stripsPerPage_; }

int ChartLayout::StripsOfPage(int page) const {
  return std::min(stripsPerPage_, Strips() - page * stripsPerPage_);
}

PatchPlace ChartLayout::PlaceOf(std::size_t patch) const {
  const PatchSize& size = SizeOf(reading_);
  PatchPlace place;
  place.strip = static_cast<int>(patch / static_cast<std::size_t>(steps_));
  place.step = static_cast<int>(patch % static_cast<std::size_t>(steps_));
  place.page = place.strip / stripsPerPage_;
  place.x = left_ + place.step * (size.width + size.gap);
  place.y = kTop + (place.strip % stripsPerPage_) * (size.height + size.stripGap);
  place.width = size.width;
  place.height = size.height;
  return place;
}

std::string ChartLayout::LocationOf(std::size_t patch) const {
  const PatchPlace place = PlaceOf(patch);
  return fmt::format("{}{}", StripName(place.strip), place.step + 1);
}

std::string StripName(int strip) {
  std::string name(1, static_cast<char>('A' + strip % 26));
  return strip < 26 ? name : static_cast<char>('A' + strip / 26 - 1) + name;
}

}  // namespace corvane
