// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/ink_use.h"
#include "app/page_sink.h"

namespace corvane {

struct PrintedPage {
  std::string image;
  int page = 0;  // of the image, from 0
  std::vector<std::string> files;
  PageShape shape;
  std::vector<InkUse> inkUse;
  std::string note;  // of the preview; empty: there is none
};

struct PrintReport {
  std::vector<PrintedPage> pages;
  double seconds = 0;
  std::uint64_t peakMemoryBytes = 0;
};

// For a person, a few lines a page.
std::string ReportText(const PrintReport& report);

// The same as one JSON object.
std::string ReportJson(const PrintReport& report);

// The most memory that the process has held so far.
std::uint64_t PeakMemoryBytes();

}  // namespace corvane
