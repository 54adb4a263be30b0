// SPDX-License-Identifier: MIT
//
// What a fuzz target is made of. Each stands in a file of its own, fuzz/NAME.cpp, and is built
// twice: for libFuzzer, which looks for inputs that bring it down (`./dev fuzz NAME`), and as a
// test over the inputs that are kept in fuzz/corpus/NAME.
//
// A target takes any bytes. What it reads may be refused with a Failure; whatever else leaves it, a
// sanitizer's complaint and a run without end are faults.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/support/failure.h"

namespace corvane::fuzz {

using Bytes = std::span<const std::uint8_t>;

struct Target {
  const char* name;
  void (*run)(Bytes input);
};

// The targets that are linked into this program.
std::vector<Target>& Targets();

struct Registration {
  explicit Registration(const Target& target) { Targets().push_back(target); }
};

// Takes an input apart from its front. Behind its end everything is 0.
class Input {
 public:
  explicit Input(Bytes bytes) : rest_(bytes) {}

  bool IsEmpty() const { return rest_.empty(); }
  Bytes Rest() const { return rest_; }

  template <class Number>
  Number Take() {
    Number number = 0;
    const Bytes bytes = TakeBytes(sizeof number);
    std::memcpy(&number, bytes.data(), bytes.size());
    return number;
  }
  // 0 to `count` - 1, from one byte.
  unsigned Choose(std::size_t count) { return Take<std::uint8_t>() % static_cast<unsigned>(count); }
  Bytes TakeBytes(std::size_t size) {
    const Bytes taken = rest_.first(std::min(size, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

 private:
  Bytes rest_;
};

inline std::string_view TextOf(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The path of a file in memory that holds these bytes until the next call.
std::string FileOf(Bytes bytes);

// Whether the work ended without a Failure, which is how bad input is to be refused, and with the
// memory that there is: a file may promise any size.
template <class Work>
bool Succeeds(Work work) {
  try {
    work();
    return true;
  } catch (const Failure&) {
    return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// Ends the program: what was promised for every input does not hold.
#define FUZZ_EXPECT(condition) \
  if (!(condition)) ::corvane::fuzz::Broken(#condition)
[[noreturn]] void Broken(const char* condition);

}  // namespace corvane::fuzz

#if defined(CORVANE_LIBFUZZER)
#define FUZZ_TARGET(name, input)                                                \
  static void Fuzz(corvane::fuzz::Bytes);                                       \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size); \
  int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {           \
    Fuzz({data, size});                                                         \
    return 0;                                                                   \
  }                                                                             \
  static void Fuzz([[maybe_unused]] corvane::fuzz::Bytes input)
#else
#define FUZZ_TARGET(name, input)                                         \
  static void Fuzz(corvane::fuzz::Bytes);                                \
  static const corvane::fuzz::Registration kRegistration({#name, Fuzz}); \
  static void Fuzz([[maybe_unused]] corvane::fuzz::Bytes input)
#endif
