// SPDX-License-Identifier: MIT
#include "app/calibration/reference.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

#include "app/calibration/spectrum.h"
#include "app/page/settings.h"
#include "app/support/failure.h"

namespace corvane {
namespace {

// The inks in the order and with the names that the files have; "2" marks a medium ink.
struct NamedInk {
  Ink ink;
  const char* name;
};
constexpr NamedInk kNamedInks[kInkCount] = {{Ink::C, "C"}, {Ink::M, "M"},   {Ink::Y, "Y"},
                                            {Ink::K, "K"}, {Ink::c, "c"},   {Ink::m, "m"},
                                            {Ink::y, "y"}, {Ink::cd, "2c"}, {Ink::md, "2m"}};
// The medium of a chart, by its word; not every program hands it on.
constexpr const char* kMediaKeyword = "CORVANE_MEDIA";

// Kinds of files.
constexpr const char *kTargetValues = "CTI1", *kPlacedTarget = "CTI2", *kMeasurement = "CTI3";

constexpr std::size_t kLargestFile = 64u << 20;

std::vector<NamedInk> InOrder(std::span<const Ink> inks) {
  std::vector<NamedInk> ordered;
  for (const NamedInk& named : kNamedInks) {
    if (std::find(inks.begin(), inks.end(), named.ink) != inks.end()) ordered.push_back(named);
  }
  return ordered;
}

// ---------------------------------------------------------------------------------------------
// Writing

// With so many digits that the patches come out the same from it.
std::string LimitText(const ChartChoice& choice) {
  return fmt::format("{:.12g}", choice.inkLimit * 100);
}

void AddMedia(const ChartChoice& choice, CgatsTable& table) {
  if (!choice.media) return;
  table.keywords.emplace_back("KEYWORD", kMediaKeyword);
  table.keywords.emplace_back(kMediaKeyword, SettingText(kMediaType, *choice.media + 1));
}

std::string Percent(std::uint8_t level) { return fmt::format("{:.4f}", level / 2.55); }

std::vector<std::string> ExpectedXyz(const PrintModel& model, const Contone& levels) {
  const Triple bands = model.Bands(AmountsOf(levels));
  Triple absolute;
  for (int band = 0; band < 3; ++band) absolute[band] = bands[band] * model.PaperBands()[band];
  const Triple xyz = XyzFromBands(absolute);
  return {fmt::format("{:.4f}", xyz[0] * 100), fmt::format("{:.4f}", xyz[1] * 100),
          fmt::format("{:.4f}", xyz[2] * 100)};
}

void AddFields(const std::vector<NamedInk>& inks, const std::string& combination,
               CgatsTable& table) {
  for (const NamedInk& ink : inks) {
    table.fields.push_back(fmt::format("{}_{}", combination, ink.name));
  }
  for (const char* field : {"XYZ_X", "XYZ_Y", "XYZ_Z"}) table.fields.emplace_back(field);
}

void AddValues(const std::vector<NamedInk>& inks, const PrintModel& model, const Contone& levels,
               CgatsRow& row) {
  for (const NamedInk& ink : inks) row.values.push_back(Percent(levels[static_cast<int>(ink.ink)]));
  for (std::string& value : ExpectedXyz(model, levels)) row.values.push_back(std::move(value));
}

CgatsTable TargetTable(const ChartChoice& choice, const PrintModel& model, const char* about) {
  const Triple paper = XyzFromBands(model.PaperBands());
  CgatsTable table;
  table.keywords = {{"DESCRIPTOR", about},
                    {"ORIGINATOR", "Corvane"},
                    {"APPROX_WHITE_POINT", fmt::format("{:.4f} {:.4f} {:.4f}", paper[0] * 100,
                                                       paper[1] * 100, paper[2] * 100)},
                    {"COLOR_REP", InkCombination(choice.inks)},
                    {"TOTAL_INK_LIMIT", LimitText(choice)}};
  AddMedia(choice, table);
  return table;
}

// What the corners of the cube of dyes look like, and the middle if that is asked for: programs
// judge by them whether strips can be told apart.
CgatsTable CornersTable(const ChartChoice& choice, const PrintModel& model, const char* keyword,
                        bool middle) {
  CgatsTable table;
  const std::vector<NamedInk> inks = InOrder(choice.inks);
  table.keywords = {{"DESCRIPTOR", "Corners of the inks"}, {"ORIGINATOR", "Corvane"}};
  table.fields.emplace_back("INDEX");
  AddFields(inks, InkCombination(choice.inks), table);
  constexpr int kCorners = 8;
  constexpr Ink kDark[3] = {Ink::C, Ink::M, Ink::Y};
  for (int corner = 0; corner < kCorners + (middle ? 1 : 0); ++corner) {
    Contone levels{};
    for (int dye = 0; dye < 3; ++dye) {
      const bool has =
          std::find(choice.inks.begin(), choice.inks.end(), kDark[dye]) != choice.inks.end();
      const bool full = (corner >> dye & 1) != 0;
      if (has) levels[static_cast<int>(kDark[dye])] = corner == kCorners ? 128 : full ? 255 : 0;
    }
    CgatsRow row;
    row.values.push_back(fmt::format("{}", corner));
    AddValues(inks, model, levels, row);
    table.rows.push_back(std::move(row));
  }
  table.keywords.emplace_back(keyword, fmt::format("{}", table.rows.size()));
  return table;
}

// ---------------------------------------------------------------------------------------------
// Reading

// Where the columns of a measurement are.
struct Columns {
  std::size_t id = 0;
  std::optional<std::size_t> location;
  std::vector<std::pair<Ink, std::size_t>> inks;
  std::vector<std::size_t> spectrum;
  double firstNm = 0, stepNm = 10, spectralScale = 100;
  std::array<std::optional<std::size_t>, 3> xyz, lab;
};

double NumberOf(const std::string& text, const std::string& place) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || !std::isfinite(number)) {
    throw Failure(fmt::format("{}: \"{}\" is not a number", place, text));
  }
  return number;
}

// The wavelength that a field's name ends with, as in nm380 or SPECTRAL_NM_380: programs differ in
// what stands in front of the three digits.
std::optional<double> WavelengthOf(const std::string& field) {
  constexpr std::size_t kDigits = 3;
  const std::size_t digits = field.find_last_not_of("0123456789") + 1;
  if (digits == 0 || digits + kDigits != field.size()) return std::nullopt;
  return NumberOf(field.substr(digits), field);
}

// The names carry whole nanometres, so that steps of 3.33 nm are not quite even in them.
void CheckEven(const std::vector<double>& wavelengths, double step, const std::string& name) {
  constexpr double kRounding = 1.0;
  bool even = true;
  std::size_t gap = 1;  // the least even one, before this wavelength
  const auto unevenness = [&](std::size_t i) {
    return std::abs(wavelengths[i] - wavelengths[i - 1] - step);
  };
  for (std::size_t i = 1; i < wavelengths.size(); ++i) {
    const double expected = wavelengths[0] + step * static_cast<double>(i);
    even = even && std::abs(wavelengths[i] - expected) <= kRounding;
    if (unevenness(i) > unevenness(gap)) gap = i;
  }
  if (even) return;
  throw Failure(fmt::format("{}: the spectra are in no even steps: {} nm follows on {} nm", name,
                            wavelengths[gap], wavelengths[gap - 1]));
}

void FindSpectrum(const CgatsTable& table, const std::string& name, Columns& columns) {
  std::vector<double> wavelengths;
  for (std::size_t i = 0; i < table.fields.size(); ++i) {
    if (const std::optional<double> nm = WavelengthOf(table.fields[i])) {
      columns.spectrum.push_back(i);
      wavelengths.push_back(*nm);
    }
  }
  if (columns.spectrum.empty()) return;
  double firstNm = wavelengths.front(), lastNm = wavelengths.back();
  const double steps = std::max(1.0, static_cast<double>(wavelengths.size() - 1));
  CheckEven(wavelengths, (lastNm - firstNm) / steps, name);
  // The keywords say exactly what the names round.
  const auto first = table.Keyword("SPECTRAL_START_NM"), last = table.Keyword("SPECTRAL_END_NM");
  if (first && last) {
    firstNm = NumberOf(*first, name + ": SPECTRAL_START_NM");
    lastNm = NumberOf(*last, name + ": SPECTRAL_END_NM");
    if (std::abs(firstNm - wavelengths.front()) > 1 || std::abs(lastNm - wavelengths.back()) > 1) {
      throw Failure(
          fmt::format("{}: the fields have spectra from {} to {} nm, the keywords say {} "
                      "to {} nm",
                      name, wavelengths.front(), wavelengths.back(), firstNm, lastNm));
    }
  }
  columns.firstNm = firstNm;
  columns.stepNm = (lastNm - firstNm) / steps;
  if (const auto norm = table.Keyword("SPECTRAL_NORM")) {
    columns.spectralScale = NumberOf(*norm, name + ": SPECTRAL_NORM");
  }
  if (!(columns.stepNm > 0 && columns.stepNm <= 20) || firstNm > 420 || lastNm < 680 ||
      !(columns.spectralScale > 0)) {
    throw Failure(
        fmt::format("{}: the spectra from {} to {} nm are no even steps of 20 nm or less "
                    "from 420 to 680 nm",
                    name, firstNm, lastNm));
  }
}

Columns FindColumns(const CgatsTable& table, const std::string& name) {
  Columns columns;
  const auto id = table.Field("SAMPLE_ID");
  if (!id) throw Failure(name + ": has no field SAMPLE_ID");
  columns.id = *id;
  columns.location = table.Field("SAMPLE_LOC");
  const std::string rep = table.Keyword("COLOR_REP").value_or("");
  const std::string inks = rep.substr(0, rep.find('_'));
  for (std::size_t i = 0; i < table.fields.size(); ++i) {
    const std::string& field = table.fields[i];
    const std::size_t split = field.rfind('_');
    if (split == std::string::npos) continue;
    const std::string prefix = field.substr(0, split), suffix = field.substr(split + 1);
    if (prefix == "XYZ" || prefix == "LAB") {
      const std::size_t axis = std::string_view(prefix == "XYZ" ? "XYZ" : "LAB").find(suffix);
      if (axis < 3) (prefix == "XYZ" ? columns.xyz : columns.lab)[axis] = i;
      continue;
    }
    if (!rep.empty() && prefix != inks) continue;
    for (const NamedInk& ink : kNamedInks) {
      if (suffix == ink.name) columns.inks.emplace_back(ink.ink, i);
    }
  }
  if (columns.inks.empty()) throw Failure(name + ": has no fields of ink amounts");
  FindSpectrum(table, name, columns);
  const auto complete = [](const auto& axes) { return axes[0] && axes[1] && axes[2]; };
  if (columns.spectrum.empty() && !complete(columns.xyz) && !complete(columns.lab)) {
    throw Failure(name + ": has neither spectra nor XYZ nor Lab");
  }
  return columns;
}

// Whether a keyword tells of another light than D50, or of the observer of 1964.
bool TellsOfOthers(std::string_view keyword, std::string_view value) {
  constexpr std::string_view kAmong[] = {
      "D65",   "D55",    "D75",    "ILLUMINANT, A",    "Illumination=A",
      "10deg", "10_deg", "10 deg", "ObserverAngle=10", "1964"};
  constexpr std::string_view kLights[] = {"A", "B", "C", "E", "F2", "F7", "F8", "F11"};
  if (keyword.starts_with("OBSERVER") && (value == "10" || value.starts_with("10\xc2\xb0"))) {
    return true;
  }
  if (keyword.starts_with("ILLUMINA") && std::ranges::find(kLights, value) != std::end(kLights)) {
    return true;
  }
  return std::ranges::any_of(
      kAmong, [&](std::string_view other) { return value.find(other) != value.npos; });
}

// Colours are to be those under D50, seen by the observer of 1931. Of spectra they are computed so.
void CheckConditions(const CgatsTable& table, const Columns& columns, const std::string& name) {
  constexpr std::string_view kKeywords[] = {
      "ILLUMINANT",         "ILLUMINATION", "ILLUMINATION_NAME", "WEIGHTING_FUNCTION",
      "MEASUREMENT_SOURCE", "OBSERVER",     "OBSERVER_ANGLE",    "TARGET_ILLUMINANT"};
  for (const auto& [keyword, value] : table.keywords) {
    const bool counts =
        columns.spectrum.empty() && std::ranges::find(kKeywords, keyword) != std::end(kKeywords);
    if (!counts || !TellsOfOthers(keyword, value)) continue;
    throw Failure(fmt::format("{}: {} \"{}\": colours are needed under D50 for 2 degrees", name,
                              keyword, value));
  }
  if (const auto device = table.Keyword("DEVICE_CLASS"); device && *device != "OUTPUT") {
    throw Failure(
        fmt::format("{}: is a measurement of DEVICE_CLASS {}, not of prints", name, *device));
  }
}

class RowReader {
 public:
  RowReader(const Columns& columns, const std::string& name) : columns_(columns), name_(name) {}

  ReadPatch Read(const CgatsRow& row) const {
    ReadPatch patch;
    const std::string line = fmt::format("{}: line {}", name_, row.line);
    const double id = NumberOf(row.values[columns_.id], line + ": SAMPLE_ID");
    if (!(id >= 0 && id < 1e6 && id == std::floor(id))) {
      throw Failure(fmt::format("{}: {} is no SAMPLE_ID", line, row.values[columns_.id]));
    }
    patch.number = static_cast<int>(id);
    patch.name = fmt::format("patch {}", patch.number);
    if (columns_.location && row.values[*columns_.location] != "-") {
      TakeLocation(row.values[*columns_.location], patch);
    }
    const std::string place = fmt::format("{}: {} (line {})", name_, patch.name, row.line);
    for (const auto& [ink, column] : columns_.inks) {
      const double percent = NumberOf(row.values[column], place);
      if (!(percent >= 0 && percent <= 100.001)) {
        throw Failure(fmt::format("{}: {} % is no amount of ink", place, percent));
      }
      patch.measured.levels[static_cast<int>(ink)] =
          static_cast<std::uint8_t>(std::lround(percent * 2.55));
    }
    patch.measured.lab = LabOf(row, place);
    const Triple& lab = patch.measured.lab;
    if (!(lab[0] > -5 && lab[0] < 110 && std::abs(lab[1]) < 150 && std::abs(lab[2]) < 150)) {
      throw Failure(fmt::format("{}: Lab {:.1f}, {:.1f}, {:.1f} is no colour of a print", place,
                                lab[0], lab[1], lab[2]));
    }
    return patch;
  }

 private:
  static void TakeLocation(const std::string& location, ReadPatch& patch) {
    patch.name = location;
    int strip = 0, step = 0;
    std::size_t i = 0;
    for (; i < location.size() && i < 2 && location[i] >= 'A' && location[i] <= 'Z'; ++i) {
      strip = strip * 26 + (location[i] - 'A' + 1);
    }
    const char* const end = location.data() + location.size();
    const auto [stop, error] = std::from_chars(location.data() + i, end, step);
    if (i == 0 || error != std::errc() || stop != end || step < 1) return;
    patch.strip = strip - 1;
    patch.step = step - 1;
  }

  Triple LabOf(const CgatsRow& row, const std::string& place) const {
    if (!columns_.spectrum.empty()) {
      Spectrum spectrum{columns_.firstNm, columns_.stepNm, {}};
      for (const std::size_t column : columns_.spectrum) {
        const double value = NumberOf(row.values[column], place) / columns_.spectralScale;
        if (!(value > -0.1 && value < 2)) {
          throw Failure(fmt::format("{}: {} is no reflectance", place, row.values[column]));
        }
        spectrum.reflectance.push_back(value);
      }
      return LabFromXyz(XyzOfSpectrum(spectrum));
    }
    const bool xyz = columns_.xyz[0] && columns_.xyz[1] && columns_.xyz[2];
    Triple values;
    for (int i = 0; i < 3; ++i) {
      values[i] = NumberOf(row.values[*(xyz ? columns_.xyz : columns_.lab)[i]], place);
      if (xyz) values[i] /= 100.0;
    }
    return xyz ? LabFromXyz(values) : values;
  }

  const Columns& columns_;
  const std::string& name_;
};

std::optional<int> MediaOf(const CgatsTable& table, const std::string& name) {
  const auto keyword = table.Keyword(kMediaKeyword);
  if (!keyword) return std::nullopt;
  for (const SettingWord& media : kMediaType.words) {
    if (media.word == *keyword) return media.value - 1;
  }
  throw Failure(fmt::format("{}: {} \"{}\" is no medium", name, kMediaKeyword, *keyword));
}

// The charts that a measurement of these inks may be of.
std::vector<ChartChoice> Candidates(const std::vector<Ink>& inks, std::optional<double> inkLimit,
                                    const CgatsTable& table, const std::string& name) {
  std::vector<double> limits;
  if (inkLimit) {
    limits.push_back(*inkLimit);
  } else if (const auto keyword = table.Keyword("TOTAL_INK_LIMIT")) {
    limits.push_back(NumberOf(*keyword, name + ": TOTAL_INK_LIMIT") / 100);
    if (!(limits[0] >= 1 && limits[0] <= kInkCount)) {
      throw Failure(fmt::format("{}: TOTAL_INK_LIMIT {} is no limit", name, *keyword));
    }
  } else {
    for (const Media& media : DefaultInkData().media) limits.push_back(media.inkLimit);
  }
  std::vector<ChartChoice> candidates;
  const std::optional<int> printedOn = MediaOf(table, name);
  for (const ChartKind kind : {ChartKind::Whole, ChartKind::Update}) {
    for (const double limit : limits) candidates.push_back({kind, inks, limit, printedOn});
  }
  return candidates;
}

const ReadPatch* Find(const std::map<int, ReadPatch>& patches, std::size_t index) {
  const auto found = patches.find(static_cast<int>(index) + 1);
  return found == patches.end() ? nullptr : &found->second;
}

std::size_t Matches(const std::vector<ChartPatch>& chart, const std::map<int, ReadPatch>& patches) {
  std::size_t matches = 0;
  for (std::size_t i = 0; i < chart.size(); ++i) {
    const ReadPatch* const patch = Find(patches, i);
    matches += patch != nullptr && patch->measured.levels == chart[i].levels;
  }
  return matches;
}

// The patches in the order of the chart, all of them and none besides.
std::vector<ReadPatch> Matched(const std::vector<ChartPatch>& chart,
                               const std::map<int, ReadPatch>& patches, const std::string& name) {
  std::vector<ReadPatch> matched;
  for (std::size_t i = 0; i < chart.size(); ++i) {
    const ReadPatch* const patch = Find(patches, i);
    if (patch == nullptr) {
      throw Failure(
          fmt::format("{}: {} of the chart's {} patches are measured; patch {} ({}) is "
                      "missing",
                      name, patches.size(), chart.size(), i + 1, PatchText(chart[i].levels)));
    }
    if (patch->measured.levels != chart[i].levels) {
      throw Failure(fmt::format("{}: {} says {}, the chart has {} there", name, patch->name,
                                PatchText(patch->measured.levels), PatchText(chart[i].levels)));
    }
    matched.push_back(*patch);
    matched.back().measured.group = chart[i].group;
  }
  if (patches.size() > chart.size()) {
    throw Failure(fmt::format("{}: {} is not of the chart, which has {} patches", name,
                              patches.rbegin()->second.name, chart.size()));
  }
  return matched;
}

}  // namespace

std::vector<ChartPatch> PatchesOf(const ChartChoice& choice) {
  return choice.kind == ChartKind::Whole ? ChartPatches(choice.inks, choice.inkLimit)
                                         : UpdatePatches(choice.inks, choice.inkLimit);
}

std::string InkCombination(std::span<const Ink> inks) {
  std::string name;
  for (const NamedInk& ink : InOrder(inks)) name += ink.name;
  return name;
}

Cgats TargetValues(const ChartChoice& choice, const PrintModel& model) {
  CgatsTable table = TargetTable(choice, model, "Corvane calibration chart");
  const std::vector<NamedInk> inks = InOrder(choice.inks);
  table.fields.emplace_back("SAMPLE_ID");
  AddFields(inks, InkCombination(choice.inks), table);
  for (const ChartPatch& patch : PatchesOf(choice)) {
    CgatsRow row;
    row.values.push_back(fmt::format("{}", table.rows.size() + 1));
    AddValues(inks, model, patch.levels, row);
    table.rows.push_back(std::move(row));
  }
  return {kTargetValues,
          {std::move(table), CornersTable(choice, model, "DENSITY_EXTREME_VALUES", false),
           CornersTable(choice, model, "DEVICE_COMBINATION_VALUES", true)}};
}

Cgats PlacedTarget(const ChartChoice& choice, const PrintModel& model, const ChartLayout& layout,
                   const PaperSize& paper) {
  CgatsTable table = TargetTable(choice, model, "Corvane calibration chart, placed");
  std::string passes;
  for (int page = 0; page < layout.Pages(); ++page) {
    passes += fmt::format("{}{}", page == 0 ? "" : ",", layout.StripsOfPage(page));
  }
  const std::pair<std::string, std::string> more[] = {
      {"TARGET_INSTRUMENT",
       layout.Reading() == ChartReading::Strip ? "GretagMacbeth i1 Pro" : "X-Rite DTP22"},
      {"PAPER_SIZE", fmt::format("{:.1f}x{:.1f}", paper.widthMm, paper.heightMm)},
      {"STEPS_IN_PASS", fmt::format("{}", layout.Steps())},
      {"PASSES_IN_STRIPS2", passes},
      {"STRIP_INDEX_PATTERN", "A-Z, A-Z"},
      {"PATCH_INDEX_PATTERN", "0-9,@-9,@-9;1-999"},
      {"INDEX_ORDER", "STRIP_THEN_PATCH"}};
  table.keywords.insert(table.keywords.end(), std::begin(more), std::end(more));
  const std::vector<NamedInk> inks = InOrder(choice.inks);
  table.fields = {"SAMPLE_ID", "SAMPLE_LOC"};
  AddFields(inks, InkCombination(choice.inks), table);
  const std::vector<ChartPatch> patches = PatchesOf(choice);
  for (std::size_t i = 0; i < layout.Filled(); ++i) {
    const bool fills = i >= patches.size();  // up the last strip, with paper
    CgatsRow row;
    row.values = {fmt::format("{}", fills ? 0 : i + 1),
                  fmt::format("\"{}\"", layout.LocationOf(i))};
    AddValues(inks, model, fills ? Contone{} : patches[i].levels, row);
    table.rows.push_back(std::move(row));
  }
  return {kPlacedTarget, {std::move(table)}};
}

Measurement MeasurementOf(const Cgats& cgats, const std::string& name,
                          std::optional<double> inkLimit) {
  const CgatsTable& table = cgats.tables.front();
  const Columns columns = FindColumns(table, name);
  CheckConditions(table, columns, name);
  const RowReader reader(columns, name);
  std::map<int, ReadPatch> patches;
  for (const CgatsRow& row : table.rows) {
    ReadPatch patch = reader.Read(row);
    if (patch.number == 0) continue;  // fills a strip up
    const std::string patchName = patch.name;
    if (!patches.emplace(patch.number, std::move(patch)).second) {
      throw Failure(fmt::format("{}: {} (line {}) has a SAMPLE_ID that stands there twice", name,
                                patchName, row.line));
    }
  }
  std::vector<Ink> inks;
  for (const auto& [ink, column] : columns.inks) inks.push_back(ink);
  std::sort(inks.begin(), inks.end());

  Measurement measurement;
  std::vector<ChartPatch> chart;
  std::size_t most = 0;
  for (const ChartChoice& choice : Candidates(inks, inkLimit, table, name)) {
    std::vector<ChartPatch> candidate = PatchesOf(choice);
    const std::size_t matches = Matches(candidate, patches);
    const bool better = matches > most || (matches == most && candidate.size() == patches.size());
    if (!chart.empty() && !better) continue;
    most = matches;
    chart = std::move(candidate);
    measurement.choice = choice;
  }
  measurement.patches = Matched(chart, patches, name);
  return measurement;
}

Measurement ReadMeasurement(const std::filesystem::path& file, std::optional<double> inkLimit) {
  const std::string name = file.string();
  std::ifstream stream(file, std::ios::binary);
  if (!stream) FailOfSystem(name, errno);
  std::string text;
  std::array<char, 1 << 16> buffer;
  while (stream.read(buffer.data(), buffer.size()) || stream.gcount() > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(stream.gcount()));
    if (text.size() > kLargestFile) throw Failure(name + ": is too large for a measurement");
  }
  if (stream.bad()) FailOfSystem(name, errno);
  if (text.empty()) throw Failure(name + ": is empty");
  const Cgats cgats = ParseCgats(text, name);
  // What they hold as colours is what the chart's maker expects.
  if (cgats.kind == kTargetValues || cgats.kind == kPlacedTarget) {
    throw Failure(name + ": is the chart's list of patches, not its measurement");
  }
  return MeasurementOf(cgats, name, inkLimit);
}

Cgats MeasurementFile(const Measurement& measurement) {
  CgatsTable table;
  const std::vector<NamedInk> inks = InOrder(measurement.choice.inks);
  const std::string combination = InkCombination(measurement.choice.inks);
  table.keywords = {{"DESCRIPTOR", "Measured patches"},
                    {"ORIGINATOR", "Corvane"},
                    {"DEVICE_CLASS", "OUTPUT"},
                    {"COLOR_REP", combination + "_XYZ"},
                    {"TOTAL_INK_LIMIT", LimitText(measurement.choice)}};
  AddMedia(measurement.choice, table);
  table.fields = {"SAMPLE_ID", "SAMPLE_LOC"};
  AddFields(inks, combination, table);
  for (const ReadPatch& patch : measurement.patches) {
    CgatsRow row;
    row.values = {fmt::format("{}", patch.number), fmt::format("\"{}\"", patch.name)};
    for (const NamedInk& ink : inks) {
      row.values.push_back(Percent(patch.measured.levels[static_cast<int>(ink.ink)]));
    }
    for (const double value : XyzFromLab(patch.measured.lab)) {
      row.values.push_back(fmt::format("{:.5f}", value * 100));
    }
    table.rows.push_back(std::move(row));
  }
  return {kMeasurement, {std::move(table)}};
}

}  // namespace corvane
