// SPDX-License-Identifier: MIT
//
// How true the colours come out: prints the figures of docs/colour.md.
//
// A chart of colours is looked up in the tables, and sent through the whole chain and rendered dot
// by dot; what comes out is compared with what was wanted. Everything is the ink model: the figures
// say how well tables, halftoning and dot placement keep to it, not how a printer prints.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "app/chain/chain.h"
#include "app/page/planes.h"
#include "app/preview/dots.h"
#include "app/tables/best_inks.h"
#include "app/tables/builder.h"
#include "app/tables/lookup.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

constexpr int kGlossy = 2;
constexpr std::uint32_t kInputDpi = 600;

Triple LinearOf(const Rgb8& rgb) {
  return LinearFromSrgb({rgb[0] / 255.0, rgb[1] / 255.0, rgb[2] / 255.0});
}

Triple WantedLab(const Rgb8& rgb) { return LabFromBands(BandsFromLinearSrgb(LinearOf(rgb))); }

struct Figures {
  double mean = 0, most95 = 0, largest = 0;
};

Figures FiguresOf(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  Figures figures;
  for (const double value : values) figures.mean += value / static_cast<double>(values.size());
  figures.most95 = values[values.size() * 95 / 100];
  figures.largest = values.back();
  return figures;
}

// A table and the inks it was made for.
struct TableView {
  TableView(const TableBuilder& builder, const TableKey& key)
      : model(builder.Inks(), key.media), table(builder.Build(key)) {}

  PrintModel model;
  std::vector<std::uint8_t> table;
};

// The same with what the inks can show.
struct Reference : TableView {
  Reference(const TableBuilder& builder, const TableKey& key)
      : TableView(builder, key),
        rules(builder.RulesOf(key)),
        best(model, {rules.nineInks, rules.blackInk, rules.inkLimit}) {}

  bool Contains(const Rgb8& rgb) const { return best.CanPrint(WantedLab(rgb)); }

  SeparationRules rules;
  BestInks best;
};

// sRGB colours between the nodes of the tables that the print can show.
std::vector<Rgb8> ChartColours(const Reference& reference) {
  std::vector<Rgb8> colours;
  for (int r = 6; r < 256; r += 16) {
    for (int g = 7; g < 256; g += 16) {
      for (int b = 8; b < 256; b += 16) {
        const Rgb8 rgb = {static_cast<std::uint8_t>(r), static_cast<std::uint8_t>(g),
                          static_cast<std::uint8_t>(b)};
        if (reference.Contains(rgb)) colours.push_back(rgb);
      }
    }
  }
  return colours;
}

std::vector<Rgb8> GreyColours(const Reference& reference) {
  std::vector<Rgb8> colours;
  for (int v = 0; v < 256; v += 3) {
    const auto grey = static_cast<std::uint8_t>(v);
    if (reference.Contains({grey, grey, grey})) colours.push_back({grey, grey, grey});
  }
  return colours;
}

// -------------------------------------------------------------------------------------------------
// The tables alone

Triple TableLab(const Reference& reference, const Rgb8& rgb) {
  return LabFromBands(reference.model.Bands(AmountsOf(LookUp(reference.table, rgb))));
}

struct Ramp {
  const char* name;
  Rgb8 channels;  // 1 where the channel varies
};
constexpr Ramp kRamps[] = {{"grey", {1, 1, 1}},  {"red", {1, 0, 0}},  {"green", {0, 1, 0}},
                           {"blue", {0, 0, 1}},  {"cyan", {0, 1, 1}}, {"magenta", {1, 0, 1}},
                           {"yellow", {1, 1, 0}}};

// Steps of lightness along 256 colours from the darkest on: how often lightness falls, and the
// largest step as a multiple of the mean of its two neighbours.
struct Smoothness {
  int falls = 0;
  double largestFall = 0, largestRatio = 0;
};

// Along the interpolated amounts of a table, or these cut to the whole contone values of a page.
enum class RampOf { Table, Page };

Smoothness SmoothnessOf(const TableView& view, const Ramp& ramp, bool tint, RampOf of) {
  std::vector<double> steps;
  double last = 0;
  for (int v = 0; v < 256; ++v) {
    Rgb8 rgb;
    for (int i = 0; i < 3; ++i) {
      const int varying = tint ? 1 - ramp.channels[i] : ramp.channels[i];
      const int fixed = tint ? 255 : 0;
      rgb[i] = static_cast<std::uint8_t>(varying ? v : fixed);
    }
    const InkAmounts amounts = of == RampOf::Table ? InterpolatedAmounts(view.table, rgb)
                                                   : AmountsOf(LookUp(view.table, rgb));
    const double lightness = LabFromBands(view.model.Bands(amounts))[0];
    if (v > 0) steps.push_back(lightness - last);
    last = lightness;
  }
  Smoothness smoothness;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (steps[i] < -1e-9) ++smoothness.falls;
    smoothness.largestFall = std::max(smoothness.largestFall, -steps[i]);
    if (i == 0 || i + 1 == steps.size()) continue;
    const double neighbours = (std::abs(steps[i - 1]) + std::abs(steps[i + 1])) / 2;
    if (std::abs(steps[i]) > 1e-9) {
      smoothness.largestRatio =
          std::max(smoothness.largestRatio, std::abs(steps[i]) / std::max(neighbours, 1e-9));
    }
  }
  return smoothness;
}

void ReportTables(const TableBuilder& builder) {
  fmt::print("Tables alone, glossy paper\n");
  for (const TableKey& key :
       {TableKey{2, kGlossy, 0, 1, 0}, TableKey{2, kGlossy, 0, 2, 1}, TableKey{2, kGlossy, 1, 1, 0},
        TableKey{1, kGlossy, 0, 1, 0}, TableKey{3, kGlossy, 0, 2, 0}, TableKey{3, kGlossy, 0, 3, 1},
        TableKey{2, 0, 0, 1, 0}}) {
    const Reference reference(builder, key);
    fmt::print("  ink class {}, medium {}, {}, quality {}, {}\n", key.inkClass, key.media + 1,
               key.preference ? "vivid" : "natural", key.quality + 1,
               key.intent ? "colorimetric" : "perceptual");
    if (key.intent == 1) {
      const std::vector<Rgb8> colours = ChartColours(reference);
      std::vector<double> differences;
      for (const Rgb8& rgb : colours) {
        differences.push_back(DeltaE2000(WantedLab(rgb), TableLab(reference, rgb)));
      }
      const Figures figures = FiguresOf(differences);
      fmt::print("    {} colours: mean {:.2f}, 95 % {:.2f}, largest {:.2f}\n", colours.size(),
                 figures.mean, figures.most95, figures.largest);
    }
    for (const bool tint : {false, true}) {
      fmt::print("    {}", tint ? "from colour to white" : "from black to colour");
      for (const Ramp& ramp : kRamps) {
        if (tint && ramp.channels == Rgb8{1, 1, 1}) continue;
        const Smoothness smoothness = SmoothnessOf(reference, ramp, tint, RampOf::Table);
        fmt::print("  {} {:.2f}", ramp.name, smoothness.largestRatio);
        if (smoothness.falls)
          fmt::print(" [{} falls, to {:.4f}]", smoothness.falls, smoothness.largestFall);
      }
      fmt::print("\n");
    }
  }
}

// Every table that differs: the most ink that a colour gets, as a part of the table's limit (a
// colour between nodes gets a mean of theirs, cut down to whole values: the nodes have the most),
// and the unevenness of the ramps.
void ReportAllTables(const TableBuilder& builder) {
  double mostInk = 0;
  int tables = 0;
  struct {
    int ramps = 0, falling = 0, fallingPage = 0;
    double largestFall = 0, largestFallPage = 0, largestRatio = 0;
  } byIntent[2];
  for (int place = 0; place < kTableCount; ++place) {
    const TableKey key = TableKeyOf(place);
    if (key.inkClass == 0 || builder.Representative(key) != key) continue;
    const TableView view(builder, key);
    ++tables;
    for (std::size_t node = 0; node < 4913; ++node) {
      double total = 0;
      for (std::size_t at = node; at < view.table.size(); at += 4913) total += view.table[at];
      mostInk = std::max(mostInk, total / 255.0 / builder.InkLimit(key));
    }
    auto& figures = byIntent[key.intent];
    for (const bool tint : {false, true}) {
      for (const Ramp& ramp : kRamps) {
        if (tint && ramp.channels == Rgb8{1, 1, 1}) continue;
        const Smoothness smoothness = SmoothnessOf(view, ramp, tint, RampOf::Table);
        ++figures.ramps;
        figures.falling += smoothness.falls > 0;
        figures.largestFall = std::max(figures.largestFall, smoothness.largestFall);
        figures.largestRatio = std::max(figures.largestRatio, smoothness.largestRatio);
        const Smoothness page = SmoothnessOf(view, ramp, tint, RampOf::Page);
        figures.fallingPage += page.falls > 0;
        figures.largestFallPage = std::max(figures.largestFallPage, page.largestFall);
      }
    }
  }
  fmt::print("\nAll {} colour tables: most ink {:.2f} % of the limit\n", tables, mostInk * 100);
  for (int intent = 0; intent < 2; ++intent) {
    const auto& figures = byIntent[intent];
    fmt::print(
        "  {} ramps, {}: largest step {:.2f} times its neighbours; {} fall, by {:.4f} at most; "
        "cut to whole contone values {} fall, by {:.2f} at most\n",
        figures.ramps, intent ? "colorimetric" : "perceptual", figures.largestRatio,
        figures.falling, figures.largestFall, figures.fallingPage, figures.largestFallPage);
  }
}

// -------------------------------------------------------------------------------------------------
// Through the chain

struct PlaneGeometry {
  std::vector<DropPlane> planes;
  double verticalDpi = 0;
};

constexpr std::uint32_t kPatch = 48;   // input pixels
constexpr std::uint32_t kBorder = 10;  // of a patch, not measured

struct PrintCondition {
  std::int32_t descriptor;
  int useAlternateModes;
  TableKey key;
};

// Patches in rows of `columns`, rendered one row of patches at a time.
class ChartPrinter {
 public:
  ChartPrinter(const PluginLibrary& library, const InkData& inks, const Reference& reference,
               const PrintCondition& condition, const std::string& tableFile)
      : inks_(&inks),
        reference_(reference),
        condition_(condition),
        mode_(*FindPrintMode(condition.descriptor)) {
    ChainSetup setup;
    setup.host.SetProperty("ColorTableFilename", tableFile.c_str(), "Standard");
    chain_ = std::make_unique<Chain>(library, setup);
  }

  // The mean colour of each patch, Lab against the paper.
  std::vector<Triple> Print(const std::vector<Rgb8>& colours) {
    columns_ = static_cast<std::uint32_t>(std::ceil(std::sqrt(double(colours.size()))));
    const std::uint32_t patchRows =
        (static_cast<std::uint32_t>(colours.size()) + columns_ - 1) / columns_;
    width_ = columns_ * kPatch;
    height_ = patchRows * kPatch;
    sums_.assign(colours.size(), Triple{});
    counts_.assign(colours.size(), 0);
    pictureRow_ = 0;

    chain_->ObserveOutput([this](ZCOM::QObject& message) {
      if (message.MessageKind == kErrorMessage) throw std::runtime_error("the chain failed");
      if (message.MessageKind == kBinaryRasterMessage) Take(static_cast<QRaster&>(message));
    });
    Start();
    std::vector<std::uint8_t> row(3 * width_);
    QRaster raster;
    raster.RasterFormat = 1;
    raster.EndPixel = raster.Width = width_;
    raster.RowBytes = 3 * width_;
    raster.Data = row.data();
    for (std::uint32_t y = 0; y < height_; ++y) {
      for (std::uint32_t x = 0; x < width_; ++x) {
        const std::size_t patch = y / kPatch * columns_ + x / kPatch;
        const Rgb8 white = {255, 255, 255};
        const Rgb8& colour = patch < colours.size() ? colours[patch] : white;
        std::copy(colour.begin(), colour.end(), row.begin() + 3 * x);
      }
      raster.Row = y;
      chain_->Send(raster);
    }
    ZCOM::QObject end(kEndPageMessage);
    chain_->Send(end);
    renderer_->Finish();
    renderer_.reset();

    std::vector<Triple> labs;
    for (std::size_t i = 0; i < sums_.size(); ++i) {
      Triple bands = sums_[i];
      for (double& band : bands) band /= counts_[i];
      labs.push_back(LabFromBands(bands));
    }
    return labs;
  }

 private:
  void Start() {
    QStartPage start;
    const auto set = [&](ZCOM::PROPERTIES& bag, const char* name, unsigned long value) {
      bag.SetProperty(name, value, "Standard");
    };
    set(start.Properties, "ZRXRasterFormat", 1);
    set(start.Properties, "MediaType", static_cast<unsigned>(condition_.key.media + 1));
    set(start.Properties, "PrintQuality", static_cast<unsigned>(condition_.key.quality + 1));
    set(start.Properties, "PrintableWidth", width_);
    set(start.Properties, "HorizontalInputResolution", kInputDpi);
    set(start.Properties, "VerticalInputResolution", kInputDpi);
    set(start.Properties, "UseAlternateModes", static_cast<unsigned>(condition_.useAlternateModes));
    set(start.PageProperties, "CMYKBinaryDescriptor", static_cast<unsigned>(mode_.descriptor));
    set(start.PageProperties, "NumberOfPlanes",
        NumberOfPlanes(mode_, condition_.useAlternateModes));
    set(start.PageProperties, "Slot1HorizontalRes", mode_.horizontalDpi);
    set(start.PageProperties, "Slot2HorizontalRes", mode_.horizontalDpi);
    if (chain_->Send(start) == 0) throw std::runtime_error("the chain refused the page");
  }

  // The planes as they leave the chain.
  void MakeRenderer() {
    const PageShape page =
        BinaryPageShape(mode_, condition_.useAlternateModes, width_, height_, kInputDpi, kInputDpi);
    std::vector<DropPlane> planes;
    for (const PlaneShape& sent : page.planes) {
      DropPlane plane;
      plane.ink = sent.ink;
      plane.drops = 1 << sent.bit;
      plane.offset = sent.offset;
      plane.width = sent.width;
      plane.horizontalDpi = sent.horizontalDpi;
      plane.picolitres = DropPicolitres(*inks_, mode_, sent.ink);
      planes.push_back(plane);
    }
    const PageWindow window = {0, 0, double(width_) / kInputDpi, double(height_) / kInputDpi};
    renderer_ = std::make_unique<DotRenderer>(reference_.model, planes, page.verticalDpi, window,
                                              double(kInputDpi) / 2,
                                              [this](const RenderedRow& row) { Measure(row); });
  }

  void Take(const QRaster& raster) {
    if (!renderer_) MakeRenderer();
    renderer_->AddRow(raster.Data);
  }

  void Measure(const RenderedRow& row) {
    const auto inside = [](std::uint32_t place) {
      const std::uint32_t at = 2 * place % kPatch;
      return at >= kBorder && at < kPatch - kBorder;
    };
    const std::uint32_t y = pictureRow_++;
    if (!inside(y)) return;
    for (std::uint32_t x = 0; x < row.bands.size(); ++x) {
      const std::size_t patch = 2 * y / kPatch * columns_ + 2 * x / kPatch;
      if (patch >= sums_.size() || !inside(x)) continue;
      for (int band = 0; band < 3; ++band) sums_[patch][band] += row.bands[x][band];
      ++counts_[patch];
    }
  }

  const InkData* inks_;
  const Reference& reference_;
  PrintCondition condition_;
  const PrintMode& mode_;
  std::unique_ptr<Chain> chain_;
  std::unique_ptr<DotRenderer> renderer_;
  std::uint32_t columns_ = 0, width_ = 0, height_ = 0, pictureRow_ = 0;
  std::vector<Triple> sums_;
  std::vector<int> counts_;
};

void ReportChain(const TableBuilder& builder) {
  const PluginLibrary library;
  const std::string tableFile =
      (std::filesystem::temp_directory_path() / fmt::format("corvane-report-{}.cvt", getpid()))
          .string();
  fmt::print("\nThrough table, conversion, halftoning, dot placement and preview\n");
  fmt::print("{:>8} {:>8} {:>7} {:>7} {:>7} | {:>6} {:>7} {:>7} {:>10} {:>7}\n", "mode", "colours",
             "mean", "95 %", "largest", "greys", "mean", "largest", "chroma off", "s");
  for (const PrintCondition& condition :
       {PrintCondition{12, 0, {2, kGlossy, 0, 1, 1}}, PrintCondition{53, 0, {2, kGlossy, 0, 2, 1}},
        PrintCondition{54, 0, {2, kGlossy, 0, 2, 1}}, PrintCondition{83, 0, {2, kGlossy, 0, 2, 1}},
        PrintCondition{108, 0, {3, kGlossy, 0, 2, 1}},
        PrintCondition{109, 1, {3, kGlossy, 0, 3, 1}},
        PrintCondition{111, 0, {3, kGlossy, 0, 2, 1}}}) {
    const auto begin = std::chrono::steady_clock::now();
    const Reference reference(builder, condition.key);
    // A file without a directory holds one table.
    std::ofstream file(tableFile, std::ios::binary);
    file.write("\0\0\0\0", 4);
    file.write(reinterpret_cast<const char*>(reference.table.data()),
               static_cast<std::streamsize>(reference.table.size()));
    file.close();

    ChartPrinter printer(library, builder.Inks(), reference, condition, tableFile);
    const std::vector<Rgb8> colours = ChartColours(reference), greys = GreyColours(reference);
    const auto compare = [&](const std::vector<Rgb8>& chart, double* chromaOff) {
      const std::vector<Triple> printed = printer.Print(chart);
      std::vector<double> differences;
      for (std::size_t i = 0; i < chart.size(); ++i) {
        const Triple wanted = WantedLab(chart[i]);
        differences.push_back(DeltaE2000(wanted, printed[i]));
        if (chromaOff) {
          *chromaOff = std::max(*chromaOff,
                                std::hypot(printed[i][1] - wanted[1], printed[i][2] - wanted[2]));
        }
      }
      return FiguresOf(differences);
    };
    double chromaOff = 0;
    const Figures all = compare(colours, nullptr), grey = compare(greys, &chromaOff);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    fmt::print(
        "{:>8} {:>8} {:>7.2f} {:>7.2f} {:>7.2f} | {:>6} {:>7.2f} {:>7.2f} {:>10.2f} {:>7.1f}\n",
        condition.useAlternateModes
            ? fmt::format("{} ({})", condition.descriptor, condition.useAlternateModes)
            : fmt::format("{}", condition.descriptor),
        colours.size(), all.mean, all.most95, all.largest, greys.size(), grey.mean, grey.largest,
        chromaOff, seconds);
    std::fflush(stdout);
  }
  std::filesystem::remove(tableFile);
}

}  // namespace
}  // namespace corvane

int main(int argc, char** argv) {
  const corvane::TableBuilder builder(argc > 1 ? corvane::ReadInkData(argv[1])
                                               : corvane::DefaultInkData());
  corvane::ReportTables(builder);
  corvane::ReportAllTables(builder);
  corvane::ReportChain(builder);
}
