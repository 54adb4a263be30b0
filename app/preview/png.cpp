// SPDX-License-Identifier: MIT
#include "app/preview/png.h"

#include <fmt/format.h>
#include <png.h>

#include <cmath>

#include "app/support/failure.h"
#include "app/support/units.h"

namespace corvane {
namespace {

constexpr int kFastCompression = 3;

}  // namespace

struct PngWriter::State {
  StagedFile& file;
  png_structp png = nullptr;
  png_infop info = nullptr;

  ~State() { png_destroy_write_struct(&png, &info); }
};

PngWriter::PngWriter(StagedFile& file, std::uint32_t width, std::uint32_t height, double dpi,
                     const std::string& comment)
    : state_(new State{file}) {
  const auto fail = [](png_structp png, png_const_charp what) {
    const auto* target = static_cast<StagedFile*>(png_get_error_ptr(png));
    throw Failure(fmt::format("{}: {}", target->Path().string(), what));
  };
  State& state = *state_;
  state.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &file, fail,
                                      [](png_structp, png_const_charp) {});
  if (state.png == nullptr) throw std::bad_alloc();
  state.info = png_create_info_struct(state.png);
  if (state.info == nullptr) throw std::bad_alloc();
  png_set_write_fn(
      state.png, &file,
      [](png_structp png, png_bytep bytes, std::size_t size) {
        static_cast<StagedFile*>(png_get_io_ptr(png))->Append(bytes, size);
      },
      nullptr);
  png_set_IHDR(state.png, state.info, width, height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(state.png, kFastCompression);
  png_set_filter(state.png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
  png_set_sRGB(state.png, state.info, PNG_sRGB_INTENT_RELATIVE);
  const auto perMetre = static_cast<png_uint_32>(std::lround(dpi / kMetresPerInch));
  png_set_pHYs(state.png, state.info, perMetre, perMetre, PNG_RESOLUTION_METER);
  std::string key = "Comment", text = comment;
  png_text entry = {};
  entry.compression = PNG_TEXT_COMPRESSION_NONE;
  entry.key = key.data();
  entry.text = text.data();
  png_set_text(state.png, state.info, &entry, 1);
  png_write_info(state.png, state.info);
}

PngWriter::~PngWriter() = default;

void PngWriter::WriteRow(const std::uint8_t* rgb) { png_write_row(state_->png, rgb); }

void PngWriter::Finish() {
  png_write_end(state_->png, state_->info);
  state_->file.Finish();
}

}  // namespace corvane
