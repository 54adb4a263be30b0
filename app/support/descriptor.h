// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <utility>

namespace corvane {

// An open file of the operating system, closed with its owner. What fails says so by its result,
// with the reason in errno; a write that a signal ends, or into a pipe that nobody reads any more,
// throws Interrupted.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, kClosed)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  // These give one that is not open when they fail.
  // A file that was not there before, to be written, and read where it has to have a name; a link
  // of that name is not followed.
  static Descriptor MakeFile(const std::filesystem::path& path);
  // A pipe or a device.
  static Descriptor OpenForWriting(const std::filesystem::path& path);
  static Descriptor OpenForReading(const std::filesystem::path& path);
  // A new one to be read and written, which has no name and is gone when it is closed, however the
  // program ends. ENOTSUP where the system has no such files.
  static Descriptor MakeNameless(const std::filesystem::path& folder);
  // In binary form, and closed without closing what others write to.
  static Descriptor StandardOutput();
  static Descriptor StandardInput();

  // The same open file a second time.
  Descriptor Duplicate() const;

  bool IsOpen() const { return number_ != kClosed; }
  int Number() const { return number_; }

  // Waits so long for bytes, the end or what a read says is wrong, and tells whether there is one.
  // True at once on a system that waits in the read alone.
  bool WaitToRead(int milliseconds) const;

  // Give how many bytes were read, at least 1, 0 at the end, and less than 0 when it fails.
  std::ptrdiff_t Read(void* data, std::size_t size);
  std::ptrdiff_t ReadAt(std::uint64_t offset, void* data, std::size_t size) const;

  bool Write(const void* data, std::size_t size);
  bool WriteAt(std::uint64_t offset, const void* data, std::size_t size);
  // Returns when what was written is on the medium, where the file system can tell.
  bool Sync();
  bool Close();

 private:
  static constexpr int kClosed = -1;

  int number_ = kClosed;
};

// Like Descriptor::ReadAt, of a file that somebody else has open.
std::ptrdiff_t ReadFileAt(int number, std::uint64_t offset, void* data, std::size_t size);

// Gives `file` the mode of the file `path`, and its owner and group as far as the user may.
bool TakeModeAndOwner(const Descriptor& file, const std::filesystem::path& path);

// Returns when the names in the folder are on the medium, where the file system can tell.
bool SyncFolder(const std::filesystem::path& folder);

}  // namespace corvane
