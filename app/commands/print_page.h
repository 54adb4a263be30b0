// SPDX-License-Identifier: MIT
//
// One page from an image to the sinks: read, placed, sent through a chain.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/chain/chain.h"
#include "app/image/page_stream.h"
#include "app/image/row_source.h"
#include "app/jobs/form.h"
#include "app/page/page_sink.h"
#include "app/page/place.h"
#include "app/page/placing.h"
#include "app/page/settings.h"

namespace corvane {

// What is printed, and how.
struct PageJob {
  std::string image;
  int page = 0;                   // of the image, from 0
  std::string title;              // of the document
  std::string tags;               // grey image with a tag for each pixel; empty: none
  bool ownTags = true;            // takes those that the image has
  std::vector<std::string> inks;  // that the image is separated into, in the order of the mode;
                                  // empty: it has colours
  std::function<std::unique_ptr<RowSource>()> openRows;  // of the sheet, where they are in no file
  PaperSize paper;
  ImagePlacing placing;  // of the image on it
  PageSettings settings;
  std::string colorTable;  // for messages
};

// Who takes the page on its way. Sinks are not owned.
struct PageReceivers {
  std::vector<PageSink*> binary;   // the rows that leave the chain
  std::vector<PageSink*> contone;  // the rows that are halftoned, one per input row
  std::function<void(ZCOM::QObject& message)> beforeSend;  // each message, before the chain gets it
  std::function<void(std::uint32_t rows)> progress;        // rows done since the last call
  FormStore* forms = nullptr;  // pages that this one may be like in parts; not owned
  std::string formKey;         // of the page among them
  std::function<void(std::uint32_t rows)> reused;  // rows taken over since the last call
};

// The sheet of a job, in input pixels.
Sheet SheetOf(const PageJob& job);

// The page as its binary rows leave the chain.
PageShape ShapeOf(const PageJob& job);

// Sends the page through the chain, which must be idle and the whole one, or that of inks for a
// separated page. It is read from `stream`, which must be at the page, or opened when that is null.
// Throws Failure, naming the image, for what the chain reports as an error too; a stream that has
// not been read to the page's end by then is cancelled.
void PrintPage(const PageJob& job, PageStream* stream, Chain& chain,
               const PageReceivers& receivers);

}  // namespace corvane
