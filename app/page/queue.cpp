// SPDX-License-Identifier: MIT
#include "app/page/queue.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

namespace corvane {
namespace {

constexpr std::size_t kBatchBytes = std::size_t{512} << 10;
constexpr std::size_t kWaitingBatches = 4;
constexpr std::chrono::milliseconds kPatience(5);

}  // namespace

RowQueue::RowQueue(std::size_t rowBytes, bool prompt)
    : rowBytes_(rowBytes),
      rowsPerBatch_(std::max<std::size_t>(1, kBatchBytes / rowBytes)),
      prompt_(prompt) {}

bool RowQueue::Push(const std::uint8_t* row) {
  // Only where it is prompt does the driving side look into a batch before it is full.
  std::unique_lock lock(mutex_, std::defer_lock);
  if (prompt_ || filling_.rows == 0) {
    lock.lock();
    changed_.wait(lock, [&] { return ready_.size() < kWaitingBatches || givenUp_; });
    if (givenUp_) return false;
    filling_.bytes.resize(rowBytes_ * rowsPerBatch_);
  }
  std::memcpy(filling_.bytes.data() + filling_.rows * rowBytes_, row, rowBytes_);
  if (++filling_.rows == rowsPerBatch_) {
    if (!lock.owns_lock()) lock.lock();
    PushBatch();
  } else if (prompt_ && awaited_) {
    changed_.notify_all();
  }
  return true;
}

void RowQueue::PushBatch() {
  ready_.push_back(std::exchange(filling_, {}));
  if (!spare_.empty()) {
    filling_ = std::move(spare_.back());
    spare_.pop_back();
    filling_.rows = 0;
  }
  changed_.notify_all();
}

void RowQueue::Close(std::exception_ptr problem) {
  const std::lock_guard lock(mutex_);
  if (!problem && filling_.rows > 0) PushBatch();
  if (!problem_) problem_ = std::move(problem);
  closed_ = true;
  changed_.notify_all();
}

void RowQueue::AwaitBatch(std::unique_lock<std::mutex>& lock) {
  if (prompt_) {
    awaited_ = true;
    changed_.wait(lock, [&] { return !ready_.empty() || filling_.rows > 0 || closed_; });
    awaited_ = false;
    changed_.wait_for(lock, kPatience, [&] { return !ready_.empty() || closed_; });
    if (ready_.empty() && filling_.rows > 0 && !problem_) PushBatch();
  } else {
    changed_.wait(lock, [&] { return !ready_.empty() || closed_; });
  }
  if (problem_) std::rethrow_exception(problem_);
}

RowQueue::Rows RowQueue::Pop() {
  std::unique_lock lock(mutex_);
  if (!taking_.bytes.empty()) spare_.push_back(std::exchange(taking_, {}));
  AwaitBatch(lock);
  if (ready_.empty()) return {};
  taking_ = std::move(ready_.front());
  ready_.pop_front();
  changed_.notify_all();
  return {taking_.bytes.data(), taking_.rows};
}

void RowQueue::GiveUp() {
  const std::lock_guard lock(mutex_);
  givenUp_ = true;
  changed_.notify_all();
}

}  // namespace corvane
