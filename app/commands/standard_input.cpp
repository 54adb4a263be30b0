// SPDX-License-Identifier: MIT
#include "app/commands/standard_input.h"

#include <vector>

#include "app/image/kind.h"
#include "app/support/failure.h"

namespace corvane {

StandardInput::StandardInput()
    : input_(std::make_unique<InputStream>(Descriptor::StandardInput(), kName)) {
  if (input_->Peek(1).empty()) throw Failure(std::string(kName) + ": is empty");
  const std::optional<FileKind> kind = KindOf(*input_);
  isPageStream_ = kind && corvane::IsPageStream(*kind);
}

const StreamedPage& StandardInput::FirstPage() {
  stream_ = OpenPageStream(std::move(input_));
  if (!stream_->Next()) throw Failure(std::string(kName) + ": has no page");
  return stream_->Page();
}

const std::string& StandardInput::Store() {
  if (stored_) return path_;
  stored_.emplace();
  path_ = stored_->Path();
  std::vector<std::uint8_t> bytes(std::size_t{256} << 10);
  std::uint64_t size = 0;
  while (const std::size_t more = input_->Read(bytes.data(), bytes.size())) {
    stored_->Write(size, bytes.data(), more);
    size += more;
  }
  return path_;
}

std::string StandardInput::WithName(std::string text) const {
  if (path_.empty()) return text;
  for (std::size_t at; (at = text.find(path_)) != std::string::npos;) {
    text.replace(at, path_.size(), kName);
  }
  return text;
}

}  // namespace corvane
