// SPDX-License-Identifier: MIT
#include "app/image/folder.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <system_error>

#include "app/image/kind.h"
#include "app/image/tiff_file.h"
#include "app/support/failure.h"
#include "app/support/input_stream.h"
#include "app/support/output_stage.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Takes the number that a text begins with, without leading zeros.
std::string_view TakeNumber(std::string_view& text) {
  const auto end = std::ranges::find_if_not(text, IsDigit);
  std::string_view number = text.substr(0, static_cast<std::size_t>(end - text.begin()));
  text.remove_prefix(number.size());
  number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
  return number;
}

// A file that is named as one to be printed, whatever it holds.
bool IsNamedAsRead(const fs::path& file) {
  constexpr std::string_view kEndings[] = {
      ".avif", ".eps", ".exr", ".heic", ".heif", ".jpeg", ".jpg", ".jxl", ".pam",  ".pbm", ".pdf",
      ".pgm",  ".png", ".pnm", ".ppm",  ".ps",   ".pwg",  ".svg", ".tif", ".tiff", ".webp"};
  return std::ranges::find(kEndings, EndingOf(file)) != std::end(kEndings);
}

// What `corvane print` has written there is no picture.
bool IsPrintheadData(const std::string& file) {
  const char* software = nullptr;
  return TIFFGetField(OpenTiffFile(file).get(), TIFFTAG_SOFTWARE, &software) != 0 &&
         std::string_view(software) == kTiffSoftware;
}

bool IsRead(const fs::path& file) {
  try {
    InputStream input(file.string());
    const std::optional<FileKind> kind = KindOf(input);
    if (kind == FileKind::Tiff) return !IsPrintheadData(file.string());
    return kind ? *kind != FileKind::Psd : IsNamedAsRead(file);
  } catch (const Failure&) {
    return true;  // it says of itself what is wrong
  }
}

}  // namespace

bool ComesBefore(std::string_view a, std::string_view b) {
  const std::string_view wholeA = a, wholeB = b;
  while (!a.empty() && !b.empty()) {
    if (IsDigit(a[0]) && IsDigit(b[0])) {
      const std::string_view x = TakeNumber(a), y = TakeNumber(b);
      if (x.size() != y.size()) return x.size() < y.size();
      if (x != y) return x < y;
    } else {
      if (a[0] != b[0]) return static_cast<unsigned char>(a[0]) < static_cast<unsigned char>(b[0]);
      a.remove_prefix(1);
      b.remove_prefix(1);
    }
  }
  if (a.empty() != b.empty()) return a.empty();
  return wholeA < wholeB;  // apart in leading zeros alone, or the same
}

std::vector<std::string> PrintableFilesIn(const fs::path& folder) {
  std::error_code problem;
  std::vector<std::string> files;
  fs::directory_iterator entry(folder, problem);
  for (; !problem && entry != fs::directory_iterator(); entry.increment(problem)) {
    std::error_code ignored;
    const bool hidden = entry->path().filename().string().starts_with('.');
    if (hidden || !entry->is_regular_file(ignored) || !IsRead(entry->path())) continue;
    files.push_back(entry->path().string());
  }
  if (problem) throw Failure(folder.string() + ": " + problem.message());
  if (files.empty()) throw Failure(folder.string() + ": holds no picture or document to print");
  std::ranges::sort(files, ComesBefore);
  return files;
}

}  // namespace corvane
