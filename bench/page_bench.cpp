// SPDX-License-Identifier: MIT
//
// A page as a whole: the chain alone, rows in memory to rows in memory, and the command against
// what decoding its image and writing its file cost alone. The instruction level is the one that
// the plug-in chooses; CORVANE_CPU lowers it.

#include <benchmark/benchmark.h>
#include <png.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "app/chain/chain.h"
#include "app/commands/print.h"
#include "app/commands/print_page.h"
#include "app/image/reader.h"
#include "app/output/tiff.h"
#include "app/page/sample_rows.h"
#include "app/page/settings.h"
#include "app/support/output_stage.h"
#include "app/tables/default_table.h"
#include "printmode/print_modes.h"

namespace {

using namespace corvane;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kWidth = 4960, kHeight = 7016;  // A4 at 600 dpi

Bytes PhotoRow(std::uint32_t y) { return SampleRow(SampleContent::Photo, kWidth, y); }

ChainSetup DefaultSetup() {
  ChainSetup setup;
  setup.host.SetProperty("ColorTableFilename", DefaultColorTable().c_str(), "Standard");
  return setup;
}

constexpr std::uint32_t kBandRows = 256;

std::vector<Bytes> BandOfPhoto() {
  std::vector<Bytes> rows;
  for (std::uint32_t y = 0; y < kBandRows; ++y) rows.push_back(PhotoRow(y));
  return rows;
}

// A page of `count` rows, the band again and again. False: the chain refused it.
bool SendRows(Chain& chain, const PageSettings& settings, std::vector<Bytes>& band,
              std::uint32_t count) {
  QStartPage start = MakeStartPage(settings, kWidth);
  if (chain.Send(start) == 0) return false;
  QRaster raster;
  raster.RasterFormat = 1;
  raster.EndPixel = raster.Width = kWidth;
  raster.RowBytes = 3 * kWidth;
  for (std::uint32_t y = 0; y < count; ++y) {
    raster.Row = y;
    raster.Data = band[y % band.size()].data();
    chain.Send(raster);
  }
  ZCOM::QObject end(kEndPageMessage);
  chain.Send(end);
  return true;
}

// A band of a page through the chain; "page_s" is the whole page at that speed.
void SendPage(benchmark::State& state, int mode, int alternateMode) {
  std::vector<Bytes> band = BandOfPhoto();
  const PluginLibrary library;
  Chain chain(library, DefaultSetup());
  for (auto _ : state) {
    if (!SendRows(chain, DefaultSettings(*FindPrintMode(mode), alternateMode), band, kBandRows)) {
      state.SkipWithError("the chain refused the page");
      return;
    }
  }
  state.counters["page_s"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * kBandRows / kHeight,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.SetItemsProcessed(state.iterations() * kBandRows * kWidth);
}
BENCHMARK_CAPTURE(SendPage, mode, 8, 0)
    ->Name("page/chain/8_K_600x600")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SendPage, mode, 48, 0)
    ->Name("page/chain/48_K_1200x1200")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SendPage, mode, 79, 0)
    ->Name("page/chain/79_K_4800x1200")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SendPage, mode, 12, 0)
    ->Name("page/chain/12_CcMmYyK_600x600")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SendPage, mode, 54, 0)
    ->Name("page/chain/54_CcMmYyK_1200x1200")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SendPage, mode, 83, 0)
    ->Name("page/chain/83_CcMmYyK_4800x1200")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SendPage, mode, 108, 0)
    ->Name("page/chain/108_CcMmYycmK_1200x1200")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SendPage, mode, 109, 0)
    ->Name("page/chain/109_CcMmYycmK_4800x1200")
    ->Unit(benchmark::kMillisecond);

// -----------------------------------------------------------------------------------------------

// Seconds of processor time of all threads: what one core would take.
double CpuSeconds() {
  timespec time = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double WallSeconds() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

// The least that an action took.
struct Least {
  double processor = 1e9, wall = 1e9;  // seconds

  template <typename Action>
  void Of(Action action) {
    const double processorStart = CpuSeconds(), wallStart = WallSeconds();
    action();
    wall = std::min(wall, WallSeconds() - wallStart);
    processor = std::min(processor, CpuSeconds() - processorStart);
  }
};

void WritePng(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file);
  png_set_compression_level(png, 3);
  png_set_IHDR(png, info, kWidth, kHeight, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (std::uint32_t y = 0; y < kHeight; ++y) png_write_row(png, PhotoRow(y).data());
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  std::fclose(file);
}

class KeptRows : public PageSink {
 public:
  void StartPage(const PageShape& page) override { shape = page; }
  void WriteRow(const std::uint8_t* row) override {
    rows.insert(rows.end(), row, row + shape.rowBytes);
  }
  void EndPage() override {}

  PageShape shape;
  Bytes rows;
};

// An A4 page from a PNG file to a TIFF file, against decoding, the chain and writing alone, each
// from or to memory. "cpu_ratio": in processor time, against decoding and writing. "wall_ratio": by
// the clock, against the slowest of the three, beside which the others have to find room.
void Command(benchmark::State& state, int mode) {
  std::string folder = (std::filesystem::temp_directory_path() / "corvane-bench-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) return state.SkipWithError("no temporary folder");
  const std::string image = folder + "/page.png";
  WritePng(image);

  PageJob job;
  job.image = job.title = image;
  job.paper = ParsePaperSize("A4");
  job.settings = DefaultSettings(*FindPrintMode(mode), 0);
  job.colorTable = DefaultColorTable();
  const PluginLibrary library;
  Chain chain(library, DefaultSetup());
  KeptRows kept;
  {
    PageReceivers receivers;
    receivers.binary.push_back(&kept);
    PrintPage(job, nullptr, chain, receivers);
  }

  PrintOptions options;
  options.inputs = {image};
  options.output = folder + "/page.tif";
  options.mode = std::to_string(mode);
  options.quiet = true;
  std::vector<Bytes> band = BandOfPhoto();
  Chain unheard(library, DefaultSetup());
  Least decode, convert, write, command;
  for (auto _ : state) {
    decode.Of([&] {
      const auto reader = OpenImage(image);
      Bytes row(reader->Info().RowBytes());
      for (std::uint32_t y = 0; y < reader->Info().height; ++y) reader->ReadRow(row.data());
    });
    convert.Of([&] { SendRows(unheard, job.settings, band, kHeight); });
    write.Of([&] {
      OutputStage stage;
      TiffSink sink(stage.Create(folder + "/alone.tif"),
                    static_cast<int>(std::thread::hardware_concurrency()));
      sink.StartPage(kept.shape);
      for (std::uint32_t y = 0; y < kept.shape.rows; ++y) {
        sink.WriteRow(kept.rows.data() + std::size_t{y} * kept.shape.rowBytes);
      }
      sink.EndPage();
    });
    command.Of([&] { RunPrint(options); });
  }
  state.counters["decode_s"] = decode.wall;
  state.counters["chain_s"] = convert.wall;
  state.counters["write_s"] = write.wall;
  state.counters["command_s"] = command.wall;
  state.counters["all_cpu_s"] = decode.processor + convert.processor + write.processor;
  state.counters["command_cpu_s"] = command.processor;
  state.counters["cpu_ratio"] = command.processor / (decode.processor + write.processor);
  state.counters["wall_ratio"] = command.wall / std::max({decode.wall, convert.wall, write.wall});
  std::filesystem::remove_all(folder);
}
BENCHMARK_CAPTURE(Command, mode, 8)
    ->Name("page/command/8_K_600x600")
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Command, mode, 54)
    ->Name("page/command/54_CcMmYyK_1200x1200")
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

}  // namespace
