// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

#include "app/image/page_stream.h"
#include "app/page/queue.h"

namespace corvane {

// A page whose rows are handed over by whoever receives them, while another thread reads them. Only
// a few batches of rows wait.
class PushedPage : public PageStream {
 public:
  explicit PushedPage(StreamedPage page);

  // The receiving side: the next row of the page. Returns false when nobody reads any more.
  bool Push(const std::uint8_t* row) { return queue_.Push(row); }
  // No row follows. A page that has not got all of them fails where it is read.
  void End() { queue_.Close(); }

  // The reading side is done, for whatever reason.
  void GiveUp() { queue_.GiveUp(); }

  bool Next() override { return false; }
  void ReadRow(std::uint8_t* row) override;
  void Cancel() override;

 private:
  RowQueue queue_;
  RowQueue::Rows rows_;         // of the reading side
  std::size_t next_ = 0;        // of them
  std::uint32_t rowsRead_ = 0;  // of the page
};

}  // namespace corvane
