// SPDX-License-Identifier: MIT
#include "app/printer/pushed_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "app/support/failure.h"

namespace corvane {
namespace {

constexpr std::size_t kMostWaiting = 64;  // rows

}  // namespace

bool PushedPage::Push(const std::uint8_t* row) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return rows_.size() < kMostWaiting || givenUp_; });
  if (givenUp_) return false;
  std::vector<std::uint8_t> held;
  if (!spare_.empty()) {
    held = std::move(spare_.back());
    spare_.pop_back();
  }
  held.assign(row, row + Page().image.RowBytes());
  rows_.push_back(std::move(held));
  changed_.notify_all();
  return true;
}

void PushedPage::End() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  changed_.notify_all();
}

void PushedPage::GiveUp() {
  const std::lock_guard lock(mutex_);
  givenUp_ = true;
  changed_.notify_all();
}

void PushedPage::ReadRow(std::uint8_t* row) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !rows_.empty() || ended_ || cancelled_; });
  if (cancelled_) throw InputStream::Cancelled{};
  if (rows_.empty()) {
    throw Failure(
        fmt::format("{}: ends after {} of {} rows", Page().image.path, read_, Page().image.height));
  }
  std::copy(rows_.front().begin(), rows_.front().end(), row);
  spare_.push_back(std::move(rows_.front()));
  rows_.pop_front();
  ++read_;
  changed_.notify_all();
}

void PushedPage::Cancel() {
  const std::lock_guard lock(mutex_);
  cancelled_ = true;
  changed_.notify_all();
}

}  // namespace corvane
