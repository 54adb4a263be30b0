// SPDX-License-Identifier: MIT
//
// HEIC and AVIF pictures, held as decoded: the library gives them in one piece, turned upright. The
// pictures of a file that belong to no other are its pages.
#include <fmt/format.h>
#include <libheif/heif.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "app/child/child.h"
#include "app/image/heif_parts.h"
#include "app/image/pictures.h"
#include "app/image/profile.h"
#include "app/support/failure.h"
#include "app/support/short_memory.h"

namespace corvane {
namespace {

struct FreeHeif {
  void operator()(heif_context* context) const { heif_context_free(context); }
  void operator()(const heif_image_handle* handle) const { heif_image_handle_release(handle); }
  void operator()(const heif_image* image) const { heif_image_release(image); }
  void operator()(heif_decoding_options* options) const { heif_decoding_options_free(options); }
  void operator()(heif_color_profile_nclx* nclx) const { heif_nclx_color_profile_free(nclx); }
};
template <typename T>
using Held = std::unique_ptr<T, FreeHeif>;

void Check(const heif_error& error, const std::string& path) {
  if (error.code == heif_error_Ok) return;
  if (error.code == heif_error_Memory_allocation_error) throw std::bad_alloc();
  ThrowIfMemoryFailed();
  constexpr std::size_t kMostText = 200;
  throw Failure(
      fmt::format("{}: damaged HEIF picture: {}", path, OneLine(error.message, kMostText)));
}

class HeifFile {
 public:
  explicit HeifFile(const std::string& path) : path_(path), context_(heif_context_alloc()) {
    CheckHeifParts(path);
    StartWatchingMemory();
    Check(heif_context_read_from_file(context_.get(), path.c_str(), nullptr), path);
    pages_.resize(
        static_cast<std::size_t>(heif_context_get_number_of_top_level_images(context_.get())));
    const int count = heif_context_get_list_of_top_level_image_IDs(context_.get(), pages_.data(),
                                                                   static_cast<int>(pages_.size()));
    pages_.resize(static_cast<std::size_t>(count));
    if (pages_.empty()) throw Failure(path + ": the HEIF file has no picture");
  }

  int Pages() const { return static_cast<int>(pages_.size()); }

  Held<heif_image_handle> Open(int page) const {
    heif_image_handle* handle = nullptr;
    Check(heif_context_get_image_handle(context_.get(), pages_.at(static_cast<std::size_t>(page)),
                                        &handle),
          path_);
    return Held<heif_image_handle>(handle);
  }

 private:
  std::string path_;
  Held<heif_context> context_;
  std::vector<heif_item_id> pages_;
};

class HeifReader : public ImageReader {
 public:
  HeifReader(const std::string& path, int page) {
    info_.path = path;
    handle_ = HeifFile(path).Open(page);
    info_.width = static_cast<std::uint32_t>(heif_image_handle_get_width(handle_.get()));
    info_.height = static_cast<std::uint32_t>(heif_image_handle_get_height(handle_.get()));
    CheckImageSize(path, info_.width, info_.height);
    info_.form.alpha = heif_image_handle_has_alpha_channel(handle_.get()) != 0;
    info_.form.bits = heif_image_handle_get_luma_bits_per_pixel(handle_.get()) > 8 ? 16 : 8;
    CheckHeldSize(info_);
    ReadProfile(*handle_);
  }

  void ReadRow(std::uint8_t* row) override {
    if (next_ == 0) {
      Decode(*handle_);
      handle_.reset();
    }
    const std::uint8_t* stored = pixels_ + next_++ * stride_;
    if (info_.form.bits == 8) {
      std::memcpy(row, stored, info_.RowBytes());
    } else {
      Widen(stored, row);
    }
    if (!premultiplied_) return;
    if (info_.form.bits == 8) {
      DivideByAlpha<std::uint8_t>(row);
    } else {
      DivideByAlpha<std::uint16_t>(row);
    }
  }

 private:
  void ReadProfile(const heif_image_handle& handle) {
    StartWatchingMemory();
    const std::size_t size = heif_image_handle_get_raw_color_profile_size(&handle);
    if (size > 0) {
      info_.profile.resize(size);
      Check(heif_image_handle_get_raw_color_profile(&handle, info_.profile.data()), info_.path);
      return;
    }
    heif_color_profile_nclx* found = nullptr;
    const heif_error problem = heif_image_handle_get_nclx_color_profile(&handle, &found);
    const Held<heif_color_profile_nclx> nclx(found);  // which it may give with an error, too
    if (problem.code != heif_error_Ok) {
      ThrowIfMemoryFailed();
      return;
    }
    switch (nclx->transfer_characteristics) {
      case heif_transfer_characteristic_ITU_R_BT_2100_0_PQ:
      case heif_transfer_characteristic_ITU_R_BT_2100_0_HLG:
        throw Failure(info_.path + ": a picture of high dynamic range is not read");
      case heif_transfer_characteristic_linear:
        gamma_ = 1;
        break;
      case heif_transfer_characteristic_ITU_R_BT_470_6_System_M:
        gamma_ = 2.2;
        break;
      case heif_transfer_characteristic_ITU_R_BT_470_6_System_B_G:
        gamma_ = 2.8;
        break;
      default:
        break;  // the video curves are meant for pictures that are shown as those of sRGB are
    }
    if (nclx->color_primaries == heif_color_primaries_unspecified) return;
    const bool usual = nclx->color_primaries == heif_color_primaries_ITU_R_BT_709_5;
    if (usual && gamma_ == 0) return;
    const Chromaticities points = {nclx->color_primary_white_x, nclx->color_primary_white_y,
                                   nclx->color_primary_red_x,   nclx->color_primary_red_y,
                                   nclx->color_primary_green_x, nclx->color_primary_green_y,
                                   nclx->color_primary_blue_x,  nclx->color_primary_blue_y};
    info_.profile = gamma_ == 0 ? MakeSrgbCurveProfile(points) : MakeRgbProfile(points, gamma_);
  }

  void Decode(const heif_image_handle& handle) {
    const bool wide = info_.form.bits == 16, alpha = info_.form.alpha;
    const heif_chroma chroma =
        wide ? (alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE)
             : (alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
    const Held<heif_decoding_options> options(heif_decoding_options_alloc());
    options->strict_decoding = 1;
    StartWatchingMemory();
    heif_image* image = nullptr;
    Check(heif_decode_image(&handle, &image, heif_colorspace_RGB, chroma, options.get()),
          info_.path);
    image_.reset(image);
    int stride = 0;
    pixels_ = heif_image_get_plane_readonly(image, heif_channel_interleaved, &stride);
    stride_ = static_cast<std::size_t>(stride);
    const auto has = [&](int size, std::uint32_t wanted) {
      return static_cast<std::uint32_t>(size) == wanted;
    };
    if (pixels_ == nullptr || stride_ < info_.RowBytes() ||
        !has(heif_image_get_width(image, heif_channel_interleaved), info_.width) ||
        !has(heif_image_get_height(image, heif_channel_interleaved), info_.height)) {
      throw Failure(info_.path + ": damaged HEIF picture: its size is not what it says");
    }
    bits_ = heif_image_get_bits_per_pixel_range(image, heif_channel_interleaved);
    premultiplied_ = alpha && heif_image_handle_is_premultiplied_alpha(&handle) != 0;
  }

  // Little-endian samples of `bits_` bits as full 16 bits.
  void Widen(const std::uint8_t* stored, std::uint8_t* row) const {
    const std::uint32_t most = (1u << bits_) - 1;
    for (std::size_t i = 0; i < info_.RowBytes(); i += 2) {
      const std::uint32_t value = stored[i] | stored[i + 1] << 8;
      const auto wide =
          static_cast<std::uint16_t>((std::min(value, most) * 65535 + most / 2) / most);
      std::memcpy(row + i, &wide, sizeof wide);
    }
  }

  template <typename Sample>
  void DivideByAlpha(std::uint8_t* row) const {
    constexpr std::uint32_t kMost = Sample(~Sample{0});
    for (std::uint32_t x = 0; x < info_.width; ++x, row += info_.form.BytesPerPixel()) {
      Sample pixel[4];
      std::memcpy(pixel, row, sizeof pixel);
      const std::uint32_t alpha = pixel[3];
      if (alpha == 0 || alpha == kMost) continue;
      for (int i = 0; i < 3; ++i) {
        pixel[i] = static_cast<Sample>(std::min((pixel[i] * kMost + alpha / 2) / alpha, kMost));
      }
      std::memcpy(row, pixel, sizeof pixel);
    }
  }

  Held<heif_image_handle> handle_;  // until the first row; it holds the file
  Held<heif_image> image_;
  const std::uint8_t* pixels_ = nullptr;
  std::size_t stride_ = 0;
  int bits_ = 8;
  double gamma_ = 0;  // 0: the curve of sRGB
  bool premultiplied_ = false;
  std::size_t next_ = 0;
};

}  // namespace

}  // namespace corvane

corvane::ImageReader* CorvaneOpenPicture(const std::string& path, int page) {
  return new corvane::HeifReader(path, page);
}

int CorvaneCountPictures(const std::string& path) { return corvane::HeifFile(path).Pages(); }
