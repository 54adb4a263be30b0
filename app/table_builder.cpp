// SPDX-License-Identifier: MIT
#include "app/table_builder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <numeric>

#include "app/failure.h"
#include "app/icc_table.h"
#include "app/table_builder_gamut.h"
#include "app/table_builder_ramps.h"
#include "app/table_builder_separation.h"

namespace corvane {
namespace {

enum InkClass { kBlackOnly, kSevenWithoutBlack, kSeven, kNine };
constexpr int kQualities = 4;

// Part of the media's ink limit, and black generation, by quality. Draft saves ink; fine qualities
// keep the black ink, whose drops show most, to the shadows.
constexpr double kLimitPart[kQualities] = {0.75, 1.0, 1.0, 1.0};
constexpr double kBlackStrength[kQualities] = {0.75, 0.6, 0.45, 0.45};

// The inks from the one that darkens most, for the same amount, to the one that darkens least.
constexpr Ink kByDarkness[kInkCount] = {Ink::K,  Ink::M, Ink::md, Ink::C, Ink::m,
                                        Ink::cd, Ink::c, Ink::Y,  Ink::y};

// A channel's value at a grid index: 0 stands for white.
double ValueAt(int index) { return 1.0 - static_cast<double>(index) / (kGrid - 1); }

// Inks on one medium at one quality, and how colours get there.
struct Condition {
  Condition(const InkData& inks, int media, const SeparationRules& rules)
      : model(inks, media), separator(model, rules), gamut(separator) {}

  PrintModel model;
  Separator separator;
  GamutMap gamut;
};

// Made when it is first asked for; several threads may ask at a time.
class LazyCondition {
 public:
  template <typename Make>
  const Condition& Get(Make make) {
    std::call_once(made_, [&] { condition_ = make(); });
    return *condition_;
  }

 private:
  std::once_flag made_;
  std::unique_ptr<Condition> condition_;
};

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
  LazyCondition conditions[4][kMediaCount][kQualities];

  SeparationRules RulesOf(const TableKey& key) const;
  const Condition& ConditionOf(const TableKey& key);
  InkAmounts AmountsOf(const TableKey& key, const Triple& srgb);
  std::vector<std::uint8_t> BlackCurve(const TableKey& key);
  // Whether a profile, not the ink model, says which inks make a colour.
  bool UsesProfile(const TableKey& key) const { return icc && icc->Serves(PlanesOf(key.inkClass)); }
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
  rules.inkLimit =
      settings.inkLimit.value_or(inks.media[key.media].inkLimit * kLimitPart[key.quality]);
  rules.blackStrength = settings.blackStrength.value_or(kBlackStrength[key.quality]);
  return rules;
}

const Condition& TableBuilder::State::ConditionOf(const TableKey& key) {
  return conditions[key.inkClass][key.media][key.quality].Get(
      [&] { return std::make_unique<Condition>(inks, key.media, RulesOf(key)); });
}

InkAmounts TableBuilder::State::AmountsOf(const TableKey& key, const Triple& srgb) {
  const Condition& condition = ConditionOf(key);
  if (UsesProfile(key)) {
    return icc->Separate(srgb, key.intent == 1, condition.separator);
  }
  const Triple linear = LinearFromSrgb(srgb);
  const Triple mapped = key.intent == 1 ? condition.gamut.Colorimetric(linear)
                                        : condition.gamut.Perceptual(linear, key.preference == 1);
  return condition.separator.Separate(BandsFromLinearSrgb(mapped)).amounts;
}

ContoneInks TableBuilder::State::Linearized(ContoneInks contone, double limit) const {
  for (int i = 0; i < kInkCount; ++i) contone[i] = settings.curves.values[i][contone[i]];
  return WithinLimit(contone, limit);
}

// Entry 255 - L holds the black ink for luminance L.
std::vector<std::uint8_t> TableBuilder::State::BlackCurve(const TableKey& key) {
  const PrintModel model(inks, key.media);
  const SeparationRules rules = {.inkLimit = 1.0, .blackStrength = 1.0};
  const Separator separator(model, rules);
  const double black = separator.BlackPoint();
  std::vector<std::uint8_t> curve(256);
  for (int entry = 0; entry < 256; ++entry) {
    const double value = 1.0 - entry / 255.0;
    double linear = LinearFromSrgb({value, value, value})[0];
    if (key.intent == 0) linear = black + (1.0 - black) * linear;
    const double amount = separator.DyeAmount(Dye::Black, -std::log10(std::max(linear, 1e-6)));
    InkAmounts amounts{};
    amounts[static_cast<int>(Ink::K)] = amount * kLimitPart[key.quality];
    curve[entry] = Linearized(Rounded(amounts, model), 1.0)[static_cast<int>(Ink::K)];
  }
  return curve;
}

std::vector<InkAmounts> TableBuilder::State::NodesOf(const TableKey& key) {
  std::vector<InkAmounts> nodes;
  for (int r = 0; r < kGrid; ++r) {
    for (int g = 0; g < kGrid; ++g) {
      for (int b = 0; b < kGrid; ++b) {
        nodes.push_back(AmountsOf(key, {ValueAt(r), ValueAt(g), ValueAt(b)}));
      }
    }
  }
  return nodes;
}

std::vector<std::uint8_t> TableBuilder::Build(const TableKey& key) const {
  if (key.inkClass == kBlackOnly) return state_->BlackCurve(key);

  const int planes = PlanesOf(key.inkClass);
  const double limit = InkLimit(key);
  const PrintModel& model = state_->ConditionOf(key).model;
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
