// SPDX-License-Identifier: MIT
#include "app/image/reader.h"

#include <fmt/format.h>

#include "app/image/kind.h"
#include "app/image/page_stream.h"
#include "app/image/pictures.h"
#include "app/support/failure.h"
#include "app/support/limits.h"

namespace corvane {
namespace {

bool HoldsOneImage(FileKind kind) {
  return kind == FileKind::Png || kind == FileKind::Jpeg || kind == FileKind::Webp ||
         kind == FileKind::Jxl || kind == FileKind::Exr;
}

}  // namespace

int CountImagePages(const std::string& path) {
  const FileKind kind = KindOfFile(path);
  if (IsPageStream(kind)) return CountStreamPages(path);
  if (kind == FileKind::Heif) return CountHeifPages(path);
  return kind == FileKind::Tiff ? CountTiffPages(path) : 1;
}

std::unique_ptr<ImageReader> OpenImage(const std::string& path, int page) {
  const FileKind kind = KindOfFile(path);
  if (page != 0 && HoldsOneImage(kind)) {
    throw Failure(fmt::format("{}: holds one image, and no page {}", path, page + 1));
  }
  switch (kind) {
    case FileKind::Png:
      return OpenPng(path);
    case FileKind::Jpeg:
      return OpenJpeg(path);
    case FileKind::Tiff:
      return OpenTiff(path, page);
    case FileKind::Pnm:
    case FileKind::CupsRaster:
      return OpenStreamPage(path, page);
    case FileKind::Webp:
      return OpenWebp(path);
    case FileKind::Heif:
      return OpenHeif(path, page);
    case FileKind::Jxl:
      return OpenJxl(path);
    case FileKind::Exr:
      return OpenExr(path);
    case FileKind::Psd:
      throw Failure(path + ": Photoshop documents are not read; store it as TIFF");
    case FileKind::Pdf:
    case FileKind::PostScript:
    case FileKind::Eps:
    case FileKind::Svg:
      break;
  }
  throw Failure(path + ": is a document, and no image");
}

void CheckImageSize(const std::string& path, std::uint64_t width, std::uint64_t height) {
  if (width == 0 || height == 0) throw Failure(path + ": the image has no pixels");
  if (width > limits::kImageSide || height > limits::kImageSide) {
    throw Failure(fmt::format("{}: {} x {} pixels are more than {} along a side", path, width,
                              height, limits::kImageSide));
  }
}

void CheckHeldSize(const ImageInfo& image) {
  constexpr std::uint64_t kMostHeldBytes = std::uint64_t{512} << 20;
  if (std::uint64_t{image.RowBytes()} * image.height <= kMostHeldBytes) return;
  throw Failure(
      fmt::format("{}: {} x {} pixels are too many for a file of this kind, which is held "
                  "in memory; store it as PNG or TIFF",
                  image.path, image.width, image.height));
}

}  // namespace corvane
