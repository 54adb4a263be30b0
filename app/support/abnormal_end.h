// SPDX-License-Identifier: MIT
//
// What is cleared up although nothing is unwound: where memory ends in the middle of what may not
// fail, the program can only end.
#pragma once

#include <string>

namespace corvane {

// Ends the program with this status for want of memory: all cleaners take away what they have made,
// the newest first, and a line names what the thread worked on. Takes no memory itself.
[[noreturn]] void EndAbnormally(int status);

// Somebody who has put something on the disk that must not stay. Between Remember and Forget
// EndAbnormally may ask for it to be taken away, from any thread.
class Cleaner {
 public:
  Cleaner() = default;
  virtual ~Cleaner() = default;
  Cleaner(const Cleaner&) = delete;
  Cleaner& operator=(const Cleaner&) = delete;

  // Takes no memory and throws nothing.
  virtual void TakeAway() noexcept = 0;

 protected:
  void Remember() noexcept;
  void Forget() noexcept;

 private:
  friend void EndAbnormally(int status);

  Cleaner* older_ = nullptr;
  Cleaner* newer_ = nullptr;
};

// What the thread works on, for the line that tells of its end: put back when this goes.
class NameInWork {
 public:
  explicit NameInWork(const std::string& name) noexcept;
  ~NameInWork();
  NameInWork(const NameInWork&) = delete;
  NameInWork& operator=(const NameInWork&) = delete;

 private:
  const std::string* outer_;
};

}  // namespace corvane
