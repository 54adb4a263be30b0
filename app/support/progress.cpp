// SPDX-License-Identifier: MIT
#include "app/support/progress.h"

#include <fmt/format.h>

#include <algorithm>

#include "app/support/message.h"
#include "app/support/platform.h"

namespace corvane {
namespace {

constexpr auto kRedraw = std::chrono::milliseconds(100);
constexpr auto kNextObject = std::chrono::milliseconds(500);
constexpr int kWidestBar = 40;
constexpr int kTextBesideBar = 32;

}  // namespace

ProgressStyle ProgressStyleOf(const std::string& word, bool quiet) {
  if (word == "json") return ProgressStyle::Json;
  return word == "none" || quiet ? ProgressStyle::None : ProgressStyle::Line;
}

Progress::Progress(std::string label, std::uint64_t total, ProgressStyle style)
    : label_(std::move(label)), total_(std::max<std::uint64_t>(total, 1)), style_(style) {
  if (style == ProgressStyle::Line && TerminalColumns() == 0) style_ = ProgressStyle::None;
}

Progress::~Progress() {
  if (style_ == ProgressStyle::Json) Draw(Clock::now());
  Clear();
}

void Progress::Advance(std::uint64_t rows) {
  if (style_ == ProgressStyle::None) return;
  const std::lock_guard lock(mutex_);
  done_ += rows;
  const Clock::time_point now = Clock::now();
  if (now - lastDrawn_ >= (style_ == ProgressStyle::Json ? kNextObject : kRedraw)) Draw(now);
}

void Progress::Clear() {
  const std::lock_guard lock(mutex_);
  if (drawn_) Tell("\r\033[K");
  drawn_ = false;
}

void Progress::Draw(Clock::time_point now) {
  lastDrawn_ = now;
  const double share = std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_));
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double left = share > 0 ? seconds * (1 - share) / share : 0;
  style_ == ProgressStyle::Json ? WriteObject(share, left) : DrawLine(share, left);
}

void Progress::DrawLine(double share, double left) {
  drawn_ = true;
  const int room = TerminalColumns() - kTextBesideBar - static_cast<int>(label_.size());
  const int columns = std::clamp(room, 0, kWidestBar);
  const int filled = static_cast<int>(share * columns);
  Tell(fmt::format("\r\033[K{} [{:#<{}}{: <{}}] {:3.0f} % {:4.0f} s left", label_, "", filled, "",
                   columns - filled, share * 100, left));
}

void Progress::WriteObject(double share, double left) const {
  Tell(fmt::format("{{\"progress\":\"{}\",\"share\":{:.4f},\"secondsLeft\":{:.1f}}}\n", label_,
                   share, left));
}

}  // namespace corvane
