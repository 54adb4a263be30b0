// SPDX-License-Identifier: MIT
#include "app/support/platform.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <thread>

#if defined(_WIN32)
#include <windows.h>
// Needs the types of the one above.
#include <psapi.h>
#else
#include <malloc.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace corvane {

#if defined(_WIN32)

const char* const kReadStream = "rbN";

std::filesystem::path TemporaryFolder() {
  std::error_code ignored;
  return std::filesystem::temp_directory_path(ignored);
}

std::filesystem::path ProgramFile() {
  constexpr DWORD kLongest = 32768;
  std::wstring path(kLongest, 0);
  path.resize(GetModuleFileNameW(nullptr, path.data(), kLongest));
  return path;
}

std::string FileNameKey(const std::filesystem::path& name) {
  std::wstring text = name.wstring();
  CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
  return std::filesystem::path(text).string();
}

std::string HostName() {
  char name[MAX_COMPUTERNAME_LENGTH + 1] = "";
  DWORD size = sizeof name;
  return GetComputerNameA(name, &size) != 0 ? name : "";
}

int ProcessorCount() { return std::max(1, static_cast<int>(std::thread::hardware_concurrency())); }

std::uint64_t PeakMemoryBytes() {
  PROCESS_MEMORY_COUNTERS counters = {};
  K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return counters.PeakWorkingSetSize;
}

void KeepMemoryTogether() {}

int TerminalColumns() {
  CONSOLE_SCREEN_BUFFER_INFO screen = {};
  const HANDLE console = GetStdHandle(STD_ERROR_HANDLE);
  return GetConsoleScreenBufferInfo(console, &screen) != 0 ? std::max<int>(screen.dwSize.X, 1) : 0;
}

#else

const char* const kReadStream = "rbe";

std::filesystem::path TemporaryFolder() {
  const char* folder = std::getenv("TMPDIR");
  return folder == nullptr || *folder == '\0' ? "/tmp" : folder;
}

std::filesystem::path ProgramFile() { return std::filesystem::read_symlink("/proc/self/exe"); }

std::string FileNameKey(const std::filesystem::path& name) { return name.string(); }

std::string HostName() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

int ProcessorCount() {
  cpu_set_t cores;
  return sched_getaffinity(0, sizeof cores, &cores) == 0 ? std::max(1, CPU_COUNT(&cores)) : 1;
}

// What getrusage tells began before the program did: it is also that of the process that started
// it.
std::uint64_t PeakMemoryBytes() {
  std::ifstream status("/proc/self/status");
  for (std::string name; status >> name; std::getline(status, name)) {
    std::uint64_t kibibytes = 0;
    if (name == "VmHWM:" && status >> kibibytes) return kibibytes * 1024;
  }
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
}

void KeepMemoryTogether() {
#if defined(__GLIBC__)
  constexpr int kBufferBytes = 64 << 10;  // of their own from here on
  mallopt(M_ARENA_MAX, 1);
  mallopt(M_MMAP_THRESHOLD, kBufferBytes);
#endif
}

int TerminalColumns() {
  if (isatty(STDERR_FILENO) == 0) return 0;
  winsize size = {};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

#endif

}  // namespace corvane
