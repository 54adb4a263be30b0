// SPDX-License-Identifier: MIT
//
// Putting an image on the sheet: where it lies, and its pixels in the sheet's resolution.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "app/image/row_source.h"
#include "app/page/paper.h"
#include "app/page/placing.h"

namespace corvane {

// The sheet as a grid of input pixels. A side that is no whole number of them loses the rest,
// unless less than a third of a pixel is missing: A4 at 600 dpi has the usual 4960 x 7016.
struct Sheet {
  std::uint32_t width = 0;   // pixels
  std::uint32_t height = 0;  // pixels
  double horizontalDpi = 0;
  double verticalDpi = 0;
};

Sheet MakeSheet(const PaperSize& paper, double horizontalDpi, double verticalDpi);

// An image that is to be placed. Without a resolution of its own (0) an image has the sheet's
// finer one, in both directions.
struct ImageSize {
  std::uint32_t width = 0;   // pixels
  std::uint32_t height = 0;  // pixels
  double horizontalDpi = 0;
  double verticalDpi = 0;
};

// Where an image shows on the sheet, and which part of it.
struct Placement {
  std::uint32_t left = 0, top = 0, width = 0, height = 0;  // on the sheet, pixels
  double sourceLeft = 0, sourceTop = 0;                    // in the image, pixels
  double sourceWidth = 0, sourceHeight = 0;
  bool sameSize = false;  // pixels are copied; the source figures are whole numbers
};

// What of a sheet an image may take, in pixels.
struct SheetArea {
  std::uint32_t left = 0, top = 0, width = 0, height = 0;
};

// The area within the margins, and behind what a position keeps bare. Throws UsageFailure when
// nothing is left.
SheetArea AreaOn(const Sheet& sheet, const Margins& margins, const Position& position = {});

// Places an image, which is turned already, in that area. `scale` multiplies its natural size;
// without it the image is made as large as the area allows. What does not fit is cut off, alike on
// both sides of an image in the centre. An image that would change its size by no more than two
// pixels, or a 2000th, keeps it.
Placement PlaceImage(const ImageSize& image, const Sheet& sheet, const ImagePlacing& placing);

// How far clockwise the image is to be turned: kTurnToFit asks whether it gets larger by that.
int DegreesOf(const ImagePlacing& placing, const ImageSize& image, const Sheet& sheet);
// The same for what is drawn in millimetres.
int DegreesOf(const ImagePlacing& placing, const PaperSize& drawing, const Sheet& sheet);

// A row of bare paper: with a tag as the fourth byte of a pixel it is no photograph.
std::vector<std::uint8_t> WhiteRow(std::uint32_t width, std::size_t bytesPerPixel);

// Delivers every row of the sheet, from the top, as three bytes a pixel: white outside the image.
// An image with a tag behind each pixel keeps it, where pixels are copied; others are not taken.
// The row is valid during the call. Throws what the image and the receiver throw.
void PlaceRows(RowSource& image, const Placement& placement, const Sheet& sheet,
               const std::function<void(const std::uint8_t* row)>& receiver);

// The same for tags, a byte a pixel: each sheet pixel takes the tag that lies under its middle, and
// 0 outside the image.
class PlacedTags : public RowSource {
 public:
  PlacedTags(std::unique_ptr<RowSource> tags, const Placement& placement, const Sheet& sheet);
  ~PlacedTags() override;

  void ReadRow(std::uint8_t* row) override;

 private:
  std::unique_ptr<RowSource> tags_;
  Placement placement_;
  std::vector<std::uint8_t> tagRow_;
  std::vector<std::uint32_t> columns_;  // of the tags, under each placed pixel
  std::uint32_t rowsRead_ = 0;          // of tags_
  std::uint32_t next_ = 0;
};

}  // namespace corvane
