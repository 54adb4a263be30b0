// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace corvane {

// A line on a terminal's error stream that tells how far a command is; silent elsewhere.
// Several threads may advance it.
class Progress {
 public:
  // `label` stands in front; `total` is in rows.
  Progress(std::string label, std::uint64_t total, bool wanted);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Advance(std::uint64_t rows);

  // Takes the line off the terminal.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  void Draw(Clock::time_point now);

  std::mutex mutex_;
  std::string label_;
  std::uint64_t total_;
  std::uint64_t done_ = 0;
  bool shown_ = false;
  bool drawn_ = false;
  Clock::time_point start_ = Clock::now();
  Clock::time_point lastDrawn_ = start_;
};

}  // namespace corvane
