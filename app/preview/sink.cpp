// SPDX-License-Identifier: MIT
#include "app/preview/sink.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "app/support/failure.h"
#include "app/support/limits.h"
#include "app/support/units.h"

namespace corvane {
namespace {

constexpr double kPageDpi = 150.0;
constexpr double kZoomDpi = 2400.0;

PageWindow WholePage(const PageShape& page) {
  double width = 0;
  for (const PlaneShape& plane : page.planes) {
    width = std::max(width, plane.width / plane.horizontalDpi);
  }
  return {0, 0, width, page.rows / page.verticalDpi};
}

std::vector<DropPlane> DropPlanesOf(const PageShape& page, const PreviewSettings& settings) {
  std::vector<DropPlane> planes;
  for (const PlaneShape& shape : page.planes) {
    const auto& only = settings.only;
    if (!only.empty() && std::find(only.begin(), only.end(), shape.ink) == only.end()) continue;
    DropPlane plane;
    plane.ink = shape.ink;
    plane.drops = 1 << shape.bit;
    plane.offset = shape.offset;
    plane.width = shape.width;
    plane.horizontalDpi = shape.horizontalDpi;
    plane.picolitres = DropPicolitres(settings.inks, *page.mode, shape.ink);
    planes.push_back(plane);
  }
  return planes;
}

// From white through blue and green to yellow at the limit; red clearly above it.
std::array<std::uint8_t, 3> InkColour(double part) {
  constexpr std::array<std::array<double, 3>, 5> kStops = {
      {{255, 255, 255}, {120, 170, 235}, {40, 120, 190}, {60, 170, 90}, {250, 220, 60}}};
  if (part > kUnevenness) return {220, 30, 40};
  const double position = std::clamp(part, 0.0, 1.0) * (kStops.size() - 1);
  const auto stop = std::min(static_cast<std::size_t>(position), kStops.size() - 2);
  std::array<std::uint8_t, 3> colour;
  for (std::size_t i = 0; i < 3; ++i) {
    const double value = kStops[stop][i] + (position - static_cast<double>(stop)) *
                                               (kStops[stop + 1][i] - kStops[stop][i]);
    colour[i] = static_cast<std::uint8_t>(std::lround(value));
  }
  return colour;
}

std::vector<std::string> SplitAtCommas(const std::string& text) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == ',') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

}  // namespace

PageWindow ParseZoom(const std::string& text) {
  const std::vector<std::string> parts = SplitAtCommas(text);
  double values[4] = {};
  bool good = parts.size() == 4;
  for (std::size_t i = 0; good && i < 4; ++i) {
    const char* end = parts[i].data() + parts[i].size();
    const auto [stop, error] = std::from_chars(parts[i].data(), end, values[i]);
    good = error == std::errc() && stop == end && std::isfinite(values[i]) && values[i] >= 0;
  }
  if (!good || values[2] <= 0 || values[3] <= 0) {
    throw UsageFailure(text + ": is not a part of the page as X,Y,W,H in millimetres");
  }
  return {values[0] / kMillimetresPerInch, values[1] / kMillimetresPerInch,
          values[2] / kMillimetresPerInch, values[3] / kMillimetresPerInch};
}

std::vector<Ink> ParseInkList(const std::string& text) {
  std::vector<Ink> inks;
  for (const std::string& name : SplitAtCommas(text)) {
    const std::optional<Ink> ink = FindInk(name);
    if (!ink) {
      throw UsageFailure(
          fmt::format("{}: \"{}\" is none of the inks {}", text, name, fmt::join(kInkNames, ", ")));
    }
    inks.push_back(*ink);
  }
  return inks;
}

std::string PreviewNote(const PreviewSettings& settings) {
  return fmt::format("{} on {} ({}): a model, not a proof", settings.inks.name,
                     settings.inks.media[static_cast<std::size_t>(settings.media)].name,
                     settings.inks.measured ? "measured colours" : "modelled colours");
}

PreviewSink::PreviewSink(const PreviewSettings& settings, StagedFile* picture, StagedFile* inkMap)
    : settings_(settings),
      model_(settings.inks, settings.media),
      picture_(picture),
      inkMap_(inkMap) {}

PreviewSink::~PreviewSink() = default;

void PreviewSink::StartPage(const PageShape& page) {
  const PageWindow whole = WholePage(page);
  PageWindow window = settings_.zoom.value_or(whole);
  if (window.left >= whole.width || window.top >= whole.height) {
    throw Failure(fmt::format("{}the zoomed part lies outside the page of {:.0f} x {:.0f} mm",
                              page.title.empty() ? "" : page.title + ": ",
                              whole.width * kMillimetresPerInch,
                              whole.height * kMillimetresPerInch));
  }
  for (const Ink ink : settings_.only) {
    const auto isOfInk = [=](const PlaneShape& plane) { return plane.ink == ink; };
    if (std::ranges::none_of(page.planes, isOfInk)) {
      throw Failure(fmt::format("{}the page has no ink {}",
                                page.title.empty() ? "" : page.title + ": ",
                                kInkNames[static_cast<int>(ink)]));
    }
  }
  window.width = std::min(window.width, whole.width - window.left);
  window.height = std::min(window.height, whole.height - window.top);
  const double dpi = settings_.dpi > 0 ? settings_.dpi : settings_.zoom ? kZoomDpi : kPageDpi;
  if (dpi > limits::kPreviewDpi ||
      std::max(window.width, window.height) * dpi > limits::kPreviewSide) {
    throw Failure(fmt::format("{}a preview of {:.0f} x {:.0f} mm at {:.0f} dpi is too large",
                              page.title.empty() ? "" : page.title + ": ",
                              window.width * kMillimetresPerInch,
                              window.height * kMillimetresPerInch, dpi));
  }

  renderer_ = std::make_unique<DotRenderer>(model_, DropPlanesOf(page, settings_), page.verticalDpi,
                                            window, dpi, [this](const RenderedRow& row) {
                                              if (pictureWriter_) WritePixels(row);
                                              if (inkMapWriter_) WriteInk(row);
                                            });
  pixels_.resize(std::size_t{3} * renderer_->Width());
  const auto writer = [&](StagedFile* file, const std::string& note) {
    if (file == nullptr) return std::unique_ptr<PngWriter>();
    return std::make_unique<PngWriter>(*file, renderer_->Width(), renderer_->Height(), dpi, note);
  };
  pictureWriter_ = writer(picture_, PreviewNote(settings_));
  inkMapWriter_ = writer(inkMap_, fmt::format("Total ink, yellow at {:.0f} %, red above; {}",
                                              model_.InkLimit() * 100, PreviewNote(settings_)));
}

void PreviewSink::WriteRow(const std::uint8_t* row) { renderer_->AddRow(row); }

void PreviewSink::EndPage() {
  renderer_->Finish();
  if (pictureWriter_) pictureWriter_->Finish();
  if (inkMapWriter_) inkMapWriter_->Finish();
}

void PreviewSink::WritePixels(const RenderedRow& row) {
  const Triple& paper = model_.PaperBands();
  for (std::size_t x = 0; x < row.bands.size(); ++x) {
    const Triple& bands = row.bands[x];
    const Triple linear =
        LinearSrgbFromBands({bands[0] * paper[0], bands[1] * paper[1], bands[2] * paper[2]});
    for (std::size_t i = 0; i < 3; ++i) pixels_[3 * x + i] = SrgbByte(linear[i]);
  }
  pictureWriter_->WriteRow(pixels_.data());
}

void PreviewSink::WriteInk(const RenderedRow& row) {
  for (std::size_t x = 0; x < row.totalInk.size(); ++x) {
    const auto colour = InkColour(row.totalInk[x] / model_.InkLimit());
    std::copy(colour.begin(), colour.end(), pixels_.begin() + static_cast<std::ptrdiff_t>(3 * x));
  }
  inkMapWriter_->WriteRow(pixels_.data());
}

}  // namespace corvane
