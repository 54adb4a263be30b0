// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <vector>

#include "app/inks/ink_model.h"
#include "app/support/failure.h"
#include "app/support/json.h"

namespace corvane {
namespace {

using Json = nlohmann::json;

constexpr const char* kDyeWords[kDyeCount] = {"cyan", "magenta", "yellow", "black"};
constexpr const char* kDyeNames[kDyeCount] = {"C", "M", "Y", "K"};
constexpr Ink kThinInks[] = {Ink::c, Ink::m, Ink::y, Ink::cd, Ink::md};

// A part of a file that knows what to call itself in an error.
struct Entry {
  const Json& json;
  std::string name;

  [[noreturn]] void Fail(const std::string& what) const {
    throw Failure(fmt::format("{}: {}", name, what));
  }
  bool Has(const char* key) const { return json.is_object() && json.contains(key); }
  Entry At(const char* key) const {
    if (!Has(key)) Fail(fmt::format("\"{}\" is missing", key));
    return {json.at(key), fmt::format("{}: {}", name, key)};
  }
  double Number(double low, double high) const {
    if (!json.is_number()) Fail("is not a number");
    const double number = json.get<double>();
    if (!(number >= low && number <= high)) Fail(fmt::format("is not in {} to {}", low, high));
    return number;
  }
  bool Flag() const {
    if (!json.is_boolean()) Fail("is neither true nor false");
    return json.get<bool>();
  }
  std::string Text() const {
    if (!json.is_string()) Fail("is not a text");
    return json.get<std::string>();
  }
  const Json& List(std::size_t size) const {
    if (!json.is_array() || json.size() != size) Fail(fmt::format("is not a list of {}", size));
    return json;
  }
};

// A colour is {"lab": [L, a, b]} or {"xyz": [X, Y, Z]} with Y = 100 for white.
Triple ColourOf(const Entry& entry) {
  const bool lab = entry.Has("lab");
  if (!lab && !entry.Has("xyz")) entry.Fail("holds neither \"lab\" nor \"xyz\"");
  const Entry values = entry.At(lab ? "lab" : "xyz");
  Triple triple;
  for (int i = 0; i < 3; ++i) {
    triple[i] = Entry{values.List(3)[i], values.name}.Number(-200, 200);
  }
  if (lab) return triple;
  for (double& value : triple) value /= 100.0;
  return LabFromXyz(triple);
}

std::optional<Triple> OverprintOf(const Entry& overprints, const char* key) {
  if (!overprints.Has(key)) return std::nullopt;
  return ColourOf(overprints.At(key));
}

Media MediaOf(const Entry& entry) {
  Media media;
  media.name = entry.At("name").Text();
  media.white = ColourOf(entry.At("white"));
  media.density = entry.At("density").Number(0.1, 2.0);
  media.dotGain = entry.At("dotGain").Number(-0.5, 2.0);
  media.inkLimit = entry.At("inkLimit").Number(50, 900) / 100.0;
  media.measured = entry.Has("measured") && entry.At("measured").Flag();
  return media;
}

// The inks of an object by their names.
template <typename Use>
void ForEachInk(const Entry& entry, Use use) {
  if (!entry.json.is_object()) entry.Fail("is not an object of inks");
  for (const auto& [name, json] : entry.json.items()) {
    const std::optional<Ink> ink = FindInk(name);
    if (!ink) entry.Fail(fmt::format("\"{}\" is no ink", name));
    use(static_cast<int>(*ink), Entry{json, fmt::format("{}: {}", entry.name, name)});
  }
}

std::vector<InkTint> TintsOf(const Entry& entry) {
  if (!entry.json.is_array() || entry.json.empty()) entry.Fail("is not a list of tints");
  std::vector<InkTint> tints;
  for (const Json& json : entry.json) {
    const Entry tint{json, entry.name};
    const double above = tints.empty() ? 0.0 : tints.back().amount;
    const double amount = tint.At("amount").Number(0, 1);
    if (!(amount > above)) entry.Fail("has amounts that do not rise");
    tints.push_back({amount, ColourOf(tint)});
  }
  if (tints.back().amount != 1.0) entry.Fail("does not end at the amount 1");
  return tints;
}

OverprintTerm OverprintTermOf(const Entry& entry) {
  OverprintTerm term;
  const Entry of = entry.At("of");
  if (!of.json.is_array() || of.json.empty()) of.Fail("is not a list of dyes and inks");
  for (const Json& json : of.json) {
    const std::string name = Entry{json, of.name}.Text();
    const auto dye = std::find(std::begin(kDyeWords), std::end(kDyeWords), name);
    const std::optional<Ink> ink = FindInk(name);
    if (dye == std::end(kDyeWords) && !ink) of.Fail(fmt::format("\"{}\" is no dye or ink", name));
    int& power = ink ? term.inks[static_cast<int>(*ink)] : term.dyes[dye - kDyeWords];
    if (++power > kMostPower) of.Fail(fmt::format("holds \"{}\" too often", name));
  }
  const Entry density = entry.At("density");
  for (int band = 0; band < 3; ++band) {
    term.density[band] = Entry{density.List(3)[band], density.name}.Number(-20, 20);
  }
  return term;
}

InkData InkDataOf(const Entry& root) {
  InkData data;
  data.name = root.At("name").Text();
  const std::string source = root.At("source").Text();
  if (source != "model" && source != "measurement") {
    root.At("source").Fail("is neither \"model\" nor \"measurement\"");
  }
  data.measured = source == "measurement";
  data.yuleNielsen = root.At("yuleNielsen").Number(1, 100);
  data.clustering = root.At("clustering").Number(0, 100);
  data.fullLoad = root.At("nanolitresPerSquareInch").Number(1, 1e6);
  data.spotArea = root.At("squareMicrometresPerPicolitre").Number(1, 1e4);

  const Entry solids = root.At("solids");
  for (int dye = 0; dye < kDyeCount; ++dye) data.solids[dye] = ColourOf(solids.At(kDyeNames[dye]));
  data.cyanMagenta = OverprintOf(solids, "CM");
  data.cyanYellow = OverprintOf(solids, "CY");
  data.magentaYellow = OverprintOf(solids, "MY");
  data.cyanMagentaYellow = OverprintOf(solids, "CMY");

  data.strength.fill(1.0);
  const Entry strengths = root.At("strengths");
  for (const Ink ink : kThinInks) {
    const int i = static_cast<int>(ink);
    data.strength[i] = strengths.At(kInkNames[i]).Number(0.05, 0.95);
  }

  if (root.Has("tints")) {
    ForEachInk(root.At("tints"), [&](int ink, const Entry& e) { data.tints[ink] = TintsOf(e); });
  }
  if (root.Has("overprints")) {
    const Entry overprints = root.At("overprints");
    if (!overprints.json.is_array()) overprints.Fail("is not a list");
    for (const Json& json : overprints.json) {
      data.overprints.push_back(OverprintTermOf({json, overprints.name}));
    }
  }
  if (root.Has("inkLimits")) {
    ForEachInk(root.At("inkLimits"),
               [&](int ink, const Entry& e) { data.inkLimit[ink] = e.Number(10, 100) / 100.0; });
  }

  const Entry media = root.At("media");
  for (int i = 0; i < kMediaCount; ++i) {
    data.media[i] = MediaOf({media.List(kMediaCount)[i], fmt::format("{} {}", media.name, i + 1)});
  }
  return data;
}

// ---------------------------------------------------------------------------------------------
// Writing

using OrderedJson = nlohmann::ordered_json;

// More digits than any measurement has.
double Rounded(double value) { return std::round(value * 1e6) / 1e6; }

// A null that becomes an object or a list has no memory for it where memory is short, and then
// cannot be destroyed: every value here begins as what it is.

OrderedJson JsonOf(const Triple& lab) {
  OrderedJson json = OrderedJson::object();
  json["lab"] = {Rounded(lab[0]), Rounded(lab[1]), Rounded(lab[2])};
  return json;
}

OrderedJson JsonOf(const OverprintTerm& term) {
  OrderedJson json = OrderedJson::object();
  OrderedJson factors = OrderedJson::array();
  for (int dye = 0; dye < kDyeCount; ++dye) {
    for (int power = 0; power < term.dyes[dye]; ++power) factors.push_back(kDyeWords[dye]);
  }
  for (int ink = 0; ink < kInkCount; ++ink) {
    for (int power = 0; power < term.inks[ink]; ++power) factors.push_back(kInkNames[ink]);
  }
  json["of"] = std::move(factors);
  json["density"] = {Rounded(term.density[0]), Rounded(term.density[1]), Rounded(term.density[2])};
  return json;
}

OrderedJson JsonOf(const Media& media) {
  OrderedJson json = OrderedJson::object();
  json["name"] = media.name;
  json["white"] = JsonOf(media.white);
  json["density"] = Rounded(media.density);
  json["dotGain"] = Rounded(media.dotGain);
  json["inkLimit"] = Rounded(media.inkLimit * 100.0);
  if (media.measured) json["measured"] = true;
  return json;
}

OrderedJson SolidsJson(const InkData& inks) {
  OrderedJson json = OrderedJson::object();
  for (int dye = 0; dye < kDyeCount; ++dye) json[kDyeNames[dye]] = JsonOf(inks.solids[dye]);
  if (inks.cyanMagenta) json["CM"] = JsonOf(*inks.cyanMagenta);
  if (inks.cyanYellow) json["CY"] = JsonOf(*inks.cyanYellow);
  if (inks.magentaYellow) json["MY"] = JsonOf(*inks.magentaYellow);
  if (inks.cyanMagentaYellow) json["CMY"] = JsonOf(*inks.cyanMagentaYellow);
  return json;
}

OrderedJson TintsJson(const InkData& inks) {
  OrderedJson json = OrderedJson::object();
  for (int ink = 0; ink < kInkCount; ++ink) {
    OrderedJson tints = OrderedJson::array();
    for (const InkTint& tint : inks.tints[ink]) {
      OrderedJson entry = JsonOf(tint.lab);
      entry["amount"] = Rounded(tint.amount);
      tints.push_back(std::move(entry));
    }
    if (!tints.empty()) json[kInkNames[ink]] = std::move(tints);
  }
  return json;
}

OrderedJson StrengthsJson(const InkData& inks) {
  OrderedJson json = OrderedJson::object();
  for (const Ink ink : kThinInks) {
    const int i = static_cast<int>(ink);
    json[kInkNames[i]] = Rounded(inks.strength[i]);
  }
  return json;
}

OrderedJson LimitsJson(const InkData& inks) {
  OrderedJson json = OrderedJson::object();
  for (int ink = 0; ink < kInkCount; ++ink) {
    if (inks.inkLimit[ink] < 1.0) json[kInkNames[ink]] = Rounded(inks.inkLimit[ink] * 100.0);
  }
  return json;
}

template <typename Values>
OrderedJson ListJson(const Values& values) {
  OrderedJson json = OrderedJson::array();
  for (const auto& value : values) json.push_back(JsonOf(value));
  return json;
}

void PutUnlessEmpty(const char* name, OrderedJson value, OrderedJson* json) {
  if (!value.empty()) (*json)[name] = std::move(value);
}

// Joins the points of a curve, in the order of their inputs, by straight lines.
void DrawCurve(const Entry& entry, std::array<std::uint8_t, 256>& curve) {
  if (!entry.json.is_array() || entry.json.size() < 2) entry.Fail("is not a list of points");
  std::vector<std::array<double, 2>> points;
  for (const Json& json : entry.json) {
    const Json& pair = Entry{json, entry.name}.List(2);
    points.push_back(
        {Entry{pair[0], entry.name}.Number(0, 255), Entry{pair[1], entry.name}.Number(0, 255)});
  }
  if (points.front()[0] != 0 || points.back()[0] != 255) entry.Fail("does not run from 0 to 255");
  for (std::size_t i = 1; i < points.size(); ++i) {
    if (points[i][0] <= points[i - 1][0]) entry.Fail("has inputs that do not rise");
    if (points[i][1] < points[i - 1][1]) entry.Fail("has outputs that fall");
  }
  std::size_t segment = 1;
  for (int v = 0; v < 256; ++v) {
    while (points[segment][0] < v) ++segment;
    const auto& [x0, y0] = points[segment - 1];
    const auto& [x1, y1] = points[segment];
    curve[v] = static_cast<std::uint8_t>(y0 + (y1 - y0) * (v - x0) / (x1 - x0) + 0.5);
  }
}

}  // namespace

InkData InksFrom(const std::string& file) {
  return file.empty() ? DefaultInkData() : ReadInkData(file);
}

InkData ReadInkData(const std::filesystem::path& file) {
  const Json json = ReadJsonFile(file);
  return InkDataOf({json, file.string()});
}

std::string InkDataText(const InkData& inks) {
  OrderedJson json = OrderedJson::object();
  json["name"] = inks.name;
  json["source"] = inks.measured ? "measurement" : "model";
  json["yuleNielsen"] = Rounded(inks.yuleNielsen);
  json["clustering"] = Rounded(inks.clustering);
  json["nanolitresPerSquareInch"] = Rounded(inks.fullLoad);
  json["squareMicrometresPerPicolitre"] = Rounded(inks.spotArea);
  json["solids"] = SolidsJson(inks);
  json["strengths"] = StrengthsJson(inks);
  PutUnlessEmpty("tints", TintsJson(inks), &json);
  PutUnlessEmpty("overprints", ListJson(inks.overprints), &json);
  PutUnlessEmpty("inkLimits", LimitsJson(inks), &json);
  PutUnlessEmpty("media", ListJson(inks.media), &json);
  return json.dump(1, ' ', false, OrderedJson::error_handler_t::replace) + '\n';
}

InkCurves ReadInkCurves(const std::filesystem::path& file) {
  const Json json = ReadJsonFile(file);
  const Entry root{json, file.string()};
  if (!json.is_object()) root.Fail("is not an object of curves");
  InkCurves curves;
  for (const auto& [name, points] : json.items()) {
    const std::optional<Ink> ink = FindInk(name);
    if (!ink) root.Fail(fmt::format("\"{}\" is no ink", name));
    DrawCurve({points, fmt::format("{}: {}", root.name, name)},
              curves.values[static_cast<int>(*ink)]);
  }
  return curves;
}

}  // namespace corvane
