// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "app/failure.h"
#include "app/ink_model.h"

namespace corvane {
namespace {

using Json = nlohmann::json;

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
  return media;
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
  constexpr const char* kDyeNames[kDyeCount] = {"C", "M", "Y", "K"};
  for (int dye = 0; dye < kDyeCount; ++dye) data.solids[dye] = ColourOf(solids.At(kDyeNames[dye]));
  data.cyanMagenta = OverprintOf(solids, "CM");
  data.cyanYellow = OverprintOf(solids, "CY");
  data.magentaYellow = OverprintOf(solids, "MY");
  data.cyanMagentaYellow = OverprintOf(solids, "CMY");

  data.strength.fill(1.0);
  const Entry strengths = root.At("strengths");
  for (const Ink ink : {Ink::c, Ink::m, Ink::y, Ink::cd, Ink::md}) {
    const int i = static_cast<int>(ink);
    data.strength[i] = strengths.At(kInkNames[i]).Number(0.05, 0.95);
  }

  const Entry media = root.At("media");
  for (int i = 0; i < kMediaCount; ++i) {
    data.media[i] = MediaOf({media.List(kMediaCount)[i], fmt::format("{} {}", media.name, i + 1)});
  }
  return data;
}

Json ParseFile(const std::filesystem::path& file) {
  std::ifstream stream(file);
  if (!stream) throw Failure(fmt::format("{}: cannot be opened", file.string()));
  try {
    return Json::parse(stream);
  } catch (const Json::parse_error& error) {
    throw Failure(fmt::format("{}: is not JSON (byte {})", file.string(), error.byte));
  }
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

InkData ReadInkData(const std::filesystem::path& file) {
  const Json json = ParseFile(file);
  return InkDataOf({json, file.string()});
}

InkCurves ReadInkCurves(const std::filesystem::path& file) {
  const Json json = ParseFile(file);
  const Entry root{json, file.string()};
  if (!json.is_object()) root.Fail("is not an object of curves");
  InkCurves curves;
  for (const auto& [name, points] : json.items()) {
    const auto* known = std::find(std::begin(kInkNames), std::end(kInkNames), name);
    if (known == std::end(kInkNames)) root.Fail(fmt::format("\"{}\" is no ink", name));
    DrawCurve({points, fmt::format("{}: {}", root.name, name)},
              curves.values[known - std::begin(kInkNames)]);
  }
  return curves;
}

}  // namespace corvane
