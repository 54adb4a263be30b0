// SPDX-License-Identifier: MIT
//
// What a file is, by its first bytes: its name says nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace corvane {

class InputStream;

enum class FileKind {
  Png,
  Jpeg,
  Tiff,
  Pnm,
  CupsRaster,
  Pdf,
  PostScript,
  Eps,
  Svg,
  Webp,
  Heif,
  Jxl,
  Exr,
  Psd
};

// How many of the first bytes are looked at; of markup, and of what has no mark there, more.
inline constexpr std::size_t kKindBytes = 64;

// None: no kind that can be printed.
std::optional<FileKind> KindOf(std::span<const std::uint8_t> head);

// The kind of an input that was not read yet. Waits for no more bytes than it takes to tell.
std::optional<FileKind> KindOf(InputStream& input);

// Throws Failure for a file that cannot be read or whose kind is not known.
FileKind KindOfFile(const std::string& path);

// Whether the kind is a sequence of pages that is read from front to back.
bool IsPageStream(FileKind kind);

// Whether the kind has to be interpreted to get pixels.
bool IsDocument(FileKind kind);

}  // namespace corvane
