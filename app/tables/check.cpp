// SPDX-License-Identifier: MIT
#include "app/tables/check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <numeric>
#include <tuple>

#include "app/support/threads.h"
#include "app/tables/grid.h"
#include "app/tables/lookup.h"

namespace corvane {
namespace {

constexpr double kWellInside = 0.8;
constexpr int kColours = 2500;
constexpr int kPairs = 10000, kPairSteps = 64;
constexpr double kRise = 10;  // of L* along a ramp on which it must not fall
constexpr int kBendSteps = 33;
constexpr int kSceneColours = 160, kShadowColours = 240;

// The same colours on every machine.
class Chance {
 public:
  explicit Chance(std::uint64_t seed) : state_(seed) {}
  double Next() {
    state_ += 0x9e3779b97f4a7c15u;
    std::uint64_t z = state_;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return static_cast<double>((z ^ (z >> 31)) >> 11) / 9007199254740992.0;
  }
  double Between(double low, double high) { return low + (high - low) * Next(); }

 private:
  std::uint64_t state_;
};

double ChromaOf(const Triple& lab) { return std::hypot(lab[1], lab[2]); }
double HueOf(const Triple& lab) { return std::atan2(lab[2], lab[1]); }

double Quantile(std::vector<double> values, double part) {
  if (values.empty()) return 0;
  const auto place = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + place, values.end());
  return values[static_cast<std::size_t>(place)];
}

double MeanOf(const std::vector<double>& values) {
  return values.empty() ? 0
                        : std::accumulate(values.begin(), values.end(), 0.0) /
                              static_cast<double>(values.size());
}

void Raise(Finding& finding, double value, const Srgb& at) {
  if (value > finding.value) finding = {value, at};
}

Srgb Between(const Srgb& a, const Srgb& b, double part) {
  return {a[0] + (b[0] - a[0]) * part, a[1] + (b[1] - a[1]) * part, a[2] + (b[2] - a[2]) * part};
}

// A part of Lab in which the colours of a scene lie.
struct Scene {
  const char* name;
  double lightness[2], chroma[2], hue[2];  // degrees
};
constexpr Scene kScenes[] = {{"sky", {35, 85}, {12, 50}, {245, 275}},
                             {"foliage", {20, 65}, {15, 50}, {110, 145}},
                             {"skin", {30, 85}, {14, 34}, {40, 68}}};

// Colours of a scene that the display has.
std::vector<Srgb> ColoursOf(const Scene& scene) {
  Chance chance(17);
  std::vector<Srgb> colours;
  while (colours.size() < kSceneColours) {
    const double lightness = chance.Between(scene.lightness[0], scene.lightness[1]);
    const double chroma = chance.Between(scene.chroma[0], scene.chroma[1]);
    const double hue = chance.Between(scene.hue[0], scene.hue[1]) * std::numbers::pi / 180;
    const Triple linear = LinearSrgbFromBands(
        BandsFromLab({lightness, chroma * std::cos(hue), chroma * std::sin(hue)}));
    const auto [least, most] = std::minmax_element(linear.begin(), linear.end());
    if (*least >= 0 && *most <= 1) colours.push_back(SrgbFromLinear(linear));
  }
  return colours;
}

// A wanted colour and what the inks can make of it.
struct Wanted {
  Srgb srgb{};
  Triple lab{};
  bool printable = false, inside = false;
  double chroma = 0;  // the most that there is to keep; 0: nothing to judge
};

// What every table of an ink set on a medium is held against.
struct Yardstick {
  Yardstick(const InkData& inks, int medium, const InkChoice& choice)
      : model(inks, medium), response(model), best(model, choice) {}

  PrintModel model;
  InkResponseTable response;
  BestInks best;
  std::vector<Wanted> colours, shadows;
  std::vector<std::vector<Wanted>> scenes;
};

// The most colourful of the wanted hue and lightness that the inks print, no more than is wanted.
void FindChroma(const BestInks& best, Wanted& wanted) {
  const double chroma = ChromaOf(wanted.lab);
  wanted.chroma = best.CanPrint(wanted.lab)
                      ? chroma
                      : best.LargestChroma(wanted.lab[0], HueOf(wanted.lab), chroma);
  if (wanted.chroma < 6) wanted.chroma = 0;
}

std::unique_ptr<Yardstick> MakeYardstick(const InkData& inks, int medium, const InkChoice& choice,
                                         const std::function<void()>& between) {
  auto made = std::make_unique<Yardstick>(inks, medium, choice);
  const BestInks& best = made->best;
  const double middle = (100 + best.Black()) / 2;
  Chance chance(5);
  for (int i = 0; i < kColours; ++i) {
    between();
    Wanted wanted;
    wanted.srgb = {chance.Next(), chance.Next(), chance.Next()};
    wanted.lab = WantedLab(wanted.srgb);
    const Triple further = {middle + (wanted.lab[0] - middle) / kWellInside,
                            wanted.lab[1] / kWellInside, wanted.lab[2] / kWellInside};
    wanted.printable = best.CanPrint(wanted.lab);
    wanted.inside = wanted.printable && best.CanPrint(further);
    made->colours.push_back(wanted);
  }
  const double darkest = best.Black() + 2, lightest = std::max(40.0, darkest + 10);
  while (made->shadows.size() < kShadowColours) {
    between();
    Wanted wanted;
    for (double& channel : wanted.srgb) channel = lightest / 70 * chance.Next();
    wanted.lab = WantedLab(wanted.srgb);
    if (wanted.lab[0] < darkest || wanted.lab[0] > lightest || ChromaOf(wanted.lab) < 10) continue;
    FindChroma(best, wanted);
    made->shadows.push_back(wanted);
  }
  for (const Scene& scene : kScenes) {
    std::vector<Wanted>& list = made->scenes.emplace_back();
    for (const Srgb& srgb : ColoursOf(scene)) {
      between();
      Wanted wanted;
      wanted.srgb = srgb;
      wanted.lab = WantedLab(srgb);
      FindChroma(best, wanted);
      list.push_back(wanted);
    }
  }
  return made;
}

// One table against its yardstick.
class Checker {
 public:
  Checker(const IndexedTable& table, const Yardstick& yardstick)
      : table_(table), yardstick_(yardstick), printed_(table.bytes, yardstick.response) {
    check_.indices = table.indices;
  }

  TableCheck Check() {
    CheckColours();
    CheckBend();
    CheckNotches();
    CheckFalls();
    CheckCorners();
    CheckChroma();
    CheckInk();
    CheckNeutrals();
    return check_;
  }

 private:
  void CheckColours() {
    std::vector<double> differences;
    double grain = 0;
    int light = 0;
    for (const Wanted& wanted : yardstick_.colours) {
      if (wanted.printable && wanted.lab[0] > 75) {
        grain += printed_.Grain(wanted.srgb);
        ++light;
      }
      if (!wanted.printable) continue;
      const double difference = DeltaE2000(wanted.lab, printed_.Lab(wanted.srgb));
      differences.push_back(difference);
      if (!wanted.inside) continue;
      ++check_.inside;
      if (difference > aims::kHole) ++check_.holes;
      Raise(check_.worstInside, difference, wanted.srgb);
    }
    check_.printable = static_cast<int>(differences.size());
    check_.mean = MeanOf(differences);
    check_.most95 = Quantile(differences, 0.95);
    check_.highlightGrain = light > 0 ? grain / light : 0;
  }

  void CheckBend() {
    const auto at = [](int r, int g, int b) {
      const auto row = static_cast<std::size_t>(r) * kBendSteps + static_cast<std::size_t>(g);
      return row * kBendSteps + static_cast<std::size_t>(b);
    };
    const auto colour = [](int r, int g, int b) {
      constexpr double kLast = kBendSteps - 1;
      return Srgb{r / kLast, g / kLast, b / kLast};
    };
    std::vector<Triple> labs;
    for (int r = 0; r < kBendSteps; ++r) {
      for (int g = 0; g < kBendSteps; ++g) {
        for (int b = 0; b < kBendSteps; ++b) labs.push_back(printed_.Lab(colour(r, g, b)));
      }
    }
    std::vector<double> bends;
    for (int r = 0; r < kBendSteps; ++r) {
      for (int g = 0; g < kBendSteps; ++g) {
        for (int b = 0; b < kBendSteps; ++b) {
          const int place[3] = {r, g, b};
          const std::size_t steps[3] = {at(1, 0, 0), at(0, 1, 0), at(0, 0, 1)};
          for (int axis = 0; axis < 3; ++axis) {
            if (place[axis] == 0 || place[axis] == kBendSteps - 1) continue;
            const std::size_t here = at(r, g, b);
            const Triple &before = labs[here - steps[axis]], &after = labs[here + steps[axis]];
            double square = 0;
            for (int i = 0; i < 3; ++i) {
              const double second = before[i] - 2 * labs[here][i] + after[i];
              square += second * second;
            }
            bends.push_back(std::sqrt(square));
            Raise(check_.bend, bends.back(), colour(r, g, b));
          }
        }
      }
    }
    check_.bend999 = Quantile(std::move(bends), 0.999);
  }

  // On the way between two corners of the cube chroma may sink as the wanted one does, in
  // proportion, and no deeper.
  void CheckNotches() {
    constexpr int kSteps = 64;
    const auto corner = [](int bits) {
      return Srgb{double(bits >> 2 & 1), double(bits >> 1 & 1), double(bits & 1)};
    };
    const auto sinks = [](const std::vector<double>& chroma, std::size_t place) {
      const auto middle = chroma.begin() + static_cast<std::ptrdiff_t>(place);
      return std::min(*std::max_element(chroma.begin(), middle + 1),
                      *std::max_element(middle, chroma.end()));
    };
    for (int from = 0; from < 8; ++from) {
      for (int to = from + 1; to < 8; ++to) {
        std::vector<double> wanted, printed;
        for (int step = 0; step <= kSteps; ++step) {
          const Srgb srgb = Between(corner(from), corner(to), double(step) / kSteps);
          wanted.push_back(ChromaOf(WantedLab(srgb)));
          printed.push_back(ChromaOf(printed_.Lab(srgb)));
        }
        for (std::size_t i = 0; i < wanted.size(); ++i) {
          const Srgb srgb = Between(corner(from), corner(to), double(i) / kSteps);
          const double part = wanted[i] / std::max(sinks(wanted, i), 1.0);
          double missing =
              std::min(sinks(printed, i) * std::min(part, 1.0), wanted[i]) - printed[i];
          if (missing <= check_.notch.value) continue;
          const Triple lab = printed_.Lab(srgb);
          missing =
              std::min(missing, yardstick_.best.LargestChroma(lab[0], HueOf(lab)) - printed[i]);
          Raise(check_.notch, missing, srgb);
        }
      }
    }
  }

  void CheckFalls() {
    std::vector<const Wanted*> inside;
    for (const Wanted& wanted : yardstick_.colours) {
      if (wanted.inside) inside.push_back(&wanted);
    }
    if (inside.size() < 2) return;
    Chance chance(11);
    const auto any = [&] {
      return inside[static_cast<std::size_t>(chance.Next() * static_cast<double>(inside.size()))];
    };
    for (int pair = 0; pair < kPairs; ++pair) {
      const Wanted &one = *any(), &other = *any();
      if (std::abs(one.lab[0] - other.lab[0]) < kRise) continue;
      const Srgb &from = one.srgb, &to = other.srgb;
      double lastWanted = 0, lastPrinted = 0;
      for (int step = 0; step <= kPairSteps; ++step) {
        const Srgb srgb = Between(from, to, double(step) / kPairSteps);
        const double wanted = WantedLab(srgb)[0], printed = printed_.Lab(srgb)[0];
        const double rise = wanted - lastWanted, seen = printed - lastPrinted;
        if (step > 0 && std::abs(rise) > 0) Raise(check_.fall, rise > 0 ? -seen : seen, srgb);
        lastWanted = wanted;
        lastPrinted = printed;
      }
    }
  }

  void CheckCorners() {
    constexpr Srgb kCorners[6] = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 1, 1}, {0, 0, 1}, {1, 0, 1}};
    check_.corner = 9;
    for (std::size_t i = 0; i < 6; ++i) {
      const Triple lab = printed_.Lab(kCorners[i]);
      check_.corners[i] = ChromaOf(lab) / std::max(yardstick_.best.LargestChroma(HueOf(lab)), 1.0);
      check_.corner = std::min(check_.corner, check_.corners[i]);
    }
  }

  ChromaKept KeptOf(const std::vector<Wanted>& colours) const {
    std::vector<double> kept;
    for (const Wanted& wanted : colours) {
      if (wanted.chroma > 0) {
        kept.push_back(ChromaOf(printed_.Lab(wanted.srgb)) / wanted.chroma);
      }
    }
    return {Quantile(kept, 0.5), Quantile(kept, 0.05)};
  }

  void CheckChroma() {
    check_.shadows = KeptOf(yardstick_.shadows);
    for (std::size_t i = 0; i < std::size(kScenes); ++i) {
      SceneCheck scene{kScenes[i].name, KeptOf(yardstick_.scenes[i]), 0, 0};
      const double part = 1.0 / static_cast<double>(yardstick_.scenes[i].size());
      for (const Wanted& wanted : yardstick_.scenes[i]) {
        scene.difference += part * DeltaE2000(wanted.lab, printed_.Lab(wanted.srgb));
        scene.grain += part * printed_.Grain(wanted.srgb);
      }
      check_.scenes.push_back(scene);
    }
  }

  void CheckInk() {
    check_.inkLimit = yardstick_.model.InkLimit();
    const std::size_t planes = table_.bytes.size() / kNodes;
    for (std::size_t node = 0; node < kNodes; ++node) {
      int total = 0;
      for (std::size_t plane = 0; plane < planes; ++plane) {
        total += table_.bytes[plane * kNodes + node];
      }
      check_.ink = std::max(check_.ink, total / 255.0);
    }
  }

  void CheckNeutrals() {
    check_.blackAlone = true;
    for (int value = 255; value >= 0; --value) {
      const double grey = value / 255.0;
      const InkAmounts amounts = printed_.Amounts({grey, grey, grey});
      const Triple lab = yardstick_.response.Lab(amounts);
      const double total = std::accumulate(amounts.begin(), amounts.end(), 0.0);
      const double black = amounts[static_cast<int>(Ink::K)];
      check_.greyInk = std::max(check_.greyInk, total);
      check_.neutral = std::max(check_.neutral, ChromaOf(lab));
      if (black > 0.5 / 255 && check_.blackFrom == 0) check_.blackFrom = lab[0];
      if (total - black > 1.0 / 255) check_.blackAlone = false;
    }
  }

  const IndexedTable& table_;
  const Yardstick& yardstick_;
  PrintedTable printed_;
  TableCheck check_;
};

bool HasBlack(const IndexedTable& table) {
  const auto plane = table.bytes.begin() + static_cast<int>(Ink::K) * kNodes;
  return std::any_of(plane, plane + kNodes, [](std::uint8_t value) { return value > 0; });
}

// The largest difference between two tables of the same inks at colours that these can print.
double LargestDifference(const IndexedTable& a, const IndexedTable& b, const Yardstick& inks) {
  const PrintedTable printedA(a.bytes, inks.response), printedB(b.bytes, inks.response);
  double largest = 0;
  for (const Wanted& wanted : inks.colours) {
    if (!wanted.printable) continue;
    largest = std::max(largest, DeltaE2000(printedA.Lab(wanted.srgb), printedB.Lab(wanted.srgb)));
  }
  return largest;
}

// Compares tables of the same inks that differ in quality alone.
void CompareQualities(std::span<const IndexedTable> tables,
                      const std::vector<const Yardstick*>& yardsticks,
                      std::vector<TableCheck>& checks) {
  for (std::size_t i = 0; i < tables.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      TableIndices other = tables[j].indices;
      other[3] = tables[i].indices[3];
      if (other != tables[i].indices || yardsticks[i] != yardsticks[j]) continue;
      const double largest = LargestDifference(tables[i], tables[j], *yardsticks[i]);
      for (TableCheck* check : {&checks[i], &checks[j]}) {
        check->quality = std::max(check->quality.value_or(0), largest);
      }
    }
  }
}

}  // namespace

PrintedTable::PrintedTable(std::span<const std::uint8_t> table, const InkResponseTable& response)
    : response_(response), nodes_(kNodes) {
  const std::size_t planes = table.size() / kNodes;
  for (std::size_t node = 0; node < kNodes; ++node) {
    for (std::size_t plane = 0; plane < planes; ++plane) {
      nodes_[node][plane] = table[plane * kNodes + node] / 255.0;
    }
  }
}

InkAmounts PrintedTable::Amounts(const Srgb& srgb) const { return Interpolated(nodes_, srgb); }

double PrintedTable::Grain(const Srgb& srgb) const {
  constexpr double kDropsPerSquareInch = 360000;
  constexpr double kWindow = 0.3 / 25.4;  // what the eye takes together at reading distance, inches
  const InkAmounts amounts = Amounts(srgb);
  const InkResponse response = response_.Respond(amounts);
  double variance = 0;
  for (int ink = 0; ink < kInkCount; ++ink) {
    const double slope = response.slopes[ink][0];
    variance += slope * slope * amounts[ink] * (1.0 - amounts[ink]);
  }
  return std::sqrt(variance / (kDropsPerSquareInch * kWindow * kWindow));
}

Triple WantedLab(const Srgb& srgb) {
  return LabFromBands(BandsFromLinearSrgb(LinearFromSrgb(srgb)));
}

std::vector<std::string> MissesOf(const TableCheck& check) {
  std::vector<std::string> misses;
  const auto miss = [&](bool missed, std::string text) {
    if (missed) misses.push_back(std::move(text));
  };
  // Vivid tables raise chroma on purpose.
  const bool asWanted = check.indices[2] == 0 || check.indices[4] == 1;
  miss(asWanted && check.holes > 0, fmt::format("{} holes of {}, {:.1f} deep", check.holes,
                                                check.inside, check.worstInside.value));
  miss(check.bend999 > aims::kBend999 || check.bend.value > aims::kBend,
       fmt::format("bend {:.1f}, largest {:.1f}", check.bend999, check.bend.value));
  miss(check.fall.value > aims::kFall, fmt::format("L* falls by {:.2f}", check.fall.value));
  miss(check.corner < aims::kCorner, fmt::format("a corner keeps {:.2f}", check.corner));
  miss(check.shadows.median < aims::kShadowMedian || check.shadows.low < aims::kShadowLow,
       fmt::format("shadows keep {:.2f}, {:.2f}", check.shadows.median, check.shadows.low));
  for (const SceneCheck& scene : check.scenes) {
    miss(scene.chroma.median < aims::kScene,
         fmt::format("{} keeps {:.2f}", scene.name, scene.chroma.median));
  }
  miss(check.ink > check.inkLimit + 1e-6, fmt::format("{:.0f} % of ink where {:.0f} are taken",
                                                      check.ink * 100, check.inkLimit * 100));
  const double quality = check.quality.value_or(0);
  miss(quality > aims::kQuality, fmt::format("another quality differs by {:.1f}", quality));
  return misses;
}

std::vector<TableCheck> CheckTables(std::span<const IndexedTable> tables, const InkData& inks,
                                    int jobs, const std::function<void()>& between) {
  using Condition = std::tuple<bool, bool, std::uint32_t>;  // nine inks, black ink, medium
  std::map<Condition, std::unique_ptr<Yardstick>> made;
  std::vector<Condition> conditions;
  for (const IndexedTable& table : tables) {
    conditions.emplace_back(table.bytes.size() == 9 * kNodes, HasBlack(table), table.indices[1]);
    made.try_emplace(conditions.back());
  }
  std::vector<Condition> distinct;
  for (const auto& entry : made) distinct.push_back(entry.first);
  ForEachIndex(distinct.size(), jobs, [&](std::size_t i) {
    const auto [nine, black, medium] = distinct[i];
    const InkChoice choice = {nine, black, inks.media[medium].inkLimit};
    made.at(distinct[i]) = MakeYardstick(inks, static_cast<int>(medium), choice, between);
  });

  std::vector<const Yardstick*> yardsticks;
  for (const Condition& condition : conditions) yardsticks.push_back(made.at(condition).get());
  std::vector<TableCheck> checks(tables.size());
  ForEachIndex(tables.size(), jobs, [&](std::size_t i) {
    between();
    checks[i] = Checker(tables[i], *yardsticks[i]).Check();
  });
  CompareQualities(tables, yardsticks, checks);
  return checks;
}

}  // namespace corvane
