// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace corvane {

// Compresses strips (zlib streams) in threads of its own and hands them on in the order in which
// they came. At most a few strips wait, so memory stays bounded.
class StripEncoder {
 public:
  // `write` runs in one thread at a time; `tag` is what the strip was submitted with.
  using Writer = std::function<void(std::size_t tag, const std::uint8_t* data, std::size_t size)>;

  // `waiting`: how many strips may wait.
  StripEncoder(int threads, std::size_t waiting, Writer write);
  ~StripEncoder();
  StripEncoder(const StripEncoder&) = delete;
  StripEncoder& operator=(const StripEncoder&) = delete;

  // Takes the strip over and gives an old buffer back in its place. Throws what a writer threw.
  void Submit(std::size_t tag, std::vector<std::uint8_t>& strip);
  // The same for a strip that has been compressed before.
  void SubmitCompressed(std::size_t tag, std::shared_ptr<const std::vector<std::uint8_t>> strip);

  // Waits until every strip is written. Throws what a writer threw.
  void Finish();

 private:
  struct Job {
    std::size_t tag = 0;
    std::uint64_t number = 0;
    std::vector<std::uint8_t> strip;
    std::shared_ptr<const std::vector<std::uint8_t>> compressed;  // null: to be made of `strip`
  };

  // Waits until there is room for a strip more.
  std::unique_lock<std::mutex> WaitForRoom();
  void Work();
  void Stop();

  Writer write_;
  std::size_t waiting_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> jobs_;
  std::vector<std::vector<std::uint8_t>> spare_;
  std::uint64_t submitted_ = 0;
  std::uint64_t written_ = 0;
  bool stopping_ = false;
  std::exception_ptr thrown_;
  std::vector<std::thread> threads_;
};

// Opens a strip that has been compressed here; `strip` has the size of its bytes.
void DecompressStrip(const std::vector<std::uint8_t>& compressed, std::vector<std::uint8_t>& strip);

}  // namespace corvane
