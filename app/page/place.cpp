// SPDX-License-Identifier: MIT
#include "app/page/place.h"

#include <fmt/format.h>
#include <zimg.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <new>
#include <vector>

#include "app/image/reader.h"
#include "app/page/shrink.h"
#include "app/support/failure.h"
#include "app/support/short_memory.h"
#include "app/support/units.h"

namespace corvane {
namespace {

// A side may be this much short of a whole pixel.
constexpr double kForgivenPixels = 0.3;
constexpr std::uint8_t kWhite = 255;

// One direction of a placement.
struct Span {
  std::uint32_t start = 0, size = 0;       // on the sheet
  double sourceStart = 0, sourceSize = 0;  // in the image
};

// An image side of `pixels` drawn with `drawn` sheet pixels, on a side of `room` pixels that begins
// at `start`. `before` is the part of what is left over, or cut off, that lies before it.
Span PlaceSide(std::uint32_t pixels, std::uint64_t drawn, std::uint32_t start, std::uint32_t room,
               double before) {
  const double perDrawn = static_cast<double>(pixels) / static_cast<double>(drawn);
  Span span;
  span.start = start;
  if (drawn <= room) {
    span.size = static_cast<std::uint32_t>(drawn);
    span.start += static_cast<std::uint32_t>((room - span.size) * before);
    span.sourceSize = pixels;
  } else {
    span.size = room;
    span.sourceStart = std::floor(static_cast<double>(drawn - room) * before) * perDrawn;
    span.sourceSize = room * perDrawn;
  }
  return span;
}

struct Inches {
  double wide, high;
};

Inches NaturalSize(const ImageSize& image, const Sheet& sheet, const ImagePlacing& placing) {
  const bool known = image.horizontalDpi > 0 && image.verticalDpi > 0;
  const double assumed = placing.assumedDpi > 0 ? placing.assumedDpi
                                                : std::max(sheet.horizontalDpi, sheet.verticalDpi);
  return {image.width / (known ? image.horizontalDpi : assumed),
          image.height / (known ? image.verticalDpi : assumed)};
}

// The scale at which an image just has room.
double FittingScale(const Inches& size, const SheetArea& area, const Sheet& sheet) {
  return std::min(area.width / sheet.horizontalDpi / size.wide,
                  area.height / sheet.verticalDpi / size.high);
}

// Within two pixels, or a 2000th of a long side: resampling would soften the image for nothing.
bool NearlyEqual(std::uint64_t drawn, std::uint32_t pixels) {
  const std::uint64_t tolerance = std::max(2u, pixels / 2000);
  return drawn + tolerance >= pixels && drawn <= pixels + tolerance;
}

// ---------------------------------------------------------------------------------------------
// Resampling. The library asks for rows of the image and hands out rows of the sheet.

struct FreeGraph {
  void operator()(zimg_filter_graph* graph) const { zimg_filter_graph_free(graph); }
};
constexpr std::size_t kAlignment = 64;

struct FreeAligned {
  void operator()(void* memory) const { ::operator delete (memory, std::align_val_t{kAlignment}); }
};

std::size_t Aligned(std::size_t bytes) {
  return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

std::unique_ptr<std::uint8_t, FreeAligned> AlignedBytes(std::size_t bytes) {
  void* const memory = ::operator new (Aligned(bytes), std::align_val_t{kAlignment});
  return std::unique_ptr<std::uint8_t, FreeAligned>(static_cast<std::uint8_t*>(memory));
}

[[noreturn]] void FailInResampling() {
  ThrowIfMemoryFailed();  // where the library found no room for the reason either
  char text[256] = "";
  if (zimg_get_last_error(text, sizeof text) == ZIMG_ERROR_OUT_OF_MEMORY) throw std::bad_alloc();
  throw Failure(fmt::format("resampling failed: {}", text));
}

// Three planes of the last few rows of an image, as the library reads and writes them.
class RowRing {
 public:
  RowRing(std::uint32_t width, unsigned rows)
      : mask_(zimg_select_buffer_mask(rows)),
        stride_(Aligned(width)),
        planeBytes_(stride_ * (std::size_t{mask_} + 1)),
        memory_(AlignedBytes(3 * planeBytes_)) {}

  std::uint8_t* Row(unsigned plane, unsigned y) {
    return memory_.get() + plane * planeBytes_ + (y & mask_) * stride_;
  }

  template <typename Buffer>
  Buffer As() {
    Buffer buffer = {};
    buffer.version = ZIMG_API_VERSION;
    for (unsigned plane = 0; plane < 3; ++plane) {
      buffer.plane[plane].data = Row(plane, 0);
      buffer.plane[plane].stride = static_cast<ptrdiff_t>(stride_);
      buffer.plane[plane].mask = mask_;
    }
    return buffer;
  }

 private:
  unsigned mask_;
  std::size_t stride_;
  std::size_t planeBytes_;
  std::unique_ptr<std::uint8_t, FreeAligned> memory_;
};

zimg_image_format RgbFormat(std::uint32_t width, std::uint32_t height) {
  zimg_image_format format;
  zimg_image_format_default(&format, ZIMG_API_VERSION);
  format.width = width;
  format.height = height;
  format.pixel_type = ZIMG_PIXEL_BYTE;
  format.color_family = ZIMG_COLOR_RGB;
  format.matrix_coefficients = ZIMG_MATRIX_RGB;
  format.pixel_range = ZIMG_RANGE_FULL;
  return format;
}

class Resampler {
 public:
  // `deliver` gets rows of the placement's width.
  Resampler(RowSource& image, const Placement& placement,
            std::function<void(const std::uint8_t* row)> deliver)
      : image_(image),
        deliver_(std::move(deliver)),
        width_(placement.width),
        height_(placement.height) {
    zimg_image_format from = RgbFormat(image.Width(), image.Height());
    from.active_region = {placement.sourceLeft, placement.sourceTop, placement.sourceWidth,
                          placement.sourceHeight};
    const zimg_image_format to = RgbFormat(placement.width, placement.height);
    zimg_graph_builder_params parameters;
    zimg_graph_builder_params_default(&parameters, ZIMG_API_VERSION);
    parameters.resample_filter = ZIMG_RESIZE_SPLINE36;
    parameters.cpu_type = ZIMG_CPU_AUTO_64B;
    // Diffusing the error of the last rounding needs whole rows. Without it the library works in
    // columns of the image, one after the other, and no row would be complete before the end.
    parameters.dither_type = ZIMG_DITHER_ERROR_DIFFUSION;
    StartWatchingMemory();
    graph_.reset(zimg_filter_graph_build(&from, &to, &parameters));
    if (!graph_) FailInResampling();
  }

  void Run() {
    StartWatchingMemory();
    unsigned inputRows = 0, outputRows = 0;
    std::size_t scratchBytes = 0;
    if (zimg_filter_graph_get_input_buffering(graph_.get(), &inputRows) != 0 ||
        zimg_filter_graph_get_output_buffering(graph_.get(), &outputRows) != 0 ||
        zimg_filter_graph_get_tmp_size(graph_.get(), &scratchBytes) != 0) {
      FailInResampling();
    }
    input_ = std::make_unique<RowRing>(image_.Width(), std::min(inputRows, image_.Height()));
    output_ = std::make_unique<RowRing>(width_, std::min(outputRows, height_));
    imageRow_.resize(image_.RowBytes());
    sheetRow_.resize(std::size_t{3} * width_);
    const auto scratch = AlignedBytes(scratchBytes);
    const auto source = input_->As<zimg_image_buffer_const>();
    const auto target = output_->As<zimg_image_buffer>();
    StartWatchingMemory();
    const auto result = zimg_filter_graph_process(graph_.get(), &source, &target, scratch.get(),
                                                  &Fill, this, &Drain, this);
    if (thrown_) std::rethrow_exception(thrown_);
    if (result != ZIMG_ERROR_SUCCESS) FailInResampling();
  }

 private:
  // Nothing may be thrown through the library.
  template <typename Action>
  int Guarded(Action action) {
    try {
      action();
      return 0;
    } catch (...) {
      thrown_ = std::current_exception();
      return 1;
    }
  }

  static int Fill(void* self, unsigned y, unsigned, unsigned) {
    auto* resampler = static_cast<Resampler*>(self);
    return resampler->Guarded([&] { resampler->ReadUpTo(y); });
  }

  static int Drain(void* self, unsigned y, unsigned left, unsigned right) {
    auto* resampler = static_cast<Resampler*>(self);
    return resampler->Guarded([&] {
      if (left != 0 || right < resampler->width_) throw Failure("resampling gave part of a row");
      resampler->DeliverRow(y);
    });
  }

  void ReadUpTo(unsigned y) {
    for (; rowsRead_ <= y; ++rowsRead_) {
      image_.ReadRow(imageRow_.data());
      std::uint8_t* planes[3];
      for (unsigned i = 0; i < 3; ++i) planes[i] = input_->Row(i, rowsRead_);
      const std::uint8_t* pixel = imageRow_.data();
      for (std::uint32_t x = 0; x < image_.Width(); ++x, pixel += 3) {
        planes[0][x] = pixel[0];
        planes[1][x] = pixel[1];
        planes[2][x] = pixel[2];
      }
    }
  }

  void DeliverRow(unsigned y) {
    const std::uint8_t* planes[3];
    for (unsigned i = 0; i < 3; ++i) planes[i] = output_->Row(i, y);
    std::uint8_t* pixel = sheetRow_.data();
    for (std::uint32_t x = 0; x < width_; ++x, pixel += 3) {
      pixel[0] = planes[0][x];
      pixel[1] = planes[1][x];
      pixel[2] = planes[2][x];
    }
    deliver_(sheetRow_.data());
  }

  RowSource& image_;
  std::function<void(const std::uint8_t*)> deliver_;
  std::uint32_t width_, height_;
  std::unique_ptr<zimg_filter_graph, FreeGraph> graph_;
  std::unique_ptr<RowRing> input_, output_;
  std::vector<std::uint8_t> imageRow_, sheetRow_;
  unsigned rowsRead_ = 0;
  std::exception_ptr thrown_;
};

// Delivers the rows of an image that keeps its size.
void CopyRows(RowSource& image, const Placement& placement,
              const std::function<void(const std::uint8_t* row)>& deliver) {
  std::vector<std::uint8_t> row(image.RowBytes());
  const auto top = static_cast<std::uint32_t>(placement.sourceTop);
  const std::size_t left = static_cast<std::size_t>(placement.sourceLeft) * image.BytesPerPixel();
  for (std::uint32_t y = 0; y < top; ++y) image.ReadRow(row.data());
  for (std::uint32_t y = 0; y < placement.height; ++y) {
    image.ReadRow(row.data());
    deliver(row.data() + left);
  }
}

// The image's row or column under the middle of the i-th of `count` sheet pixels.
std::uint32_t Under(std::uint32_t i, double start, double size, std::uint32_t count,
                    std::uint32_t limit) {
  const double position = start + (i + 0.5) * size / count;
  return std::min(static_cast<std::uint32_t>(position), limit - 1);
}

}  // namespace

Sheet MakeSheet(const PaperSize& paper, double horizontalDpi, double verticalDpi) {
  const auto pixels = [](double millimetres, double dpi) {
    return static_cast<std::uint32_t>(
        std::max(1.0, std::floor(millimetres / kMillimetresPerInch * dpi + kForgivenPixels)));
  };
  return {pixels(paper.widthMm, horizontalDpi), pixels(paper.heightMm, verticalDpi), horizontalDpi,
          verticalDpi};
}

SheetArea AreaOn(const Sheet& sheet, const Margins& margins, const Position& position) {
  // Nothing is printed in a margin, so it takes whole pixels; what is left over of one by rounding
  // is none.
  constexpr double kNothing = 1e-6;
  const auto bare = [&](double millimetres, double dpi) {
    return std::ceil(millimetres / kMillimetresPerInch * dpi - kNothing);
  };
  const auto offset = [&](double millimetres, double dpi) {
    return std::round(millimetres / kMillimetresPerInch * dpi);
  };
  const double across = sheet.horizontalDpi, down = sheet.verticalDpi;
  const double left = bare(margins.left, across) + offset(position.leftMm, across);
  const double top = bare(margins.top, down) + offset(position.topMm, down);
  const double width = sheet.width - left - bare(margins.right, across);
  const double height = sheet.height - top - bare(margins.bottom, down);
  if (width < 1 || height < 1) {
    throw UsageFailure(fmt::format(
        "--margins and --position leave nothing of the sheet, which is {:.4g} x {:.4g} mm",
        sheet.width / across * kMillimetresPerInch, sheet.height / down * kMillimetresPerInch));
  }
  return {static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(top),
          static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
}

int DegreesOf(const ImagePlacing& placing, const ImageSize& image, const Sheet& sheet) {
  if (placing.degrees != kTurnToFit) return placing.degrees;
  // A gain that nobody sees is no reason to turn an image.
  constexpr double kGain = 1.001;
  const SheetArea area = AreaOn(sheet, placing.margins, placing.position);
  const Inches size = NaturalSize(image, sheet, placing);
  const double upright = FittingScale(size, area, sheet);
  const double turned = FittingScale({size.high, size.wide}, area, sheet);
  const bool fits = placing.scale && *placing.scale <= upright;
  return !fits && turned > upright * kGain ? 90 : 0;
}

int DegreesOf(const ImagePlacing& placing, const PaperSize& drawing, const Sheet& sheet) {
  constexpr double kPerInch = 100 * kMillimetresPerInch;
  const auto hundredths = [](double millimetres) {
    return static_cast<std::uint32_t>(std::lround(millimetres * 100));
  };
  return DegreesOf(
      placing,
      ImageSize{hundredths(drawing.widthMm), hundredths(drawing.heightMm), kPerInch, kPerInch},
      sheet);
}

Placement PlaceImage(const ImageSize& image, const Sheet& sheet, const ImagePlacing& placing) {
  const SheetArea area = AreaOn(sheet, placing.margins, placing.position);
  const Inches size = NaturalSize(image, sheet, placing);
  const double factor = placing.scale ? *placing.scale : FittingScale(size, area, sheet);
  const auto drawn = [&](double inches, double dpi) {
    return static_cast<std::uint64_t>(std::clamp(std::round(inches * factor * dpi), 1.0, 1e9));
  };
  std::uint64_t width = drawn(size.wide, sheet.horizontalDpi);
  std::uint64_t height = drawn(size.high, sheet.verticalDpi);
  Placement placement;
  placement.sameSize = NearlyEqual(width, image.width) && NearlyEqual(height, image.height);
  if (placement.sameSize) {
    width = image.width;
    height = image.height;
  }
  const Span across = PlaceSide(image.width, width, area.left, area.width, placing.position.across);
  const Span down = PlaceSide(image.height, height, area.top, area.height, placing.position.down);
  placement.left = across.start;
  placement.width = across.size;
  placement.sourceLeft = across.sourceStart;
  placement.sourceWidth = across.sourceSize;
  placement.top = down.start;
  placement.height = down.size;
  placement.sourceTop = down.sourceStart;
  placement.sourceHeight = down.sourceSize;
  return placement;
}

std::vector<std::uint8_t> WhiteRow(std::uint32_t width, std::size_t bytesPerPixel) {
  std::vector<std::uint8_t> row(bytesPerPixel * width, kWhite);
  for (std::size_t tag = 3; bytesPerPixel == 4 && tag < row.size(); tag += 4) {
    row[tag] = kGraphicsTag;
  }
  return row;
}

void PlaceRows(RowSource& image, const Placement& placement, const Sheet& sheet,
               const std::function<void(const std::uint8_t* row)>& receiver) {
  const std::size_t pixel = image.BytesPerPixel();
  const std::vector<std::uint8_t> whiteRow = WhiteRow(sheet.width, pixel);
  std::vector<std::uint8_t> sheetRow = whiteRow;
  for (std::uint32_t y = 0; y < placement.top; ++y) receiver(whiteRow.data());

  const auto deliver = [&](const std::uint8_t* row) {
    std::memcpy(sheetRow.data() + pixel * placement.left, row, pixel * placement.width);
    receiver(sheetRow.data());
  };
  if (placement.sameSize) {
    CopyRows(image, placement, deliver);
  } else {
    const Shrink shrink(placement);
    if (shrink.IsNeeded()) {
      ShrunkRows shrunk(image, shrink);
      Resampler(shrunk, shrink.Of(placement), deliver).Run();
    } else {
      Resampler(image, placement, deliver).Run();
    }
  }

  for (std::uint32_t y = placement.top + placement.height; y < sheet.height; ++y) {
    receiver(whiteRow.data());
  }
}

PlacedTags::PlacedTags(std::unique_ptr<RowSource> tags, const Placement& placement,
                       const Sheet& sheet)
    : RowSource(sheet.width, sheet.height, 1),
      tags_(std::move(tags)),
      placement_(placement),
      tagRow_(tags_->RowBytes()),
      columns_(placement.width) {
  for (std::uint32_t x = 0; x < placement.width; ++x) {
    columns_[x] =
        Under(x, placement.sourceLeft, placement.sourceWidth, placement.width, tags_->Width());
  }
}

PlacedTags::~PlacedTags() = default;

void PlacedTags::ReadRow(std::uint8_t* row) {
  std::memset(row, 0, RowBytes());
  const std::uint32_t y = next_++;
  if (y < placement_.top || y - placement_.top >= placement_.height) return;
  const std::uint32_t needed = Under(y - placement_.top, placement_.sourceTop,
                                     placement_.sourceHeight, placement_.height, tags_->Height());
  for (; rowsRead_ <= needed; ++rowsRead_) tags_->ReadRow(tagRow_.data());
  for (std::uint32_t x = 0; x < placement_.width; ++x) {
    row[placement_.left + x] = tagRow_[columns_[x]];
  }
}

}  // namespace corvane
