// SPDX-License-Identifier: MIT
#include "app/commands/print_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "app/commands/placed_page.h"
#include "app/page/planes.h"
#include "app/page/queue.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/tables/page_tables.h"

namespace corvane {
namespace {

constexpr std::uint32_t kRgbLayout = 1;
constexpr std::uint32_t kTaggedRgbLayout = 4;

bool IsSeparated(const PageJob& job) { return !job.inks.empty(); }

std::uint32_t WidthWithOverspray(const PageJob& job, const Sheet& sheet) {
  return job.settings.leftOverspray + sheet.width + job.settings.rightOverspray;
}

// ---------------------------------------------------------------------------------------------
// The reading side: the sheet's rows, from a thread of their own.

class SheetReader {
 public:
  // A prompt reader lets rows go on as they come, in groups that differ from time to time.
  SheetReader(const PageJob& job, PageStream* stream, const Sheet& sheet, bool prompt)
      : stream_(stream),
        page_(job, stream, sheet),
        queue_(page_.BytesPerPixel() * sheet.width, prompt) {
    try {
      thread_ = std::thread([this] { Read(); });
    } catch (const std::system_error&) {
      throw TransientFailure(job.image + ": no thread can be started to read it");
    }
  }

  // Nobody waits for a stream whose rows are not wanted any more.
  ~SheetReader() {
    queue_.GiveUp();
    if (stream_ != nullptr && !done_) stream_->Cancel();
    thread_.join();
  }

  const PlacedPage& Page() const { return page_; }

  // The sheet's next rows; none behind the last.
  RowQueue::Rows NextRows() { return queue_.Pop(); }

 private:
  struct GaveUp {};

  void Read() {
    try {
      page_.Read([this](const std::uint8_t* row) {
        if (!queue_.Push(row)) throw GaveUp();
      });
      if (stream_ != nullptr) stream_->Finish();
      done_ = true;
      queue_.Close();
    } catch (const GaveUp&) {
    } catch (...) {
      done_ = true;
      queue_.Close(std::current_exception());
    }
  }

  PageStream* stream_;
  PlacedPage page_;
  RowQueue queue_;
  std::atomic<bool> done_ = false;  // with reading, for good or ill
  std::thread thread_;
};

// ---------------------------------------------------------------------------------------------
// The receiving side: what leaves the chain's elements.

class PageOutput {
 public:
  PageOutput(const PageJob& job, const Sheet& sheet, Chain& chain, const PageReceivers& receivers)
      : job_(job), chain_(chain), receivers_(receivers), binary_(ShapeOf(job)) {
    binary_.title = job.title;
    contone_ = ContonePageShape(*job.settings.mode, job.settings.alternateMode, sheet.width,
                                sheet.height, job.settings.horizontalDpi, job.settings.verticalDpi);
    contone_.title = job.title;
    binary_.mediaType = contone_.mediaType = job.settings.mediaType;
    placesDots_ = job.settings.mode->alternates[job.settings.alternateMode].placing.PlacesDots();
    std::size_t element = 0;
    if (!IsSeparated(job)) {
      chain_.Observe(element++, [this](ZCOM::QObject& message) { LeftColor(message); });
    }
    chain_.Observe(element, [this](ZCOM::QObject& message) { halftoned_ = &message; });
    chain_.ObserveOutput([this](ZCOM::QObject& message) { LeftChain(message); });
    for (PageSink* sink : receivers_.binary) sink->StartPage(binary_);
    for (PageSink* sink : receivers_.contone) sink->StartPage(contone_);
  }

  ~PageOutput() {
    for (std::size_t i = 0; i < chain_.ElementNames().size(); ++i) chain_.Observe(i, nullptr);
  }

  // Before each input row goes in.
  void StartRow() { contoneSeen_ = false; }

  // A row that will be halftoned.
  void TakeContone(const QRaster& raster) {
    if (raster.RowBytes != contone_.rowBytes) FailOfShape(raster);
    for (PageSink* sink : receivers_.contone) sink->WriteRow(raster.Data);
  }

  // Instead of the input rows up to `end`: their output is that of another page.
  void CopyRows(const std::vector<std::shared_ptr<const KeptRows>>& from, std::uint32_t end) {
    rows_ = end * (binary_.rows / contone_.rows);
    auto kept = from.begin();
    for (PageSink* sink : receivers_.binary) sink->CopyRows(**kept++, rows_);
    for (PageSink* sink : receivers_.contone) sink->CopyRows(**kept++, end);
  }

  std::vector<std::shared_ptr<const KeptRows>> Kept() const {
    std::vector<std::shared_ptr<const KeptRows>> kept;
    for (PageSink* sink : receivers_.binary) kept.push_back(sink->Kept());
    for (PageSink* sink : receivers_.contone) kept.push_back(sink->Kept());
    return kept;
  }

  void Finish() {
    if (rows_ != binary_.rows) {
      throw Failure(
          fmt::format("{}: the chain sent {} rows instead of {}", job_.image, rows_, binary_.rows));
    }
    for (PageSink* sink : receivers_.binary) sink->EndPage();
    for (PageSink* sink : receivers_.contone) sink->EndPage();
  }

 private:
  void LeftColor(ZCOM::QObject& message) {
    if (message.MessageKind == kStartPageMessage) {
      CheckTablesOf(static_cast<QStartPage&>(message), job_.colorTable);
    }
    // Rows are repeated for the vertical resolution.
    if (message.MessageKind != kContoneRasterMessage || std::exchange(contoneSeen_, true)) return;
    TakeContone(static_cast<QRaster&>(message));
  }

  void LeftChain(ZCOM::QObject& message) {
    if (message.MessageKind == kErrorMessage) FailOfError(message);
    if (message.MessageKind != kBinaryRasterMessage) return;
    const auto& raster = static_cast<QRaster&>(message);
    if (placesDots_ && &message == halftoned_) {
      throw Failure(fmt::format("{}: the page is too wide to place the dots of mode {}", job_.image,
                                static_cast<int>(binary_.mode->descriptor)));
    }
    if (raster.RowBytes != binary_.announcedBytes || raster.Width != binary_.planes[0].width ||
        raster.Row != rows_) {
      FailOfShape(raster);
    }
    ++rows_;
    for (PageSink* sink : receivers_.binary) sink->WriteRow(raster.Data);
  }

  [[noreturn]] void FailOfShape(const QRaster& raster) const {
    throw Failure(fmt::format("{}: the chain sent row {} with {} pixels in {} bytes", job_.image,
                              raster.Row, raster.Width, raster.RowBytes));
  }

  [[noreturn]] void FailOfError(const ZCOM::QObject& message) const {
    int number = 0;
    char text[256] = "", element[64] = "";
    message.Properties.GetProperty("ErrorID", &number, 0, "Standard");
    message.Properties.GetProperty("ErrorString", text, sizeof text, "", "Standard");
    message.Properties.GetProperty("EObjectName", element, sizeof element, "", "Standard");
    // What fails in the colour element's page set-up is the table: the settings are checked before.
    const bool ofColor =
        !IsSeparated(job_) && std::string_view(element) == chain_.ElementNames().front();
    throw Failure(
        fmt::format("{}: {} (error {})",
                    ofColor ? job_.colorTable + ": no table for this page"
                            : fmt::format("mode {}", static_cast<int>(binary_.mode->descriptor)),
                    text, number));
  }

  const PageJob& job_;
  Chain& chain_;
  const PageReceivers& receivers_;
  PageShape binary_, contone_;
  bool placesDots_ = false;
  bool contoneSeen_ = false;
  const ZCOM::QObject* halftoned_ = nullptr;  // what last left the halftone element
  std::uint32_t rows_ = 0;
};

// ---------------------------------------------------------------------------------------------
// In between: the page's messages.

class PageDrive {
 public:
  PageDrive(const PageJob& job, PageStream* stream, Chain& chain, const PageReceivers& receivers)
      : job_(job),
        chain_(chain),
        receivers_(receivers),
        sheet_(SheetOf(job)),
        // Pages are compared by groups of rows.
        reader_(job, stream, sheet_,
                stream != nullptr && stream->IsPrompt() && receivers.forms == nullptr),
        reuses_(MayReuse()),
        output_(job, sheet_, chain, receivers) {}

  void Run() {
    PageSettings settings = job_.settings;
    settings.tagged = reader_.Page().Tagged();
    QStartPage start = MakeStartPage(settings, sheet_.width);
    if (Send(start) == 0) throw Failure(job_.image + ": the chain refused the page");
    colours_.RasterFormat = settings.tagged ? kTaggedRgbLayout : kRgbLayout;
    inks_.RasterFormat = kContoneLayout;
    raster_.EndPixel = sheet_.width;
    raster_.Width = sheet_.width;
    raster_.RowBytes = static_cast<std::uint32_t>(reader_.Page().BytesPerPixel() * sheet_.width);
    reuses_ ? SendChangedRows() : SendAllRows();
    ZCOM::QObject end(kEndPageMessage);
    Send(end);
    output_.Finish();
    if (matcher_) matcher_->Finish(output_.Kept());
  }

 private:
  // A record holds every row, and the rows of the points chart depend on more than the page.
  bool MayReuse() const {
    if (receivers_.forms == nullptr || receivers_.beforeSend || job_.settings.points) return false;
    const auto keeps = [](PageSink* sink) { return sink->KeepRows(); };
    return chain_.TellsState() && std::ranges::all_of(receivers_.binary, keeps) &&
           std::ranges::all_of(receivers_.contone, keeps);
  }

  unsigned long Send(ZCOM::QObject& message) {
    if (receivers_.beforeSend) receivers_.beforeSend(message);
    return chain_.Send(message);
  }

  void SendAllRows() {
    for (RowQueue::Rows rows; (rows = reader_.NextRows()).count > 0;) SendRows(rows);
  }

  void SendRows(const RowQueue::Rows& rows) {
    raster_.Data = rows.data;
    for (std::size_t i = 0; i < rows.count; ++i) {
      ThrowIfInterrupted();
      output_.StartRow();
      if (IsSeparated(job_)) output_.TakeContone(raster_);
      for (std::uint32_t repeat = 0; repeat < repeats_; ++repeat) SendRow();
      raster_.Data += raster_.RowBytes;
      if (receivers_.progress) receivers_.progress(1);
    }
  }

  void SendRow() {
    if (Send(raster_) == 0) {
      throw Failure(fmt::format("{}: the chain refused row {}", job_.image, raster_.Row));
    }
    ++raster_.Row;
  }

  void SendChangedRows() {
    // The size of the sheet, and whether an input has tags of its own, show when it is opened, and
    // not in the key.
    matcher_.emplace(*receivers_.forms,
                     fmt::format("{}+{}x{}{}", receivers_.formKey, sheet_.width, sheet_.height,
                                 reader_.Page().Tagged() ? "+tags" : ""));
    matcher_->Start(chain_.State());
    for (RowQueue::Rows rows; (rows = reader_.NextRows()).count > 0;) {
      const PrintedForm* form = matcher_->Next(rows.data, rows.count * raster_.RowBytes);
      if (form != copied_) CopyRows();
      copied_ = form;
      if (form == nullptr) {
        SendRows(rows);
        matcher_->Computed([this] { return chain_.State(); });
      } else {
        Skip(static_cast<std::uint32_t>(rows.count));
      }
    }
    CopyRows();
  }

  void Skip(std::uint32_t rows) {
    ThrowIfInterrupted();
    raster_.Row += rows;
    if (receivers_.reused) receivers_.reused(rows);
    if (receivers_.progress) receivers_.progress(rows);
  }

  // Takes over what has been skipped, and brings the chain behind it.
  void CopyRows() {
    if (copied_ == nullptr) return;
    output_.CopyRows(copied_->sinkRows, raster_.Row);
    chain_.SetState(matcher_->State());
  }

  const PageJob& job_;
  Chain& chain_;
  const PageReceivers& receivers_;
  Sheet sheet_;
  SheetReader reader_;
  bool reuses_;
  PageOutput output_;
  QRaster colours_;
  QCMYKContoneRaster inks_;
  QRaster& raster_ = IsSeparated(job_) ? static_cast<QRaster&>(inks_) : colours_;
  // Ink rows as often as the vertical resolution wants them; colours the colour element repeats.
  std::uint32_t repeats_ = IsSeparated(job_)
                               ? RowsPerRow(Stage::Contone, *job_.settings.mode,
                                            job_.settings.alternateMode, job_.settings.verticalDpi)
                               : 1;
  std::optional<FormMatcher> matcher_;
  const PrintedForm* copied_ = nullptr;  // that the last rows are taken from
};

}  // namespace

Sheet SheetOf(const PageJob& job) {
  return MakeSheet(job.paper, job.settings.horizontalDpi, job.settings.verticalDpi);
}

PageShape ShapeOf(const PageJob& job) {
  const Sheet sheet = SheetOf(job);
  return BinaryPageShape(*job.settings.mode, job.settings.alternateMode,
                         WidthWithOverspray(job, sheet), sheet.height, job.settings.horizontalDpi,
                         job.settings.verticalDpi);
}

void PrintPage(const PageJob& job, PageStream* stream, Chain& chain,
               const PageReceivers& receivers) {
  PageDrive(job, stream, chain, receivers).Run();
}

}  // namespace corvane
