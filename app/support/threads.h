// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

namespace corvane {

// Starts up to `wanted` threads that run `work` and adds them to `threads`. Where the system gives
// no more, those that there are have to do: the caller looks at how many came.
template <typename Work>
void StartThreads(std::size_t wanted, std::vector<std::thread>& threads, const Work& work) {
  try {
    threads.reserve(threads.size() + wanted);
    for (std::size_t i = 0; i < wanted; ++i) threads.emplace_back(work);
  } catch (const std::system_error&) {
  } catch (const std::bad_alloc&) {
  }
}

// Runs `work` for 0 to `count` - 1, up to `jobs` at a time, with the caller's thread among them.
// Throws what one of them throws, once all have ended.
template <typename Work>
void ForEachIndex(std::size_t count, int jobs, const Work& work) {
  std::atomic<std::size_t> next = 0;
  std::mutex mutex;
  std::exception_ptr thrown;
  const auto run = [&] {
    try {
      for (std::size_t i; (i = next++) < count;) work(i);
    } catch (...) {
      const std::lock_guard lock(mutex);
      if (!thrown) thrown = std::current_exception();
      next = count;
    }
  };
  std::vector<std::thread> others;
  const auto most =
      std::min(static_cast<std::size_t>(std::max(jobs, 1)), std::max(count, std::size_t{1}));
  StartThreads(most - 1, others, run);
  run();
  for (std::thread& other : others) other.join();
  if (thrown) std::rethrow_exception(thrown);
}

}  // namespace corvane
