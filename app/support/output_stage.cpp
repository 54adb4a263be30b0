// SPDX-License-Identifier: MIT
#include "app/support/output_stage.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/message.h"
#include "app/support/platform.h"
#include "app/support/scratch_file.h"
#include "app/support/work_folder.h"

#if defined(_WIN32)
#include <io.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace corvane {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void FailToWrite(const fs::path& path, const std::string& reason) {
  throw OutputFailure(fmt::format("{}: cannot write: {}", path.string(), reason));
}

// As arguments of the program name it.
bool IsNoFile(const fs::path& path) { return path.empty() || path == "-"; }

bool MayWrite(const fs::path& path) {
#if defined(_WIN32)
  return _waccess(path.c_str(), 2) == 0;
#else
  return access(path.c_str(), W_OK) == 0;
#endif
}

// The file that links lead to, whether it exists or not. Nothing when they lead through the open
// files of a process (/dev/stdout), whose names are none that a file could be given.
std::optional<fs::path> BehindLinks(fs::path path) {
  constexpr int kMostLinks = 40;
  std::error_code problem;
  for (int i = 0; i < kMostLinks && fs::is_symlink(fs::symlink_status(path, problem)); ++i) {
    const fs::path link = fs::read_symlink(path, problem);
    if (problem) FailToWrite(path, problem.message());
    path = path.parent_path() / link;  // which is `link` alone if that is absolute
    if (path.string().starts_with("/proc/")) return std::nullopt;
  }
  return path;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// One file

StagedFile::StagedFile(fs::path path) : path_(std::move(path)) {}

StagedFile::~StagedFile() {
  file_.Close();
  std::error_code ignored;
  if (!temporary_.empty()) fs::remove(temporary_, ignored);
}

void StagedFile::Open() {
  file_ = Descriptor::MakeFile(temporary_);
  if (!file_.IsOpen()) Fail();
  std::error_code ignored;
  if (fs::exists(target_, ignored) && !TakeModeAndOwner(file_, target_)) Fail();
}

void StagedFile::Append(const void* data, std::size_t size) {
  if (!file_.IsOpen()) Open();
  if (!file_.Write(data, size)) Fail();
  size_ += size;
}

void StagedFile::WriteAt(std::uint64_t offset, const void* data, std::size_t size) {
  if (!file_.WriteAt(offset, data, size)) Fail();
}

void StagedFile::Finish() {
  if (finished_) return;
  if (!file_.IsOpen()) Open();
  if (!target_.empty() && !file_.Sync()) Fail();
  if (!file_.Close()) Fail();
  finished_ = true;
}

void StagedFile::Deliver() {
  scratch_->SendTo(receiver_, path_.string(), size_);
  scratch_.reset();
  if (!receiver_.Close()) Fail();
}

void StagedFile::GiveName() {
  if (scratch_) return Deliver();
  if (temporary_.empty()) return;
  std::error_code problem;
  fs::rename(temporary_, target_, problem);
  if (problem) FailToWrite(path_, problem.message());
  temporary_.clear();
}

void StagedFile::Fail() const { FailToWrite(path_, std::strerror(errno)); }

// ---------------------------------------------------------------------------------------------
// The files of a command

OutputStage::OutputStage(const fs::path& folder) {
  MakeFolder(folder);
  Remember();
}

void OutputStage::MakeFolder(const fs::path& folder) {
  if (folder.empty()) return;
  for (fs::path at = folder; !at.empty() && !fs::exists(at); at = at.parent_path()) {
    if (at.has_filename()) madeFolders_.push_back(at);
  }
  std::error_code problem;
  fs::create_directories(folder, problem);
  if (!problem) return;
  RemoveMadeFolders();
  throw OutputFailure(folder.string() + ": cannot make the folder: " + problem.message());
}

OutputStage::~OutputStage() {
  Forget();
  files_.clear();
  workFolders_.clear();
  RemoveMadeFolders();
}

void OutputStage::TakeAway() noexcept { RemoveMadeFolders(); }

void OutputStage::RemoveMadeFolders() noexcept {
  // From the innermost outwards; one that somebody has put a file into stays.
  std::error_code ignored;
  for (const fs::path& folder : madeFolders_) fs::remove(folder, ignored);
}

StagedFile& OutputStage::Create(const fs::path& path) { return Add(path, Way::File); }

StagedFile& OutputStage::CreateStream(const fs::path& path) { return Add(path, Way::Stream); }

StagedFile& OutputStage::CreateSpooled(const fs::path& path) { return Add(path, Way::Spool); }

StagedFile& OutputStage::Adopt(Descriptor file, const fs::path& name) {
  std::unique_ptr<StagedFile> adopted(new StagedFile(name));
  adopted->file_ = std::move(file);
  if (!adopted->file_.IsOpen()) adopted->Fail();
  files_.push_back(std::move(adopted));
  return *files_.back();
}

StagedFile& OutputStage::Add(const fs::path& path, Way way) {
  const bool standardOutput = way != Way::File && IsNoFile(path);
  std::unique_ptr<StagedFile> file(new StagedFile(standardOutput ? "standard output" : path));
  std::optional<fs::path> target;
  if (!standardOutput) {
    std::error_code problem;
    const fs::file_type type = fs::status(path, problem).type();
    if (type == fs::file_type::none) FailToWrite(path, problem.message());
    if (type == fs::file_type::directory) throw Failure(path.string() + ": is a folder");
    const bool ordinary = type == fs::file_type::regular || type == fs::file_type::not_found;
    if (ordinary) target = BehindLinks(path);
    if (!target && way == Way::File) throw Failure(path.string() + ": is not an ordinary file");
    if (target && type == fs::file_type::regular && !MayWrite(*target)) file->Fail();
  }
  if (target) {
    file->target_ = *target;
    std::unique_ptr<WorkFolder>& folder = workFolders_[target->parent_path()];
    if (!folder) folder = std::make_unique<WorkFolder>(target->parent_path(), path);
    file->temporary_ = folder->NextPath();
  } else {
    Descriptor open = standardOutput || IsStandardOutput(path) ? Descriptor::StandardOutput()
                                                               : Descriptor::OpenForWriting(path);
    if (!open.IsOpen()) {
      ThrowIfInterrupted();  // while it waited for somebody to read the pipe
      file->Fail();
    }
    if (way == Way::Spool) {
      file->receiver_ = std::move(open);
      file->scratch_ = std::make_unique<ScratchFile>();
      open = file->scratch_->Duplicate();
      if (!open.IsOpen()) file->Fail();
    }
    file->file_ = std::move(open);
  }
  files_.push_back(std::move(file));
  return *files_.back();
}

void OutputStage::SyncFolders() {
  for (const auto& [at, folder] : workFolders_) {
    if (!folder->Sync()) FailToWrite(at.empty() ? "." : at, std::strerror(errno));
  }
}

void OutputStage::Commit() {
  for (const auto& file : files_) file->Finish();
  for (const fs::path& folder : madeFolders_) SyncFolder(folder.parent_path());
  SyncFolders();
  for (const auto& file : files_) file->GiveName();
  SyncFolders();
}

// ---------------------------------------------------------------------------------------------

void WriteOutput(const fs::path& path, std::string_view bytes) {
  OutputStage stage;
  stage.CreateStream(path).Append(bytes);
  stage.Commit();
}

void WriteStandardOutput(std::string_view text) { WriteOutput("-", PrintableLines(text)); }

void WriteReportBeside(bool standardOutputIsTaken, bool forMachines, std::string_view text) {
  if (!standardOutputIsTaken) return WriteStandardOutput(text);
  if (Tell(PrintableLines(text)) || !forMachines) return;
  FailToWrite("standard error", std::strerror(errno));
}

bool NamesFolder(const fs::path& output) {
  std::error_code ignored;
  return !output.has_filename() || fs::is_directory(output, ignored);
}

bool IsPipeOrDevice(const fs::path& path) {
  if (path.empty()) return false;
  if (path == "-") return true;
  std::error_code ignored;
  const fs::file_status status = fs::status(path, ignored);
  if (!fs::exists(status) || fs::is_directory(status)) return false;
  return !fs::is_regular_file(status) || !BehindLinks(path);
}

bool IsStandardOutput(const fs::path& path) {
  if (path == "-") return true;
#if defined(_WIN32)
  return false;
#else
  // The standard library does not compare pipes.
  struct stat named = {}, own = {};
  return IsPipeOrDevice(path) && stat(path.c_str(), &named) == 0 &&
         fstat(STDOUT_FILENO, &own) == 0 && named.st_dev == own.st_dev &&
         named.st_ino == own.st_ino;
#endif
}

void CheckOutputNames(const std::vector<fs::path>& outputs, const std::vector<fs::path>& inputs) {
  std::set<std::string> read, written;
  bool standardOutputIsTaken = false;
  for (const fs::path& input : inputs) {
    std::error_code problem;  // shows when the input is opened
    const fs::path name = fs::weakly_canonical(input, problem);
    if (!problem && !name.empty()) read.insert(FileNameKey(name));
  }
  for (const fs::path& output : outputs) {
    const bool isLost = output == "/dev/null";  // which the standard output may be
    if (!isLost && IsStandardOutput(output) && std::exchange(standardOutputIsTaken, true)) {
      throw UsageFailure(output.string() + ": two files would be written there");
    }
    if (IsNoFile(output) || IsPipeOrDevice(output)) continue;
    const std::optional<fs::path> target = BehindLinks(output);
    if (!target) continue;
    std::error_code problem;
    const std::string name = FileNameKey(fs::weakly_canonical(*target, problem));
    if (problem) FailToWrite(output, problem.message());
    if (read.contains(name)) {
      throw UsageFailure(output.string() + ": is an input and would be written over");
    }
    if (!written.insert(name).second) {
      throw UsageFailure(output.string() + ": two files would be written there");
    }
  }
}

void CheckAbsence(const std::vector<fs::path>& outputs) {
  std::error_code ignored;
  for (const fs::path& output : outputs) {
    if (!fs::exists(fs::symlink_status(output, ignored)) || IsPipeOrDevice(output)) continue;
    throw UsageFailure(output.string() + ": is there already, and --no-clobber keeps it");
  }
}

std::string EndingOf(const fs::path& file) {
  std::string ending = file.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return ending;
}

void CheckEnding(const fs::path& output, Endings endings) {
  constexpr std::string_view kKnown[] = {".bmp", ".gif",  ".htm",  ".html", ".jpeg",
                                         ".jpg", ".json", ".pdf",  ".png",  ".raw",
                                         ".svg", ".tif",  ".tiff", ".webp"};
  const std::string ending = EndingOf(output);
  const auto isAmong = [&](Endings list) {
    return std::find(list.begin(), list.end(), ending) != list.end();
  };
  if (!isAmong(kKnown) || isAmong(endings)) return;
  throw UsageFailure(fmt::format("{}: what is written there is no {} file; end its name in {}",
                                 output.string(), ending, endings.front()));
}

}  // namespace corvane
