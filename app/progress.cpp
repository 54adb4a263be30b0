// SPDX-License-Identifier: MIT
#include "app/progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace corvane {
namespace {

constexpr auto kRedraw = std::chrono::milliseconds(100);
constexpr int kWidestBar = 40;
constexpr int kTextBesideBar = 32;

int TerminalColumns() {
  winsize size = {};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

Progress::Progress(std::string label, std::uint64_t total, bool wanted)
    : label_(std::move(label)), total_(std::max<std::uint64_t>(total, 1)) {
  shown_ = wanted && isatty(STDERR_FILENO) != 0;
}

Progress::~Progress() { Clear(); }

void Progress::Advance(std::uint64_t rows) {
  if (!shown_) return;
  const std::lock_guard lock(mutex_);
  done_ += rows;
  const Clock::time_point now = Clock::now();
  if (now - lastDrawn_ >= kRedraw) Draw(now);
}

void Progress::Clear() {
  const std::lock_guard lock(mutex_);
  if (drawn_) std::fputs("\r\033[K", stderr);
  drawn_ = false;
}

void Progress::Draw(Clock::time_point now) {
  lastDrawn_ = now;
  drawn_ = true;
  const double share = std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_));
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double left = share > 0 ? seconds * (1 - share) / share : 0;
  const int room = TerminalColumns() - kTextBesideBar - static_cast<int>(label_.size());
  const int columns = std::clamp(room, 0, kWidestBar);
  const int filled = static_cast<int>(share * columns);
  fmt::print(stderr, "\r\033[K{} [{:#<{}}{: <{}}] {:3.0f} % {:4.0f} s left", label_, "", filled, "",
             columns - filled, share * 100, left);
  std::fflush(stderr);
}

}  // namespace corvane
