// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "app/support/descriptor.h"
#include "app/support/failure.h"

namespace corvane {

// Bytes that are read once, from a file, a pipe or a child. One thread reads; its members throw
// Failure and TransientFailure naming the input, and Interrupted.
class InputStream {
 public:
  // Thrown by a read after Cancel.
  struct Cancelled {};

  class WaitedTooLong : public Failure {
   public:
    using Failure::Failure;
  };

  InputStream(Descriptor file, std::string name);
  // Opens a file; what is no folder may be read.
  explicit InputStream(const std::string& path);

  const std::string& Name() const { return name_; }

  // The next bytes, without taking them: `size` (at most kMostPeeked), fewer at the end. Valid
  // until the next call.
  std::span<const std::uint8_t> Peek(std::size_t size);
  static constexpr std::size_t kMostPeeked = 4096;

  // Takes the next bytes: `size`, fewer at the end.
  std::size_t Read(void* data, std::size_t size);

  // The same without a copy, at most kMostInPlace. Valid until the next call.
  std::span<const std::uint8_t> Take(std::size_t size);
  static constexpr std::size_t kMostInPlace = std::size_t{256} << 10;

  // Takes what there is of the next bytes, at most `size`, and waits for the first; 0 at the end.
  std::size_t ReadAvailable(void* data, std::size_t size);

  // Passes bytes over, and returns how many there were. A file is not read for that.
  std::uint64_t Skip(std::uint64_t size);

  // How long reads may wait for bytes from here on, all together, before WaitedTooLong is thrown.
  void LimitWait(double seconds) { waitLeft_ = std::chrono::duration<double>(seconds); }

  // From any thread: whoever waits for bytes, now or later, gets Cancelled.
  void Cancel() { cancelled_ = true; }

  // The same when `isCancelled` says so, which is asked before and while bytes are waited for.
  void CancelWhen(std::function<bool()> isCancelled) { isCancelled_ = std::move(isCancelled); }

  // For who waits for something else of the same origin: Cancelled as above, and Interrupted.
  void ThrowIfCancelled() const;

 private:
  std::size_t ReadSome(std::uint8_t* data, std::size_t size);
  std::size_t Buffered() const { return end_ - begin_; }

  Descriptor file_;
  std::string name_;
  std::uint64_t fileSize_ = 0;              // 0: no ordinary file
  std::unique_ptr<std::uint8_t[]> buffer_;  // of kMostInPlace bytes
  std::size_t begin_ = 0, end_ = 0;         // of what is left in it
  std::chrono::duration<double> waitLeft_ = std::chrono::duration<double>::max();
  std::atomic<bool> cancelled_ = false;
  std::function<bool()> isCancelled_;  // may be empty
};

}  // namespace corvane
