// SPDX-License-Identifier: MIT
//
// Files that appear under their names complete, and the files of a command together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "app/support/abnormal_end.h"
#include "app/support/descriptor.h"

namespace corvane {

class ScratchFile;
class WorkFolder;

// A file that is being written where nobody sees it. It opens when its first bytes come and closes
// in `Finish`, so that a command may have more files than the system lets it hold open. One thread
// at a time may use it; its members throw Failure naming the final file.
class StagedFile {
 public:
  ~StagedFile();
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;

  // As it was named.
  const std::filesystem::path& Path() const { return path_; }

  // Where it can be read between Finish and Commit; empty for what is written directly.
  const std::filesystem::path& PathUntilCommit() const { return temporary_; }

  std::uint64_t Size() const { return size_; }
  void Append(const void* data, std::size_t size);
  void Append(std::string_view bytes) { Append(bytes.data(), bytes.size()); }
  // Not for a file that is written directly.
  void WriteAt(std::uint64_t offset, const void* data, std::size_t size);
  // After the last byte: returns when the file is on the medium.
  void Finish();

 private:
  friend class OutputStage;

  explicit StagedFile(std::filesystem::path path);
  void Open();
  void GiveName();
  void Deliver();
  [[noreturn]] void Fail() const;

  std::filesystem::path path_;
  std::filesystem::path target_;     // behind links; empty when it is written directly
  std::filesystem::path temporary_;  // empty when it is written directly, and once it has its name
  Descriptor file_;
  std::unique_ptr<ScratchFile> scratch_;  // what `receiver_` is to get; null: nothing
  Descriptor receiver_;                   // a pipe or a device
  std::uint64_t size_ = 0;
  bool finished_ = false;
};

// The files of one command. What was not committed is removed, and so are the folders that were
// made here and are empty. A link is followed: the file that it leads to is the one that is
// replaced, and the link stays. A file that is replaced hands on its mode, and its owner and group
// where the user may give them; one that the user may not write to is not replaced.
class OutputStage : private Cleaner {
 public:
  // Makes `folder`, and those above it, when it is missing; empty for none.
  explicit OutputStage(const std::filesystem::path& folder = {});
  ~OutputStage() override;
  OutputStage(const OutputStage&) = delete;
  OutputStage& operator=(const OutputStage&) = delete;

  // An ordinary file, or none yet. It stays owned by the stage. A place that cannot be written to
  // shows here.
  StagedFile& Create(const std::filesystem::path& path);
  // The same for what is written from its first byte to its last: an empty path and "-" are the
  // standard output, and a pipe or a device is written directly.
  StagedFile& CreateStream(const std::filesystem::path& path);
  // The same for what is written forth and back: these get it when the files get their names.
  StagedFile& CreateSpooled(const std::filesystem::path& path);
  // The same for an open file, which is called `name` in messages.
  StagedFile& Adopt(Descriptor file, const std::filesystem::path& name);

  // Gives the files their names in the order in which they were created, replacing older files.
  // All are on the medium before the first name changes. When that is cut short, by a failure or
  // the end of the process, those before have their new files and the rest the old ones.
  void Commit();

 private:
  enum class Way { File, Stream, Spool };
  StagedFile& Add(const std::filesystem::path& path, Way way);
  void MakeFolder(const std::filesystem::path& folder);
  void TakeAway() noexcept override;
  void RemoveMadeFolders() noexcept;
  void SyncFolders();

  std::vector<std::filesystem::path> madeFolders_;  // made here, the innermost first
  std::map<std::filesystem::path, std::unique_ptr<WorkFolder>> workFolders_;  // by where they are
  std::vector<std::unique_ptr<StagedFile>> files_;
};

// Whether something of that name is neither an ordinary file nor a folder; "-" and names of open
// files of this process count. What is written there is no file that could be read again.
bool IsPipeOrDevice(const std::filesystem::path& path);

// "-", and other names of the standard output, such as /dev/stdout.
bool IsStandardOutput(const std::filesystem::path& path);

// Whether OUT names a folder that pages go into: one that is there, or a name that ends in a slash.
bool NamesFolder(const std::filesystem::path& output);

// Writes one file, with CreateStream.
void WriteOutput(const std::filesystem::path& path, std::string_view bytes);

// Writes lines to the standard output, with PrintableLines, and finds out whether they arrived.
// Throws Failure.
void WriteStandardOutput(std::string_view text);

// Writes a report beside a result that may take the standard output: then to the error stream,
// where only one for machines must arrive. Throws Failure.
void WriteReportBeside(bool standardOutputIsTaken, bool forMachines, std::string_view text);

// Refuses, before anything is written, two outputs in one file or in the standard output, and an
// output over a file that is read. Empty names, and what else exists but is no ordinary file, are
// let pass. Throws UsageFailure.
void CheckOutputNames(const std::vector<std::filesystem::path>& outputs,
                      const std::vector<std::filesystem::path>& inputs);

// Throws UsageFailure when one of them is there; empty names are let pass.
void CheckAbsence(const std::vector<std::filesystem::path>& outputs);

// Endings of the formats that are written, in small letters.
using Endings = std::span<const std::string_view>;
inline constexpr std::string_view kPngEndings[] = {".png"};
inline constexpr std::string_view kSvgEndings[] = {".svg"};
inline constexpr std::string_view kTiffEndings[] = {".tif", ".tiff"};
inline constexpr std::string_view kRawEndings[] = {".raw"};

// What a name ends in, in small letters: ".png"; empty: nothing.
std::string EndingOf(const std::filesystem::path& file);

// Refuses a file whose name promises another format than the one it would get; an ending that
// promises none of a picture or document is let pass. Throws UsageFailure.
void CheckEnding(const std::filesystem::path& output, Endings endings);

}  // namespace corvane
