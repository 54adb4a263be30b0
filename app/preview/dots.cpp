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
    : model_(model), output_(std::move(output)), verticalDpi_(verticalDpi), windowTop_(window.top) {
  width_ = static_cast<std::uint32_t>(std::max(1.0, std::round(window.width * dpi)));
  height_ = static_cast<std::uint32_t>(std::max(1.0, std::round(window.height * dpi)));
  cellsPerPixel_ = std::max(1, static_cast<int>(std::lround(kCellDpi / dpi)));
  const double cellDpi = dpi * cellsPerPixel_;
  pointsPerCell_ = std::max(1, static_cast<int>(std::ceil(kLeastPointDpi / cellDpi - 1e-9)));
  pointDpi_ = cellDpi * pointsPerCell_;
  pointWidth_ = std::int64_t{width_} * cellsPerPixel_ * pointsPerCell_;
  pointHeight_ = std::int64_t{height_} * cellsPerPixel_ * pointsPerCell_;

  for (const DropPlane& plane : planes) {
    const double radius = std::sqrt(model.SpotArea(plane.picolitres) / std::numbers::pi);
    margin_ = std::max(margin_, static_cast<int>(radius / kMicrometresPerInch * pointDpi_) + 2);
  }
  ringRows_ = 2 * static_cast<std::size_t>(margin_) + 2;
  ringStride_ = static_cast<std::size_t>(pointWidth_ + 2 * margin_ + kLanes);
  ringRowUsed_.resize(ringRows_);
  for (const DropPlane& plane : planes) {
    planes_.push_back(MakePlane(plane));
    Plane& made = planes_.back();
    // The window's left edge lies at a place of its own within the page's points.
    made.start = FixedPoint(pointDpi_ / plane.horizontalDpi / 2 - window.left * pointDpi_);
    const double reach = margin_ * plane.horizontalDpi / pointDpi_;
    const double left = window.left * plane.horizontalDpi;
    const double right = left + static_cast<double>(pointWidth_) / pointDpi_ * plane.horizontalDpi;
    made.first = static_cast<std::uint32_t>(std::clamp(left - reach, 0.0, double{1} * plane.width));
    made.end = static_cast<std::uint32_t>(
        std::clamp(std::ceil(right + reach), 0.0, double{1} * plane.width));
  }

  const auto points = static_cast<std::size_t>(pointWidth_);
  const std::size_t cells = points / static_cast<std::size_t>(pointsPerCell_);
  for (auto& dye : dyes_) dye.resize(points);
  for (auto& root : roots_) root.resize(points);
  pointTotals_.resize(points);
  for (auto& cell : cellRoots_) cell.resize(cells);
  for (auto& pixel : pixelBands_) pixel.resize(width_);
  pixelInk_.resize(width_);
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
    rings_.push_back({shape.ink, std::vector<std::uint16_t>(ringStride_ * ringRows_)});
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
    if (++pointRowsInCell_ == pointsPerCell_) FinishCellRow();
  }
}

void DotRenderer::Finish() { FinishPointRows(pointHeight_); }

void DotRenderer::RenderPointRow(std::size_t ringRow) {
  const auto points = static_cast<std::size_t>(pointWidth_);
  const auto perCell = static_cast<std::size_t>(pointsPerCell_);
  if (!ringRowUsed_[ringRow]) {
    for (auto& cells : cellRoots_) {
      for (float& cell : cells) cell += static_cast<float>(perCell);
    }
    return;
  }
  ringRowUsed_[ringRow] = 0;

  for (auto& dye : dyes_) std::fill(dye.begin(), dye.end(), 0.0f);
  std::fill(pointTotals_.begin(), pointTotals_.end(), std::uint16_t{0});
  for (Ring& ring : rings_) {
    std::uint16_t* const layers = ring.layers.data() + ringStride_ * ringRow + margin_;
    loops_.addLayers(layers, points, static_cast<float>(model_.LayerDye(ring.ink) / kLayer),
                     dyes_[static_cast<std::size_t>(DyeOf(ring.ink))].data(), pointTotals_.data());
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
    float* const roots = roots_[band].data();
    const float* const dyes[kDyeCount] = {dyes_[0].data(), dyes_[1].data(), dyes_[2].data(),
                                          dyes_[3].data()};
    loops_.rootsOfDyes(factors, dyes, points, roots);
    float* const cells = cellRoots_[band].data();
    const std::size_t cellCount = cellRoots_[band].size();
    for (std::size_t cell = 0; cell < cellCount; ++cell) {
      float all = 0;
      for (std::size_t i = 0; i < perCell; ++i) all += roots[cell * perCell + i];
      cells[cell] += all;
    }
  }
  const std::size_t perPixel = perCell * static_cast<std::size_t>(cellsPerPixel_);
  for (std::size_t pixel = 0; pixel < width_; ++pixel) {
    std::uint32_t all = 0;
    for (std::size_t i = 0; i < perPixel; ++i) all += pointTotals_[pixel * perPixel + i];
    pixelInk_[pixel] += all * 8.0;
  }
}

void DotRenderer::FinishCellRow() {
  pointRowsInCell_ = 0;
  const double points = static_cast<double>(pointsPerCell_) * pointsPerCell_;
  const auto perPixel = static_cast<std::size_t>(cellsPerPixel_);
  for (std::size_t band = 0; band < 3; ++band) {
    std::vector<float>& cells = cellRoots_[band];
    for (std::size_t pixel = 0; pixel < width_; ++pixel) {
      for (std::size_t i = 0; i < perPixel; ++i) {
        float& cell = cells[pixel * perPixel + i];
        pixelBands_[band][pixel] += cell == static_cast<float>(points)
                                        ? 1.0
                                        : std::pow(cell / points, model_.YuleNielsen());
        cell = 0.0f;
      }
    }
  }
  if (++cellRowsInPixel_ == cellsPerPixel_) FinishPixelRow();
}

void DotRenderer::FinishPixelRow() {
  cellRowsInPixel_ = 0;
  const double cells = static_cast<double>(cellsPerPixel_) * cellsPerPixel_;
  const double ofFull = cells * pointsPerCell_ * pointsPerCell_ * kLayer * model_.LayersAtFull();
  for (std::size_t pixel = 0; pixel < width_; ++pixel) {
    for (std::size_t band = 0; band < 3; ++band) {
      row_.bands[pixel][band] = pixelBands_[band][pixel] / cells;
      pixelBands_[band][pixel] = 0;
    }
    row_.totalInk[pixel] = static_cast<float>(pixelInk_[pixel] / ofFull);
    pixelInk_[pixel] = 0;
  }
  output_(row_);
}

}  // namespace corvane
