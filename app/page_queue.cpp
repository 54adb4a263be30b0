// SPDX-License-Identifier: MIT
#include "app/page_queue.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace corvane {
namespace {

constexpr std::size_t kBatchBytes = std::size_t{256} << 10;
constexpr std::size_t kWaitingBatches = 4;

}  // namespace

RowQueue::RowQueue(std::size_t rowBytes)
    : rowBytes_(rowBytes), rowsPerBatch_(std::max<std::size_t>(1, kBatchBytes / rowBytes)) {}

bool RowQueue::Push(const std::uint8_t* row) {
  filling_.bytes.resize(rowBytes_ * rowsPerBatch_);
  std::memcpy(filling_.bytes.data() + filling_.rows * rowBytes_, row, rowBytes_);
  return ++filling_.rows < rowsPerBatch_ || PushBatch();
}

bool RowQueue::PushBatch() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return ready_.size() < kWaitingBatches || givenUp_; });
  if (givenUp_) return false;
  ready_.push_back(std::move(filling_));
  filling_ = {};
  if (!spare_.empty()) {
    filling_ = std::move(spare_.back());
    spare_.pop_back();
    filling_.rows = 0;
  }
  changed_.notify_all();
  return true;
}

void RowQueue::Close(std::exception_ptr problem) {
  if (!problem && filling_.rows > 0) PushBatch();
  const std::lock_guard lock(mutex_);
  problem_ = problem;
  closed_ = true;
  changed_.notify_all();
}

std::uint8_t* RowQueue::Pop() {
  if (taken_ == taking_.rows) {
    std::unique_lock lock(mutex_);
    if (!taking_.bytes.empty()) spare_.push_back(std::exchange(taking_, {}));
    changed_.wait(lock, [&] { return !ready_.empty() || closed_; });
    if (problem_) std::rethrow_exception(problem_);
    if (ready_.empty()) return nullptr;
    taking_ = std::move(ready_.front());
    ready_.pop_front();
    taken_ = 0;
    changed_.notify_all();
  }
  return taking_.bytes.data() + taken_++ * rowBytes_;
}

void RowQueue::GiveUp() {
  const std::lock_guard lock(mutex_);
  givenUp_ = true;
  changed_.notify_all();
}

}  // namespace corvane
