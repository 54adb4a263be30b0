// SPDX-License-Identifier: MIT
#include "app/support/work_folder.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string_view>
#include <vector>

#include "app/support/failure.h"

#if defined(_WIN32)
#include <direct.h>
#include <io.h>
#include <share.h>
#else
#include <dirent.h>
#include <sys/file.h>
#include <unistd.h>
#endif

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrefix = ".corvane-";
constexpr const char* kLockName = "lock";

#if defined(_WIN32)

// An open file that shares nothing is closed to everybody on every computer.
std::string Boot() { return "0"; }

bool MakeFolder(const fs::path& path) { return _wmkdir(path.c_str()) == 0; }

Descriptor OpenLock(const fs::path& path, int flags) {
  int file = -1;
  _wsopen_s(&file, path.c_str(), flags | _O_RDWR | _O_BINARY | _O_NOINHERIT, _SH_DENYRW,
            _S_IREAD | _S_IWRITE);
  return Descriptor(file);
}

Descriptor MakeLock(const fs::path& path) { return OpenLock(path, _O_CREAT | _O_EXCL); }

void RemoveIfDead(const fs::path& folder, const std::string& name) {
  std::error_code ignored;
  const fs::path path = folder / name;
  if (!fs::is_directory(fs::symlink_status(path, ignored))) return;
  Descriptor lock = OpenLock(path / kLockName, 0);
  if (!lock.IsOpen()) {
    if (errno == ENOENT) fs::remove(path, ignored);  // unless there is something in it
    return;
  }
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path, ignored)) files.push_back(entry.path());
  for (const fs::path& file : files) {
    if (file.filename() != kLockName) fs::remove(file, ignored);
  }
  lock.Close();
  fs::remove(path / kLockName, ignored);
  fs::remove(path, ignored);
}

#else

constexpr std::time_t kWeek = 7 * 24 * 3600;

// What this computer's present start is known by.
std::string Boot() {
  std::string id;
  std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), id);
  return id.substr(0, 8);
}

bool MakeFolder(const fs::path& path) { return mkdir(path.c_str(), 0700) == 0; }

// Not open, with ENOENT, when somebody took the folder for a dead run's before it was locked.
Descriptor MakeLock(const fs::path& path) {
  Descriptor lock(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!lock.IsOpen()) return lock;
  struct stat made = {};
  const bool taken = flock(lock.Number(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (!taken && fstat(lock.Number(), &made) == 0 && made.st_nlink > 0) return lock;
  errno = ENOENT;
  return {};
}

std::vector<std::string> NamesIn(int folder) {
  std::vector<std::string> names;
  const int copy = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> list(copy < 0 ? nullptr : fdopendir(copy), &closedir);
  while (const dirent* entry = list ? readdir(list.get()) : nullptr) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  return names;
}

bool LongUntouched(int folder, const std::vector<std::string>& names) {
  struct stat entry = {};
  if (fstat(folder, &entry) != 0) return false;
  std::time_t newest = entry.st_mtime;
  for (const std::string& name : names) {
    if (fstatat(folder, name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) != 0) return false;
    newest = std::max(newest, entry.st_mtime);
  }
  return newest < std::time(nullptr) - kWeek;
}

// Works on open folders, so that nothing that is put under their names meanwhile is touched.
void RemoveIfDead(int parent, const std::string& name) {
  const Descriptor folder(
      openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat found = {};
  if (!folder.IsOpen() || fstat(folder.Number(), &found) != 0 || found.st_uid != geteuid()) return;
  unlinkat(parent, name.c_str(), AT_REMOVEDIR);  // succeeds if it is empty
  Descriptor lock(openat(folder.Number(), kLockName, O_RDWR | O_NOFOLLOW | O_CLOEXEC));
  const bool locked = lock.IsOpen() && flock(lock.Number(), LOCK_EX | LOCK_NB) == 0;
  if (lock.IsOpen() && !locked && errno == EWOULDBLOCK) return;
  const std::vector<std::string> names = NamesIn(folder.Number());
  const bool ofThisBoot = name.starts_with(fmt::format("{}{}-", kPrefix, Boot()));
  if (!(locked && ofThisBoot) && !LongUntouched(folder.Number(), names)) return;
  for (const std::string& file : names) {
    if (file != kLockName) unlinkat(folder.Number(), file.c_str(), 0);
  }
  lock.Close();
  unlinkat(folder.Number(), kLockName, 0);
  unlinkat(parent, name.c_str(), AT_REMOVEDIR);
}

#endif

constexpr std::size_t kMostRemembered = 1024;  // folders

void RemoveDead(const fs::path& folder) {
  static std::mutex mutex;
  static std::set<fs::path> seen;
  std::error_code ignored;
  {
    const std::lock_guard lock(mutex);
    if (seen.size() >= kMostRemembered) seen.clear();
    if (!seen.insert(fs::weakly_canonical(folder, ignored)).second) return;
  }
#if defined(_WIN32)
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    names.push_back(entry.path().filename().string());
  }
  const fs::path& parent = folder;
#else
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened.IsOpen()) return;
  const int parent = opened.Number();
  const std::vector<std::string> names = NamesIn(parent);
#endif
  for (const std::string& name : names) {
    if (name.starts_with(kPrefix)) RemoveIfDead(parent, name);
  }
}

}  // namespace

WorkFolder::WorkFolder(const fs::path& folder, const fs::path& file)
    : folder_(folder.empty() ? "." : folder) {
  constexpr int kTries = 100;
  RemoveDead(folder_);
  bool made = false;
  for (int i = 0; i < kTries && !made; ++i) made = TryMake();
  if (made) {
    Remember();
    return;
  }
  throw OutputFailure(fmt::format("{}: cannot write: {}", file.string(), std::strerror(errno)));
}

bool WorkFolder::TryMake() {
  std::random_device random;
  path_ = folder_ / fmt::format("{}{}-{:08x}{:08x}", kPrefix, Boot(), random(), random());
  lockPath_ = path_ / kLockName;
  if (!MakeFolder(path_)) return false;
  lock_ = MakeLock(lockPath_);
  if (lock_.IsOpen()) return true;
  const int problem = errno;
  std::error_code ignored;
  fs::remove(path_, ignored);
  errno = problem;
  return false;
}

bool WorkFolder::IsLock(const fs::path& file) { return file.filename() == kLockName; }

bool WorkFolder::IsNamedAsOne(const fs::path& folder) {
  return folder.filename().string().starts_with(kPrefix);
}

WorkFolder::~WorkFolder() {
  Forget();
  // Closed first: a network file system keeps an open file under another name.
  lock_.Close();
  std::error_code ignored;
  fs::remove(lockPath_, ignored);
  fs::remove(path_, ignored);
}

void WorkFolder::TakeAway() noexcept {
  std::error_code ignored;
#if !defined(_WIN32)
  const int folder = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  for (int i = 1; folder >= 0 && i <= given_; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "%d", i);
    unlinkat(folder, name, 0);
  }
#endif
  fs::remove(lockPath_, ignored);
  fs::remove(path_, ignored);
}

}  // namespace corvane
