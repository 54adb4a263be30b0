// SPDX-License-Identifier: MIT
//
// A library to be preloaded into a program (LD_PRELOAD): lets the nth call of a kind fail.
//
//   CORVANE_FAULT=KIND:N         from the entry of main on, the Nth call of KIND fails; with N+
//   that
//                                one and all later ones
//   CORVANE_FAULT_COUNTS=FILE    writes a line "KIND COUNT" for each kind when main has returned
//   CORVANE_FILL=BYTE            fills fresh and freed memory with this number
//
// Kinds: memory, open, read, write, sync, rename, thread.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/faults/allocator.h"

namespace {

enum Kind { kMemory, kOpen, kRead, kWrite, kSync, kRename, kThread, kKinds };

constexpr const char* kNames[kKinds] = {"memory", "open",   "read",  "write",
                                        "sync",   "rename", "thread"};
constexpr int kProblems[kKinds] = {ENOMEM, EMFILE, EIO, ENOSPC, EIO, EIO, EAGAIN};

constexpr int kStreamFailed = 0x20;  // as ferror tells it

constinit std::atomic<long> counts[kKinds] = {};
constinit std::atomic<bool> isActive{false};
constinit int failing = -1;
constinit long failingCall = 0;
constinit bool failsOn = false;  // the later calls, too

// Counts a call; false lets it fail, with the kind's errno.
bool Passes(Kind kind) {
  if (!isActive.load(std::memory_order_relaxed)) return true;
  const long call = counts[kind].fetch_add(1, std::memory_order_relaxed) + 1;
  if (kind != failing || (failsOn ? call < failingCall : call != failingCall)) return true;
  errno = kProblems[kind];
  return false;
}

// The next definition of a function, behind this one.
template <class Function>
Function Next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void ReadEnvironment() {
  if (const char* fill = std::getenv("CORVANE_FILL")) {
    corvane::faults::FillMemoryWith(static_cast<int>(std::strtol(fill, nullptr, 0)));
  }
  const char* fault = std::getenv("CORVANE_FAULT");
  const char* colon = fault == nullptr ? nullptr : std::strchr(fault, ':');
  if (colon == nullptr) return;
  for (int kind = 0; kind < kKinds; ++kind) {
    const std::size_t length = std::strlen(kNames[kind]);
    if (std::strncmp(kNames[kind], fault, length) == 0 && fault + length == colon) failing = kind;
  }
  char* end = nullptr;
  failingCall = std::strtol(colon + 1, &end, 10);
  failsOn = *end == '+';
}

void WriteCounts() {
  const char* path = std::getenv("CORVANE_FAULT_COUNTS");
  std::FILE* file = path == nullptr ? nullptr : std::fopen(path, "w");
  if (file == nullptr) return;
  for (int kind = 0; kind < kKinds; ++kind) {
    std::fprintf(file, "%s %ld\n", kNames[kind], counts[kind].load());
  }
  std::fclose(file);
}

using Main = int (*)(int, char**, char**);
Main programMain = nullptr;

// New threads, too, have to be counted in.
bool AllocationPasses() { return Passes(kMemory); }

int CountedMain(int argc, char** argv, char** environment) {
  ReadEnvironment();
  corvane::faults::SetAllocationGate(AllocationPasses);
  isActive = true;
  const int status = programMain(argc, argv, environment);
  isActive = false;
  WriteCounts();
  return status;
}

struct ThreadStart {
  void* (*run)(void*);
  void* argument;
};

void* CountedThread(void* start) {
  const ThreadStart thread = *static_cast<ThreadStart*>(start);
  delete static_cast<ThreadStart*>(start);
  corvane::faults::SetAllocationGate(AllocationPasses);
  return thread.run(thread.argument);
}

mode_t ModeOf(int flags, std::va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

// NOLINTBEGIN(cert-dcl50-cpp): as the functions are declared that stand behind these.
extern "C" {

int __libc_start_main(Main main, int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*rtldFini)(), void* stackEnd) {
  programMain = main;
  return Next<decltype(&__libc_start_main)>("__libc_start_main")(CountedMain, argc, argv, init,
                                                                 fini, rtldFini, stackEnd);
}

#define CORVANE_OPEN(name)                                                \
  int name(const char* path, int flags, ...) {                            \
    std::va_list arguments;                                               \
    va_start(arguments, flags);                                           \
    const mode_t mode = ModeOf(flags, arguments);                         \
    va_end(arguments);                                                    \
    static const auto next = Next<int (*)(const char*, int, ...)>(#name); \
    return Passes(kOpen) ? next(path, flags, mode) : -1;                  \
  }
#define CORVANE_OPENAT(name)                                                   \
  int name(int folder, const char* path, int flags, ...) {                     \
    std::va_list arguments;                                                    \
    va_start(arguments, flags);                                                \
    const mode_t mode = ModeOf(flags, arguments);                              \
    va_end(arguments);                                                         \
    static const auto next = Next<int (*)(int, const char*, int, ...)>(#name); \
    return Passes(kOpen) ? next(folder, path, flags, mode) : -1;               \
  }
CORVANE_OPEN(open)
CORVANE_OPEN(open64)
CORVANE_OPENAT(openat)
CORVANE_OPENAT(openat64)

// The rest has one form: count, then pass on or give what stands for failure.
#define CORVANE_CALL(kind, result, failure, name, parameters, ...)          \
  result name parameters {                                                  \
    static const auto next = Next<result(*) parameters>(#name);             \
    return Passes(kind) ? next(__VA_ARGS__) : static_cast<result>(failure); \
  }
CORVANE_CALL(kOpen, std::FILE*, nullptr, fopen, (const char* path, const char* mode), path, mode)
CORVANE_CALL(kOpen, std::FILE*, nullptr, fopen64, (const char* path, const char* mode), path, mode)
CORVANE_CALL(kOpen, int, -1, mkostemp, (char* path, int flags), path, flags)
CORVANE_CALL(kOpen, int, -1, mkostemp64, (char* path, int flags), path, flags)
CORVANE_CALL(kRead, ssize_t, -1, read, (int file, void* to, std::size_t size), file, to, size)
CORVANE_CALL(kRead, ssize_t, -1, pread, (int file, void* to, std::size_t size, off_t at), file, to,
             size, at)
CORVANE_CALL(kRead, ssize_t, -1, pread64, (int file, void* to, std::size_t size, off64_t at), file,
             to, size, at)
CORVANE_CALL(kWrite, ssize_t, -1, pwrite, (int file, const void* from, std::size_t size, off_t at),
             file, from, size, at)
CORVANE_CALL(kWrite, ssize_t, -1, pwrite64,
             (int file, const void* from, std::size_t size, off64_t at), file, from, size, at)
CORVANE_CALL(kSync, int, -1, fsync, (int file), file)
CORVANE_CALL(kSync, int, -1, fdatasync, (int file), file)
CORVANE_CALL(kRename, int, -1, rename, (const char* from, const char* to), from, to)

// What is said about a failure has to arrive.
ssize_t write(int file, const void* from, std::size_t size) {
  static const auto next = Next<decltype(&write)>("write");
  return file == STDERR_FILENO || Passes(kWrite) ? next(file, from, size) : -1;
}

// A stream that fails knows it.
std::size_t fread(void* to, std::size_t size, std::size_t count, std::FILE* file) {
  static const auto next = Next<decltype(&fread)>("fread");
  if (Passes(kRead)) return next(to, size, count, file);
  file->_flags |= kStreamFailed;
  return 0;
}

std::size_t fwrite(const void* from, std::size_t size, std::size_t count, std::FILE* file) {
  static const auto next = Next<decltype(&fwrite)>("fwrite");
  if (file == stderr || Passes(kWrite)) return next(from, size, count, file);
  file->_flags |= kStreamFailed;
  return 0;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) {
  static const auto next = Next<decltype(&pthread_create)>("pthread_create");
  if (!Passes(kThread)) return EAGAIN;
  corvane::faults::SetAllocationGate(nullptr);
  auto* start = new ThreadStart{run, argument};
  corvane::faults::SetAllocationGate(AllocationPasses);
  const int problem = next(thread, attributes, CountedThread, start);
  if (problem != 0) delete start;
  return problem;
}

}  // extern "C"
// NOLINTEND(cert-dcl50-cpp)
