// SPDX-License-Identifier: MIT
#include "app/tables/builder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <numeric>

#include "app/support/failure.h"
#include "app/tables/best_inks.h"
#include "app/tables/builder_gamut.h"
#include "app/tables/builder_ramps.h"
#include "app/tables/builder_separation.h"
#include "app/tables/builder_solve.h"
#include "app/tables/icc_table.h"

namespace corvane {
namespace {

enum InkClass { kBlackOnly, kSevenWithoutBlack, kSeven, kNine };
constexpr int kQualities = 4;

// How nodes are weighed against one another: colours that the print has, those that it has not, and
// the corners of the cube, which ought to be the purest that there are.
constexpr double kInsideWeight = 6, kBeyondWeight = 0.6, kCornerWeight = 14;
// Colours between nodes with more freedom than this are left to the nodes.
constexpr double kNearlyFree = 0.8;
// The price of black ink where its drops would show, until about this much is wanted.
constexpr double kBlackCost = 4, kBlackIsWanted = 0.05;

constexpr int kPlain = 0;  // the medium

// What the qualities make of the same colours. Draft saves ink: black takes over grey early, and
// dark inks, of which little does, the light ones' part of middle tones. Fine qualities keep the
// black ink, whose drops show most, to the shadows.
struct QualityRules {
  double blackFrom;  // L*
  double lightInkUse, lightInkRoom;
  double blackOnly;  // the most of a page of black ink alone
};
constexpr QualityRules kQualityRules[kQualities] = {
    {78, 0.9, 1.2, 0.75}, {40, 1.0, 1.9, 1.0}, {30, 1.0, 1.9, 1.0}, {30, 1.0, 1.9, 1.0}};

// The inks from the one that darkens most, for the same amount, to the one that darkens least.
constexpr Ink kByDarkness[kInkCount] = {Ink::K,  Ink::M, Ink::md, Ink::C, Ink::m,
                                        Ink::cd, Ink::c, Ink::Y,  Ink::y};

// A channel's value at a grid index: 0 stands for white.
double ValueAt(int index) { return 1.0 - static_cast<double>(index) / (kGrid - 1); }

// What an ink set can print on one medium, the same for every quality.
struct Reach {
  Reach(const InkData& inks, int media, const SeparationRules& rules)
      : model(inks, media),
        separator(model, rules),
        black(BestInks(model, {rules.nineInks, rules.blackInk, rules.inkLimit}).Black() + 0.3),
        gamut(model, separator, black) {}

  PrintModel model;
  Separator separator;
  double black;  // L* of the darkest neutral
  GamutMap gamut;
};

// Made when it is first asked for; several threads may ask at a time.
class LazyReach {
 public:
  template <typename Make>
  const Reach& Get(Make make) {
    std::call_once(made_, [&] { reach_ = make(); });
    return *reach_;
  }

 private:
  std::once_flag made_;
  std::unique_ptr<Reach> reach_;
};

// Text on plain paper is of black ink alone, and so are greys: other inks would colour its edges.
bool BlackAlone(const TableKey& key) {
  return key.media == kPlain && key.intent == 1 && key.inkClass >= kSeven &&
         !(key.inkClass == kNine && key.quality == kQualities - 1);
}

int PlanesOf(int inkClass) { return inkClass == kBlackOnly ? 1 : inkClass == kNine ? 9 : 7; }

// Amounts as contone values. What rounding takes from the darkness of one ink, the next and lighter
// one makes up for.
ContoneInks Rounded(const InkAmounts& amounts, const PrintModel& model) {
  ContoneInks contone;
  double missing = 0;
  for (const Ink ink : kByDarkness) {
    const int i = static_cast<int>(ink);
    const double darkness = model.LayerDensity(ink)[1];
    const double exact = std::clamp(amounts[i], 0.0, 1.0) * 255.0;
    const bool adjusts = exact > 1.0 && exact < 254.0;
    const double wish = adjusts ? exact + std::clamp(missing / darkness, -0.5, 0.5) : exact;
    const int value = static_cast<int>(std::lround(wish));
    missing += (exact - value) * darkness;
    contone[i] = static_cast<std::uint8_t>(value);
  }
  return contone;
}

// Takes from the largest values what passes the limit.
ContoneInks WithinLimit(ContoneInks contone, double limit) {
  int total = std::accumulate(contone.begin(), contone.end(), 0);
  const int most = static_cast<int>(std::floor(limit * 255.0));
  while (total > most) {
    const int over = total - most;
    const auto largest = std::max_element(contone.begin(), contone.end());
    const int cut = std::min<int>(*largest, (over + kInkCount - 1) / kInkCount);
    *largest = static_cast<std::uint8_t>(*largest - cut);
    total -= cut;
  }
  return contone;
}

}  // namespace

struct TableBuilder::State {
  InkData inks;
  TableSettings settings;
  std::unique_ptr<IccSeparation> icc;
  LazyReach reaches[4][kMediaCount][2];  // without and with black ink

  SeparationRules RulesOf(const TableKey& key) const;
  const Reach& ReachOf(const TableKey& key);
  std::vector<NodeWish> WishesOf(const TableKey& key, const Separator& separator);
  std::vector<BetweenWish> BetweenWishesOf(const TableKey& key, const std::vector<NodeWish>& nodes);
  Rendering RenderingOf(const TableKey& key);
  std::vector<std::uint8_t> BlackCurve(const TableKey& key);
  // Whether a profile, not the ink model, says which inks make a colour.
  bool UsesProfile(const TableKey& key) const {
    return icc && icc->Serves(PlanesOf(key.inkClass), RulesOf(key).blackInk);
  }
  // The amounts of all nodes of a table, white first.
  std::vector<InkAmounts> NodesOf(const TableKey& key);
  // Contone values after linearisation, their sum inside the limit.
  ContoneInks Linearized(ContoneInks contone, double limit) const;
};

TableKey TableKeyOf(int place) {
  TableKey key;
  int* const indices[5] = {&key.inkClass, &key.media, &key.preference, &key.quality, &key.intent};
  for (int i = 4; i >= 0; --i) {
    *indices[i] = place % kTableExtents[i];
    place /= kTableExtents[i];
  }
  return key;
}

int PlaceOf(const TableKey& key) {
  const int indices[5] = {key.inkClass, key.media, key.preference, key.quality, key.intent};
  int place = 0;
  for (int i = 0; i < 5; ++i) place = place * kTableExtents[i] + indices[i];
  return place;
}

std::size_t TableBytes(const TableKey& key) {
  return key.inkClass == kBlackOnly ? 256
                                    : static_cast<std::size_t>(PlanesOf(key.inkClass)) * kNodes;
}

TableBuilder::TableBuilder(InkData inks, TableSettings settings) : state_(new State) {
  state_->inks = std::move(inks);
  if (settings.inkLimit && !(*settings.inkLimit >= 1.0 && *settings.inkLimit <= kInkCount)) {
    throw Failure(fmt::format("the ink limit {} % is not in 100 to 900", *settings.inkLimit * 100));
  }
  if (settings.blackStrength &&
      !(*settings.blackStrength >= 0.0 && *settings.blackStrength <= 1.0)) {
    throw Failure(fmt::format("the black generation {} is not in 0 to 1", *settings.blackStrength));
  }
  state_->settings = std::move(settings);
  if (!state_->settings.iccProfile.empty()) {
    state_->icc = std::make_unique<IccSeparation>(state_->settings.iccProfile);
    if (state_->settings.blackStrength && state_->icc->Serves(PlanesOf(kSeven), false)) {
      throw Failure(fmt::format("{}: a CMYK profile says itself how much grey black replaces",
                                state_->settings.iccProfile.string()));
    }
  }
}

TableBuilder::~TableBuilder() = default;

TableKey TableBuilder::Representative(const TableKey& key) const {
  TableKey first = key;
  if (key.inkClass == kBlackOnly || key.intent == 1) first.preference = 0;
  if (key.inkClass == kBlackOnly || key.inkClass == kSevenWithoutBlack) {
    first.quality = std::min(key.quality, 1);
  } else if (key.inkClass == kSeven) {
    first.quality = std::min(key.quality, 2);
  }
  if (state_->UsesProfile(key)) first.preference = 0;
  return first;
}

const InkData& TableBuilder::Inks() const { return state_->inks; }

SeparationRules TableBuilder::RulesOf(const TableKey& key) const { return state_->RulesOf(key); }

SeparationRules TableBuilder::State::RulesOf(const TableKey& key) const {
  SeparationRules rules;
  rules.nineInks = key.inkClass == kNine;
  // The finest nine-ink quality is that of the print mode whose data carry no black plane.
  rules.blackInk =
      key.inkClass != kSevenWithoutBlack && !(key.inkClass == kNine && key.quality == 3);
  rules.inkLimit = settings.inkLimit.value_or(inks.media[key.media].inkLimit);
  const QualityRules& quality = kQualityRules[key.quality];
  rules.lightInkUse = quality.lightInkUse;
  rules.lightInkRoom = quality.lightInkRoom;
  rules.blackFrom = quality.blackFrom;
  rules.blackGreys = BlackAlone(key);
  if (settings.blackStrength) {
    rules.blackFrom = 100 * *settings.blackStrength;
    rules.blackShare = std::min(1.0, 4 * *settings.blackStrength);
  }
  return rules;
}

const Reach& TableBuilder::State::ReachOf(const TableKey& key) {
  TableKey usual = key;
  if (key.quality != kQualities - 1) usual.quality = 1;
  usual.intent = 0;
  const SeparationRules rules = RulesOf(usual);
  return reaches[key.inkClass][key.media][rules.blackInk].Get(
      [&] { return std::make_unique<Reach>(inks, key.media, rules); });
}

ContoneInks TableBuilder::State::Linearized(ContoneInks contone, double limit) const {
  for (int i = 0; i < kInkCount; ++i) contone[i] = settings.curves.values[i][contone[i]];
  return WithinLimit(contone, limit);
}

// Entry 255 - L holds the black ink for luminance L.
std::vector<std::uint8_t> TableBuilder::State::BlackCurve(const TableKey& key) {
  const PrintModel model(inks, key.media);
  const Separator separator(model, {.inkLimit = 1.0});
  const double black = std::pow(10.0, -separator.SolidDensity(Dye::Black));
  std::vector<std::uint8_t> curve(256);
  for (int entry = 0; entry < 256; ++entry) {
    const double value = 1.0 - entry / 255.0;
    double linear = LinearFromSrgb({value, value, value})[0];
    if (key.intent == 0) linear = black + (1.0 - black) * linear;
    const double wanted = separator.DyeAmount(Dye::Black, -std::log10(std::max(linear, 1e-6)));
    const double amount =
        std::min({wanted, model.InkLimit(Ink::K), inks.media[key.media].inkLimit});
    InkAmounts amounts{};
    amounts[static_cast<int>(Ink::K)] = amount * kQualityRules[key.quality].blackOnly;
    curve[entry] = Linearized(Rounded(amounts, model), 1.0)[static_cast<int>(Ink::K)];
  }
  return curve;
}

Triple ColourOf(int node) {
  return {ValueAt(node / (kGrid * kGrid)), ValueAt(node / kGrid % kGrid), ValueAt(node % kGrid)};
}

// The corner of the cube that a node is, red 4, green 2, blue 1, or -1.
int CornerOf(const Triple& srgb) {
  int bits = 0;
  for (const double value : srgb) {
    if (value != 0.0 && value != 1.0) return -1;
    bits = 2 * bits + (value == 1.0);
  }
  return bits;
}

Rendering TableBuilder::State::RenderingOf(const TableKey& key) {
  const Reach& reach = ReachOf(key);
  Rendering rendering = {.colorimetric = key.intent == 1,
                         .vivid = key.intent == 0 && key.preference == 1};
  rendering.pureInks = rendering.colorimetric;
  rendering.black = reach.black;
  if (BlackAlone(key)) {
    InkAmounts ink{};
    ink[static_cast<int>(Ink::K)] = 1;
    rendering.black = LabFromBands(reach.model.Bands(ink))[0];
  }
  return rendering;
}

// Where the edge of the print runs through a cell, the nodes beyond it are to lie so that the
// colours halfway to them come out right.
std::vector<BetweenWish> TableBuilder::State::BetweenWishesOf(const TableKey& key,
                                                              const std::vector<NodeWish>& nodes) {
  const Reach& reach = ReachOf(key);
  const Rendering rendering = RenderingOf(key);
  std::vector<BetweenWish> wishes;
  for (int node = 0; node < kNodes; ++node) {
    for (unsigned axes = 1; axes < 8; ++axes) {
      int other = node;
      bool outside = false;
      for (int axis = 0; axis < 3; ++axis) {
        if (!(axes >> axis & 1)) continue;
        outside = outside || node / kAxisSteps[axis] % kGrid == kGrid - 1;
        other += kAxisSteps[axis];
      }
      if (outside || (nodes[node].freedom == 0 && nodes[other].freedom == 0)) continue;
      const Triple from = ColourOf(node), to = ColourOf(other);
      const Mapped mapped = reach.gamut.Map(
          {(from[0] + to[0]) / 2, (from[1] + to[1]) / 2, (from[2] + to[2]) / 2}, rendering);
      if (mapped.freedom > kNearlyFree) continue;
      wishes.push_back({{node, other}, mapped.lab, kInsideWeight * (1 - mapped.freedom)});
    }
  }
  return wishes;
}

std::vector<NodeWish> TableBuilder::State::WishesOf(const TableKey& key,
                                                    const Separator& separator) {
  const Reach& reach = ReachOf(key);
  const Rendering rendering = RenderingOf(key);
  const bool blackAlone = BlackAlone(key);
  std::vector<NodeWish> wishes(kNodes);
  for (int node = 0; node < kNodes; ++node) {
    const Triple srgb = ColourOf(node);
    const Mapped mapped = reach.gamut.Map(srgb, rendering);
    NodeWish& wish = wishes[node];
    wish.lab = mapped.lab;
    wish.freedom = mapped.freedom;
    wish.weight = kInsideWeight + (kBeyondWeight - kInsideWeight) * mapped.freedom;
    wish.black = separator.WantedBlack(mapped.lab, reach.black);
    wish.blackCost = kBlackCost * std::max(0.0, 1.0 - wish.black / kBlackIsWanted);
    const int corner = CornerOf(srgb);
    if (corner == 7) {
      wish.fixed = true;
    } else if (corner > 0 && rendering.pureInks) {
      wish.fixed = true;
      wish.dyes = reach.gamut.PureDyes(corner);
    } else if (corner >= 0) {
      wish.weight = kCornerWeight;
    }
    if (blackAlone && srgb[0] == srgb[1] && srgb[1] == srgb[2]) {
      wish.fixed = true;
      const double density = -std::log10(XyzFromLab(mapped.lab)[1]);
      wish.dyes = {0, 0, 0, corner == 0 ? 1.0 : separator.DyeAmount(Dye::Black, density)};
    }
  }
  return wishes;
}

std::vector<InkAmounts> TableBuilder::State::NodesOf(const TableKey& key) {
  const PrintModel& model = ReachOf(key).model;
  const Separator separator(model, RulesOf(key));
  std::vector<InkAmounts> nodes;
  if (UsesProfile(key)) {
    for (int node = 0; node < kNodes; ++node) {
      nodes.push_back(icc->Separate(ColourOf(node), key.intent == 1, separator));
    }
    return nodes;
  }
  const std::vector<NodeWish> wishes = WishesOf(key, separator);
  for (const DyeAmounts& dyes :
       SolveNodes(wishes, BetweenWishesOf(key, wishes), model, separator, {})) {
    nodes.push_back(separator.AmountsOf(dyes));
  }
  return nodes;
}

std::vector<std::uint8_t> TableBuilder::Build(const TableKey& key) const {
  if (key.inkClass == kBlackOnly) return state_->BlackCurve(key);

  const int planes = PlanesOf(key.inkClass);
  const double limit = InkLimit(key);
  const PrintModel& model = state_->ReachOf(key).model;
  std::vector<InkAmounts> nodes = state_->NodesOf(key);
  // A profile's colours are not the model's.
  if (!state_->UsesProfile(key)) {
    KeepRampsRising(nodes, model, [&](const InkAmounts& amounts) {
      return WithinLimit(Rounded(amounts, model), limit);
    });
  }
  std::vector<std::uint8_t> table(TableBytes(key));
  for (int node = 0; node < kNodes; ++node) {
    // Rounding may have passed the limit again, and so may the curves.
    const ContoneInks contone = state_->Linearized(Rounded(nodes[node], model), limit);
    for (int plane = 0; plane < planes; ++plane) table[plane * kNodes + node] = contone[plane];
  }
  return table;
}

}  // namespace corvane
