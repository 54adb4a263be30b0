// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <vector>

namespace corvane {

// Rows on their way from the thread that reads an image to the one that drives the chain. They
// travel in batches, and only a few batches wait, so memory stays bounded.
class RowQueue {
 public:
  explicit RowQueue(std::size_t rowBytes);

  // The reading side. Returns false when the other side has given up.
  bool Push(const std::uint8_t* row);
  // Nothing follows, or what went wrong instead.
  void Close(std::exception_ptr problem = nullptr);

  // The driving side: the next row, valid until the next call; null at the end. Throws the reading
  // side's problem.
  std::uint8_t* Pop();
  void GiveUp();

 private:
  struct Batch {
    std::vector<std::uint8_t> bytes;
    std::size_t rows = 0;
  };

  bool PushBatch();

  std::size_t rowBytes_;
  std::size_t rowsPerBatch_;
  Batch filling_;
  Batch taking_;
  std::size_t taken_ = 0;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Batch> ready_;
  std::vector<Batch> spare_;
  std::exception_ptr problem_;
  bool closed_ = false;
  bool givenUp_ = false;
};

}  // namespace corvane
