// SPDX-License-Identifier: MIT
#include "app/image_reader.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "app/failure.h"

namespace corvane {
namespace {

enum class FileKind { Png, Jpeg, Tiff };

FileKind KindOf(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) throw Failure(path + ": is a directory");
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                       &std::fclose);
  if (!file) throw Failure(fmt::format("{}: {}", path, std::strerror(errno)));
  unsigned char head[8] = {};
  const std::size_t size = std::fread(head, 1, sizeof head, file.get());
  if (size == 0) throw Failure(path + ": the file is empty");

  const auto startsWith = [&](const char* bytes, std::size_t count) {
    return size >= count && std::memcmp(head, bytes, count) == 0;
  };
  if (startsWith("\x89PNG\r\n\x1a\n", 8)) return FileKind::Png;
  if (startsWith("\xff\xd8\xff", 3)) return FileKind::Jpeg;
  for (const char* mark : {"II*\0", "MM\0*", "II+\0", "MM\0+"}) {
    if (startsWith(mark, 4)) return FileKind::Tiff;
  }
  throw Failure(path + ": not a PNG, JPEG or TIFF image");
}

}  // namespace

int CountImagePages(const std::string& path) {
  return KindOf(path) == FileKind::Tiff ? CountTiffPages(path) : 1;
}

std::unique_ptr<ImageReader> OpenImage(const std::string& path, int page) {
  switch (KindOf(path)) {
    case FileKind::Png:
      return OpenPng(path);
    case FileKind::Jpeg:
      return OpenJpeg(path);
    case FileKind::Tiff:
      return OpenTiff(path, page);
  }
  return nullptr;
}

void CheckImageSize(const std::string& path, std::uint64_t width, std::uint64_t height) {
  if (width == 0 || height == 0) throw Failure(path + ": the image has no pixels");
  if (width > kMostImageSide || height > kMostImageSide) {
    throw Failure(fmt::format("{}: {} x {} pixels are more than {} along a side", path, width,
                              height, kMostImageSide));
  }
}

}  // namespace corvane
