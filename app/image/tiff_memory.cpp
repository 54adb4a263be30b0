// SPDX-License-Identifier: MIT
//
// The library lets a program define the functions that it allocates with. Where it does not (it is
// part of the program on Windows), or its own are bound to it, nothing is kept.
#include "app/image/tiff_memory.h"

#if defined(__linux__)
#include <malloc.h>
#include <tiffio.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace corvane {
namespace {

// A block of the reserve begins with its size.
union Head {
  std::size_t size;
  std::max_align_t aligned;
};

// Blocks in a row, given back all at once when none is in use.
class TiffReserve {
 public:
  // Null: there is none, or `size` bytes are more than a directory needs at a time.
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

  static std::size_t SizeOf(const void* block) {
    return (static_cast<const Head*>(block) - 1)->size;
  }

  void Free() {
    const std::lock_guard lock(mutex_);
    if (--blocks_ == 0) used_ = 0;
  }

 private:
  static constexpr std::size_t kLargestBlock = std::size_t{32} << 10;
  static constexpr std::size_t kHeads = (std::size_t{1} << 20) / sizeof(Head);

  std::mutex mutex_;
  std::size_t used_ = 0, blocks_ = 0;
  Head memory_[kHeads] = {};
};

constinit TiffReserve reserve;

}  // namespace

void KeepMemoryForTiff() {}

}  // namespace corvane

// NOLINTBEGIN(bugprone-reserved-identifier,cppcoreguidelines-no-malloc): as the library has them.
extern "C" {

void* _TIFFmalloc(tmsize_t size) {
  if (size == 0) return nullptr;
  void* const block = std::malloc(static_cast<std::size_t>(size));
  return block != nullptr ? block : corvane::reserve.Allocate(static_cast<std::size_t>(size));
}

void _TIFFfree(void* block) {
  if (corvane::reserve.Owns(block)) {
    corvane::reserve.Free();
  } else {
    std::free(block);
  }
}

void* _TIFFrealloc(void* block, tmsize_t size) {
  using corvane::reserve;
  const bool reserved = reserve.Owns(block);
  if (!reserved) {
    void* const moved = std::realloc(block, static_cast<std::size_t>(size));
    if (moved != nullptr || size == 0) return moved;
  }
  void* const moved = _TIFFmalloc(size);
  if (moved == nullptr || block == nullptr) return moved;
  const std::size_t old = reserved ? reserve.SizeOf(block) : malloc_usable_size(block);
  std::memcpy(moved, block, std::min(old, static_cast<std::size_t>(size)));
  _TIFFfree(block);
  return moved;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cppcoreguidelines-no-malloc)

#else
namespace corvane {
void KeepMemoryForTiff() {}
}  // namespace corvane
#endif
