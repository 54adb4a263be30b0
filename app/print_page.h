// SPDX-License-Identifier: MIT
//
// One page from an image to the sinks: read, placed, sent through a chain.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/chain.h"
#include "app/page_place.h"
#include "app/page_sink.h"
#include "app/print_settings.h"

namespace corvane {

// What is printed, and how.
struct PageJob {
  std::string image;
  int page = 0;       // of the image, from 0
  std::string title;  // of the document
  std::string tags;   // grey image with a tag for each pixel; empty: none
  PaperSize paper;
  std::optional<double> scale;  // of the image's natural size; none: as large as the paper allows
  PageSettings settings;
  std::string colorTable;  // for messages
};

// Who takes the page on its way. Sinks are not owned.
struct PageReceivers {
  std::vector<PageSink*> binary;   // the rows that leave the chain
  std::vector<PageSink*> contone;  // the rows that leave the colour element, one per input row
  std::function<void(ZCOM::QObject& message)> beforeSend;  // each message, before the chain gets it
  std::function<void(std::uint32_t rows)> progress;        // rows sent since the last call
};

// The sheet of a job, in input pixels.
Sheet SheetOf(const PageJob& job);

// The page as its binary rows leave the chain.
PageShape ShapeOf(const PageJob& job);

// Sends the page through the chain, which must be the whole one and idle. Throws Failure, naming
// the image, for what the chain reports as an error too.
void PrintPage(const PageJob& job, Chain& chain, const PageReceivers& receivers);

}  // namespace corvane
