// SPDX-License-Identifier: MIT
#include "app/commands/bench.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/chain/chain.h"
#include "app/page/planes.h"
#include "app/page/sample_rows.h"
#include "app/page/settings.h"
#include "app/support/descriptor.h"
#include "app/support/failure.h"
#include "app/support/interrupt.h"
#include "app/support/json.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "app/tables/default_table.h"
#include "halftone/kernel_table.h"
#include "halftone/routine_table.h"
#include "printmode/page_shape.h"
#include "printmode/print_modes.h"
#include "simd/level.h"

namespace corvane {
namespace {

using Bytes = std::vector<std::uint8_t>;

// A page of A4.
constexpr double kWidthInches = 210 / 25.4, kHeightInches = 297 / 25.4;

// The two take bands of a page in turn, so that whatever else the machine does meets both, and the
// band in the middle of each counts. The first is there to fill tables and error lines.
constexpr int kBands = 8, kBandRows = 24;

// Seconds of processor time of this thread: what other programs take does not count.
double Now() {
  timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// What a band of rows took; its inverse ratio compares the two.
struct Seconds {
  double plain = 0, fast = 0;

  double Ratio() const { return plain / fast; }
};

// The plug-in a second time, held to its plain paths: a library chooses its instruction level once,
// so this one is loaded from a copy that the system takes for another file.
class PlainLibrary {
 public:
  PlainLibrary() : copy_(memfd_create("corvane-plain", MFD_CLOEXEC)) {
    const std::filesystem::path file = PluginFile();
    std::ifstream source(file, std::ios::binary);
    std::vector<char> block(1 << 20);
    while (source.read(block.data(), static_cast<std::streamsize>(block.size())) ||
           source.gcount() > 0) {
      if (!copy_.Write(block.data(), static_cast<std::size_t>(source.gcount())))
        throw Failure(file.string() + ": cannot be copied");
    }
    library_.emplace(fmt::format("/proc/self/fd/{}", copy_.Number()));
    ChooseLevel();
  }

  const PluginLibrary& Library() const { return *library_; }

 private:
  // With the first element.
  void ChooseLevel() const {
    constexpr const char* kVariable = "CORVANE_CPU";
    const char* found = std::getenv(kVariable);
    const std::optional<std::string> before =
        found == nullptr ? std::nullopt : std::optional<std::string>(found);
    setenv(kVariable, NameOf(CpuLevel::Plain), 1);
    library_->CreateElement(kWholeChain.front());
    if (before) {
      setenv(kVariable, before->c_str(), 1);
    } else {
      unsetenv(kVariable);
    }
  }

  Descriptor copy_;
  std::optional<PluginLibrary> library_;
};

struct Libraries {
  PluginLibrary fast;
  PlainLibrary plain;
};

std::uint32_t WidthOf(const PageSettings& settings) {
  return static_cast<std::uint32_t>(kWidthInches * settings.horizontalDpi);
}

ChainSetup SetupOf(std::vector<std::string> elements) {
  ChainSetup setup;
  setup.elements = std::move(elements);
  setup.host.SetProperty("ColorTableFilename", DefaultColorTable().c_str(), "Standard");
  return setup;
}

// A row message with bytes of its own: elements may work in what they are sent.
template <class Raster>
struct OwnedRow {
  Raster raster;
  Bytes bytes;

  void Send(Chain& chain) {
    raster.Data = bytes.data();
    if (chain.Send(raster) == 0) throw Failure("a row was refused");
  }
};

std::vector<OwnedRow<QRaster>> RowsOf(SampleContent content, const PageSettings& settings) {
  const std::uint32_t width = WidthOf(settings);
  std::vector<OwnedRow<QRaster>> rows(kBands * kBandRows);
  for (std::uint32_t y = 0; y < rows.size(); ++y) {
    auto& [raster, bytes] = rows[y];
    bytes = SampleRow(content, width, y);
    raster.RasterFormat = 1;
    raster.Row = y;
    raster.EndPixel = raster.Width = width;
    raster.RowBytes = static_cast<std::uint32_t>(bytes.size());
  }
  return rows;
}

void StartPage(Chain& chain, const PageSettings& settings) {
  QStartPage start = MakeStartPage(settings, WidthOf(settings));
  if (chain.Send(start) == 0) throw Failure("a page was refused");
}

void EndPage(Chain& chain) {
  ZCOM::QObject end(kEndPageMessage);
  chain.Send(end);
}

// The contone rows that the colour element makes of the page.
std::vector<OwnedRow<QCMYKContoneRaster>> ContoneRowsOf(const Libraries& libraries,
                                                        const PageSettings& settings,
                                                        std::vector<OwnedRow<QRaster>> rows) {
  Chain chain(libraries.fast, SetupOf({kWholeChain.front()}));
  std::vector<OwnedRow<QCMYKContoneRaster>> contone;
  chain.ObserveOutput([&](ZCOM::QObject& message) {
    if (message.MessageKind != kContoneRasterMessage) return;
    const auto& raster = static_cast<QCMYKContoneRaster&>(message);
    contone.push_back({raster, Bytes(raster.Data, raster.Data + raster.RowBytes)});
  });
  StartPage(chain, settings);
  for (auto& row : rows) row.Send(chain);
  EndPage(chain);
  return contone;
}

// Seconds that each library takes for a whole page, by its speed in these rows of `settings`'
// height.
template <class Raster>
Seconds Compare(const Libraries& libraries, const std::vector<std::string>& elements,
                const PageSettings& settings, const std::vector<OwnedRow<Raster>>& rows) {
  Chain fast(libraries.fast, SetupOf(elements));
  Chain plain(libraries.plain.Library(), SetupOf(elements));
  const std::array chains = {&fast, &plain};
  std::array<std::vector<double>, chains.size()> taken;
  for (Chain* chain : chains) StartPage(*chain, settings);
  const std::size_t bandRows = rows.size() / kBands;
  for (int band = 0; band < kBands; ++band) {
    ThrowIfInterrupted();
    const auto first = rows.begin() + static_cast<std::ptrdiff_t>(band * bandRows);
    for (std::size_t i = 0; i < chains.size(); ++i) {
      std::vector<OwnedRow<Raster>> sent(first, first + static_cast<std::ptrdiff_t>(bandRows));
      const double start = Now();
      for (auto& row : sent) row.Send(*chains[i]);
      if (band > 0) taken[i].push_back(Now() - start);
    }
  }
  for (Chain* chain : chains) EndPage(*chain);
  const double bandsOfPage = kHeightInches * settings.verticalDpi / kBandRows;
  return {.plain = Median(taken[1]) * bandsOfPage, .fast = Median(taken[0]) * bandsOfPage};
}

using ByContent = std::array<Seconds, std::size(kSampleContents)>;

struct Line {
  std::string name;
  const PrintMode* mode;
  int alternateMode;
  ByContent seconds;
};

Line MeasurePage(const Libraries& libraries, const PrintMode& mode) {
  const PageSettings settings = DefaultSettings(mode, 0);
  Line line{mode.name, &mode, 0, {}};
  for (std::size_t i = 0; i < line.seconds.size(); ++i) {
    line.seconds[i] =
        Compare(libraries, kWholeChain, settings, RowsOf(kSampleContents[i], settings));
  }
  return line;
}

Line MeasureKernel(const Libraries& libraries, const PrintMode& mode, int alternateMode,
                   const Kernel& kernel) {
  const PageSettings settings = DefaultSettings(mode, alternateMode);
  Line line{kernel.name, &mode, alternateMode, {}};
  for (std::size_t i = 0; i < line.seconds.size(); ++i) {
    const auto rows = ContoneRowsOf(libraries, settings, RowsOf(kSampleContents[i], settings));
    line.seconds[i] = Compare(libraries, {kWholeChain[1]}, settings, rows);
  }
  return line;
}

// Each kernel in the first mode and alternate mode that it halftones, in the order of the modes.
std::vector<Line> MeasureKernels(const Libraries& libraries,
                                 const std::vector<const PrintMode*>& modes) {
  std::vector<Line> lines;
  std::array<bool, kKernelCount> done = {};
  for (const PrintMode* mode : modes) {
    for (int a = 0; a < kAlternateModes; ++a) {
      const HalftoneRoutine* routine = FindHalftoneRoutine(mode->descriptor, a);
      bool& seen = done[static_cast<int>(routine->kernel)];
      if (!std::exchange(seen, true))
        lines.push_back(MeasureKernel(libraries, *mode, a, KernelOf(routine->kernel)));
    }
  }
  return lines;
}

std::string ProcessorName() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    const std::size_t colon = line.find(": ");
    if (line.starts_with("model name") && colon != std::string::npos)
      return Printable(line.substr(colon + 2));
  }
  return "unknown processor";
}

struct Report {
  std::string processor = ProcessorName();
  std::string date = fmt::format("{:%Y-%m-%d}", fmt::localtime(std::time(nullptr)));
  std::string level = NameOf(SelectedCpuLevel());
  std::vector<Line> kernels, pages;
};

std::string TableText(const char* title, const std::vector<Line>& lines) {
  std::string text = fmt::format("\n{}\n{:<38} {:>4} {:>3}", title, "", "mode", "uam");
  for (const SampleContent content : kSampleContents)
    text += fmt::format("  | {:>6}: plain   fast ratio", NameOf(content));
  text += '\n';
  for (const Line& line : lines) {
    text += fmt::format("{:<38} {:>4} {:>3}", line.name, static_cast<int>(line.mode->descriptor),
                        line.alternateMode);
    for (const Seconds& seconds : line.seconds) {
      text += fmt::format("  | {:>13.3f} {:>6.3f} {:>5.1f}", seconds.plain, seconds.fast,
                          seconds.Ratio());
    }
    text += '\n';
  }
  return text;
}

std::string Text(const Report& report) {
  std::string text = fmt::format(
      "corvane {} on {}, {}\n"
      "plain: without vector instructions; fast: {}. Seconds of one core for a page of A4.\n",
      CORVANE_VERSION, report.processor, report.date, report.level);
  text += TableText("Halftone kernels, contone rows to binary rows", report.kernels);
  text += TableText("Pages, RGB rows to printhead rows", report.pages);
  return text;
}

nlohmann::ordered_json LinesJson(const char* nameKey, const std::vector<Line>& lines) {
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const Line& line : lines) {
    nlohmann::ordered_json entry = {{nameKey, line.name},
                                    {"mode", static_cast<int>(line.mode->descriptor)},
                                    {"useAlternateModes", line.alternateMode}};
    for (std::size_t i = 0; i < line.seconds.size(); ++i) {
      const Seconds& seconds = line.seconds[i];
      entry[NameOf(kSampleContents[i])] = {{"plainSeconds", seconds.plain},
                                           {"fastSeconds", seconds.fast},
                                           {"ratio", seconds.Ratio()}};
    }
    all.push_back(std::move(entry));
  }
  return all;
}

std::string Json(const Report& report) {
  const nlohmann::ordered_json json = {{"version", CORVANE_VERSION},
                                       {"processor", report.processor},
                                       {"date", report.date},
                                       {"level", report.level},
                                       {"page", "A4"},
                                       {"kernels", LinesJson("kernel", report.kernels)},
                                       {"pages", LinesJson("name", report.pages)}};
  return JsonText(json) + '\n';
}

std::vector<const PrintMode*> ModesOf(const BenchOptions& options) {
  if (!options.mode.empty()) return {&ParsePrintMode(options.mode)};
  std::vector<const PrintMode*> modes;
  for (const PrintMode& mode : kPrintModes) modes.push_back(&mode);
  return modes;
}

}  // namespace

int RunBench(const BenchOptions& options) {
  const std::vector<const PrintMode*> modes = ModesOf(options);
  const Libraries libraries;
  Report report;
  report.kernels = MeasureKernels(libraries, modes);
  for (const PrintMode* mode : modes) report.pages.push_back(MeasurePage(libraries, *mode));
  WriteStandardOutput(options.json ? Json(report) : Text(report));
  return 0;
}

}  // namespace corvane
