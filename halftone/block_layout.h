// SPDX-License-Identifier: MIT
//
// Several arrays in one block of memory, which is zero and none of the machine's before it is used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace corvane {

// Hands out consecutive parts of a block; first run without one, to learn its size.
class BlockLayout {
 public:
  explicit BlockLayout(std::byte* start) : start_(start) {}

  template <typename T>
  void Place(T*& array, std::uint64_t bytes) {
    if (start_ != nullptr) array = reinterpret_cast<T*>(start_ + size_);
    size_ += (bytes + kAlignment - 1) / kAlignment * kAlignment;
  }

  std::uint64_t size() const { return size_; }
  static constexpr std::uint64_t kAlignment = 64;

 private:
  std::byte* start_;
  std::uint64_t size_ = 0;
};

// Allocates what `layOut(start)` places, which returns the size; the caller frees it with
// std::free. Null when there is no such memory.
template <typename LayOut>
std::byte* AllocateBlock(LayOut layOut) {
  const std::uint64_t bytes = layOut(nullptr) + BlockLayout::kAlignment;
  if (bytes > SIZE_MAX) return nullptr;
  auto* const block = static_cast<std::byte*>(std::calloc(static_cast<std::size_t>(bytes), 1));
  if (block == nullptr) return nullptr;
  void* start = block;
  std::size_t space = static_cast<std::size_t>(bytes);
  std::align(BlockLayout::kAlignment, 1, start, space);
  layOut(static_cast<std::byte*>(start));
  return block;
}

}  // namespace corvane
