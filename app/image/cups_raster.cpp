// SPDX-License-Identifier: MIT
#include <cups/raster.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "app/image/pictures.h"
#include "app/image/profile.h"
#include "app/image/raster_sheet.h"
#include "app/support/failure.h"
#include "app/support/limits.h"
#include "app/support/short_memory.h"
#include "app/support/units.h"

namespace corvane {
namespace {

using Colour = PixelForm::Colour;

constexpr double kAdobeRgbGamma = 563 / 256.0;
constexpr Chromaticities kAdobeRgb = {.greenX = 0.21, .greenY = 0.71};
constexpr unsigned kMostRowBytes = 1u << 30;

// A field of a header as it stands in the stream: an enumeration of the library does not hold every
// number.
template <typename Field>
unsigned NumberIn(const Field& field) {
  unsigned number;
  static_assert(sizeof field == sizeof number);
  std::memcpy(&number, &field, sizeof number);
  return number;
}

struct CloseRaster {
  void operator()(cups_raster_t* raster) const { cupsRasterClose(raster); }
};

struct Space {
  cups_cspace_t space;
  Colour colour;
  bool inverted = false;  // more is darker
};

constexpr Space kSpaces[] = {
    {CUPS_CSPACE_W, Colour::Grey},       {CUPS_CSPACE_SW, Colour::Grey},
    {CUPS_CSPACE_K, Colour::Grey, true}, {CUPS_CSPACE_RGB, Colour::Rgb},
    {CUPS_CSPACE_SRGB, Colour::Rgb},     {CUPS_CSPACE_ADOBERGB, Colour::Rgb},
    {CUPS_CSPACE_CMYK, Colour::Cmyk},
};

class CupsRaster : public PageStream {
 public:
  explicit CupsRaster(std::unique_ptr<InputStream> input) : input_(std::move(input)) {
    // The first version, in either byte order, has a shorter header than the others.
    const auto mark = input_->Peek(4);
    const bool first = mark.size() == 4 && (mark[3] == 't' || mark[0] == 't');
    headerBytes_ = first ? sizeof(cups_page_header_t) : sizeof(cups_page_header2_t);
    StartWatchingMemory();
    raster_.reset(cupsRasterOpenIO(&Deliver, this, CUPS_RASTER_READ));
    RethrowFromInput();
    if (!raster_) ThrowIfMemoryFailed();
    if (!raster_) throw Failure(input_->Name() + ": damaged raster stream");
  }

  bool Next() override {
    if (storedRowsLeft_ > 0) PassOverRest();
    headerStarted_ = endedCleanly_ = false;
    page_.image = {};
    page_.number = pages_;
    page_.image.path = fmt::format("{}, page {}", input_->Name(), pages_ + 1);
    StartWatchingMemory();
    const bool found = cupsRasterReadHeader2(raster_.get(), &header_) != 0;
    RethrowFromInput();
    if (!found) {
      ThrowIfMemoryFailed();
      if (pages_ == 0) throw Failure(input_->Name() + ": the raster stream has no page");
      if (!endedCleanly_) Fail("damaged raster stream: its header is cut short or wrong");
      return false;
    }
    ++pages_;
    Describe();
    return true;
  }

  void ReadRow(std::uint8_t* row) override {
    const std::uint32_t y = y_++;
    if (y < top_ || y - top_ >= header_.cupsHeight) {
      std::memset(row, White(), page_.image.RowBytes());
      return;
    }
    ReadStored();
    const std::size_t pixel = page_.image.form.BytesPerPixel();
    const std::size_t margin = left_ * pixel;
    const std::size_t bytes = header_.cupsWidth * pixel;
    std::memset(row, White(), margin);
    std::memset(row + margin + bytes, White(), page_.image.RowBytes() - margin - bytes);
    Convert(row + margin);
  }

  void Cancel() override { input_->Cancel(); }

 private:
  [[noreturn]] void Fail(std::string_view what) const {
    throw Failure(fmt::format("{}: {}", page_.image.path, what));
  }

  // Nothing may be thrown through the library, which takes the answer 0 for the end.
  static ssize_t Deliver(void* self, unsigned char* data, std::size_t size) {
    auto* raster = static_cast<CupsRaster*>(self);
    try {
      const std::size_t done = raster->input_->ReadAvailable(data, size);
      // A stream ends where a whole header is asked for and nothing comes.
      if (!std::exchange(raster->headerStarted_, true)) {
        raster->endedCleanly_ = done == 0 && size == raster->headerBytes_;
      }
      return static_cast<ssize_t>(done);
    } catch (...) {
      raster->thrown_ = std::current_exception();
      return 0;
    }
  }

  void RethrowFromInput() {
    if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
  }

  void ReadStored() {
    const unsigned bytes = header_.cupsBytesPerLine;
    StartWatchingMemory();
    const unsigned done = cupsRasterReadPixels(raster_.get(), stored_.data(), bytes);
    RethrowFromInput();
    if (done != bytes) {
      ThrowIfMemoryFailed();
      Fail(fmt::format("ends after {} of {} rows", header_.cupsHeight - storedRowsLeft_,
                       header_.cupsHeight));
    }
    --storedRowsLeft_;
  }

  void PassOverRest() {
    while (storedRowsLeft_ > 0) ReadStored();
  }

  void Describe() {
    const unsigned number = NumberIn(header_.cupsColorSpace);
    const auto space = std::find_if(std::begin(kSpaces), std::end(kSpaces),
                                    [&](const Space& s) { return s.space == number; });
    if (space == std::end(kSpaces)) {
      Fail(fmt::format("raster of colour space {} is not read", number));
    }
    form_ = *space;
    bits_ = header_.cupsBitsPerColor;
    ImageInfo& image = page_.image;
    image.form.colour = form_.colour;
    image.form.bits = bits_ == 16 ? 16 : 8;
    const auto colours = static_cast<unsigned>(image.form.ColourChannels());
    const unsigned order = NumberIn(header_.cupsColorOrder);
    banded_ = order == CUPS_ORDER_BANDED && colours > 1;
    if (order == CUPS_ORDER_PLANAR && colours > 1) {
      Fail("raster with one colour of the page after the other is not read");
    }
    const bool depthFits = bits_ == 8 || bits_ == 16 || (bits_ == 1 && colours == 1);
    if (!depthFits || header_.cupsBitsPerPixel != (banded_ ? 1 : colours) * bits_) {
      Fail(fmt::format("raster of {} colours with {} bits, {} a pixel, is not read", colours, bits_,
                       header_.cupsBitsPerPixel));
    }
    CheckImageSize(image.path, header_.cupsWidth, header_.cupsHeight);
    const std::uint64_t needed = (std::uint64_t{header_.cupsWidth} * colours * bits_ + 7) / 8;
    if (header_.cupsBytesPerLine < needed || header_.cupsBytesPerLine > kMostRowBytes) {
      Fail("damaged raster stream: its rows do not hold their pixels");
    }
    if (form_.space == CUPS_CSPACE_ADOBERGB) {
      image.profile = MakeRgbProfile(kAdobeRgb, kAdobeRgbGamma);
    }
    image.horizontalDpi = header_.HWResolution[0];
    image.verticalDpi = header_.HWResolution[1];
    page_.copies = static_cast<int>(std::clamp(header_.NumCopies, 1u, 9999u));
    page_.collated = NumberIn(header_.Collate) == CUPS_TRUE;
    DescribeTicket();
    stored_.resize(header_.cupsBytesPerLine);
    storedRowsLeft_ = header_.cupsHeight;
    y_ = 0;
    DescribeSheet();
  }

  // PWG raster has the content and the quality in these fields, too, and zeros in those of the
  // modes.
  void DescribeTicket() {
    constexpr int kQuality = 8, kMode = 9, kAlternateMode = 10;
    const auto word = [](const auto& field) {
      return std::string(field, strnlen(field, sizeof field));
    };
    const auto number = [](unsigned field) {
      return static_cast<int>(std::min(field, unsigned{std::numeric_limits<int>::max()}));
    };
    page_.ticket.mediaType = word(header_.MediaType);
    page_.ticket.mediaNumber = number(header_.cupsMediaType);
    page_.ticket.content = word(header_.OutputType);
    page_.ticket.quality = number(header_.cupsInteger[kQuality]);
    page_.ticket.mode = number(header_.cupsInteger[kMode]);
    page_.ticket.alternateMode = number(header_.cupsInteger[kAlternateMode]);
  }

  // The sheet, and where the pixels lie on it. A stream that does not know its box has zeros.
  void DescribeSheet() {
    double box[4];  // left, bottom, right, top, in points from the lower left corner
    const bool exactBox = header_.cupsImagingBBox[2] > 0;
    for (int i = 0; i < 4; ++i) {
      box[i] = exactBox ? header_.cupsImagingBBox[i] : header_.ImagingBoundingBox[i];
    }
    const auto side = [&](std::size_t i, std::uint32_t pixels) {
      const bool isBox = box[i + 2] > box[i];
      const double bare = isBox ? header_.PageSize[i] - (box[i + 2] - box[i]) : 0;
      return RasterSheetSide(header_.cupsPageSize[i], header_.PageSize[i], bare, pixels,
                             header_.HWResolution[i]);
    };
    const double width = side(0, header_.cupsWidth), height = side(1, header_.cupsHeight);
    page_.mediaWidthMm = width / kPointsPerInch * kMillimetresPerInch;
    page_.mediaHeightMm = height / kPointsPerInch * kMillimetresPerInch;
    const Margins across = MarginsOf(box[0], width - box[2], width, header_.HWResolution[0],
                                     header_.cupsWidth, box[2] > box[0]);
    const Margins down = MarginsOf(height - box[3], box[1], height, header_.HWResolution[1],
                                   header_.cupsHeight, box[3] > box[1]);
    left_ = across.before;
    top_ = down.before;
    page_.image.width = across.before + header_.cupsWidth + across.behind;
    page_.image.height = down.before + header_.cupsHeight + down.behind;
    CheckImageSize(page_.image.path, page_.image.width, page_.image.height);
  }

  struct Margins {
    std::uint32_t before = 0, behind = 0;  // pixels
  };

  // Margins in pixels. Pixels that fill the sheet, or are more than the box holds, have none.
  static Margins MarginsOf(double before, double behind, double side, unsigned dpi,
                           std::uint32_t pixels, bool isBox) {
    const double perPoint = dpi / kPointsPerInch;
    const double room = std::round(side * perPoint) - pixels;
    const bool sound = isBox && before >= 0 && behind >= 0 && std::isfinite(side);
    if (!sound || !(std::max(before, behind) * perPoint >= 1) || !(room >= 1) ||
        !(room <= limits::kImageSide) ||
        std::abs((before + behind) * perPoint - room) > kForgivenPixels) {
      return {};
    }
    const auto first = static_cast<std::uint32_t>(std::min(std::round(before * perPoint), room));
    return {first, static_cast<std::uint32_t>(room) - first};
  }
  static constexpr double kForgivenPixels = 16;

  int White() const { return form_.colour == Colour::Cmyk ? 0 : 255; }

  void Convert(std::uint8_t* row) const {
    const std::size_t pixels = header_.cupsWidth;
    const std::size_t bytes = pixels * page_.image.form.BytesPerPixel();
    if (bits_ == 1) {
      const std::uint8_t flip = form_.inverted ? 0xff : 0;
      for (std::size_t x = 0; x < pixels; ++x) {
        row[x] = ((stored_[x / 8] ^ flip) >> (7 - x % 8) & 1) != 0 ? 255 : 0;
      }
      return;
    }
    if (banded_) {
      const auto colours = static_cast<std::size_t>(page_.image.form.ColourChannels());
      const std::size_t sample = bits_ / 8;
      const std::size_t band = stored_.size() / colours;
      for (std::size_t i = 0; i < colours; ++i) {
        for (std::size_t x = 0; x < pixels; ++x) {
          std::memcpy(row + (x * colours + i) * sample, stored_.data() + i * band + x * sample,
                      sample);
        }
      }
    } else {
      std::memcpy(row, stored_.data(), bytes);
    }
    if (!form_.inverted) return;
    for (std::size_t i = 0; i < bytes; ++i) row[i] = static_cast<std::uint8_t>(~row[i]);
  }

  std::unique_ptr<InputStream> input_;
  std::unique_ptr<cups_raster_t, CloseRaster> raster_;
  std::exception_ptr thrown_;  // by the input
  std::size_t headerBytes_ = 0;
  bool headerStarted_ = false;  // the library has asked for bytes of it
  bool endedCleanly_ = false;   // none were left
  cups_page_header2_t header_ = {};
  Space form_ = kSpaces[0];
  unsigned bits_ = 8;
  bool banded_ = false;
  int pages_ = 0;
  std::uint32_t left_ = 0, top_ = 0;  // of the pixels on the sheet
  std::uint32_t y_ = 0;               // of the sheet's next row
  std::uint32_t storedRowsLeft_ = 0;
  std::vector<std::uint8_t> stored_;
};

}  // namespace

}  // namespace corvane

corvane::PageStream* CorvaneOpenRaster(std::unique_ptr<corvane::InputStream>& input) {
  return new corvane::CupsRaster(std::move(input));
}
