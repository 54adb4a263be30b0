// SPDX-License-Identifier: MIT
#include "app/preview/dots.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>
#include <utility>

namespace corvane {
namespace {

constexpr double kMicrometresPerInch = 25400.0;
constexpr double kLeastPointDpi = 1200.0;
// Light wanders about this far in paper; over less, the n-th roots of reflectances are averaged,
// over more, reflectances.
constexpr double kCellDpi = 300.0;
constexpr double kSamplesPerCell = 2.0;
// The standard deviation of the spread, in cells, besides the box of a sample.
constexpr double kSpreadDeviation = 0.5;
// Steps of the tables of measured tints: of an amount of 1, and up to the most that is told apart.
constexpr double kTintSteps = 512;
constexpr double kMostTint = 2;
constexpr int kPad = 2;  // pixels that spread and reduction reach, with one to spare

constexpr int kPhases = 8;  // places of a spot's centre within a point, each way
constexpr int kLanes = 8;   // points that are added at a time
constexpr int kSubpoints = 16;
constexpr int kLayer = 1024;  // a full layer of ink in a point
constexpr int kFraction = 32;

std::int64_t FixedPoint(double value) {
  return static_cast<std::int64_t>(
      std::llround(value * static_cast<double>(std::int64_t{1} << kFraction)));
}

}  // namespace

DotRenderer::DotRenderer(const PrintModel& model, const std::vector<DropPlane>& planes,
                         double verticalDpi, const PageWindow& window, double dpi, Output output)
    : model_(model), output_(std::move(output)), verticalDpi_(verticalDpi) {
  SetGrid(window, dpi);
  for (const DropPlane& plane : planes) {
    const double radius = std::sqrt(model.SpotArea(plane.picolitres) / std::numbers::pi);
    margin_ = std::max(margin_, static_cast<int>(radius / kMicrometresPerInch * pointDpi_) + 2);
  }
  ringRows_ = 2 * static_cast<std::size_t>(margin_) + 2;
  ringStride_ = static_cast<std::size_t>(pointWidth_ + 2 * margin_ + kLanes);
  ringRowUsed_.resize(ringRows_);
  const double left = window.left - pad_ / dpi;
  for (const DropPlane& plane : planes) {
    planes_.push_back(MakePlane(plane));
    Plane& made = planes_.back();
    // The window's left edge lies at a place of its own within the page's points.
    made.start = FixedPoint(pointDpi_ / plane.horizontalDpi / 2 - left * pointDpi_);
    const double reach = margin_ * plane.horizontalDpi / pointDpi_;
    const double begin = left * plane.horizontalDpi;
    const double right = begin + static_cast<double>(pointWidth_) / pointDpi_ * plane.horizontalDpi;
    made.first =
        static_cast<std::uint32_t>(std::clamp(begin - reach, 0.0, double{1} * plane.width));
    made.end = static_cast<std::uint32_t>(
        std::clamp(std::ceil(right + reach), 0.0, double{1} * plane.width));
  }

  SetChannels();
}

void DotRenderer::SetGrid(const PageWindow& window, double dpi) {
  width_ = static_cast<std::uint32_t>(std::max(1.0, std::round(window.width * dpi)));
  height_ = static_cast<std::uint32_t>(std::max(1.0, std::round(window.height * dpi)));
  // A pixel that is smaller than a cell is a sample by itself: nothing blurs the dots that it
  // shows.
  const bool spreads = dpi <= kCellDpi + 1e-6;
  if (spreads) {
    samplesPerPixel_ =
        static_cast<int>(kSamplesPerCell * std::max(1L, std::lround(kCellDpi / dpi)));
    pad_ = kPad;
  }
  const double sampleDpi = dpi * samplesPerPixel_;
  pointsPerSample_ = std::max(1, static_cast<int>(std::ceil(kLeastPointDpi / sampleDpi - 1e-9)));
  pointDpi_ = sampleDpi * pointsPerSample_;
  pointWidth_ = (std::int64_t{width_} + 2 * pad_) * samplesPerPixel_ * pointsPerSample_;
  pointHeight_ = (std::int64_t{height_} + 2 * pad_) * samplesPerPixel_ * pointsPerSample_;
  windowTop_ = window.top - pad_ / dpi;

  if (!spreads) {
    reduction_ = {1.0f};
    return;
  }
  const double deviation = kSpreadDeviation * sampleDpi / kCellDpi;
  double sum = 0;
  for (int i = -kSpreadReach; i <= kSpreadReach; ++i) {
    sum += std::exp(-i * i / (2 * deviation * deviation));
  }
  for (int i = 0; i <= kSpreadReach; ++i) {
    spread_[i] = static_cast<float>(std::exp(-i * i / (2 * deviation * deviation)) / sum);
  }
  // A raised cosine over two pixels: those of neighbours add up to 1 everywhere.
  for (int i = 0; i < 2 * samplesPerPixel_; ++i) {
    const double place = (i + 0.5) / samplesPerPixel_;
    reduction_.push_back(
        static_cast<float>((1 - std::cos(std::numbers::pi * place)) / (2 * samplesPerPixel_)));
  }
}

void DotRenderer::SetChannels() {
  const auto points = static_cast<std::size_t>(pointWidth_);
  const std::size_t samples = points / static_cast<std::size_t>(pointsPerSample_);
  for (auto& dye : dyes_) dye.resize(points);
  roots_.resize(points);
  pointTotals_.resize(points);
  channels_.resize(kOwn);
  // Over single dots there is no tint to be known.
  if (pad_ > 0 && model_.IsBeyondLayers()) {
    channels_.resize(kOwn + rings_.size());
    for (Ring& ring : rings_) {
      for (int step = 0; step <= kMostTint * kTintSteps; ++step) {
        ring.tints.push_back(model_.TintBeyondLayers(ring.ink, step / kTintSteps));
      }
    }
  }
  for (Channel& channel : channels_) {
    channel.sums.resize(samples);
    for (auto& row : channel.last) row.resize(samples);
    for (auto& row : channel.pixels) row.resize(samples);
  }
  workRow_.resize(samples + 2 * kSpreadReach);
  spreadRow_.resize(samples);
  row_.bands.resize(width_);
  row_.totalInk.resize(width_);
}

DotRenderer::Plane DotRenderer::MakePlane(const DropPlane& shape) {
  const auto ring = std::find_if(rings_.begin(), rings_.end(),
                                 [&](const Ring& other) { return other.ink == shape.ink; });
  Plane plane{};
  plane.shape = shape;
  plane.ring = static_cast<std::size_t>(ring - rings_.begin());
  if (ring == rings_.end()) {
    rings_.push_back({shape.ink, {}, std::vector<std::uint16_t>(ringStride_ * ringRows_)});
  }
  plane.step = FixedPoint(pointDpi_ / shape.horizontalDpi);

  // The part of each point that a spot covers, for every place of its centre within a point.
  const double area = model_.SpotArea(shape.picolitres) /
                      (kMicrometresPerInch * kMicrometresPerInch) * pointDpi_ * pointDpi_;
  const double radius = std::sqrt(area / std::numbers::pi);
  const int reach = static_cast<int>(std::ceil(radius));
  for (int phaseY = 0; phaseY < kPhases; ++phaseY) {
    for (int phaseX = 0; phaseX < kPhases; ++phaseX) {
      const double centreX = (phaseX + 0.5) / kPhases, centreY = (phaseY + 0.5) / kPhases;
      Stamp stamp;
      stamp.rows = 2 * reach + 1;
      stamp.blocks = (2 * reach + kLanes) / kLanes;
      stamp.left = stamp.top = -reach;
      std::vector<double> cover;
      double sum = 0;
      for (int y = -reach; y <= reach; ++y) {
        for (int x = -reach; x < -reach + stamp.blocks * kLanes; ++x) {
          int inside = 0;
          for (int i = 0; i < kSubpoints * kSubpoints; ++i) {
            const double dx = x + (i % kSubpoints + 0.5) / kSubpoints - centreX;
            const double dy = y + (i / kSubpoints + 0.5) / kSubpoints - centreY;
            inside += dx * dx + dy * dy < radius * radius;
          }
          cover.push_back(inside);
          sum += inside;
        }
      }
      for (const double part : cover) {
        const double layers = sum > 0 ? part / sum * area * shape.drops : 0;
        stamp.layers.push_back(static_cast<std::uint16_t>(std::lround(layers * kLayer)));
      }
      plane.stamps.push_back(std::move(stamp));
    }
  }
  return plane;
}

void DotRenderer::AddRow(const std::uint8_t* row) {
  const double centre =
      ((static_cast<double>(rowNumber_) + 0.5) / verticalDpi_ - windowTop_) * pointDpi_;
  ++rowNumber_;
  if (centre + margin_ < 0 || centre - margin_ > static_cast<double>(pointHeight_)) return;
  FinishPointRows(static_cast<std::int64_t>(std::floor(centre)) - margin_);
  for (const Plane& plane : planes_) AddDrops(plane, row + plane.shape.offset, centre);
}

void DotRenderer::AddDrops(const Plane& plane, const std::uint8_t* bits, double centre) {
  const auto centreRow = static_cast<std::int64_t>(std::floor(centre));
  const int phaseY = static_cast<int>((centre - static_cast<double>(centreRow)) * kPhases);
  const Stamp* stamps = &plane.stamps[static_cast<std::size_t>(phaseY) * kPhases];
  std::uint16_t* const ring = rings_[plane.ring].layers.data();

  const Stamp& any = stamps[0];
  std::vector<std::uint16_t*> rows(static_cast<std::size_t>(any.rows), nullptr);
  for (int y = 0; y < any.rows; ++y) {
    const std::int64_t pointRow = centreRow + any.top + y;
    if (pointRow < pointRow_ || pointRow >= pointHeight_) continue;
    rows[static_cast<std::size_t>(y)] =
        ring + ringStride_ * (static_cast<std::size_t>(pointRow) % ringRows_);
  }

  bool used = false;
  const auto add = [&](std::uint32_t pixel) {
    used = true;
    const std::int64_t x = plane.start + plane.step * pixel;
    const int phaseX = static_cast<int>((x >> (kFraction - 3)) & (kPhases - 1));
    const Stamp& stamp = stamps[phaseX];
    const std::int64_t at = (x >> kFraction) + margin_ + stamp.left;
    if (at < 0 || at + stamp.blocks * kLanes > static_cast<std::int64_t>(ringStride_)) return;
    const std::uint16_t* from = stamp.layers.data();
    for (std::uint16_t* const row : rows) {
      if (row == nullptr) {
        from += stamp.blocks * kLanes;
        continue;
      }
      std::uint16_t* to = row + at;
      for (int block = 0; block < stamp.blocks; ++block, to += kLanes, from += kLanes) {
        for (int i = 0; i < kLanes; ++i) to[i] = static_cast<std::uint16_t>(to[i] + from[i]);
      }
    }
  };
  for (std::uint32_t byte = plane.first / 8; byte < (plane.end + 7) / 8; ++byte) {
    for (unsigned rest = bits[byte]; rest != 0;) {
      const int leading = std::countl_zero(static_cast<std::uint8_t>(rest));
      rest &= ~(0x80u >> leading);
      const std::uint32_t pixel = byte * 8 + static_cast<std::uint32_t>(leading);
      if (pixel < plane.shape.width) add(pixel);
    }
  }
  if (!used) return;
  for (std::uint16_t* const row : rows) {
    if (row != nullptr) ringRowUsed_[static_cast<std::size_t>(row - ring) / ringStride_] = 1;
  }
}

void DotRenderer::FinishPointRows(std::int64_t end) {
  for (; pointRow_ < std::min(end, pointHeight_); ++pointRow_) {
    RenderPointRow(static_cast<std::size_t>(pointRow_) % ringRows_);
    if (++pointRowsInSample_ == pointsPerSample_) FinishSampleRow();
  }
}

void DotRenderer::Finish() {
  FinishPointRows(pointHeight_);
  // The last rows of the picture wait for what lies below them.
  for (int i = 0; i < kSpreadReach; ++i) FinishSampleRow();
}

void DotRenderer::RenderPointRow(std::size_t ringRow) {
  const auto points = static_cast<std::size_t>(pointWidth_);
  if (!ringRowUsed_[ringRow]) return;
  ringRowUsed_[ringRow] = 0;
  lastUsedSampleRow_ = sampleRow_;

  for (auto& dye : dyes_) std::fill(dye.begin(), dye.end(), 0.0f);
  std::fill(pointTotals_.begin(), pointTotals_.end(), std::uint16_t{0});
  for (std::size_t i = 0; i < rings_.size(); ++i) {
    Ring& ring = rings_[i];
    std::uint16_t* const layers = ring.layers.data() + ringStride_ * ringRow + margin_;
    loops_.addLayers(layers, points, static_cast<float>(model_.LayerDye(ring.ink) / kLayer),
                     dyes_[static_cast<std::size_t>(DyeOf(ring.ink))].data(), pointTotals_.data());
    if (channels_.size() > kOwn) {
      std::vector<float>& own = channels_[kOwn + i].sums;
      loops_.addLayerSums(layers, pointsPerSample_, own.size(), own.data());
    }
    std::fill_n(layers - margin_, ringStride_, std::uint16_t{0});
  }

  const double scale = -std::numbers::ln10 / std::numbers::ln2 / model_.YuleNielsen();
  for (std::size_t band = 0; band < 3; ++band) {
    BandFactors factors;
    for (std::size_t i = 0; i < kDyeCount; ++i) {
      factors.dye[i] = static_cast<float>(scale * model_.DyeDensity(static_cast<Dye>(i))[band]);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      factors.overprint[i] = static_cast<float>(scale * model_.Overprints()[i][band]);
    }
    const float* const dyes[kDyeCount] = {dyes_[0].data(), dyes_[1].data(), dyes_[2].data(),
                                          dyes_[3].data()};
    loops_.rootsOfDyes(factors, dyes, points, roots_.data());
    std::vector<float>& sums = channels_[band].sums;
    loops_.addAbsorbed(roots_.data(), pointsPerSample_, sums.size(), sums.data());
  }
  std::vector<float>& sums = channels_[kTotal].sums;
  loops_.addLayerSums(pointTotals_.data(), pointsPerSample_, sums.size(), sums.data());
}

void DotRenderer::FinishSampleRow() {
  pointRowsInSample_ = 0;
  const auto place = static_cast<std::size_t>(sampleRow_ % kSpreadTaps);
  for (Channel& channel : channels_) {
    std::swap(channel.last[place], channel.sums);
    std::fill(channel.sums.begin(), channel.sums.end(), 0.0f);
  }
  if (sampleRow_ >= kSpreadReach) ReduceSampleRow(sampleRow_ - kSpreadReach);
  ++sampleRow_;
}

// Spreads a row of samples and adds it to the two rows of pixels that it is part of.
void DotRenderer::ReduceSampleRow(std::int64_t row) {
  const auto perPixel = static_cast<std::size_t>(samplesPerPixel_);
  const std::size_t before = (reduction_.size() - perPixel) / 2;
  const std::size_t place = static_cast<std::size_t>(row) + before;
  const std::size_t weight = place % perPixel, pixelRow = place / perPixel, kept = pixelRow % 2;
  if (row <= lastUsedSampleRow_ + kSpreadReach) AddSampleRow(row, weight, kept);
  if (weight + 1 < perPixel) return;
  const bool overlap = before > 0;
  FinishPixelRow(static_cast<std::int64_t>(pixelRow) - overlap, overlap ? 1 - kept : kept);
}

void DotRenderer::AddSampleRow(std::int64_t row, std::size_t weight, std::size_t kept) {
  const std::size_t samples = spreadRow_.size();
  const std::size_t after = weight + static_cast<std::size_t>(samplesPerPixel_);
  const auto addToPixels = [&](Channel& channel, const std::vector<float>& from) {
    loops_.addWeighted(from.data(), samples, reduction_[weight], channel.pixels[kept].data(),
                       after < reduction_.size() ? reduction_[after] : 0.0f,
                       channel.pixels[1 - kept].data());
  };
  const float points = static_cast<float>(pointsPerSample_ * pointsPerSample_);
  for (std::size_t band = 0; band < kBands; ++band) {
    const Channel& channel = channels_[band];
    const float* rows[kSpreadTaps];
    for (int tap = 0; tap < kSpreadTaps; ++tap) {
      // The ring holds the rows up to kSpreadReach below this one; before the first all are empty.
      rows[tap] =
          channel
              .last[static_cast<std::size_t>(row + tap + kSpreadTaps - kSpreadReach) % kSpreadTaps]
              .data();
    }
    loops_.spread(rows, spread_, samples, workRow_.data(), spreadRow_.data());
    loops_.absorbedLight(static_cast<float>(model_.YuleNielsen()), 1.0f / points, samples,
                         spreadRow_.data());
    addToPixels(channels_[band], spreadRow_);
  }
  for (std::size_t i = kBands; i < channels_.size(); ++i) {
    addToPixels(channels_[i], channels_[i].last[static_cast<std::size_t>(row) % kSpreadTaps]);
  }
}

float DotRenderer::Reduced(const Channel& channel, std::size_t kept, std::size_t pixel) const {
  const auto perPixel = static_cast<std::size_t>(samplesPerPixel_);
  const std::size_t before = (reduction_.size() - perPixel) / 2;
  const float* const samples =
      channel.pixels[kept].data() + (pixel + static_cast<std::size_t>(pad_)) * perPixel - before;
  float sum = 0;
  for (std::size_t i = 0; i < reduction_.size(); ++i) sum += reduction_[i] * samples[i];
  return sum;
}

// The density, per band, that measured inks have at the pixel's amounts beyond layers of dye.
Triple DotRenderer::BeyondLayers(std::size_t kept, std::size_t pixel) const {
  const double ofFull =
      double{kLayer} * pointsPerSample_ * pointsPerSample_ * model_.LayersAtFull();
  InkAmounts amounts{};
  Triple density{};
  for (std::size_t i = 0; i < rings_.size(); ++i) {
    const Ring& ring = rings_[i];
    const double amount = double{Reduced(channels_[kOwn + i], kept, pixel)} / ofFull;
    amounts[static_cast<std::size_t>(ring.ink)] = amount;
    const double place = std::min(amount, kMostTint) * kTintSteps;
    const Triple& tint = ring.tints[static_cast<std::size_t>(place + 0.5)];
    for (std::size_t band = 0; band < kBands; ++band) density[band] += tint[band];
  }
  const Triple overprint = model_.OverprintBeyondLayers(amounts);
  for (std::size_t band = 0; band < kBands; ++band) density[band] += overprint[band];
  return density;
}

void DotRenderer::FinishPixelRow(std::int64_t row, std::size_t kept) {
  if (row >= pad_ && row < std::int64_t{height_} + pad_) {
    const double ofFull =
        kLayer / 8.0 * pointsPerSample_ * pointsPerSample_ * model_.LayersAtFull();
    for (std::size_t pixel = 0; pixel < width_; ++pixel) {
      for (std::size_t band = 0; band < kBands; ++band) {
        row_.bands[pixel][band] = 1.0 - double{Reduced(channels_[band], kept, pixel)};
      }
      if (channels_.size() > kOwn) {
        const Triple density = BeyondLayers(kept, pixel);
        for (std::size_t band = 0; band < kBands; ++band) {
          row_.bands[pixel][band] *= std::pow(10.0, -density[band]);
        }
      }
      row_.totalInk[pixel] =
          static_cast<float>(double{Reduced(channels_[kTotal], kept, pixel)} / ofFull);
    }
    output_(row_);
  }
  for (Channel& channel : channels_) {
    std::fill(channel.pixels[kept].begin(), channel.pixels[kept].end(), 0.0f);
  }
}

}  // namespace corvane
