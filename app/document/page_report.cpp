// SPDX-License-Identifier: MIT
#include "app/document/page_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace corvane {
namespace {

// Entries of its lists, some of which it calls warnings, that stand for something that was to be
// drawn and is not. All others are repairs, or tell of what has no effect.
constexpr std::string_view kMissing[] = {
    "error executing PDF token",
    "error reading a stream",
    "request for unknown filter",
    "potential token is too long",
    "error in Page dictionary",
    "error reading page dictionary",
    "error in stream dictionary",
    "error in transparency XObject",
    "error in image colour",
    "error in pattern",
    "error in annotation Appearance",
    "recoverable image error",
    "out of memory",
};
constexpr std::string_view kStopped = "Page drawing error occurred";

// Lines around the lists, and what it says of every page.
constexpr std::string_view kIdle[] = {
    "**** This file had errors",  "**** Please notify the author",
    "**** The file was produced", "**** >>>>",
    "Output may be incorrect.",   "Page ",
};
constexpr std::string_view kLoading = "Loading font ";
constexpr std::string_view kErrorsFollow = "The following errors were";
constexpr std::string_view kWarningsFollow = "The following warnings were";

// Fonts that no document needs to hold.
constexpr std::string_view kStandardFonts[] = {
    "Courier",     "Courier-Bold",   "Courier-Oblique",   "Courier-BoldOblique",
    "Helvetica",   "Helvetica-Bold", "Helvetica-Oblique", "Helvetica-BoldOblique",
    "Times-Roman", "Times-Bold",     "Times-Italic",      "Times-BoldItalic",
    "Symbol",      "ZapfDingbats"};

void Add(std::string_view what, std::string& list) {
  if (what.empty() || list.find(what) != std::string::npos) return;
  list.append(list.empty() ? "" : "; ").append(what);
}

// A line that goes on with the sentence of the one before, which is idle.
bool GoesOn(std::string_view line) {
  constexpr std::string_view kNotice = "**** ";
  if (!line.starts_with(kNotice) || line.size() == kNotice.size()) return false;
  const char first = line[kNotice.size()];
  return first >= 'a' && first <= 'z';
}

std::string_view Trimmed(std::string_view line) {
  constexpr std::string_view kBlank = " \t\r";
  const std::size_t first = line.find_first_not_of(kBlank);
  if (first == std::string_view::npos) return {};
  return line.substr(first, line.find_last_not_of(kBlank) - first + 1);
}

// What is to be known of a font that comes from elsewhere, as "Loading font NAME (or substitute)
// from FILE" tells of it; empty: nothing.
std::string FontRemark(std::string_view line) {
  constexpr std::string_view kFrom = " (or substitute) from ";
  const std::size_t from = line.find(kFrom);
  if (from == std::string_view::npos) return std::string(line);
  const std::string_view name = line.substr(kLoading.size(), from - kLoading.size());
  std::string_view file = line.substr(from + kFrom.size());
  file.remove_prefix(file.rfind('/') + 1);  // 0 where there is none
  file = file.substr(0, file.rfind('.'));
  if (std::ranges::find(kStandardFonts, name) != std::end(kStandardFonts) || name == file)
    return {};
  return fmt::format("font {} comes from {}, not from the document", name, file);
}

}  // namespace

PageReport ReadPageReport(std::string_view lines) {
  PageReport report;
  bool warnings = false;
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    const std::string_view whole = lines.substr(0, end), line = Trimmed(whole);
    lines.remove_prefix(std::min(end + 1, lines.size()));
    const auto begins = [line](std::string_view text) { return line.starts_with(text); };
    if (begins(kErrorsFollow) || begins(kWarningsFollow)) {
      warnings = begins(kWarningsFollow);
    } else if (whole.starts_with('\t') && std::ranges::find(kMissing, line) != std::end(kMissing)) {
      Add(line, report.missing);
    } else if (line.find(kStopped) != std::string_view::npos) {
      Add("an error has stopped its drawing", report.missing);
    } else if (begins(kLoading)) {
      Add(FontRemark(line), report.remarks);
    } else if (!line.empty() && !GoesOn(line) && !(whole.starts_with('\t') && warnings) &&
               std::ranges::none_of(kIdle, begins)) {
      Add(line, report.remarks);
    }
  }
  return report;
}

}  // namespace corvane
