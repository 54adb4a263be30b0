// SPDX-License-Identifier: MIT
//
// rastertocorvane job user title copies options [file]: the filter of CUPS that prints raster. The
// sheets, each a whole TIFF file, follow one another on the standard output; all that there is to
// say goes to the scheduler through the error stream.
#include <cups/cups.h>
#include <fcntl.h>
#include <fmt/format.h>

#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "app/image/page_stream.h"
#include "app/page/paper.h"
#include "app/printer/filter.h"
#include "app/printer/sheet.h"
#include "app/support/failure.h"
#include "app/support/input_stream.h"
#include "app/support/interrupt.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/support/platform.h"
#include "app/support/scratch_file.h"
#include "app/support/units.h"
#include "app/tables/page_tables.h"

namespace corvane {
namespace {

constexpr int kFewestArguments = 6, kMostArguments = 7;
constexpr const char* kFullDisk = "spool-area-full";
constexpr const char* kStandardInput = "the raster";

// A line to the scheduler.
void Tell(const char* prefix, std::string_view text) {
  std::fprintf(stderr, "%s: %s\n", prefix, Printable(text).c_str());
}

FilterCall CallFrom(int argc, char** argv) {
  if (argc < kFewestArguments || argc > kMostArguments) {
    throw UsageFailure("usage: rastertocorvane job user title copies options [file]");
  }
  FilterCall call;
  const char* end = argv[4] + std::strlen(argv[4]);
  const auto [stop, error] = std::from_chars(argv[4], end, call.copies);
  if (error != std::errc() || stop != end || call.copies < 1) {
    throw UsageFailure(fmt::format("{}: is no number of copies", argv[4]));
  }
  cups_option_t* options = nullptr;
  const int count = cupsParseOptions(argv[5], 0, &options);
  for (int i = 0; i < count; ++i) call.options[options[i].name] = options[i].value;
  cupsFreeOptions(count, options);
  if (argc == kMostArguments) call.file = argv[6];
  return call;
}

std::unique_ptr<PageStream> OpenPages(const FilterCall& call) {
  if (!call.file.empty()) return OpenPageStream(call.file);
  return OpenPageStream(
      std::make_unique<InputStream>(Descriptor(fcntl(0, F_DUPFD_CLOEXEC, 0)), kStandardInput));
}

// The sheet that a page is made for, or the page's own size where its header says none.
PaperSize PaperOf(const StreamedPage& page) {
  const ImageInfo& image = page.image;
  double width = page.mediaWidthMm, height = page.mediaHeightMm;
  if (!(width > 0 && height > 0) && image.horizontalDpi > 0 && image.verticalDpi > 0) {
    width = image.width / image.horizontalDpi * kMillimetresPerInch;
    height = image.height / image.verticalDpi * kMillimetresPerInch;
  }
  return MakePaperSize(image.path, width, height);
}

// Tells the scheduler how far a page is, at most a hundred times.
class PageProgress {
 public:
  explicit PageProgress(std::uint32_t rows) : rows_(rows) { Show(); }

  void Advance(std::uint32_t rows) {
    done_ += rows;
    if (done_ * 100 / rows_ > percent_) Show();
  }

 private:
  void Show() {
    percent_ = done_ * 100 / rows_;
    Tell("ATTR", fmt::format("job-media-progress={}", percent_));
  }

  std::uint64_t rows_, done_ = 0, percent_ = 0;
};

void PrintPageOf(const FilterCall& call, const PrintHead& head, const std::string& colorTable,
                 PageStream& stream) {
  const StreamedPage& streamed = stream.Page();
  const JobWishes wishes = WithTicket(WishesOf(call), streamed);
  PageJob page;
  page.image = streamed.image.path;
  page.page = streamed.number;
  page.paper = PaperOf(streamed);
  page.settings = PageSettingsFrom(OptionsFor(head, wishes));
  page.colorTable = colorTable;
  const int number = streamed.number + 1, copies = CopiesOf(call, streamed);
  Tell("INFO", fmt::format("Printing page {}", number));
  Tell("DEBUG", fmt::format("Page {}: {}, mode {}, alternate mode {}, {}, {} copies", number,
                            head.name, static_cast<int>(page.settings.mode->descriptor),
                            page.settings.alternateMode, wishes.media, copies));
  PageProgress progress(SheetOf(page).height);
  // Nobody gets to see a sheet before it is whole.
  const ScratchFile scratch;
  OutputStage stage;
  StagedFile& file = stage.Adopt(scratch.Duplicate(), "the sheet");
  PrintSheet(page, &stream, file, nullptr, [&](std::uint32_t rows) { progress.Advance(rows); });
  for (int copy = 0; copy < copies; ++copy) scratch.SendToStandardOutput(file.Size());
  Tell("PAGE", fmt::format("{} {}", number, copies));
}

void PrintJob(const FilterCall& call) {
  const char* ppd = std::getenv("PPD");
  const PrintHead& head = HeadOfPpd(ppd != nullptr ? ppd : "");
  const std::string colorTable = FindColorTable("");
  const std::unique_ptr<PageStream> stream = OpenPages(call);
  while (stream->Next()) PrintPageOf(call, head, colorTable, *stream);
  Tell("STATE", fmt::format("-{}", kFullDisk));
  Tell("INFO", "Ready to print");
}

int Run(int argc, char** argv) {
  try {
    PrintJob(CallFrom(argc, argv));
    return 0;
  } catch (const Interrupted& interrupted) {
    if (interrupted.signal != SIGPIPE) DieOf(interrupted);
    Tell("ERROR", "The printer takes no more sheets");
  } catch (const OutputFailure& failure) {
    Tell("STATE", fmt::format("+{}", kFullDisk));
    Tell("ERROR", failure.what());
  } catch (const std::bad_alloc&) {
    Tell("ERROR", "out of memory");
  } catch (const std::exception& failure) {
    Tell("ERROR", failure.what());
  }
  return 1;
}

}  // namespace
}  // namespace corvane

int main(int argc, char** argv) {
  corvane::KeepMemoryTogether();
  corvane::CatchInterrupts();
  return corvane::Run(argc, argv);
}
