// SPDX-License-Identifier: MIT
#include "app/report/packed.h"

#include <libdeflate.h>
#include <webp/encode.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "app/support/base64.h"
#include "app/support/interrupt.h"

namespace corvane {
namespace {

constexpr int kEffort = 6;      // of zlib
constexpr int kWebpEffort = 1;  // more takes longer than all else
constexpr float kWebpQuality = 82;

std::string Base64(const std::uint8_t* bytes, std::size_t size) {
  std::string text;
  AppendBase64(bytes, size, &text);
  return text;
}

struct FreeCompressor {
  void operator()(libdeflate_compressor* compressor) const {
    libdeflate_free_compressor(compressor);
  }
};

struct WebpMemory : WebPMemoryWriter {
  WebpMemory() : WebPMemoryWriter() { WebPMemoryWriterInit(this); }
  ~WebpMemory() { WebPMemoryWriterClear(this); }
  WebpMemory(const WebpMemory&) = delete;
  WebpMemory& operator=(const WebpMemory&) = delete;
};

struct WebpPicture : WebPPicture {
  WebpPicture() : WebPPicture() {
    if (WebPPictureInit(this) == 0) throw std::bad_alloc();
  }
  ~WebpPicture() { WebPPictureFree(this); }
  WebpPicture(const WebpPicture&) = delete;
  WebpPicture& operator=(const WebpPicture&) = delete;
};

// Only memory can be short: the sizes are small and the settings are constants.
std::string WebpTile(const std::uint8_t* rgb, std::size_t stride, std::uint32_t width,
                     std::uint32_t height) {
  WebPConfig config;
  if (WebPConfigInit(&config) == 0) throw std::bad_alloc();
  config.quality = kWebpQuality;
  config.method = kWebpEffort;
  WebpMemory memory;
  WebpPicture picture;
  picture.width = static_cast<int>(width);
  picture.height = static_cast<int>(height);
  picture.writer = WebPMemoryWrite;
  picture.custom_ptr = static_cast<WebPMemoryWriter*>(&memory);
  if (WebPPictureImportRGB(&picture, rgb, static_cast<int>(stride)) == 0 ||
      WebPEncode(&config, &picture) == 0) {
    throw std::bad_alloc();
  }
  return Base64(memory.mem, memory.size);
}

}  // namespace

std::string PackedBytes(std::span<const std::uint8_t> bytes) {
  const std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor(
      libdeflate_alloc_compressor(kEffort));
  if (!compressor) throw std::bad_alloc();
  std::vector<std::uint8_t> packed(libdeflate_zlib_compress_bound(compressor.get(), bytes.size()));
  const std::size_t size = libdeflate_zlib_compress(compressor.get(), bytes.data(), bytes.size(),
                                                    packed.data(), packed.size());
  return Base64(packed.data(), size);
}

std::string PackedNumbers(std::span<const std::uint32_t> numbers, std::size_t columns) {
  const bool wide = std::ranges::any_of(numbers, [](std::uint32_t n) { return n > UINT16_MAX; });
  const std::size_t width = wide ? 4 : 2;  // bytes
  const std::uint32_t mask = wide ? UINT32_MAX : UINT16_MAX;
  std::vector<std::uint8_t> bytes(width * numbers.size());
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const std::uint32_t left = i % columns > 0 ? numbers[i - 1] : 0;
    const std::uint32_t above = i >= columns ? numbers[i - columns] : 0;
    const std::uint32_t difference = (numbers[i] - (left + above) / 2) & mask;
    const bool negative = difference > mask / 2;
    const std::uint32_t folded = (difference << 1 ^ (negative ? mask : 0)) & mask;
    for (std::size_t byte = 0; byte < width; ++byte) {
      bytes[byte * numbers.size() + i] = static_cast<std::uint8_t>(folded >> 8 * byte);
    }
  }
  return PackedBytes(bytes);
}

std::vector<std::string> PackedTiles(const PictureLevel& picture, std::uint32_t side) {
  std::vector<std::string> tiles;
  const std::size_t stride = std::size_t{3} * picture.width;
  for (std::uint32_t top = 0; top < picture.height; top += side) {
    for (std::uint32_t left = 0; left < picture.width; left += side) {
      ThrowIfInterrupted();
      tiles.push_back(WebpTile(picture.pixels.data() + top * stride + std::size_t{3} * left, stride,
                               std::min(side, picture.width - left),
                               std::min(side, picture.height - top)));
    }
  }
  return tiles;
}

}  // namespace corvane
