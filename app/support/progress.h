// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace corvane {

enum class ProgressStyle {
  None,
  Line,  // redrawn at a terminal; nothing elsewhere
  Json,  // for programs: an object a line, about twice a second and at the end
};

// What a command shows whose option --progress is `word`: "json", "none", or "auto", a line unless
// the command is quiet.
ProgressStyle ProgressStyleOf(const std::string& word, bool quiet);

// Tells on the error stream how far a command is. Several threads may advance it.
class Progress {
 public:
  // `label` stands in front; `total` is in rows.
  Progress(std::string label, std::uint64_t total, ProgressStyle style);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Advance(std::uint64_t rows);

  // Takes the line off the terminal, for a message.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  void Draw(Clock::time_point now);
  void DrawLine(double share, double left);
  void WriteObject(double share, double left) const;

  std::mutex mutex_;
  std::string label_;
  std::uint64_t total_;
  std::uint64_t done_ = 0;
  ProgressStyle style_;
  bool drawn_ = false;
  Clock::time_point start_ = Clock::now();
  Clock::time_point lastDrawn_ = start_;
};

}  // namespace corvane
