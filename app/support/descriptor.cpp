// SPDX-License-Identifier: MIT
#include "app/support/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <string>

#include "app/support/interrupt.h"

#if defined(_WIN32)
#include <io.h>
#else
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>
#endif

namespace corvane {
namespace {

#if defined(_WIN32)

constexpr int kMode = _S_IREAD | _S_IWRITE;
// Also to be read: what is without a name elsewhere has one here.
constexpr int kNewFile = _O_RDWR | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT;
constexpr int kOldFile = _O_WRONLY | _O_BINARY | _O_NOINHERIT;
constexpr int kReadFile = _O_RDONLY | _O_BINARY | _O_NOINHERIT;
constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;

int Open(const std::filesystem::path& path, int flags) {
  return _wopen(path.c_str(), flags, kMode);
}

std::ptrdiff_t WriteSome(int file, const char* bytes, std::size_t size) {
  return _write(file, bytes, static_cast<unsigned>(std::min(size, kMostAtOnce)));
}

std::ptrdiff_t ReadSome(int file, void* bytes, std::size_t size) {
  return _read(file, bytes, static_cast<unsigned>(std::min(size, kMostAtOnce)));
}

// Calls `access()` at that place and returns to where the file was: what is written in order goes
// on there.
template <class Access>
std::ptrdiff_t DoAt(int file, std::uint64_t offset, Access access) {
  const std::int64_t here = _telli64(file);
  if (here < 0 || _lseeki64(file, static_cast<std::int64_t>(offset), SEEK_SET) < 0) return -1;
  const std::ptrdiff_t done = access();
  return _lseeki64(file, here, SEEK_SET) < 0 ? -1 : done;
}

std::ptrdiff_t ReadSomeAt(int file, void* bytes, std::size_t size, std::uint64_t offset) {
  return DoAt(file, offset, [&] { return ReadSome(file, bytes, size); });
}

std::ptrdiff_t WriteSomeAt(int file, const char* bytes, std::size_t size, std::uint64_t offset) {
  return DoAt(file, offset, [&] { return WriteSome(file, bytes, size); });
}

int DuplicateOf(int file) {
  const int copy = _dup(file);
  if (copy >= 0) _setmode(copy, _O_BINARY);  // the same bytes everywhere
  return copy;
}

int SyncFile(int file) { return _commit(file); }

// A file that is gone when it is closed cannot be opened another time.
int MakeNamelessFile(const std::filesystem::path&) {
  errno = ENOTSUP;
  return -1;
}

bool WaitForBytes(int, int) { return true; }

bool MayWait(int) { return false; }

std::ptrdiff_t WriteWhatHasRoom(int file, const char* bytes, std::size_t size) {
  return WriteSome(file, bytes, size);
}

#else

constexpr mode_t kMode = 0666;
constexpr int kNewFile = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
constexpr int kOldFile = O_WRONLY | O_CLOEXEC;
constexpr int kReadFile = O_RDONLY | O_CLOEXEC;

int Open(const std::filesystem::path& path, int flags) { return open(path.c_str(), flags, kMode); }

std::ptrdiff_t WriteSome(int file, const char* bytes, std::size_t size) {
  return write(file, bytes, size);
}

std::ptrdiff_t ReadSome(int file, void* bytes, std::size_t size) { return read(file, bytes, size); }

std::ptrdiff_t ReadSomeAt(int file, void* bytes, std::size_t size, std::uint64_t offset) {
  return pread(file, bytes, size, static_cast<off_t>(offset));
}

std::ptrdiff_t WriteSomeAt(int file, const char* bytes, std::size_t size, std::uint64_t offset) {
  return pwrite(file, bytes, size, static_cast<off_t>(offset));
}

int DuplicateOf(int file) { return fcntl(file, F_DUPFD_CLOEXEC, 0); }

int SyncFile(int file) { return fsync(file); }

int MakeNamelessFile(const std::filesystem::path& folder) {
  std::string path = (folder / "corvane-XXXXXX").string();
  const int file = mkostemp(path.data(), O_CLOEXEC);
  if (file >= 0) unlink(path.c_str());
  return file;
}

bool WaitFor(short event, int file, int milliseconds) {
  pollfd wanted = {file, event, 0};
  const int ready = poll(&wanted, 1, milliseconds);
  return ready > 0 || (ready < 0 && errno != EINTR);
}

bool WaitForBytes(int file, int milliseconds) { return WaitFor(POLLIN, file, milliseconds); }

// Whether a write may wait for somebody who reads.
bool MayWait(int file) {
  struct stat status = {};
  return fstat(file, &status) != 0 || !S_ISREG(status.st_mode);
}

// A write into a pipe that nobody reads from must not wait where a signal does not end it: one that
// comes before the write, or to another thread. What has room takes so much at once.
std::ptrdiff_t WriteWhatHasRoom(int file, const char* bytes, std::size_t size) {
  constexpr int kLookMs = 100;
  while (!WaitFor(POLLOUT, file, kLookMs)) ThrowIfInterrupted();
  return WriteSome(file, bytes, std::min<std::size_t>(size, PIPE_BUF));
}

#endif

constexpr int kStandardInput = 0, kStandardOutput = 1;

// `write(bytes, size, done)` writes some of what is left.
template <class WriteOnce>
bool WriteAll(const void* data, std::size_t size, WriteOnce write) {
  const char* bytes = static_cast<const char*>(data);
  for (std::size_t done = 0; done < size;) {
    const std::ptrdiff_t more = write(bytes + done, size - done, done);
    if (more < 0 && errno == EINTR) {
      ThrowIfInterrupted();
      continue;
    }
#if defined(SIGPIPE)
    if (more < 0 && errno == EPIPE) throw Interrupted{SIGPIPE};
#endif
    if (more <= 0) return false;
    done += static_cast<std::size_t>(more);
    if (done < size) ThrowIfInterrupted();
  }
  return true;
}

// Some file systems cannot sync some files; that is no reason not to write there.
bool CannotSync(int problem) {
  return problem == EINVAL || problem == ENOTSUP || problem == ENOSYS || problem == EROFS ||
         problem == EBADF;
}

}  // namespace

Descriptor Descriptor::MakeFile(const std::filesystem::path& path) {
  return Descriptor(Open(path, kNewFile));
}

Descriptor Descriptor::OpenForWriting(const std::filesystem::path& path) {
  return Descriptor(Open(path, kOldFile));
}

Descriptor Descriptor::OpenForReading(const std::filesystem::path& path) {
  return Descriptor(Open(path, kReadFile));
}

Descriptor Descriptor::MakeNameless(const std::filesystem::path& folder) {
  return Descriptor(MakeNamelessFile(folder));
}

Descriptor Descriptor::StandardOutput() { return Descriptor(DuplicateOf(kStandardOutput)); }

Descriptor Descriptor::StandardInput() { return Descriptor(DuplicateOf(kStandardInput)); }

Descriptor Descriptor::Duplicate() const { return Descriptor(DuplicateOf(number_)); }

bool Descriptor::WaitToRead(int milliseconds) const { return WaitForBytes(number_, milliseconds); }

std::ptrdiff_t Descriptor::Read(void* data, std::size_t size) {
  return ReadSome(number_, data, size);
}

std::ptrdiff_t Descriptor::ReadAt(std::uint64_t offset, void* data, std::size_t size) const {
  return ReadFileAt(number_, offset, data, size);
}

bool Descriptor::Write(const void* data, std::size_t size) {
  const bool waits = MayWait(number_);
  return WriteAll(data, size, [&](const char* bytes, std::size_t left, std::size_t) {
    return waits ? WriteWhatHasRoom(number_, bytes, left) : WriteSome(number_, bytes, left);
  });
}

bool Descriptor::WriteAt(std::uint64_t offset, const void* data, std::size_t size) {
  return WriteAll(data, size, [&](const char* bytes, std::size_t left, std::size_t done) {
    return WriteSomeAt(number_, bytes, left, offset + done);
  });
}

bool Descriptor::Sync() {
  while (SyncFile(number_) != 0) {
    if (errno != EINTR) return CannotSync(errno);
  }
  return true;
}

bool Descriptor::Close() {
  if (!IsOpen()) return true;
  const int number = std::exchange(number_, kClosed);
#if defined(_WIN32)
  return _close(number) == 0;
#else
  return close(number) == 0 || errno == EINTR;  // which closes it, too
#endif
}

std::ptrdiff_t ReadFileAt(int number, std::uint64_t offset, void* data, std::size_t size) {
  return ReadSomeAt(number, data, size, offset);
}

#if defined(_WIN32)

bool TakeModeAndOwner(const Descriptor&, const std::filesystem::path&) { return true; }

bool SyncFolder(const std::filesystem::path&) { return true; }

#else

bool TakeModeAndOwner(const Descriptor& file, const std::filesystem::path& path) {
  struct stat old = {}, made = {};
  if (stat(path.c_str(), &old) != 0 || fstat(file.Number(), &made) != 0) return false;
  mode_t mode = old.st_mode & mode_t{07777};
  if (old.st_gid != made.st_gid && fchown(file.Number(), static_cast<uid_t>(-1), old.st_gid) != 0) {
    // What the old group was allowed is not for another one.
    mode &= static_cast<mode_t>(~(S_ISGID | S_IRWXG)) | ((mode & mode_t{S_IRWXO}) << 3);
  }
  if (old.st_uid != made.st_uid && fchown(file.Number(), old.st_uid, static_cast<gid_t>(-1)) != 0) {
    mode &= static_cast<mode_t>(~S_ISUID);
  }
  return fchmod(file.Number(), mode) == 0 || errno == EPERM || errno == ENOTSUP;
}

bool SyncFolder(const std::filesystem::path& folder) {
  Descriptor file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return !file.IsOpen() || file.Sync();
}

#endif

}  // namespace corvane
