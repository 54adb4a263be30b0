// SPDX-License-Identifier: MIT
#include "app/printer/pushed_page.h"

#include <fmt/format.h>

#include <cstring>
#include <exception>
#include <utility>

#include "app/support/failure.h"

namespace corvane {

PushedPage::PushedPage(StreamedPage page) : queue_(page.image.RowBytes(), true) {
  page_ = std::move(page);
}

void PushedPage::ReadRow(std::uint8_t* row) {
  if (next_ == rows_.count) {
    rows_ = queue_.Pop();
    next_ = 0;
  }
  if (rows_.count == 0) {
    throw Failure(fmt::format("{}: ends after {} of {} rows", Page().image.path, rowsRead_,
                              Page().image.height));
  }
  const std::size_t bytes = Page().image.RowBytes();
  std::memcpy(row, rows_.data + next_++ * bytes, bytes);
  ++rowsRead_;
}

void PushedPage::Cancel() { queue_.Close(std::make_exception_ptr(InputStream::Cancelled{})); }

}  // namespace corvane
