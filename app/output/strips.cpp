// SPDX-License-Identifier: MIT
#include "app/output/strips.h"

#include <libdeflate.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "app/support/failure.h"
#include "app/support/threads.h"

namespace corvane {
namespace {

// Halftone dots hardly repeat: higher levels take a multiple of the time for a few per cent.
constexpr int kCompressionLevel = 1;

struct FreeDecompressor {
  void operator()(libdeflate_decompressor* decompressor) const {
    libdeflate_free_decompressor(decompressor);
  }
};

struct FreeCompressor {
  void operator()(libdeflate_compressor* compressor) const {
    libdeflate_free_compressor(compressor);
  }
};

bool IsAllZero(const std::vector<std::uint8_t>& bytes) {
  return bytes.empty() ||
         (bytes[0] == 0 && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

// One thread's compressor. Blank strips, which most pages have many of, are compressed once.
class Compressor {
 public:
  Compressor() : compressor_(libdeflate_alloc_compressor(kCompressionLevel)) {
    if (!compressor_) throw std::bad_alloc();
  }

  const std::vector<std::uint8_t>& Compress(const std::vector<std::uint8_t>& strip) {
    if (!IsAllZero(strip)) {
      CompressInto(strip, compressed_);
      return compressed_;
    }
    if (strip.size() != blankSize_ || blank_.empty()) {
      CompressInto(strip, blank_);
      blankSize_ = strip.size();
    }
    return blank_;
  }

 private:
  void CompressInto(const std::vector<std::uint8_t>& strip, std::vector<std::uint8_t>& out) {
    out.resize(libdeflate_zlib_compress_bound(compressor_.get(), strip.size()));
    out.resize(libdeflate_zlib_compress(compressor_.get(), strip.data(), strip.size(), out.data(),
                                        out.size()));
  }

  std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor_;
  std::vector<std::uint8_t> compressed_, blank_;
  std::size_t blankSize_ = 0;
};

}  // namespace

StripEncoder::StripEncoder(int threads, std::size_t waiting, Writer write)
    : write_(std::move(write)), waiting_(waiting) {
  StartThreads(static_cast<std::size_t>(std::max(threads, 1)), threads_, [this] { Work(); });
  if (threads_.empty()) {
    throw TransientFailure("no thread can be started to compress the pages");
  }
}

StripEncoder::~StripEncoder() { Stop(); }

std::unique_lock<std::mutex> StripEncoder::WaitForRoom() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return jobs_.size() < waiting_ || thrown_; });
  if (thrown_) std::rethrow_exception(thrown_);
  return lock;
}

void StripEncoder::Submit(std::size_t tag, std::vector<std::uint8_t>& strip) {
  const std::unique_lock lock = WaitForRoom();
  std::vector<std::uint8_t> buffer;
  if (!spare_.empty()) {
    buffer.swap(spare_.back());
    spare_.pop_back();
  }
  buffer.swap(strip);
  jobs_.push_back({tag, submitted_++, std::move(buffer), nullptr});
  changed_.notify_all();
}

void StripEncoder::SubmitCompressed(std::size_t tag,
                                    std::shared_ptr<const std::vector<std::uint8_t>> strip) {
  const std::unique_lock lock = WaitForRoom();
  jobs_.push_back({tag, submitted_++, {}, std::move(strip)});
  changed_.notify_all();
}

void StripEncoder::Finish() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return written_ == submitted_ || thrown_; });
  if (thrown_) std::rethrow_exception(thrown_);
}

void StripEncoder::Work() {
  std::unique_lock lock(mutex_, std::defer_lock);
  try {
    Compressor compressor;
    for (;;) {
      lock.lock();
      changed_.wait(lock, [&] { return !jobs_.empty() || stopping_; });
      if (stopping_) return;
      Job job = std::move(jobs_.front());
      jobs_.pop_front();
      changed_.notify_all();
      lock.unlock();

      const std::vector<std::uint8_t>& compressed =
          job.compressed ? *job.compressed : compressor.Compress(job.strip);

      lock.lock();
      changed_.wait(lock, [&] { return written_ == job.number || stopping_ || thrown_; });
      if (stopping_ || thrown_) return;
      lock.unlock();
      write_(job.tag, compressed.data(), compressed.size());
      lock.lock();
      ++written_;
      if (!job.compressed) spare_.push_back(std::move(job.strip));
      changed_.notify_all();
      lock.unlock();
    }
  } catch (...) {
    if (!lock.owns_lock()) lock.lock();
    if (!thrown_) thrown_ = std::current_exception();
    changed_.notify_all();
  }
}

void StripEncoder::Stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    changed_.notify_all();
  }
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
}

void DecompressStrip(const std::vector<std::uint8_t>& compressed,
                     std::vector<std::uint8_t>& strip) {
  const std::unique_ptr<libdeflate_decompressor, FreeDecompressor> decompressor(
      libdeflate_alloc_decompressor());
  if (!decompressor) throw std::bad_alloc();
  if (libdeflate_zlib_decompress(decompressor.get(), compressed.data(), compressed.size(),
                                 strip.data(), strip.size(), nullptr) != LIBDEFLATE_SUCCESS) {
    throw Failure("a strip in memory is damaged");
  }
}

}  // namespace corvane
