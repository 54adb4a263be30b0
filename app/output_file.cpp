// SPDX-License-Identifier: MIT
#include "app/output_file.h"

#include <cerrno>
#include <cstring>
#include <set>
#include <system_error>

#include "app/failure.h"

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <process.h>
#define getpid _getpid
#else
#include <unistd.h>
#endif

namespace corvane {

OutputFile::OutputFile(const std::string& path) : name_(path) {
  if (path.empty() || path == "-") {
    name_ = "standard output";
    file_ = stdout;
#if defined(_WIN32)
    _setmode(_fileno(stdout), _O_BINARY);  // the same bytes everywhere
#endif
    return;
  }
  path_ = path;
  std::error_code ignored;
  const auto type = std::filesystem::status(path_, ignored).type();
  if (type == std::filesystem::file_type::directory) throw Failure(name_ + ": is a folder");
  if (type == std::filesystem::file_type::not_found ||
      type == std::filesystem::file_type::regular) {
    temporary_ = path_;
    temporary_ += ".partial-" + std::to_string(getpid());
  }
  const std::filesystem::path& target = temporary_.empty() ? path_ : temporary_;
  file_ = std::fopen(target.string().c_str(), "wb");
  if (file_ == nullptr) Fail();
}

OutputFile::~OutputFile() {
  if (file_ != nullptr && file_ != stdout) std::fclose(file_);
  std::error_code ignored;
  if (!temporary_.empty()) std::filesystem::remove(temporary_, ignored);
}

void OutputFile::Write(std::string_view bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) Fail();
}

void OutputFile::Flush() {
  if (std::fflush(file_) != 0) Fail();
}

void OutputFile::Commit() {
  Flush();
  if (file_ == stdout) return;
  const bool closed = std::fclose(file_) == 0;
  file_ = nullptr;
  if (!closed) Fail();
  if (temporary_.empty()) return;
  std::error_code problem;
  std::filesystem::rename(temporary_, path_, problem);
  if (problem) throw Failure(name_ + ": cannot write: " + problem.message());
  temporary_.clear();
}

void OutputFile::Fail() const { throw Failure(name_ + ": cannot write: " + std::strerror(errno)); }

void WriteStandardOutput(std::string_view text) {
  OutputFile output("-");
  output.Write(text);
  output.Commit();
}

void CheckOutputNames(const std::vector<std::filesystem::path>& outputs,
                      const std::vector<std::filesystem::path>& inputs) {
  std::error_code ignored;
  std::set<std::filesystem::path> read, written;
  for (const auto& input : inputs) read.insert(std::filesystem::weakly_canonical(input, ignored));
  for (const auto& output : outputs) {
    const auto status = std::filesystem::status(output, ignored);
    if (output.empty() || output == "-" ||
        (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))) {
      continue;
    }
    const auto name = std::filesystem::weakly_canonical(output, ignored);
    if (read.contains(name)) {
      throw UsageFailure(output.string() + ": is an input and would be written over");
    }
    if (!written.insert(name).second) {
      throw UsageFailure(output.string() + ": two files would be written there");
    }
  }
}

}  // namespace corvane
