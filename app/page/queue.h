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
  // A prompt queue sends a batch that does not fill, as of an input that comes slowly, as it is
  // after a few milliseconds.
  explicit RowQueue(std::size_t rowBytes, bool prompt = false);

  // The reading side. Returns false when the other side has given up.
  bool Push(const std::uint8_t* row);
  // Nothing follows, or what went wrong instead, of which the first counts. Any thread may say that
  // something went wrong.
  void Close(std::exception_ptr problem = nullptr);

  // Rows one after the other.
  struct Rows {
    std::uint8_t* data = nullptr;
    std::size_t count = 0;
  };

  // The driving side: the next rows, valid until the next call; none at the end. Pages of equal
  // rows are cut into batches alike, unless the queue is prompt. Throws the reading side's problem.
  Rows Pop();
  void GiveUp();

 private:
  struct Batch {
    std::vector<std::uint8_t> bytes;
    std::size_t rows = 0;
  };

  void PushBatch();
  void AwaitBatch(std::unique_lock<std::mutex>& lock);

  std::size_t rowBytes_;
  std::size_t rowsPerBatch_;
  bool prompt_;
  Batch taking_;

  std::mutex mutex_;      // of what follows
  Batch filling_;         // of the reading side alone unless the queue is prompt
  bool awaited_ = false;  // by a driving side that has nothing at all
  std::condition_variable changed_;
  std::deque<Batch> ready_;
  std::vector<Batch> spare_;
  std::exception_ptr problem_;
  bool closed_ = false;
  bool givenUp_ = false;
};

}  // namespace corvane
