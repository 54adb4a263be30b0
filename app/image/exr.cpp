// SPDX-License-Identifier: MIT
//
// OpenEXR pictures, row by row: their light, from black to the white of 1, in 16 bits.
#include <ImfChromaticitiesAttribute.h>
#include <ImfHeader.h>
#include <ImfMultiPartInputFile.h>
#include <ImfRgbaFile.h>
#include <ImfStandardAttributes.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <vector>

#include "app/image/pictures.h"
#include "app/image/profile.h"
#include "app/support/failure.h"
#include "app/support/short_memory.h"

namespace corvane {
namespace {

std::uint16_t Wide(float value) {
  // Not a number is no light.
  return value > 0 ? static_cast<std::uint16_t>(std::min(value, 1.0f) * 65535 + 0.5f) : 0;
}

class ExrReader : public ImageReader {
 public:
  explicit ExrReader(const std::string& path) {
    info_.path = path;
    Guarded([&] {
      CheckParts(Imf::MultiPartInputFile(path.c_str()));
      file_ = std::make_unique<Imf::RgbaInputFile>(path.c_str());
      Describe();
    });
  }

  void ReadRow(std::uint8_t* row) override {
    std::memset(row, 0, info_.RowBytes());
    const int y = top_ + static_cast<int>(next_++);
    const Imath::Box2i data = file_->dataWindow();
    if (y < data.min.y || y > data.max.y) return;
    Guarded([&] { file_->readPixels(y); });
    const int first = std::max(left_, data.min.x);
    const int last = std::min(left_ + static_cast<int>(info_.width) - 1, data.max.x);
    for (int x = first; x <= last; ++x) {
      Convert(stored_[static_cast<std::size_t>(x - data.min.x)],
              row + static_cast<std::size_t>(x - left_) * info_.form.BytesPerPixel());
    }
  }

 private:
  // What the library throws says which file it is, but not always in one line.
  template <typename Action>
  void Guarded(Action action) const {
    StartWatchingMemory();
    try {
      action();
    } catch (const Failure&) {
      throw;
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception&) {
      ThrowIfMemoryFailed();
      throw Failure(info_.path + ": the OpenEXR picture is cut short or damaged");
    }
  }

  // Before the library makes room for the rows.
  void CheckParts(const Imf::MultiPartInputFile& file) const {
    if (file.parts() != 1) {
      throw Failure(info_.path + ": an OpenEXR file of several parts is not read");
    }
    for (const Imath::Box2i& window :
         {file.header(0).displayWindow(), file.header(0).dataWindow()}) {
      CheckImageSize(info_.path, SideOf(window.min.x, window.max.x),
                     SideOf(window.min.y, window.max.y));
    }
  }

  static std::uint64_t SideOf(int from, int to) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(std::int64_t{to} - from + 1, 0));
  }

  void Describe() {
    const Imath::Box2i shown = file_->displayWindow(), data = file_->dataWindow();
    left_ = shown.min.x;
    top_ = shown.min.y;
    info_.width = static_cast<std::uint32_t>(SideOf(shown.min.x, shown.max.x));
    info_.height = static_cast<std::uint32_t>(SideOf(shown.min.y, shown.max.y));
    stored_.resize(SideOf(data.min.x, data.max.x));
    // The library wants the address that pixel 0 of row 0 would have.
    file_->setFrameBuffer(stored_.data() - data.min.x, 1, 0);
    const bool covered = data.min.x <= shown.min.x && data.min.y <= shown.min.y &&
                         data.max.x >= shown.max.x && data.max.y >= shown.max.y;
    info_.form.bits = 16;
    info_.form.alpha = !covered || (file_->channels() & Imf::WRITE_A) != 0;

    const Imf::Header& header = file_->header();
    if (Imf::hasXDensity(header) && Imf::xDensity(header) > 0) {
      info_.horizontalDpi = Imf::xDensity(header);
      info_.verticalDpi = Imf::xDensity(header) * header.pixelAspectRatio();
    }
    const Imf::Chromaticities c =
        Imf::hasChromaticities(header) ? Imf::chromaticities(header) : Imf::Chromaticities();
    info_.profile = MakeRgbProfile(
        {c.white.x, c.white.y, c.red.x, c.red.y, c.green.x, c.green.y, c.blue.x, c.blue.y}, 1);
  }

  void Convert(const Imf::Rgba& from, std::uint8_t* to) const {
    const float alpha = from.a;
    // Colours are multiplied with their alpha. Of light without alpha, as of a glow, none is left.
    const float scale = info_.form.alpha && alpha > 0 && alpha < 1 ? 1 / alpha : 1;
    const std::uint16_t pixel[4] = {Wide(from.r * scale), Wide(from.g * scale),
                                    Wide(from.b * scale), Wide(alpha)};
    std::memcpy(to, pixel, info_.form.BytesPerPixel());
  }

  std::unique_ptr<Imf::RgbaInputFile> file_;
  int left_ = 0, top_ = 0;  // of the picture, in the file's coordinates
  std::vector<Imf::Rgba> stored_;
  std::uint32_t next_ = 0;
};

}  // namespace

}  // namespace corvane

corvane::ImageReader* CorvaneOpenPicture(const std::string& path, int) {
  return new corvane::ExrReader(path);
}
