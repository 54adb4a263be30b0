// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <mutex>

namespace corvane {

// Memory for a library that frees or follows what it could not allocate: where there is no other,
// its small blocks come from here until it is done, and the caller then gives up. Never destroyed;
// any thread may use it.
class MemoryReserve {
 public:
  // Null: the reserve is used up, or `size` bytes are more than it gives at a time.
  void* Allocate(std::size_t size) {
    if (size > kLargestBlock) return nullptr;
    const std::size_t heads = 1 + (size + sizeof(Head) - 1) / sizeof(Head);
    const std::lock_guard lock(mutex_);
    if (heads > kHeads - used_) return nullptr;
    Head* const head = memory_ + used_;
    used_ += heads;
    ++blocks_;
    head->size = size;
    return head + 1;
  }

  bool Owns(const void* block) const { return block >= memory_ && block < memory_ + kHeads; }

  // Bytes of a block that it owns.
  static std::size_t SizeOf(const void* block) {
    return (static_cast<const Head*>(block) - 1)->size;
  }

  // Takes back a block that it owns; all of them serve again once none is in use.
  void Free() {
    const std::lock_guard lock(mutex_);
    if (--blocks_ == 0) used_ = 0;
  }

 private:
  static constexpr std::size_t kLargestBlock = std::size_t{32} << 10;
  static constexpr std::size_t kBytes = std::size_t{1} << 20;

  // A block begins with its size.
  union Head {
    std::size_t size;
    std::max_align_t aligned;
  };
  static constexpr std::size_t kHeads = kBytes / sizeof(Head);

  std::mutex mutex_;
  std::size_t used_ = 0, blocks_ = 0;
  Head memory_[kHeads];  // as it comes: nothing touches what no block lies in
};

}  // namespace corvane
