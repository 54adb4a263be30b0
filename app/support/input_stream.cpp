// SPDX-License-Identifier: MIT
#include "app/support/input_stream.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "app/support/interrupt.h"

namespace corvane {
namespace {

constexpr int kLongestWaitMs = 50;  // before it is looked whether anybody still wants the bytes

}  // namespace

InputStream::InputStream(Descriptor file, std::string name)
    : file_(std::move(file)),
      name_(std::move(name)),
      buffer_(std::make_unique_for_overwrite<std::uint8_t[]>(kMostInPlace)) {
  struct stat status = {};
  if (!file_.IsOpen() || fstat(file_.Number(), &status) != 0) {
    FailOfSystem(name_, errno);
  }
  if (S_ISDIR(status.st_mode)) throw Failure(name_ + ": is a directory");
  if (S_ISREG(status.st_mode)) fileSize_ = static_cast<std::uint64_t>(status.st_size);
}

InputStream::InputStream(const std::string& path)
    : InputStream(Descriptor::OpenForReading(path), path) {}

std::span<const std::uint8_t> InputStream::Peek(std::size_t size) {
  if (Buffered() < size && begin_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + begin_, Buffered());
    end_ -= begin_;
    begin_ = 0;
  }
  while (Buffered() < size) {
    const std::size_t more = ReadSome(buffer_.get() + end_, kMostInPlace - end_);
    if (more == 0) break;
    end_ += more;
  }
  return {buffer_.get() + begin_, std::min(size, Buffered())};
}

std::size_t InputStream::Read(void* data, std::size_t size) {
  auto* bytes = static_cast<std::uint8_t*>(data);
  std::size_t done = 0;
  while (done < size) {
    if (Buffered() == 0 && size - done < kMostInPlace) {
      begin_ = 0;
      end_ = ReadSome(buffer_.get(), kMostInPlace);
      if (end_ == 0) break;
    }
    if (const std::size_t held = std::min(size - done, Buffered()); held > 0) {
      std::memcpy(bytes + done, buffer_.get() + begin_, held);
      begin_ += held;
      done += held;
    } else {
      const std::size_t more = ReadSome(bytes + done, size - done);
      if (more == 0) break;
      done += more;
    }
  }
  return done;
}

std::span<const std::uint8_t> InputStream::Take(std::size_t size) {
  const auto bytes = Peek(size);
  begin_ += bytes.size();
  return bytes;
}

std::size_t InputStream::ReadAvailable(void* data, std::size_t size) {
  auto* bytes = static_cast<std::uint8_t*>(data);
  if (Buffered() == 0) return ReadSome(bytes, size);
  const std::size_t held = std::min(size, Buffered());
  std::memcpy(bytes, buffer_.get() + begin_, held);
  begin_ += held;
  return held;
}

std::uint64_t InputStream::Skip(std::uint64_t size) {
  std::uint64_t done = std::min<std::uint64_t>(size, Buffered());
  begin_ += static_cast<std::size_t>(done);
  if (fileSize_ > 0) {
    const off_t at = lseek(file_.Number(), 0, SEEK_CUR);
    if (at < 0) FailOfSystem(name_, errno);
    const auto here = static_cast<std::uint64_t>(at);
    const std::uint64_t rest = std::min(size - done, fileSize_ - std::min(here, fileSize_));
    if (lseek(file_.Number(), static_cast<off_t>(rest), SEEK_CUR) < 0) {
      FailOfSystem(name_, errno);
    }
    return done + rest;
  }
  while (done < size) {
    begin_ = end_ = 0;
    end_ = ReadSome(buffer_.get(), kMostInPlace);
    if (end_ == 0) break;
    begin_ = static_cast<std::size_t>(std::min<std::uint64_t>(size - done, end_));
    done += begin_;
  }
  return done;
}

void InputStream::ThrowIfCancelled() const {
  if (cancelled_ || (isCancelled_ && isCancelled_())) throw Cancelled();
  ThrowIfInterrupted();
}

std::size_t InputStream::ReadSome(std::uint8_t* data, std::size_t size) {
  for (;;) {
    ThrowIfCancelled();
    if (waitLeft_ <= waitLeft_.zero()) throw WaitedTooLong(name_ + ": nothing comes any more");
    const auto start = std::chrono::steady_clock::now();
    const bool ready = file_.WaitToRead(kLongestWaitMs);
    waitLeft_ -= std::chrono::steady_clock::now() - start;
    if (!ready) continue;
    const std::ptrdiff_t done = file_.Read(data, size);
    if (done >= 0) return static_cast<std::size_t>(done);
    if (errno != EINTR && errno != EAGAIN) {
      FailOfSystem(name_, errno);
    }
  }
}

}  // namespace corvane
