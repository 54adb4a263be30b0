// SPDX-License-Identifier: MIT
#include "app/printer/document_sheets.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>

#include "app/commands/placed_page.h"
#include "app/page/cells.h"
#include "app/support/failure.h"
#include "app/support/input_stream.h"
#include "app/support/units.h"

namespace corvane {
namespace {

constexpr std::size_t kTaggedBytes = 4;  // of a pixel of a document

}  // namespace

DocumentSheets::DocumentSheets(Document& document, SheetWishes wishes, const PageSettings& settings)
    : document_(document), wishes_(std::move(wishes)), settings_(settings), room_(wishes_.paper) {
  if (wishes_.pagesPerSheet > 1) {
    const PaperSize& paper = wishes_.paper;
    const Grid grid =
        ParseGrid(std::to_string(wishes_.pagesPerSheet), paper.widthMm > paper.heightMm);
    const auto sheet = MakeSheet(paper, settings.horizontalDpi, settings.verticalDpi);
    cells_ = CellsOf({0, 0, sheet.width, sheet.height}, grid);
    room_.widthMm /= grid.columns;
    room_.heightMm /= grid.rows;
  }
  const std::vector<DocumentPage> sizes = document.Pages();
  const std::size_t last = std::min(sizes.size(), wishes_.lastPage);
  for (std::size_t i = std::max<std::size_t>(wishes_.firstPage, 1); i <= last; ++i) {
    AddPage(i - 1, sizes[i - 1]);
  }
  if (pages_.empty()) throw Failure("the document has no page of the range");
}

void DocumentSheets::AddPage(std::size_t number, const DocumentPage& size) {
  Page& page = pages_.emplace_back();
  page.size = size;
  page.job.image = fmt::format("page {} of the document", number + 1);
  page.job.page = static_cast<int>(number);
  page.job.paper = room_;
  page.job.settings = settings_;
  page.job.placing.scale = 1;
  constexpr double kToMm = kMillimetresPerInch / kPointsPerInch;
  double widthMm = size.widthPoints * kToMm, heightMm = size.heightPoints * kToMm;
  if (!cells_.empty()) {
    page.job.placing.degrees =
        DegreesOf({.degrees = kTurnToFit}, PaperSize{page.job.image, widthMm, heightMm},
                  MakeSheet(room_, settings_.horizontalDpi, settings_.verticalDpi));
  }
  if (IsSideways(page.job.placing.degrees)) std::swap(widthMm, heightMm);
  page.scale = wishes_.scale(room_, widthMm, heightMm);
}

std::size_t DocumentSheets::Count() const {
  const std::size_t each = std::max<std::size_t>(cells_.size(), 1);
  return (pages_.size() + each - 1) / each;
}

bool DocumentSheets::AreDrawnAlike(const Page& a, const Page& b) const {
  return a.scale == b.scale &&
         IsSideways(a.job.placing.degrees) == IsSideways(b.job.placing.degrees);
}

// One run of the interpreter makes all pages that follow one another and are drawn alike. It ends
// with the thread that has started it, which for shared sheets is one a sheet.
void DocumentSheets::GoTo(std::size_t page) {
  const Page& wanted = pages_[page];
  if (page >= streamEnd_) {
    TakeRemarks();
    Rendering rendering;
    rendering.horizontalDpi = settings_.horizontalDpi;
    rendering.verticalDpi = settings_.verticalDpi;
    if (IsSideways(wanted.job.placing.degrees)) {
      std::swap(rendering.horizontalDpi, rendering.verticalDpi);
    }
    rendering.scale = wanted.scale;
    const std::size_t end = cells_.empty() ? pages_.size() : std::min(next_, pages_.size());
    for (streamEnd_ = page; streamEnd_ < end; ++streamEnd_) {
      const Page& more = pages_[streamEnd_];
      if (!AreDrawnAlike(wanted, more)) break;
      rendering.pages.push_back({more.job.page, more.size});
    }
    stream_ = document_.Render(rendering);
    hasRemarks_ = false;
  }
  stream_->GoTo(wanted.job.page);
}

// Of a stream whose pages have all been read.
void DocumentSheets::TakeRemarks() {
  if (!stream_ || hasRemarks_) return;
  hasRemarks_ = true;
  const std::string remarks = stream_->TakeRemarks();
  // Of what is wrong with the document every run complains.
  if (remarks.empty() || remarks_.find(remarks) != std::string::npos) return;
  remarks_ += (remarks_.empty() ? "" : "; ") + remarks;
}

const std::string& DocumentSheets::Remarks() {
  TakeRemarks();
  return remarks_;
}

std::unique_ptr<RowSource> DocumentSheets::RowsOfCells(std::size_t first) {
  const auto sheet = MakeSheet(wishes_.paper, settings_.horizontalDpi, settings_.verticalDpi);
  const auto read = [this, sheet, first](std::size_t cell, const CellRows::RowReceiver& receiver) {
    GoTo(first + cell);
    auto own = sheet;
    own.width = cells_[cell].width;
    own.height = cells_[cell].height;
    PlacedPage page(pages_[first + cell].job, stream_.get(), own);
    if (page.BytesPerPixel() != kTaggedBytes) throw Failure("a page came without its tags");
    page.Read([&](const std::uint8_t* row) {
      if (wishes_.isCancelled()) throw InputStream::Cancelled();
      receiver(row);
    });
    stream_->Finish();
    if (first + cell + 1 == streamEnd_) TakeRemarks();
  };
  return std::make_unique<CellRows>(sheet, cells_, pages_.size() - first, kTaggedBytes, read);
}

DocumentSheets::Sheet DocumentSheets::Next() {
  const std::size_t first = next_;
  Sheet sheet = {pages_[first].job, nullptr};
  next_ += std::max<std::size_t>(cells_.size(), 1);
  if (cells_.empty()) {
    GoTo(first);
    sheet.stream = stream_.get();
    return sheet;
  }
  sheet.job.paper = wishes_.paper;
  sheet.job.placing = {.scale = 1};
  sheet.job.openRows = [this, first] { return RowsOfCells(first); };
  return sheet;
}

}  // namespace corvane
