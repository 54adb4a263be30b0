// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "app/image/page_stream.h"

namespace corvane {

// A page whose rows are handed over by whoever receives them, while another thread reads them. Only
// a few rows wait.
class PushedPage : public PageStream {
 public:
  explicit PushedPage(StreamedPage page) { page_ = std::move(page); }

  // The receiving side: the next row of the page. Returns false when nobody reads any more.
  bool Push(const std::uint8_t* row);
  // No row follows. A page that has not got all of them fails where it is read.
  void End();

  // The reading side is done, for whatever reason.
  void GiveUp();

  bool Next() override { return false; }
  void ReadRow(std::uint8_t* row) override;
  void Cancel() override;

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::vector<std::uint8_t>> rows_;
  std::vector<std::vector<std::uint8_t>> spare_;
  std::uint32_t read_ = 0;  // rows
  bool ended_ = false, givenUp_ = false, cancelled_ = false;
};

}  // namespace corvane
