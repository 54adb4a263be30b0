// SPDX-License-Identifier: MIT
#include "app/support/abnormal_end.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace corvane {
namespace {

std::mutex mutex;
Cleaner* newest = nullptr;
thread_local const std::string* nameInWork = nullptr;

}  // namespace

void Cleaner::Remember() noexcept {
  const std::lock_guard lock(mutex);
  older_ = newest;
  if (newest != nullptr) newest->newer_ = this;
  newest = this;
}

void Cleaner::Forget() noexcept {
  const std::lock_guard lock(mutex);
  if (older_ == nullptr && newer_ == nullptr && newest != this) return;
  if (older_ != nullptr) older_->newer_ = newer_;
  (newer_ != nullptr ? newer_->older_ : newest) = older_;
  older_ = newer_ = nullptr;
}

NameInWork::NameInWork(const std::string& name) noexcept : outer_(nameInWork) {
  nameInWork = &name;
}

NameInWork::~NameInWork() { nameInWork = outer_; }

void EndAbnormally(int status) {
  // Not given back: nobody goes on with what is taken away.
  mutex.lock();
  for (Cleaner* cleaner = newest; cleaner != nullptr; cleaner = cleaner->older_) {
    cleaner->TakeAway();
  }
  std::fputs("corvane: ", stderr);
  if (nameInWork != nullptr) {
    for (const char c : *nameInWork) {
      const auto byte = static_cast<unsigned char>(c);
      std::fputc(byte < ' ' || byte == 0x7f ? '?' : byte, stderr);
    }
    std::fputs(": ", stderr);
  }
  std::fputs("out of memory\n", stderr);
  std::_Exit(status);
}

}  // namespace corvane
