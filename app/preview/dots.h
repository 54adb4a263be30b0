// SPDX-License-Identifier: MIT
//
// Drops on paper, seen through the ink model: each drop a round spot of its size, the light
// averaged to the wanted resolution.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "app/inks/ink_model.h"
#include "app/preview/point_loops.h"

namespace corvane {

// A binary plane of the rows of drops.
struct DropPlane {
  Ink ink = Ink::K;
  int drops = 1;           // that a set bit stands for
  std::size_t offset = 0;  // of the plane in a row, bytes
  std::uint32_t width = 0;
  double horizontalDpi = 0;
  double picolitres = 0;  // of a drop
};

// A rectangle of the page, in inches.
struct PageWindow {
  double left = 0, top = 0, width = 0, height = 0;
};

// One row of the picture.
struct RenderedRow {
  std::vector<Triple> bands;    // reflectance against the paper (app/inks/color_math.h)
  std::vector<float> totalInk;  // 1 = one ink at full strength
};

// Renders the rows of a page as they come, with a few of them in memory.
class DotRenderer {
 public:
  using Output = std::function<void(const RenderedRow& row)>;

  // `dpi` is that of the picture; its rows go to `output` from the top. The model must outlive the
  // renderer.
  DotRenderer(const PrintModel& model, const std::vector<DropPlane>& planes, double verticalDpi,
              const PageWindow& window, double dpi, Output output);

  std::uint32_t Width() const { return width_; }    // of the picture, pixels
  std::uint32_t Height() const { return height_; }  // of the picture, rows

  // The page's next row, from the top; those outside the window cost next to nothing.
  void AddRow(const std::uint8_t* row);
  // After the page's last row.
  void Finish();

 private:
  // Spots are drawn on a grid of points, fine against them. The light that the paper mixes lies in
  // cells of several points; a pixel of the picture is one cell or several.
  struct Stamp {
    int rows = 0, blocks = 0;  // blocks of kLanes points across
    int left = 0, top = 0;     // of its first point, against the one that holds the spot's centre
    std::vector<std::uint16_t> layers;
  };
  struct Plane {
    DropPlane shape;
    std::size_t ring;           // in rings_
    std::vector<Stamp> stamps;  // by the centre's place within its point
    std::int64_t step;          // from pixel to pixel, in 2^-32 points
    std::int64_t start;         // the centre of pixel 0
    std::uint32_t first, end;   // pixels that can touch the window
  };
  struct Ring {
    Ink ink;
    std::vector<std::uint16_t> layers;  // ringRows_ rows of points
  };

  Plane MakePlane(const DropPlane& shape);
  void AddDrops(const Plane& plane, const std::uint8_t* bits, double centre);
  void FinishPointRows(std::int64_t end);
  void RenderPointRow(std::size_t ringRow);
  void FinishCellRow();
  void FinishPixelRow();

  const PrintModel& model_;
  const PointLoops& loops_ =
      *CORVANE_OF_LEVEL(SelectedCpuLevel(), &plain::kPointLoops, kPointLoops);
  Output output_;
  double verticalDpi_, windowTop_;
  std::uint32_t width_, height_;
  int pointsPerCell_, cellsPerPixel_;
  double pointDpi_;
  std::int64_t pointWidth_, pointHeight_;
  int margin_ = 0;  // points that a spot can reach beyond its centre's
  std::size_t ringStride_ = 0, ringRows_ = 0;
  std::vector<Plane> planes_;
  std::vector<Ring> rings_;
  std::vector<std::uint8_t> ringRowUsed_;

  std::int64_t rowNumber_ = 0;
  std::int64_t pointRow_ = 0;  // the next to be rendered
  int pointRowsInCell_ = 0, cellRowsInPixel_ = 0;
  std::array<std::vector<float>, kDyeCount> dyes_;
  std::array<std::vector<float>, 3> roots_;
  std::vector<std::uint16_t> pointTotals_;
  std::array<std::vector<float>, 3> cellRoots_;    // sums over the points of a row of cells
  std::array<std::vector<double>, 3> pixelBands_;  // sums over the cells of a row of pixels
  std::vector<double> pixelInk_;                   // sums over the points of a row of pixels
  RenderedRow row_;
};

}  // namespace corvane
