// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/inks/ink_use.h"
#include "app/page/page_sink.h"

namespace corvane {

struct PrintedPage {
  std::string image;
  int page = 0;  // of the image, from 0
  std::vector<std::pair<std::string, int>>
      cells;       // the same of pages that share the sheet; else none
  int copies = 1;  // that the page asks for
  int copy = 1;    // which of those that are printed this one is
  std::vector<std::string> files;
  PageShape shape;
  std::vector<InkUse> inkUse;
  std::uint32_t reusedRows = 0;      // input rows that were taken over from another page
  std::string note;                  // of the preview; empty: there is none
  std::vector<std::string> remarks;  // on a page that may not be whole
};

// A page that was not printed, although others were.
struct FailedPage {
  std::string image;
  int page = 0;       // of the image, from 0
  std::string title;  // names both
  std::string reason;
};

struct PrintReport {
  std::vector<PrintedPage> pages;
  std::vector<FailedPage> failures;
  std::vector<std::string> remarks;  // those of its pages, each once
  double seconds = 0;
  std::uint64_t peakMemoryBytes = 0;
  std::optional<bool> sandboxed;  // the interpreter of documents; none: there were none
};

// For a person, a few lines a page.
std::string ReportText(const PrintReport& report);

// The same as one JSON object, a page in a line. The text comes in pieces, for thousands of pages.
void WriteReportJson(const PrintReport& report,
                     const std::function<void(std::string_view text)>& write);

}  // namespace corvane
