// SPDX-License-Identifier: MIT
#include "app/print_page.h"

#include <fmt/format.h>

#include <exception>
#include <memory>
#include <thread>
#include <utility>

#include "app/failure.h"
#include "app/image_reader.h"
#include "app/image_srgb.h"
#include "app/interrupt.h"
#include "app/page_queue.h"
#include "app/print_planes.h"
#include "app/print_table.h"

namespace corvane {
namespace {

constexpr std::size_t kColorElement = 0;
constexpr std::size_t kHalftoneElement = 1;
constexpr std::uint32_t kRgbLayout = 1;
constexpr std::uint32_t kTaggedRgbLayout = 4;

std::uint32_t WidthWithOverspray(const PageJob& job, const Sheet& sheet) {
  return job.settings.leftOverspray + sheet.width + job.settings.rightOverspray;
}

// ---------------------------------------------------------------------------------------------
// The reading side: the sheet's rows, from a thread of their own.

std::unique_ptr<RowSource> OpenUpright(const std::string& path, int page, bool grey,
                                       ImageInfo& info) {
  std::unique_ptr<ImageReader> image = OpenImage(path, page);
  info = image->Info();
  info.profile.clear();
  auto rows = grey ? MakeGreyRows(std::move(image)) : MakeSrgbRows(std::move(image));
  return MakeUprightRows(std::move(rows), info.orientation);
}

class SheetReader {
 public:
  SheetReader(const PageJob& job, const Sheet& sheet) : sheet_(sheet) {
    ImageInfo info;
    image_ = OpenUpright(job.image, job.page, false, info);
    const bool turned = info.orientation >= 5;
    placement_ = PlaceImage(
        {image_->Width(), image_->Height(), turned ? info.verticalDpi : info.horizontalDpi,
         turned ? info.horizontalDpi : info.verticalDpi},
        sheet, job.scale);
    if (!job.tags.empty()) OpenTags(job);
    queue_ = std::make_unique<RowQueue>(BytesPerPixel() * sheet.width);
    thread_ = std::thread([this] { Read(); });
  }

  ~SheetReader() {
    queue_->GiveUp();
    thread_.join();
  }

  std::size_t BytesPerPixel() const { return tags_ ? 4 : 3; }

  // The sheet's next row; null behind the last.
  std::uint8_t* NextRow() { return queue_->Pop(); }

 private:
  struct GaveUp {};

  void OpenTags(const PageJob& job) {
    ImageInfo info;
    auto tags = OpenUpright(job.tags, 0, true, info);
    if (tags->Width() != image_->Width() || tags->Height() != image_->Height()) {
      throw Failure(fmt::format("{}: {} x {} tags do not fit {} x {} pixels", job.tags,
                                tags->Width(), tags->Height(), image_->Width(), image_->Height()));
    }
    tags_ = std::make_unique<PlacedTags>(std::move(tags), placement_, sheet_);
    tagRow_.resize(sheet_.width);
    taggedRow_.resize(std::size_t{4} * sheet_.width);
  }

  void Read() {
    try {
      PlaceRows(*image_, placement_, sheet_, [this](const std::uint8_t* row) {
        if (!queue_->Push(tags_ ? WithTags(row) : row)) throw GaveUp();
      });
      queue_->Close();
    } catch (const GaveUp&) {
    } catch (...) {
      queue_->Close(std::current_exception());
    }
  }

  const std::uint8_t* WithTags(const std::uint8_t* row) {
    tags_->ReadRow(tagRow_.data());
    for (std::size_t x = 0; x < sheet_.width; ++x) {
      for (std::size_t i = 0; i < 3; ++i) taggedRow_[4 * x + i] = row[3 * x + i];
      taggedRow_[4 * x + 3] = tagRow_[x];
    }
    return taggedRow_.data();
  }

  Sheet sheet_;
  Placement placement_;
  std::unique_ptr<RowSource> image_;
  std::unique_ptr<PlacedTags> tags_;
  std::vector<std::uint8_t> tagRow_, taggedRow_;
  std::unique_ptr<RowQueue> queue_;
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
    placesDots_ = GeometryOf(*job.settings.mode, job.settings.alternateMode).placesDots;
    // K is left out, but announced.
    announcedBytes_ = binary_.rowBytes;
    if (GeometryOf(*job.settings.mode, job.settings.alternateMode).expandsFurther) {
      announcedBytes_ = binary_.rowBytes / 12 * 9;
    }
    chain_.Observe(kColorElement, [this](ZCOM::QObject& message) { LeftColor(message); });
    chain_.Observe(kHalftoneElement, [this](ZCOM::QObject& message) { halftoned_ = &message; });
    chain_.ObserveOutput([this](ZCOM::QObject& message) { LeftChain(message); });
    for (PageSink* sink : receivers_.binary) sink->StartPage(binary_);
    for (PageSink* sink : receivers_.contone) sink->StartPage(contone_);
  }

  ~PageOutput() {
    for (std::size_t i = 0; i < chain_.ElementNames().size(); ++i) chain_.Observe(i, nullptr);
  }

  // Before each input row goes in.
  void StartRow() { contoneSeen_ = false; }

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
    const auto& raster = static_cast<QRaster&>(message);
    if (raster.RowBytes != contone_.rowBytes) FailOfShape(raster);
    for (PageSink* sink : receivers_.contone) sink->WriteRow(raster.Data);
  }

  void LeftChain(ZCOM::QObject& message) {
    if (message.MessageKind == kErrorMessage) FailOfError(message);
    if (message.MessageKind != kBinaryRasterMessage) return;
    const auto& raster = static_cast<QRaster&>(message);
    if (placesDots_ && &message == halftoned_) {
      throw Failure(fmt::format("{}: the page is too wide to place the dots of mode {}", job_.image,
                                static_cast<int>(binary_.mode->descriptor)));
    }
    if (raster.RowBytes != announcedBytes_ || raster.Width != binary_.planes[0].width ||
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
    const bool ofColor = std::string_view(element) == chain_.ElementNames()[kColorElement];
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
  std::size_t announcedBytes_ = 0;  // `RowBytes` of a row that leaves the chain
  bool placesDots_ = false;
  bool contoneSeen_ = false;
  const ZCOM::QObject* halftoned_ = nullptr;  // what last left the halftone element
  std::uint32_t rows_ = 0;
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

void PrintPage(const PageJob& job, Chain& chain, const PageReceivers& receivers) {
  const Sheet sheet = SheetOf(job);
  SheetReader reader(job, sheet);
  PageOutput output(job, sheet, chain, receivers);
  const auto send = [&](ZCOM::QObject& message) {
    if (receivers.beforeSend) receivers.beforeSend(message);
    return chain.Send(message);
  };

  PageSettings settings = job.settings;
  settings.tagged = !job.tags.empty();
  QStartPage start = MakeStartPage(settings, sheet.width);
  if (send(start) == 0) throw Failure(job.image + ": the chain refused the page");

  QRaster raster;
  raster.RasterFormat = settings.tagged ? kTaggedRgbLayout : kRgbLayout;
  raster.EndPixel = sheet.width;
  raster.Width = sheet.width;
  raster.RowBytes = static_cast<std::uint32_t>(reader.BytesPerPixel() * sheet.width);
  while (std::uint8_t* row = reader.NextRow()) {
    ThrowIfInterrupted();
    output.StartRow();
    raster.Data = row;
    if (send(raster) == 0)
      throw Failure(fmt::format("{}: the chain refused row {}", job.image, raster.Row));
    ++raster.Row;
    if (receivers.progress) receivers.progress(1);
  }
  ZCOM::QObject end(kEndPageMessage);
  send(end);
  output.Finish();
}

}  // namespace corvane
