// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/image/page_stream.h"
#include "app/support/input_stream.h"
#include "app/support/scratch_file.h"

namespace corvane {

// What a command named "-" reads. Its kind shows in its first bytes. Members throw Failure.
class StandardInput {
 public:
  static constexpr const char* kArgument = "-";
  static constexpr const char* kName = "stdin";  // in messages and file names

  StandardInput();

  // Whether it is a stream of pages, which can be read as it comes.
  bool IsPageStream() const { return isPageStream_; }
  // The first page of that stream.
  const StreamedPage& FirstPage();
  // The stream, at that page; once.
  std::unique_ptr<PageStream> TakeStream() { return std::move(stream_); }

  // Stores all of it in a file without a name. The path opens that file as long as this lives.
  const std::string& Store();

  // `text` with the input's name in place of that path.
  std::string WithName(std::string text) const;

 private:
  std::unique_ptr<InputStream> input_;
  std::unique_ptr<PageStream> stream_;
  bool isPageStream_ = false;
  std::optional<ScratchFile> stored_;
  std::string path_;
};

}  // namespace corvane
