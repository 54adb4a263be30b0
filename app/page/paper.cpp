// SPDX-License-Identifier: MIT
#include "app/page/paper.h"

#include <fmt/format.h>

#include <cctype>
#include <charconv>
#include <optional>
#include <string_view>

#include "app/support/failure.h"
#include "app/support/limits.h"
#include "app/support/units.h"

namespace corvane {
namespace {

struct NamedSize {
  const char* name;
  double widthMm;
  double heightMm;
};

constexpr NamedSize kNamedSizes[] = {
    {"A3", 297, 420},        {"A4", 210, 297},          {"A5", 148, 210},
    {"A6", 105, 148},        {"B5", 182, 257},          {"Letter", 215.9, 279.4},
    {"Legal", 215.9, 355.6}, {"Tabloid", 279.4, 431.8}, {"4x6in", 101.6, 152.4},
    {"5x7in", 127, 177.8},
};

bool EqualInAnyCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

// Reads "<width>x<height><unit>".
std::optional<PaperSize> ParseDimensions(const std::string& text) {
  const char* const end = text.data() + text.size();
  PaperSize size{text, 0, 0};
  const auto width = std::from_chars(text.data(), end, size.widthMm);
  if (width.ec != std::errc() || width.ptr == end || (*width.ptr != 'x' && *width.ptr != 'X')) {
    return std::nullopt;
  }
  const auto height = std::from_chars(width.ptr + 1, end, size.heightMm);
  if (height.ec != std::errc()) return std::nullopt;
  const std::string_view unit(height.ptr, static_cast<std::size_t>(end - height.ptr));
  if (EqualInAnyCase(unit, "in")) {
    size.widthMm *= kMillimetresPerInch;
    size.heightMm *= kMillimetresPerInch;
  } else if (!EqualInAnyCase(unit, "mm")) {
    return std::nullopt;
  }
  return size;
}

bool IsSoundSide(double mm) {
  return mm >= limits::kShortestSheetMm && mm <= limits::kLongestSheetMm;
}

}  // namespace

PaperSize ParsePaperSize(const std::string& text) {
  for (const NamedSize& named : kNamedSizes) {
    if (EqualInAnyCase(text, named.name)) return {named.name, named.widthMm, named.heightMm};
  }
  const std::optional<PaperSize> size = ParseDimensions(text);
  if (!size) {
    throw UsageFailure(
        fmt::format("{}: not a paper size (one of {}, or WIDTHxHEIGHTmm)", text, PaperSizeNames()));
  }
  return MakePaperSize(text, size->widthMm, size->heightMm);
}

PaperSize MakePaperSize(const std::string& name, double widthMm, double heightMm) {
  if (!IsSoundSide(widthMm) || !IsSoundSide(heightMm)) {
    throw UsageFailure(fmt::format("{}: a sheet's sides are {} to {} mm long", name,
                                   limits::kShortestSheetMm, limits::kLongestSheetMm));
  }
  return {name, widthMm, heightMm};
}

std::string PaperSizeNames() {
  std::string names;
  for (const NamedSize& named : kNamedSizes) {
    if (!names.empty()) names += ", ";
    names += named.name;
  }
  return names;
}

}  // namespace corvane
