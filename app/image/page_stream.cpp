// SPDX-License-Identifier: MIT
#include "app/image/page_stream.h"

#include <fmt/format.h>

#include <utility>

#include "app/image/kind.h"
#include "app/image/pictures.h"
#include "app/image/pnm.h"
#include "app/support/failure.h"
#include "app/support/limits.h"

namespace corvane {
namespace {

class StreamReader : public ImageReader {
 public:
  explicit StreamReader(PageStream& stream) : stream_(stream) { info_ = stream.Page().image; }
  explicit StreamReader(std::unique_ptr<PageStream> stream) : StreamReader(*stream) {
    owned_ = std::move(stream);
  }

  void ReadRow(std::uint8_t* row) override { stream_.ReadRow(row); }

 private:
  std::unique_ptr<PageStream> owned_;
  PageStream& stream_;
};

}  // namespace

void PageStream::GoTo(int number) {
  do {
    if (!Next()) throw Failure(page_.image.path + ": is not there");
  } while (page_.number < number);
}

std::unique_ptr<ImageReader> ReaderOfPage(PageStream& stream) {
  return std::make_unique<StreamReader>(stream);
}

std::unique_ptr<PageStream> OpenPageStream(const std::string& path) {
  return OpenPageStream(std::make_unique<InputStream>(path));
}

std::unique_ptr<PageStream> OpenPageStream(std::unique_ptr<InputStream> input) {
  const auto kind = KindOf(*input);
  if (kind == FileKind::Pnm) return OpenPnmStream(std::move(input));
  if (kind == FileKind::CupsRaster) return OpenCupsRaster(std::move(input));
  throw Failure(input->Name() + ": no stream of pages");
}

std::unique_ptr<ImageReader> OpenStreamPage(const std::string& path, int page) {
  std::unique_ptr<PageStream> stream = OpenPageStream(path);
  stream->GoTo(page);
  return std::make_unique<StreamReader>(std::move(stream));
}

std::vector<StreamedPage> ListStreamPages(const std::string& path) {
  const std::unique_ptr<PageStream> stream = OpenPageStream(path);
  std::vector<StreamedPage> pages;
  while (stream->Next()) {
    if (pages.size() == limits::kPages) {
      throw Failure(fmt::format("{}: more than {} pages", path, limits::kPages));
    }
    pages.push_back(stream->Page());
    pages.back().image.profile.clear();
  }
  return pages;
}

int CountStreamPages(const std::string& path) {
  const std::unique_ptr<PageStream> stream = OpenPageStream(path);
  int count = 0;
  while (stream->Next()) ++count;
  return count;
}

}  // namespace corvane
