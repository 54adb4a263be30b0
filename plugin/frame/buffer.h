// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <type_traits>
#include <utility>

namespace corvane {

// An array of numbers with one owner that never throws: where memory is short it is empty. A copy
// has the same values in memory of its own, or is empty.
template <class T>
class Buffer {
  static_assert(std::is_arithmetic_v<T>);

 public:
  Buffer() = default;
  Buffer(const Buffer& other) { *this = other; }
  Buffer(Buffer&& other) noexcept { Swap(other); }
  Buffer& operator=(const Buffer& other) {
    if (this == &other) return *this;
    Release();
    if (other.data_ != nullptr && Allocate(other.size_)) {
      std::copy_n(other.data_, size_, data_);
    }
    return *this;
  }
  Buffer& operator=(Buffer&& other) noexcept {
    Swap(other);
    return *this;
  }
  ~Buffer() { Release(); }

  // `count` values, all 0, in place of those held before. False when memory is short.
  bool Allocate(std::size_t count) {
    Release();
    // A large array takes no memory of the machine's before it is used.
    data_ = static_cast<T*>(std::calloc(std::max<std::size_t>(count, 1), sizeof(T)));
    if (data_ != nullptr) size_ = count;
    return data_ != nullptr;
  }

  void Release() {
    std::free(std::exchange(data_, nullptr));
    size_ = 0;
  }

  T* Data() { return data_; }
  const T* Data() const { return data_; }
  std::size_t Size() const { return size_; }
  explicit operator bool() const { return data_ != nullptr; }

 private:
  void Swap(Buffer& other) {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
  }

  T* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace corvane
