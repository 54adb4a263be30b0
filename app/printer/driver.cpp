// SPDX-License-Identifier: MIT
#include "app/printer/driver.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstring>
#include <exception>
#include <functional>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "app/document/renderer.h"
#include "app/page/paper.h"
#include "app/page/settings.h"
#include "app/printer/document_sheets.h"
#include "app/printer/head.h"
#include "app/printer/output_job.h"
#include "app/printer/pipe_command.h"
#include "app/printer/pushed_page.h"
#include "app/printer/raster_header.h"
#include "app/support/failure.h"
#include "app/support/input_stream.h"
#include "app/support/message.h"
#include "app/support/units.h"
#include "printmode/page_shape.h"

namespace corvane {
namespace {

constexpr const char* kCanceled = "canceled";

namespace fs = std::filesystem;

constexpr char kOwnFormat[] = "application/vnd.corvane-pages";
constexpr char kModeOption[] = "corvane-print-mode";
constexpr char kAlternateOption[] = "corvane-alternate-mode";
constexpr char kNumberUpOption[] = "number-up";
constexpr int kNumbersUp[] = {1, 2, 4, 6, 9, 16};
constexpr double kHundredthsPerMillimetre = 100;
// A job that brings the server down, or is as long as the server's lives, is not to be printed for
// ever.
constexpr int kMostAttempts = 10;

// ---------------------------------------------------------------------------------------------
// Words of the protocol.

constexpr const char* kMediaSizes[] = {
    "iso_a4_210x297mm",   "iso_a3_297x420mm",   "iso_a5_148x210mm",      "iso_a6_105x148mm",
    "iso_b5_176x250mm",   "na_letter_8.5x11in", "na_legal_8.5x14in",     "na_ledger_11x17in",
    "na_index-4x6_4x6in", "na_5x7_5x7in",       "custom_max_330x5000mm", "custom_min_50x50mm",
};

std::string TextOf(const pappl_pr_options_t& options, const char* name) {
  const char* text = cupsGetOption(name, options.num_vendor, options.vendor);
  return text != nullptr ? text : "";
}

int NumberOf(const pappl_pr_options_t& options, const char* name) {
  const std::string text = TextOf(options, name);
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// As it was asked for, be it possible or not.
int NumberUpOf(const pappl_pr_options_t& options) {
  return std::max(NumberOf(options, kNumberUpOption), 1);
}

JobWishes WishesOf(const pappl_pr_options_t& options) {
  JobWishes wishes;
  wishes.quality = options.print_quality == IPP_QUALITY_DRAFT  ? Quality::Draft
                   : options.print_quality == IPP_QUALITY_HIGH ? Quality::High
                                                               : Quality::Normal;
  constexpr pappl_content_t kGraphics =
      PAPPL_CONTENT_GRAPHIC | PAPPL_CONTENT_TEXT | PAPPL_CONTENT_TEXT_AND_GRAPHIC;
  wishes.content = options.print_content_optimize == PAPPL_CONTENT_PHOTO ? Content::Photo
                   : (options.print_content_optimize & kGraphics) != 0   ? Content::Graphics
                                                                         : Content::Auto;
  constexpr pappl_color_mode_t kMonochrome =
      PAPPL_COLOR_MODE_MONOCHROME | PAPPL_COLOR_MODE_AUTO_MONOCHROME;
  wishes.monochrome = (options.print_color_mode & kMonochrome) != 0;
  const std::string_view media = MediaWordOf(options.media.type);
  if (!media.empty()) wishes.media = media;
  wishes.mode = ModeNumberIn(TextOf(options, kModeOption));
  wishes.alternateMode = NumberOf(options, kAlternateOption);
  return wishes;
}

// A word of several that are flags.
struct FlagWord {
  unsigned flag;
  const char* word;
};
constexpr FlagWord kColourWords[] = {{PAPPL_COLOR_MODE_AUTO, "auto"},
                                     {PAPPL_COLOR_MODE_AUTO_MONOCHROME, "auto-monochrome"},
                                     {PAPPL_COLOR_MODE_COLOR, "color"},
                                     {PAPPL_COLOR_MODE_MONOCHROME, "monochrome"}};
constexpr FlagWord kContentWords[] = {{PAPPL_CONTENT_AUTO, "auto"},
                                      {PAPPL_CONTENT_GRAPHIC, "graphic"},
                                      {PAPPL_CONTENT_PHOTO, "photo"},
                                      {PAPPL_CONTENT_TEXT, "text"},
                                      {PAPPL_CONTENT_TEXT_AND_GRAPHIC, "text-and-graphic"}};
constexpr FlagWord kScalingWords[] = {{PAPPL_SCALING_AUTO, "auto"},
                                      {PAPPL_SCALING_AUTO_FIT, "auto-fit"},
                                      {PAPPL_SCALING_FILL, "fill"},
                                      {PAPPL_SCALING_FIT, "fit"},
                                      {PAPPL_SCALING_NONE, "none"}};

std::string WordFor(std::span<const FlagWord> words, unsigned flag) {
  const auto word = std::ranges::find(words, flag, &FlagWord::flag);
  return word != words.end() ? word->word : std::to_string(flag);
}

// What a job is printed with, its own options and the printer's defaults.
std::vector<std::pair<std::string, std::string>> OptionTexts(const pappl_pr_options_t& options) {
  std::vector<std::pair<std::string, std::string>> texts = {
      {"media", options.media.size_name},
      {"media-size", fmt::format("{:g}x{:g}mm", options.media.size_width / kHundredthsPerMillimetre,
                                 options.media.size_length / kHundredthsPerMillimetre)},
      {"media-type", options.media.type},
      {"print-quality", ippEnumString("print-quality", options.print_quality)},
      {"print-color-mode", WordFor(kColourWords, options.print_color_mode)},
      {"print-content-optimize", WordFor(kContentWords, options.print_content_optimize)},
      {"print-scaling", WordFor(kScalingWords, options.print_scaling)},
      {"orientation-requested",
       ippEnumString("orientation-requested", options.orientation_requested)},
      {"printer-resolution",
       fmt::format("{}x{}dpi", options.printer_resolution[0], options.printer_resolution[1])}};
  if (options.first_page > 1 || options.last_page < INT_MAX) {
    texts.emplace_back("page-ranges", fmt::format("{}-{}", options.first_page, options.last_page));
  }
  for (int i = 0; i < options.num_vendor; ++i) {
    texts.emplace_back(options.vendor[i].name, options.vendor[i].value);
  }
  return texts;
}

// ---------------------------------------------------------------------------------------------
// A job, whatever brings its pages.

// Sheets on their way to a device that takes bytes: the command of a pipe, or what the framework
// has connected.
class DeviceReceiver : public SheetReceiver {
 public:
  DeviceReceiver(pappl_device_t* device, std::string uri, const DeviceRights& rights)
      : device_(device), uri_(std::move(uri)), rights_(rights) {}

  void Take(const fs::path& sheet, const std::function<bool()>& isCancelled) override {
    if (IsPipeDevice(uri_) && !command_) command_.emplace(uri_, CommandOfDevice(uri_, rights_));
    InputStream file(sheet.string());
    std::array<char, 1 << 16> bytes;
    while (const std::size_t size = file.Read(bytes.data(), bytes.size())) {
      const bool wanted =
          command_ ? command_->Write(bytes.data(), size, isCancelled) : !isCancelled();
      if (!wanted) throw OutputJob::Cancelled{};
      if (!command_) Send(bytes.data(), size);
    }
    if (!command_) papplDeviceFlush(device_);
  }

  void Finish(const std::function<bool()>& isCancelled) override {
    if (command_ && !command_->Finish(isCancelled)) throw OutputJob::Cancelled{};
  }

 private:
  void Send(const char* data, std::size_t size) {
    while (size > 0) {
      const ssize_t done = papplDeviceWrite(device_, data, size);
      if (done <= 0) throw DeviceFailure(uri_ + ": the device takes no more data");
      data += done;
      size -= static_cast<std::size_t>(done);
    }
  }

  pappl_device_t* device_;
  std::string uri_;
  const DeviceRights& rights_;
  std::optional<PipeCommand> command_;  // of this job
};

// What comes between a job of the framework and its pages.
class DeviceJob {
 public:
  DeviceJob(pappl_job_t* job, const pappl_pr_options_t& options, pappl_device_t* device,
            PrinterService& service)
      : job_(job),
        printer_(papplJobGetPrinter(job)),
        service_(service),
        receiver_(device, papplPrinterGetDeviceURI(printer_), service.rights) {
    const std::string uri = papplPrinterGetDeviceURI(printer_);
    const bool keeps = IsFolderDevice(uri);
    const fs::path folder =
        keeps ? FolderOfDevice(uri, service.rights)
              : service.stateFolder / fmt::format("printer-{}", papplPrinterGetID(printer_));
    output_.emplace(folder, DescriptionOf(options), keeps ? nullptr : &receiver_);
  }

  OutputJob& Output() { return *output_; }

  // Throws Failure for options that cannot be had, and for a job that does not come to its end.
  void Prepare(const pappl_pr_options_t& options) {
    if (output_->Attempt() > kMostAttempts) {
      throw Failure(
          fmt::format("the server has ended {} times while it printed this job", kMostAttempts));
    }
    Convert(options);
  }

  // Pages have these options from here on. Throws Failure.
  void Convert(const pappl_pr_options_t& options) {
    const PrintHead* head = FindPrintHead(papplPrinterGetDriverName(printer_));
    if (head == nullptr) throw Failure("the printer's driver is not known");
    PrintOptions print = OptionsFor(*head, WishesOf(options));
    print.colorTable = service_.colorTable;
    output_->Convert(print);
    colourMode_ = options.print_color_mode;
  }
  pappl_color_mode_t ColourMode() const { return colourMode_; }

  void Print(PageJob page, PageStream* stream) {
    try {
      output_->Print(std::move(page), stream, [this] {
        TellOfFirstRow();
        TakeInk();
        return papplJobIsCanceled(job_);
      });
    } catch (...) {
      TakeInk();
      throw;
    }
    TakeInk();
  }

  // The job's first row of pixels is there.
  void StartClock() {
    if (!rowCame_) rowCame_ = Clock::now();
  }

  // What ended the job early, told to everybody who asks.
  void Fail(const std::exception_ptr& problem) {
    if (failed_) return;
    failed_ = true;
    try {
      std::rethrow_exception(problem);
    } catch (const OutputJob::Cancelled&) {
      reason_ = kCanceled;
    } catch (const InputStream::Cancelled&) {
      reason_ = kCanceled;
    } catch (const DeviceFailure& failure) {
      reason_ = failure.what();
      papplPrinterSetReasons(printer_, PAPPL_PREASON_OTHER, PAPPL_PREASON_NONE);
    } catch (const OutputFailure& failure) {
      reason_ = failure.what();
      papplPrinterSetReasons(printer_, PAPPL_PREASON_SPOOL_AREA_FULL, PAPPL_PREASON_NONE);
    } catch (const std::bad_alloc&) {
      reason_ = "out of memory";
    } catch (const std::exception& failure) {
      reason_ = failure.what();
    } catch (...) {
      reason_ = "the server is ending";
    }
    if (WasCancelled()) {
      reason_ = kCanceled;
      return;
    }
    if (reason_ == kCanceled) reason_ = "the job's data have ended, or are damaged";
    const std::string line = Printable(reason_);
    papplJobSetMessage(job_, "%s", line.c_str());
    papplLogJob(job_, PAPPL_LOGLEVEL_ERROR, "%s", line.c_str());
  }

  // What somebody should know of a job that is printed all the same.
  void Remark(const std::string& remarks) {
    if (remarks.empty()) return;
    reason_ += (reason_.empty() ? "" : "; ") + remarks;
    const std::string line = Printable(reason_);
    papplJobSetReasons(job_, PAPPL_JREASON_JOB_COMPLETED_WITH_WARNINGS, PAPPL_JREASON_NONE);
    papplJobSetMessage(job_, "%s", line.c_str());
    papplLogJob(job_, PAPPL_LOGLEVEL_WARN, "%s", line.c_str());
  }

  // False when not all of it was printed.
  bool Finish() {
    if (!failed_ && papplJobGetState(job_) == IPP_JSTATE_ABORTED) {
      Fail(std::make_exception_ptr(OutputJob::Cancelled{}));
    }
    const auto isCancelled = [this] {
      TakeInk();
      return WasCancelled();
    };
    try {
      if (!failed_) output_->RepeatSet(isCancelled);
    } catch (...) {
      Fail(std::current_exception());
    }
    try {
      // What a command was given of a job that has failed is its own.
      output_->Deliver(isCancelled);
    } catch (...) {
      Fail(std::current_exception());
    }
    TakeInk();
    const bool cancelled = failed_ ? reason_ == kCanceled : WasCancelled();
    if (!failed_ && !cancelled) Remark(accountProblem_);
    try {
      output_->Finish(cancelled ? kCanceled
                      : failed_ ? "aborted"
                                : "completed",
                      cancelled ? "" : reason_);
      if (!failed_) {
        papplPrinterSetReasons(printer_, PAPPL_PREASON_NONE,
                               PAPPL_PREASON_SPOOL_AREA_FULL | PAPPL_PREASON_OTHER);
      }
    } catch (...) {
      Fail(std::current_exception());
    }
    return !failed_;
  }

 private:
  using Clock = std::chrono::steady_clock;

  // A print is not lost for an account that cannot be kept.
  template <typename Work>
  void WithAccount(const Work& work) {
    try {
      work(service_.AccountOf(papplPrinterGetID(printer_)));
    } catch (const std::exception& failure) {
      accountProblem_ = failure.what();
    }
  }

  void TakeInk() {
    const std::vector<InkUse> uses = output_->TakeInkUse();
    if (uses.empty()) return;
    WithAccount([&](InkAccount& account) {
      account.Take(uses);
      account.Save();
    });
  }

  // The framework takes a job that it has to abort for a canceled one, too.
  bool WasCancelled() const {
    return papplJobIsCanceled(job_) && papplJobGetState(job_) != IPP_JSTATE_ABORTED;
  }

  // In the thread that prints, once the row has gone through the chain.
  void TellOfFirstRow() {
    if (rowTold_ || !rowCame_) return;
    rowTold_ = true;
    const std::chrono::duration<double, std::milli> took = Clock::now() - *rowCame_;
    papplLogJob(job_, PAPPL_LOGLEVEL_DEBUG, "First row printed after %.1f ms", took.count());
  }

  JobDescription DescriptionOf(const pappl_pr_options_t& options) const {
    JobDescription description;
    description.printer = papplPrinterGetName(printer_);
    description.number = papplJobGetID(job_);
    description.created = papplJobGetTimeCreated(job_);
    description.name = papplJobGetName(job_);
    description.user = papplJobGetUsername(job_);
    description.format = papplJobGetFormat(job_);
    description.copies = std::clamp(options.copies, 1, 999);
    const char* const handling =
        ippGetString(papplJobGetAttribute(job_, "multiple-document-handling"), 0, nullptr);
    description.collated =
        handling != nullptr && std::string_view(handling) == "separate-documents-collated-copies";
    description.numberUp = NumberUpOf(options);
    description.options = OptionTexts(options);
    return description;
  }

  pappl_job_t* job_;
  pappl_printer_t* printer_;
  PrinterService& service_;
  DeviceReceiver receiver_;
  std::optional<OutputJob> output_;
  pappl_color_mode_t colourMode_ = PAPPL_COLOR_MODE_AUTO;
  bool failed_ = false;
  std::string reason_, accountProblem_;
  std::optional<Clock::time_point> rowCame_;  // set before the printing thread can get the row
  bool rowTold_ = false;
};

// ---------------------------------------------------------------------------------------------
// Raster, which arrives row by row.

// A page that is printed in a thread of its own while its rows arrive.
class ArrivingPage {
 public:
  ArrivingPage(DeviceJob& job, StreamedPage page) : job_(job), stream_(std::move(page)) {
    PageJob printed;
    printed.image = stream_.Page().image.path;
    printed.paper =
        MakePaperSize(printed.image, stream_.Page().mediaWidthMm, stream_.Page().mediaHeightMm);
    thread_ = std::thread([this, &job, printed] {
      try {
        job.Print(printed, &stream_);
      } catch (...) {
        problem_ = std::current_exception();
      }
      stream_.GiveUp();
    });
  }

  ~ArrivingPage() {
    if (!thread_.joinable()) return;
    stream_.End();
    thread_.join();
  }

  bool Push(const unsigned char* row) {
    job_.StartClock();
    return stream_.Push(row);
  }

  // Waits for the page. Throws what has stopped it.
  void End() {
    stream_.End();
    thread_.join();
    if (problem_) std::rethrow_exception(problem_);
  }

 private:
  DeviceJob& job_;
  PushedPage stream_;
  std::exception_ptr problem_;
  std::thread thread_;
};

struct RasterJob {
  RasterJob(pappl_job_t* job, const pappl_pr_options_t& options, pappl_device_t* device,
            PrinterService& service)
      : job(job, options, device, service) {}

  DeviceJob job;
  std::unique_ptr<ArrivingPage> page;
};

RasterJob* RasterJobOf(pappl_job_t* job) { return static_cast<RasterJob*>(papplJobGetData(job)); }

PrinterService& ServiceOf(pappl_job_t* job) {
  pappl_pr_driver_data_t driver;
  papplPrinterGetDriverData(papplJobGetPrinter(job), &driver);
  return *static_cast<PrinterService*>(driver.extension);
}

// The work of a callback; what it throws is logged, since nothing may be thrown through the
// framework.
template <typename Work>
bool Guarded(pappl_job_t* job, const Work& work) {
  try {
    work();
    return true;
  } catch (const std::exception& failure) {
    if (dynamic_cast<const OutputFailure*>(&failure) != nullptr) {
      papplPrinterSetReasons(papplJobGetPrinter(job), PAPPL_PREASON_SPOOL_AREA_FULL,
                             PAPPL_PREASON_NONE);
    }
    papplJobSetMessage(job, "%s", Printable(failure.what()).c_str());
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "%s", Printable(failure.what()).c_str());
  } catch (...) {
    papplLogJob(job, PAPPL_LOGLEVEL_ERROR, "The job was interrupted");
  }
  return false;
}

bool StartJob(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t* device) {
  return Guarded(job, [&] {
    auto raster = std::make_unique<RasterJob>(job, *options, device, ServiceOf(job));
    try {
      raster->job.Prepare(*options);
    } catch (...) {
      raster->job.Fail(std::current_exception());
      raster->job.Finish();
      throw;
    }
    raster->job.Output().SetConverter("raster of the client");
    papplJobSetData(job, raster.release());
  });
}

bool StartPage(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t*, unsigned page) {
  RasterJob* raster = RasterJobOf(job);
  try {
    // Where the job does not say, the page's own colours do.
    if (options->print_color_mode != raster->job.ColourMode()) raster->job.Convert(*options);
    raster->page = std::make_unique<ArrivingPage>(
        raster->job,
        PageOfRaster(options->header, fmt::format("job {}, page {}", papplJobGetID(job), page)));
    return true;
  } catch (...) {
    raster->job.Fail(std::current_exception());
    return false;
  }
}

bool WriteLine(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*, unsigned,
               const unsigned char* line) {
  // What comes after the job was canceled is no part of the page.
  return !papplJobIsCanceled(job) && RasterJobOf(job)->page->Push(line);
}

bool EndPage(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*, unsigned) {
  RasterJob* raster = RasterJobOf(job);
  try {
    raster->page->End();
    raster->page.reset();
    return true;
  } catch (...) {
    raster->page.reset();
    raster->job.Fail(std::current_exception());
    return false;
  }
}

bool EndJob(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*) {
  const std::unique_ptr<RasterJob> raster(RasterJobOf(job));
  papplJobSetData(job, nullptr);
  if (!raster) return false;
  raster->page.reset();
  return raster->job.Finish();
}

bool RefuseFile(pappl_job_t*, pappl_pr_options_t*, pappl_device_t*) { return false; }

// ---------------------------------------------------------------------------------------------
// Documents and images, which lie in a file when they are printed.

PaperSize PaperOf(const pappl_pr_options_t& options) {
  return MakePaperSize("the job's media", options.media.size_width / kHundredthsPerMillimetre,
                       options.media.size_length / kHundredthsPerMillimetre);
}

// How large something of a size is made on the paper.
double ScaleOn(const PaperSize& paper, double widthMm, double heightMm, pappl_scaling_t scaling) {
  const double across = paper.widthMm / widthMm, down = paper.heightMm / heightMm;
  const double fit = std::min(across, down);
  // What tells the sizes of one paper apart is no reason to scale a page.
  constexpr double kSame = 0.002;
  if (scaling == PAPPL_SCALING_NONE || std::abs(fit - 1) < kSame) return 1;
  if (scaling == PAPPL_SCALING_FILL) return std::max(across, down);
  return scaling == PAPPL_SCALING_FIT ? fit : std::min(fit, 1.0);
}

// How an image is turned clockwise. Documents and raster have an orientation of their own.
int DegreesFor(ipp_orient_t orientation) {
  switch (orientation) {
    case IPP_ORIENT_LANDSCAPE:
      return 270;
    case IPP_ORIENT_REVERSE_LANDSCAPE:
      return 90;
    case IPP_ORIENT_REVERSE_PORTRAIT:
      return 180;
    case IPP_ORIENT_NONE:
      return kTurnToFit;
    case IPP_ORIENT_PORTRAIT:
      break;
  }
  return 0;
}

using FilePrinter = std::function<void(DeviceJob&, const pappl_pr_options_t&, const char* file)>;

bool PrintFile(pappl_job_t* job, pappl_device_t* device, PrinterService& service,
               const FilePrinter& print) {
  pappl_pr_options_t* options = papplJobCreatePrintOptions(job, 0, true);
  bool whole = false;
  Guarded(job, [&] {
    DeviceJob deviceJob(job, *options, device, service);
    try {
      deviceJob.Prepare(*options);
      print(deviceJob, *options, papplJobGetFilename(job));
    } catch (...) {
      deviceJob.Fail(std::current_exception());
    }
    whole = deviceJob.Finish();
  });
  papplJobDeletePrintOptions(options);
  return whole;
}

bool PrintImage(pappl_job_t* job, pappl_device_t* device, void* data) {
  papplJobSetImpressions(job, 1);
  return PrintFile(job, device, *static_cast<PrinterService*>(data),
                   [&](DeviceJob& output, const pappl_pr_options_t& options, const char* file) {
                     PageJob page;
                     page.image = file;
                     page.paper = PaperOf(options);
                     // A picture without words on its size fills what the paper allows.
                     if (options.print_scaling == PAPPL_SCALING_NONE) page.placing.scale = 1;
                     page.placing.degrees = DegreesFor(options.orientation_requested);
                     output.Output().SetConverter("image reader");
                     output.Print(page, nullptr);
                     papplJobSetImpressionsCompleted(job, 1);
                   });
}

int PagesPerSheet(const pappl_pr_options_t& options) {
  const int wanted = NumberUpOf(options);
  if (std::ranges::find(kNumbersUp, wanted) == std::end(kNumbersUp)) {
    throw Failure(fmt::format("{}: number-up is 1, 2, 4, 6, 9 or 16", wanted));
  }
  return wanted;
}

void PrintPages(pappl_job_t* job, DeviceJob& output, const pappl_pr_options_t& options,
                const char* file) {
  RendererSettings renderer;
  renderer.isCancelled = [job] { return papplJobIsCanceled(job); };
  Document document(file, renderer);
  SheetWishes wishes;
  wishes.paper = PaperOf(options);
  wishes.firstPage = options.first_page;
  wishes.lastPage = options.last_page;
  wishes.pagesPerSheet = PagesPerSheet(options);
  wishes.scale = [&](const PaperSize& paper, double widthMm, double heightMm) {
    return ScaleOn(paper, widthMm, heightMm, options.print_scaling);
  };
  wishes.isCancelled = renderer.isCancelled;
  DocumentSheets sheets(document, wishes, output.Output().Settings());
  papplJobSetImpressions(job, static_cast<int>(sheets.Count()));
  output.Output().SetConverter(document.Sandboxed() ? "Ghostscript in a sandbox" : "Ghostscript");
  for (std::size_t left = sheets.Count(); left > 0; --left) {
    DocumentSheets::Sheet sheet = sheets.Next();
    output.Print(std::move(sheet.job), sheet.stream);
    papplJobSetImpressionsCompleted(job, 1);
  }
  output.Remark(sheets.Remarks());
}

bool PrintDocument(pappl_job_t* job, pappl_device_t* device, void* data) {
  return PrintFile(job, device, *static_cast<PrinterService*>(data),
                   [&](DeviceJob& output, const pappl_pr_options_t& options, const char* file) {
                     PrintPages(job, output, options, file);
                   });
}

// ---------------------------------------------------------------------------------------------
// What the printer says of itself.

pappl_supply_color_t SupplyColour(Ink ink) {
  switch (ink) {
    case Ink::C:
    case Ink::cd:
      return PAPPL_SUPPLY_COLOR_CYAN;
    case Ink::c:
      return PAPPL_SUPPLY_COLOR_LIGHT_CYAN;
    case Ink::M:
    case Ink::md:
      return PAPPL_SUPPLY_COLOR_MAGENTA;
    case Ink::m:
      return PAPPL_SUPPLY_COLOR_LIGHT_MAGENTA;
    case Ink::Y:
    case Ink::y:
      return PAPPL_SUPPLY_COLOR_YELLOW;
    case Ink::K:
      break;
  }
  return PAPPL_SUPPLY_COLOR_BLACK;
}

bool UpdateStatus(pappl_printer_t* printer) {
  pappl_pr_driver_data_t driver;
  papplPrinterGetDriverData(printer, &driver);
  auto& service = *static_cast<PrinterService*>(driver.extension);
  const PrintHead* head = FindPrintHead(papplPrinterGetDriverName(printer));
  if (head == nullptr) return false;
  try {
    const InkAccount& account = service.AccountOf(papplPrinterGetID(printer));
    std::vector<pappl_supply_t> supplies;
    for (const Ink ink : InksOf(*head)) {
      pappl_supply_t supply = {};
      supply.color = SupplyColour(ink);
      supply.is_consumed = true;
      supply.level = account.Level(ink);
      supply.type = PAPPL_SUPPLY_TYPE_INK_CARTRIDGE;
      const std::string name = fmt::format("Ink {}", kInkNames[static_cast<int>(ink)]);
      name.copy(supply.description, sizeof supply.description - 1);
      supplies.push_back(supply);
    }
    papplPrinterSetSupplies(printer, static_cast<int>(supplies.size()), supplies.data());
    return true;
  } catch (const std::exception& failure) {
    papplLogPrinter(printer, PAPPL_LOGLEVEL_ERROR, "%s", Printable(failure.what()).c_str());
    return false;
  }
}

// There is no panel: whoever looks for the printer finds it in the server's log.
void Identify(pappl_printer_t* printer, pappl_identify_actions_t, const char* message) {
  papplLogPrinter(printer, PAPPL_LOGLEVEL_WARN, "Here is the printer that is looked for: %s",
                  Printable(message != nullptr ? message : "").c_str());
}

void DescribeMedia(pappl_pr_driver_data_t& driver) {
  driver.borderless = true;
  for (const char* size : kMediaSizes) driver.media[driver.num_media++] = size;
  for (const MediaWord& type : kMediaTypes) driver.type[driver.num_type++] = type.keyword;
  driver.source[driver.num_source++] = "main";
  pappl_media_col_t& ready = driver.media_ready[0];
  std::strcpy(ready.size_name, kMediaSizes[0]);
  std::strcpy(ready.source, "main");
  std::strcpy(ready.type, kMediaTypes[0].keyword);
  ready.size_width = 21000;
  ready.size_length = 29700;
  driver.media_default = ready;
}

void DescribeOptions(const PrintHead& head, pappl_pr_driver_data_t& driver, ipp_t** attributes) {
  driver.vendor[driver.num_vendor++] = kModeOption;
  driver.vendor[driver.num_vendor++] = kAlternateOption;
  driver.vendor[driver.num_vendor++] = kNumberUpOption;
  *attributes = ippNew();
  std::vector<std::string> words = {"auto"};
  for (const int mode : ModesOf(head)) words.push_back(std::to_string(mode));
  std::vector<const char*> modes;
  for (const std::string& word : words) modes.push_back(word.c_str());
  ippAddString(*attributes, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "corvane-print-mode-default", nullptr,
               "auto");
  ippAddStrings(*attributes, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "corvane-print-mode-supported",
                static_cast<int>(modes.size()), nullptr, modes.data());
  ippAddInteger(*attributes, IPP_TAG_PRINTER, IPP_TAG_INTEGER, "corvane-alternate-mode-default", 0);
  ippAddRange(*attributes, IPP_TAG_PRINTER, "corvane-alternate-mode-supported", 0,
              kAlternateModes - 1);
  ippAddInteger(*attributes, IPP_TAG_PRINTER, IPP_TAG_INTEGER, "number-up-default", 1);
  ippAddIntegers(*attributes, IPP_TAG_PRINTER, IPP_TAG_INTEGER, "number-up-supported",
                 static_cast<int>(std::size(kNumbersUp)), kNumbersUp);
  // What printers say that everybody finds, and the framework leaves to its driver.
  for (const char* name : {"print-rendering-intent-default", "print-rendering-intent-supported"}) {
    ippAddString(*attributes, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, name, nullptr, "auto");
  }
  ippAddString(*attributes, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "pwg-raster-document-sheet-back",
               nullptr, "normal");
  ippAddBoolean(*attributes, IPP_TAG_PRINTER, "preferred-attributes-supported", 0);
}

}  // namespace

InkAccount& PrinterService::AccountOf(int printer) {
  const std::lock_guard lock(mutex_);
  std::unique_ptr<InkAccount>& account = accounts_[printer];
  if (!account) {
    account = std::make_unique<InkAccount>(stateFolder / fmt::format("ink-{}.json", printer),
                                           cartridgeMillilitres);
  }
  return *account;
}

std::vector<pappl_pr_driver_t> PrinterDrivers() {
  std::vector<pappl_pr_driver_t> drivers;
  for (const PrintHead& head : kPrintHeads) {
    drivers.push_back({head.name.data(), head.description.data(), nullptr, nullptr});
  }
  return drivers;
}

bool DescribeDriver(pappl_system_t* system, const char* driverName, const char* deviceUri,
                    const char*, pappl_pr_driver_data_t* driver, ipp_t** attributes, void* data) {
  const PrintHead* head = FindPrintHead(driverName);
  if (head == nullptr) return false;
  try {
    if (deviceUri != nullptr) CheckDevice(deviceUri, static_cast<PrinterService*>(data)->rights);
  } catch (const std::exception& failure) {
    papplLog(system, PAPPL_LOGLEVEL_ERROR, "%s", Printable(failure.what()).c_str());
    return false;
  }
  driver->extension = data;
  driver->printfile_cb = &RefuseFile;
  driver->rstartjob_cb = &StartJob;
  driver->rstartpage_cb = &StartPage;
  driver->rwriteline_cb = &WriteLine;
  driver->rendpage_cb = &EndPage;
  driver->rendjob_cb = &EndJob;
  driver->status_cb = &UpdateStatus;
  driver->identify_cb = &Identify;
  driver->identify_supported = driver->identify_default = PAPPL_IDENTIFY_ACTIONS_DISPLAY;
  driver->format = kOwnFormat;
  head->description.copy(driver->make_and_model, sizeof driver->make_and_model - 1);
  driver->ppm = driver->ppm_color = 1;
  driver->kind = PAPPL_KIND_DOCUMENT | PAPPL_KIND_PHOTO | PAPPL_KIND_LARGE_FORMAT;
  driver->has_supplies = true;
  driver->orient_default = IPP_ORIENT_PORTRAIT;
  driver->color_supported = PAPPL_COLOR_MODE_AUTO | PAPPL_COLOR_MODE_COLOR |
                            PAPPL_COLOR_MODE_MONOCHROME | PAPPL_COLOR_MODE_AUTO_MONOCHROME;
  driver->color_default = PAPPL_COLOR_MODE_AUTO;
  driver->content_default = PAPPL_CONTENT_AUTO;
  driver->quality_default = IPP_QUALITY_NORMAL;
  driver->scaling_default = PAPPL_SCALING_AUTO;
  driver->raster_types = PAPPL_PWG_RASTER_TYPE_SRGB_8 | PAPPL_PWG_RASTER_TYPE_SGRAY_8;
  driver->duplex = PAPPL_DUPLEX_NONE;
  driver->sides_supported = driver->sides_default = PAPPL_SIDES_ONE_SIDED;
  for (const int dpi : {300, 600}) {
    driver->x_resolution[driver->num_resolution] = driver->y_resolution[driver->num_resolution] =
        dpi;
    ++driver->num_resolution;
  }
  driver->x_default = driver->y_default = 600;
  DescribeMedia(*driver);
  DescribeOptions(*head, *driver, attributes);
  return true;
}

void AddDocumentFilters(pappl_system_t* system, PrinterService& service) {
  for (const char* format : {"image/jpeg", "image/png"}) {
    papplSystemAddMIMEFilter(system, format, kOwnFormat, &PrintImage, &service);
  }
  papplSystemAddMIMEFilter(system, "application/pdf", kOwnFormat, &PrintDocument, &service);
}

}  // namespace corvane
