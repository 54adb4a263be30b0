// SPDX-License-Identifier: MIT
//
// WebP pictures, held as decoded: the library gives them in one piece.
#include <fmt/format.h>
#include <webp/decode.h>
#include <webp/demux.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "app/image/exif.h"
#include "app/image/pictures.h"
#include "app/support/failure.h"
#include "app/support/short_memory.h"

namespace corvane {
namespace {

constexpr std::size_t kMostFileBytes = std::size_t{512} << 20;

struct DeleteDemuxer {
  void operator()(WebPDemuxer* demuxer) const { WebPDemuxDelete(demuxer); }
};

class WebpReader : public ImageReader {
 public:
  explicit WebpReader(const std::string& path) {
    info_.path = path;
    file_ = ReadFile();
    StartWatchingMemory();
    const WebPData data = {file_.data(), file_.size()};
    const std::unique_ptr<WebPDemuxer, DeleteDemuxer> demuxer(WebPDemux(&data));
    WebPBitstreamFeatures features = {};
    if (!demuxer || WebPGetFeatures(file_.data(), file_.size(), &features) != VP8_STATUS_OK) Fail();
    if (features.has_animation != 0) throw Failure(path + ": an animation is no page");
    info_.width = static_cast<std::uint32_t>(features.width);
    info_.height = static_cast<std::uint32_t>(features.height);
    CheckImageSize(path, info_.width, info_.height);
    info_.form.alpha = features.has_alpha != 0;
    CheckHeldSize(info_);
    ReadMetadata(*demuxer);
  }

  void ReadRow(std::uint8_t* row) override {
    if (next_ == 0) Decode();
    std::memcpy(row, pixels_.data() + next_++ * info_.RowBytes(), info_.RowBytes());
  }

 private:
  [[noreturn]] void Fail() const {
    ThrowIfMemoryFailed();
    throw Failure(info_.path + ": the WebP picture is cut short or damaged");
  }

  std::vector<std::uint8_t> ReadFile() const {
    StartWatchingMemory();
    std::ifstream stream(info_.path, std::ios::binary | std::ios::ate);
    const auto size = static_cast<std::size_t>(std::max<std::streamoff>(stream.tellg(), 0));
    if (size > kMostFileBytes) throw Failure(info_.path + ": is too large for a WebP picture");
    std::vector<std::uint8_t> bytes(size);
    stream.seekg(0);
    if (!stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size))) {
      ThrowIfMemoryFailed();
      throw Failure(info_.path + ": cannot be read");
    }
    return bytes;
  }

  void ReadMetadata(WebPDemuxer& demuxer) {
    const auto read = [&](const char* name, const auto& take) {
      WebPChunkIterator chunk = {};
      if (WebPDemuxGetChunk(&demuxer, name, 1, &chunk) != 0) {
        take(chunk.chunk.bytes, chunk.chunk.size);
      }
      WebPDemuxReleaseChunkIterator(&chunk);
    };
    read("ICCP", [&](const std::uint8_t* data, std::size_t size) {
      info_.profile.assign(data, data + size);
    });
    read("EXIF", [&](const std::uint8_t* data, std::size_t size) {
      // Some programs put the mark of JPEG files before it.
      constexpr char kMark[] = {'E', 'x', 'i', 'f', 0, 0};
      const bool marked = size > sizeof kMark && std::memcmp(data, kMark, sizeof kMark) == 0;
      const std::size_t start = marked ? sizeof kMark : 0;
      info_.orientation = ExifOrientation(data + start, size - start);
    });
  }

  void Decode() {
    pixels_.resize(info_.RowBytes() * info_.height);
    StartWatchingMemory();
    const auto stride = static_cast<int>(info_.RowBytes());
    const auto decode = info_.form.alpha ? &WebPDecodeRGBAInto : &WebPDecodeRGBInto;
    if (decode(file_.data(), file_.size(), pixels_.data(), pixels_.size(), stride) == nullptr) {
      Fail();
    }
    file_ = {};
  }

  std::vector<std::uint8_t> file_;  // until the first row
  std::vector<std::uint8_t> pixels_;
  std::size_t next_ = 0;
};

}  // namespace

}  // namespace corvane

corvane::ImageReader* CorvaneOpenPicture(const std::string& path, int) {
  return new corvane::WebpReader(path);
}
