// SPDX-License-Identifier: MIT
//
// The sheets of a document: a page on each, or as many pages as its grid has cells.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/commands/print_page.h"
#include "app/document/renderer.h"
#include "app/image/page_stream.h"
#include "app/page/paper.h"
#include "app/page/place.h"
#include "app/page/settings.h"

namespace corvane {

struct SheetWishes {
  PaperSize paper;
  std::size_t firstPage = 1, lastPage = 1;  // from 1; a last one behind the document's is that
  int pagesPerSheet = 1;                    // or 2, 4, 6, 9 or 16
  // How large a page of a size is drawn for paper of another.
  std::function<double(const PaperSize& paper, double widthMm, double heightMm)> scale;
  // Asked while pages are put together; yes throws InputStream::Cancelled.
  std::function<bool()> isCancelled;
};

class DocumentSheets {
 public:
  // The document must outlive this. Throws Failure for a range without a page and for a number of
  // pages on a sheet that is none.
  DocumentSheets(Document& document, SheetWishes wishes, const PageSettings& settings);

  std::size_t Count() const;

  // A sheet and the stream that it is read from, null where the job has its rows. Both are valid
  // until the next; sheets are asked for in their order.
  struct Sheet {
    PageJob job;
    PageStream* stream = nullptr;
  };
  Sheet Next();

  // What the interpreter has complained of although it made all pages; empty: nothing. To be asked
  // when the last sheet has been read.
  const std::string& Remarks();

 private:
  struct Page {
    PageJob job;
    DocumentPage size;
    double scale = 1;
  };

  void AddPage(std::size_t number, const DocumentPage& size);
  void GoTo(std::size_t page);
  void TakeRemarks();
  bool AreDrawnAlike(const Page& a, const Page& b) const;
  std::unique_ptr<RowSource> RowsOfCells(std::size_t first);

  Document& document_;
  SheetWishes wishes_;
  PageSettings settings_;
  std::vector<SheetArea> cells_;  // of a sheet that pages share; none: each has its own
  PaperSize room_;                // that a page has
  std::vector<Page> pages_;
  std::unique_ptr<PageStream> stream_;
  std::size_t streamEnd_ = 0;  // of pages_, behind the last in the stream
  bool hasRemarks_ = false;    // of the stream
  std::string remarks_;
  std::size_t next_ = 0;  // of pages_, the first of the next sheet
};

}  // namespace corvane
