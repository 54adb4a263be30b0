// SPDX-License-Identifier: MIT
#include "app/image/kind.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "app/support/failure.h"
#include "app/support/input_stream.h"

namespace corvane {
namespace {

using namespace std::string_view_literals;

bool Begins(std::span<const std::uint8_t> head, std::string_view mark) {
  return head.size() >= mark.size() &&
         std::equal(mark.begin(), mark.end(), head.begin(),
                    [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

// Where readers of PDF look for its mark.
constexpr std::size_t kMostBeforePdf = 1024;

struct Mark {
  std::string_view bytes;
  FileKind kind;
};

constexpr Mark kMarks[] = {
    {"\x89PNG\r\n\x1a\n"sv, FileKind::Png},
    {"\xff\xd8\xff"sv, FileKind::Jpeg},
    {"II*\0"sv, FileKind::Tiff},
    {"MM\0*"sv, FileKind::Tiff},
    {"II+\0"sv, FileKind::Tiff},
    {"MM\0+"sv, FileKind::Tiff},
    {"%PDF-"sv, FileKind::Pdf},
    {"\xc5\xd0\xd3\xc6"sv, FileKind::Eps},  // with a picture of it in front
    {"RaSt"sv, FileKind::CupsRaster},
    {"tSaR"sv, FileKind::CupsRaster},
    {"RaS2"sv, FileKind::CupsRaster},
    {"2SaR"sv, FileKind::CupsRaster},
    {"RaS3"sv, FileKind::CupsRaster},
    {"3SaR"sv, FileKind::CupsRaster},
    {"\xff\x0a"sv, FileKind::Jxl},
    {"\0\0\0\x0cJXL \x0d\x0a\x87\x0a"sv, FileKind::Jxl},
    {"v/1\x01"sv, FileKind::Exr},
    {"8BPS"sv, FileKind::Psd},
};

// Whether `mark` stands at `offset`.
bool Has(std::span<const std::uint8_t> head, std::size_t offset, std::string_view mark) {
  return head.size() >= offset && Begins(head.subspan(offset), mark);
}

// A box of the file type, whose brand is one of pictures.
bool IsHeif(std::span<const std::uint8_t> head) {
  constexpr std::string_view kBrands[] = {"heic"sv, "heix"sv, "heim"sv, "heis"sv, "hevc"sv,
                                          "hevx"sv, "mif1"sv, "msf1"sv, "avif"sv, "avis"sv};
  return Has(head, 4, "ftyp"sv) &&
         std::ranges::any_of(kBrands, [&](std::string_view brand) { return Has(head, 8, brand); });
}

bool IsPnm(std::span<const std::uint8_t> head) {
  return head.size() >= 3 && head[0] == 'P' && head[1] >= '1' && head[1] <= '7' &&
         " \t\r\n#"sv.find(static_cast<char>(head[2])) != std::string_view::npos;
}

// Its first line says so.
bool IsEps(std::string_view text) {
  return text.substr(0, text.find_first_of("\r\n")).find(" EPSF-") != std::string_view::npos;
}

std::string_view TextOf(std::span<const std::uint8_t> head) {
  return {reinterpret_cast<const char*>(head.data()), head.size()};
}

// Behind what spoolers and mail programs put before a document: blanks, and the end of another one.
std::string_view DocumentIn(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(" \t\r\n\x04"), text.size()));
}

std::string_view WithoutBlanks(std::span<const std::uint8_t> head) {
  std::string_view text = TextOf(head);
  if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
  return text.substr(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
}

bool IsMarkup(std::span<const std::uint8_t> head) { return WithoutBlanks(head).starts_with('<'); }

// Its root stands behind a declaration and comments.
bool IsSvg(std::span<const std::uint8_t> head) {
  return IsMarkup(head) && WithoutBlanks(head).find("<svg") != std::string_view::npos;
}

}  // namespace

std::optional<FileKind> KindOf(std::span<const std::uint8_t> head) {
  for (const Mark& mark : kMarks) {
    if (Begins(head, mark.bytes)) return mark.kind;
  }
  const std::string_view document = DocumentIn(TextOf(head));
  if (document.starts_with("%!")) return IsEps(document) ? FileKind::Eps : FileKind::PostScript;
  if (Begins(head, "RIFF"sv) && Has(head, 8, "WEBP"sv)) return FileKind::Webp;
  if (IsHeif(head)) return FileKind::Heif;
  if (IsSvg(head)) return FileKind::Svg;
  if (IsPnm(head)) return FileKind::Pnm;
  const bool isPdf = TextOf(head.first(std::min(head.size(), kMostBeforePdf))).find("%PDF-") !=
                     std::string_view::npos;
  return isPdf ? std::optional(FileKind::Pdf) : std::nullopt;
}

std::optional<FileKind> KindOf(InputStream& input) {
  constexpr std::size_t kMostMarks = 12;
  const std::span<const std::uint8_t> head = input.Peek(kMostMarks);
  if (IsMarkup(head)) return KindOf(input.Peek(InputStream::kMostPeeked));
  const std::optional<FileKind> kind = KindOf(head);
  // The rest of the first line tells an illustration.
  if (kind == FileKind::PostScript) return KindOf(input.Peek(kKindBytes));
  return kind ? kind : KindOf(input.Peek(kMostBeforePdf));
}

FileKind KindOfFile(const std::string& path) {
  // Its first bytes could be read once.
  std::error_code ignored;
  if (std::filesystem::is_fifo(path, ignored)) {
    throw Failure(path + ": is a pipe, which is read as the standard input (-) alone");
  }
  InputStream file(path);
  if (file.Peek(1).empty()) throw Failure(path + ": the file is empty");
  if (const std::optional<FileKind> kind = KindOf(file)) return *kind;
  throw Failure(path + ": not an image or document that can be printed");
}

bool IsDocument(FileKind kind) {
  return kind == FileKind::Pdf || kind == FileKind::PostScript || kind == FileKind::Eps ||
         kind == FileKind::Svg;
}

bool IsPageStream(FileKind kind) { return kind == FileKind::Pnm || kind == FileKind::CupsRaster; }

}  // namespace corvane
