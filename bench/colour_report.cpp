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
#include <memory>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/chain/chain.h"
#include "app/page/planes.h"
#include "app/page/settings.h"
#include "app/preview/dots.h"
#include "app/tables/best_inks.h"
#include "app/tables/builder.h"
#include "app/tables/grid.h"
#include "app/tables/lookup.h"
#include "halftone/routine_table.h"
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

constexpr std::uint32_t kPatch = 48;  // input rows
constexpr double kPictureDpi = 300;
constexpr std::uint32_t kBorder = 5;  // of a patch, pixels of the picture, not measured

struct PrintCondition {
  std::int32_t descriptor;
  int useAlternateModes;
  TableKey key;

  const PrintMode& Mode() const { return *FindPrintMode(descriptor); }
  // Of the input, across.
  std::uint32_t Dpi() const { return std::min<std::uint32_t>(kInputDpi, Mode().horizontalDpi); }
  std::uint32_t PatchWidth() const { return kPatch * Dpi() / kInputDpi; }
};

// A colour-table file without a directory, which holds one table.
class SingleTableFile {
 public:
  SingleTableFile() = default;
  SingleTableFile(const SingleTableFile&) = delete;
  SingleTableFile& operator=(const SingleTableFile&) = delete;
  ~SingleTableFile() { std::filesystem::remove(name_); }

  void Write(const std::vector<std::uint8_t>& table) const {
    std::ofstream file(name_, std::ios::binary);
    file.write("\0\0\0\0", 4);
    file.write(reinterpret_cast<const char*>(table.data()),
               static_cast<std::streamsize>(table.size()));
  }
  const std::string& Name() const { return name_; }

 private:
  std::string name_ =
      (std::filesystem::temp_directory_path() / fmt::format("corvane-report-{}.cvt", getpid()))
          .string();
};

// Patches in rows of `columns`, rendered one row of patches at a time.
class ChartPrinter {
 public:
  ChartPrinter(const PluginLibrary& library, const InkData& inks, const PrintModel& model,
               const PrintCondition& condition, const std::string& tableFile)
      : inks_(&inks), model_(model), condition_(condition), mode_(condition.Mode()) {
    ChainSetup setup;
    setup.host.SetProperty("ColorTableFilename", tableFile.c_str(), "Standard");
    chain_ = std::make_unique<Chain>(library, setup);
  }

  // The mean colour of each patch, Lab against the paper.
  std::vector<Triple> Print(const std::vector<Rgb8>& colours) {
    columns_ = static_cast<std::uint32_t>(std::ceil(std::sqrt(double(colours.size()))));
    const std::uint32_t patchRows =
        (static_cast<std::uint32_t>(colours.size()) + columns_ - 1) / columns_;
    width_ = columns_ * condition_.PatchWidth();
    height_ = patchRows * kPatch;
    sums_.assign(colours.size(), Triple{});
    counts_.assign(colours.size(), 0);

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
        const std::size_t patch = y / kPatch * columns_ + x / condition_.PatchWidth();
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
    set(start.Properties, "HorizontalInputResolution", condition_.Dpi());
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
    const std::uint32_t dpi = condition_.Dpi();
    const PageShape page =
        BinaryPageShape(mode_, condition_.useAlternateModes, width_, height_, dpi, kInputDpi);
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
    const PageWindow window = {0, 0, double(width_) / dpi, double(height_) / kInputDpi};
    renderer_ = std::make_unique<DotRenderer>(
        model_, planes, page.verticalDpi, window, kPictureDpi,
        [this, y = 0u](const RenderedRow& row) mutable { Measure(row, y++); });
  }

  void Take(const QRaster& raster) {
    if (!renderer_) MakeRenderer();
    renderer_->AddRow(raster.Data);
  }

  void Measure(const RenderedRow& row, std::uint32_t y) {
    const std::uint32_t wide =
        static_cast<std::uint32_t>(condition_.PatchWidth() * kPictureDpi / condition_.Dpi());
    constexpr auto kTall = static_cast<std::uint32_t>(kPatch * kPictureDpi / kInputDpi);
    const auto inside = [](std::uint32_t place, std::uint32_t size) {
      return place % size >= kBorder && place % size < size - kBorder;
    };
    if (!inside(y, kTall)) return;
    for (std::uint32_t x = 0; x < row.bands.size(); ++x) {
      const std::size_t patch = y / kTall * columns_ + x / wide;
      if (patch >= sums_.size() || !inside(x, wide)) continue;
      for (int band = 0; band < 3; ++band) sums_[patch][band] += row.bands[x][band];
      ++counts_[patch];
    }
  }

  const InkData* inks_;
  const PrintModel& model_;
  PrintCondition condition_;
  const PrintMode& mode_;
  std::unique_ptr<Chain> chain_;
  std::unique_ptr<DotRenderer> renderer_;
  std::uint32_t columns_ = 0, width_ = 0, height_ = 0;
  std::vector<Triple> sums_;
  std::vector<int> counts_;
};

void ReportChain(const TableBuilder& builder) {
  const PluginLibrary library;
  const SingleTableFile table;
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
    table.Write(reference.table);
    ChartPrinter printer(library, builder.Inks(), reference.model, condition, table.Name());
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
}

// -------------------------------------------------------------------------------------------------
// Tones

// The page that a mode prints by default, graphics on glossy paper, and one that uses every ink.
TableKey KeyOf(const PrintMode& mode, int alternateMode) {
  if (mode.inkSet == InkSet::Black) return {0, kGlossy, 0, 1, 1};
  if (DefaultPaperCharacteristics(mode) != 0) return {1, kGlossy, 0, 1, 1};
  const int quality = DefaultPrintQuality(mode, alternateMode) - 1;
  return {mode.inkSet == InkSet::Nine ? 3 : 2, kGlossy, 0, std::max(quality, 2), 1};
}

constexpr std::size_t kToneSteps = 16;

// Encoded greys from the lightest on, off the nodes of a table.
std::vector<std::uint8_t> ToneValues() {
  std::vector<std::uint8_t> values;
  for (int value = 247; value >= 0; value -= 16) values.push_back(static_cast<std::uint8_t>(value));
  return values;
}

// A table that prints one ink by the red channel, in proportion.
std::vector<std::uint8_t> TableOfInk(Ink ink, InkSet set) {
  if (set == InkSet::Black) {
    std::vector<std::uint8_t> curve(256);
    std::iota(curve.begin(), curve.end(), std::uint8_t{0});
    return curve;
  }
  std::vector<std::uint8_t> table(static_cast<std::size_t>(PlanesOf(set)) * kNodes);
  for (std::size_t node = 0; node < kNodes; ++node) {
    table[static_cast<std::size_t>(ink) * kNodes + node] =
        static_cast<std::uint8_t>(node / (kGrid * kGrid) * 255 / (kGrid - 1));
  }
  return table;
}

// A ramp as it was printed, against what its table says.
struct Tone {
  std::array<double, kToneSteps> contone{}, said{}, printed{};  // of an ink alone; L*; L*
  double MeanOff() const {
    double sum = 0;
    for (std::size_t i = 0; i < kToneSteps; ++i) sum += printed[i] - said[i];
    return sum / kToneSteps;
  }
};

// Prints ramps in one mode.
class TonePrinter {
 public:
  TonePrinter(const PluginLibrary& library, const InkData& inks, const PrintCondition& condition)
      : library_(library), inks_(inks), model_(inks, condition.key.media), condition_(condition) {}

  // Greys of a table; with `said`, against what that one says.
  Tone Greys(const std::vector<std::uint8_t>& table,
             const std::vector<std::uint8_t>& said = {}) const {
    return Print(table, said.empty() ? table : said, Ink::K, 1);
  }
  Tone InkAlone(Ink ink) const {
    const std::vector<std::uint8_t> table = TableOfInk(ink, condition_.Mode().inkSet);
    return Print(table, table, ink, condition_.Mode().inkSet == InkSet::Black ? 1 : 0);
  }

 private:
  Tone Print(const std::vector<std::uint8_t>& table, const std::vector<std::uint8_t>& said, Ink ink,
             bool grey) const {
    file_.Write(table);
    std::vector<Rgb8> colours;
    for (const std::uint8_t value : ToneValues()) {
      colours.push_back(grey ? Rgb8{value, value, value} : Rgb8{value, 255, 255});
    }
    ChartPrinter printer(library_, inks_, model_, condition_, file_.Name());
    const std::vector<Triple> labs = printer.Print(colours);
    Tone tone;
    for (std::size_t i = 0; i < kToneSteps; ++i) {
      const Contone contone = LookUp(said, colours[i]);
      tone.contone[i] = contone[static_cast<std::size_t>(ink)];
      tone.said[i] = LabFromBands(model_.Bands(AmountsOf(contone)))[0];
      tone.printed[i] = labs[i][0];
    }
    return tone;
  }

  const PluginLibrary& library_;
  const InkData& inks_;
  PrintModel model_;
  PrintCondition condition_;
  SingleTableFile file_;
};

// The curve that gives an ink the lightness that tables say it has, as far as it reaches: for each
// contone value the one that was printed so light, evened out over five steps of the ramp.
std::vector<std::array<int, 2>> CurveOf(const Tone& tone) {
  std::array<double, kToneSteps> moved{};
  for (std::size_t i = 0; i < kToneSteps; ++i) {
    double from = 0, light = 100, found = 255;
    for (std::size_t j = 0; j < kToneSteps; ++j) {
      const double darker = std::min(light, tone.printed[j]);
      if (darker <= tone.said[i]) {
        const double part = (light - tone.said[i]) / std::max(light - darker, 1e-9);
        found = from + std::clamp(part, 0.0, 1.0) * (tone.contone[j] - from);
        break;
      }
      from = tone.contone[j];
      light = darker;
    }
    moved[i] = found - tone.contone[i];
  }
  std::vector<std::array<int, 2>> points = {{0, 0}};
  for (std::size_t i = 0; i < kToneSteps; ++i) {
    double sum = 0, weights = 0;
    for (int step = -2; step <= 2; ++step) {
      const int at = std::clamp(static_cast<int>(i) + step, 0, static_cast<int>(kToneSteps) - 1);
      sum += (3 - std::abs(step)) * moved[static_cast<std::size_t>(at)];
      weights += 3 - std::abs(step);
    }
    const double value = std::clamp(tone.contone[i] + sum / weights, points.back()[1] + 1.0, 255.0);
    points.push_back({static_cast<int>(tone.contone[i]), static_cast<int>(std::lround(value))});
    if (points.back()[1] == 255) break;
  }
  if (points.back()[0] < 255) points.push_back({255, std::min(255, points.back()[1] + 8)});
  return points;
}

void WriteCurves(const std::vector<std::pair<Ink, std::vector<std::array<int, 2>>>>& curves,
                 const std::filesystem::path& path) {
  std::ofstream file(path);
  std::string text;
  for (const auto& [ink, points] : curves) {
    text += text.empty() ? "{\n" : ",\n";
    text += fmt::format("  \"{}\": [", kInkNames[static_cast<int>(ink)]);
    for (std::size_t i = 0; i < points.size(); ++i) {
      text += fmt::format("{}[{}, {}]", i ? ", " : "", points[i][0], points[i][1]);
    }
    text += "]";
  }
  file << text << "\n}\n";
}

// Whether a mode prints other rows with this alternate mode than with those before it.
bool IsOwn(const PrintMode& mode, int alternateMode) {
  for (int other = 0; other < alternateMode; ++other) {
    const AlternateMode &a = mode.Alternate(alternateMode), &b = mode.Alternate(other);
    if (a.layout == b.layout && a.halftoneDpi == b.halftoneDpi &&
        a.placing.firstExpansion == b.placing.firstExpansion &&
        a.placing.secondExpansion == b.placing.secondExpansion &&
        a.placing.rows == b.placing.rows &&
        FindHalftoneRoutine(mode.descriptor, alternateMode) ==
            FindHalftoneRoutine(mode.descriptor, other)) {
      return false;
    }
  }
  return true;
}

// How much lighter every mode prints than its table says, and what is left of that with curves for
// its inks, which go to a folder as files for `corvane table build --curves`.
void ReportTones(const TableBuilder& builder, const std::string& folder, int only) {
  const PluginLibrary library;
  fmt::print("Mean L* above what the table says: greys, with curves, largest, inks alone\n");
  for (const PrintMode& mode : kPrintModes) {
    for (int alternate = 0; alternate < kAlternateModes; ++alternate) {
      if (only != 0 && mode.descriptor != only) continue;
      if (!IsOwn(mode, alternate)) continue;
      const PrintCondition condition = {mode.descriptor, alternate, KeyOf(mode, alternate)};
      const TonePrinter printer(library, builder.Inks(), condition);
      const std::vector<std::uint8_t> table = builder.Build(condition.key);
      const Tone greys = printer.Greys(table);
      std::string inks;
      std::vector<std::pair<Ink, std::vector<std::array<int, 2>>>> curves;
      for (const Ink ink : PrintedInks(mode)) {
        const Tone tone = printer.InkAlone(ink);
        if (tone.printed.back() > 99.9) continue;  // none of it leaves this mode
        inks += fmt::format("{} {:.2f}  ", kInkNames[static_cast<int>(ink)], tone.MeanOff());
        if (DyeOf(ink) != Dye::Yellow) curves.emplace_back(ink, CurveOf(tone));
      }
      const std::filesystem::path path =
          std::filesystem::path(folder) / fmt::format("{}-{}.json", +mode.descriptor, alternate);
      WriteCurves(curves, path);
      TableSettings settings;
      settings.curves = ReadInkCurves(path);
      const TableBuilder curved(builder.Inks(), settings);
      const Tone after = printer.Greys(curved.Build(condition.key), table);
      const auto most = [](const Tone& tone) {
        double off = 0;
        for (std::size_t i = 0; i < kToneSteps; ++i) {
          off = std::max(off, std::abs(tone.printed[i] - tone.said[i]));
        }
        return off;
      };
      fmt::print("{:>4} {} {:>6.2f} {:>6.2f} {:>6.2f} {:>6.2f}   {}\n", +mode.descriptor, alternate,
                 greys.MeanOff(), after.MeanOff(), most(greys), most(after), inks);
      std::fflush(stdout);
    }
  }
}

}  // namespace
}  // namespace corvane

// `corvane_colour_report [INKS.json]`, or `corvane_colour_report tones FOLDER [MODE]`.
int main(int argc, char** argv) {
  if (argc > 2 && std::string_view(argv[1]) == "tones") {
    corvane::ReportTones(corvane::TableBuilder(corvane::DefaultInkData()), argv[2],
                         argc > 3 ? std::atoi(argv[3]) : 0);
    return 0;
  }
  const corvane::TableBuilder builder(argc > 1 ? corvane::ReadInkData(argv[1])
                                               : corvane::DefaultInkData());
  corvane::ReportTables(builder);
  corvane::ReportAllTables(builder);
  corvane::ReportChain(builder);
}
