// SPDX-License-Identifier: MIT
//
// Makes the modulation sequence and the bias tables of the halftone engine:
//
//     corvane_generate_tables > halftone/threshold_tables.cpp
//
// writes the tables to the standard output and what they show to the standard error; with a file
// named it checks that the file holds them. Integers only, so every machine and compiler makes the
// same tables.
//
// The rule behind the bias: at each level it is the one with which the first row of a flat patch,
// starting from zero error, places its ideal number of drops. Too high a bias leaves the first
// rows of a patch empty, too low a one fills them; far from the edge the coverage does not depend
// on it. Some biases are fixed beforehand (`FixedBias`); the rest of the curve is led through them.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "halftone/threshold_tables.h"
#include "halftone/weight_maps.h"

namespace corvane {
namespace {

using Sequence = std::array<std::int32_t, kModulationLength>;
using BiasTable = LevelTable<std::int32_t>;

constexpr int kLargestModulation = 256;

class RandomIndices {
 public:
  explicit RandomIndices(std::uint32_t seed) : state_(seed) {}

  // The next number below n.
  int Below(int n) {
    state_ = (1103515245u * state_ + 12345u) & 0x7FFFFFFFu;
    return static_cast<int>((state_ >> 8) % static_cast<std::uint32_t>(n));
  }

 private:
  std::uint32_t state_;
};

// ---- Modulation sequence

constexpr std::array<std::int32_t, 32> kFirstModulation = {
    178, 192, 37,  86,  55, 50, 160, 50,  162, 164, 169, 117, 247, 7,  169, 170,
    100, 153, 159, 229, 67, 50, 223, 213, 191, 173, 232, 97,  15,  36, 85,  10};
constexpr std::int32_t kLastModulation = 33;
constexpr int kFirstFree = static_cast<int>(kFirstModulation.size());
constexpr int kFreeCount = kModulationLength - kFirstFree - 1;

constexpr int kCorrelationLags = 64;
constexpr int kNeighbourDistance = 4;             // values this near to each other ...
constexpr int kNeighbourDifference = 9;           // ... shall differ by as much
constexpr std::int64_t kVariance = 1024 * 21845;  // sum of squares of the centred, doubled values

Sequence ShuffledSequence() {
  std::array<int, kLargestModulation + 1> left{};
  std::fill(left.begin() + 1, left.end(), kModulationLength / kLargestModulation);
  for (const std::int32_t value : kFirstModulation) --left[value];
  --left[kLastModulation];

  Sequence sequence{};
  std::copy(kFirstModulation.begin(), kFirstModulation.end(), sequence.begin());
  sequence.back() = kLastModulation;
  int next = kFirstFree;
  for (int value = 1; value <= kLargestModulation; ++value) {
    for (; left[value] > 0; --left[value]) sequence[next++] = value;
  }
  RandomIndices random(2026);
  for (int i = kFreeCount - 1; i > 0; --i) {
    std::swap(sequence[kFirstFree + i], sequence[kFirstFree + random.Below(i + 1)]);
  }
  return sequence;
}

std::int64_t Autocorrelation(const Sequence& sequence, int lag) {
  constexpr int kCentre = kLargestModulation + 1;  // twice the mean
  const auto product = [&](int i, int other) {
    return (2 * sequence[i] - kCentre) * (2 * sequence[other] - kCentre);
  };
  std::int32_t sum = 0;  // at most kVariance
  for (int i = lag; i < kModulationLength; ++i) sum += product(i, i - lag);
  for (int i = 0; i < lag; ++i) sum += product(i, i + kModulationLength - lag);
  return sum;
}

int CloseNeighbours(const Sequence& sequence) {
  int count = 0;
  for (int i = 0; i < kModulationLength; ++i) {
    for (int distance = 1; distance <= kNeighbourDistance; ++distance) {
      const int other = (i + distance) % kModulationLength;
      if (std::abs(sequence[i] - sequence[other]) < kNeighbourDifference) ++count;
    }
  }
  return count;
}

std::int64_t Regularity(const Sequence& sequence) {
  std::int64_t squares = 0;
  for (int lag = 1; lag <= kCorrelationLags; ++lag) {
    const std::int64_t correlation = Autocorrelation(sequence, lag);
    squares += correlation * correlation;
  }
  return 2000 * squares + CloseNeighbours(sequence) * kVariance * kVariance;
}

Sequence MakeSequence() {
  Sequence sequence = ShuffledSequence();
  std::int64_t best = Regularity(sequence);
  RandomIndices random(2027);
  for (int attempt = 0; attempt < 20000; ++attempt) {
    const int i = kFirstFree + random.Below(kFreeCount);
    const int j = kFirstFree + random.Below(kFreeCount);
    if (sequence[i] == sequence[j]) continue;
    std::swap(sequence[i], sequence[j]);
    const std::int64_t swapped = Regularity(sequence);
    if (swapped < best) {
      best = swapped;
    } else {
      std::swap(sequence[i], sequence[j]);
    }
  }
  return sequence;
}

// ---- Bias

// What one level of a set asks of the first-row simulation.
struct PatchLevel {
  int input;  // what the level adds to the error per binary pixel
  int drop;   // what a drop takes from it
  int modulationShift;
  ErrorWeights weights;
};

PatchLevel PatchLevelOf(CoverageSet set, int level) {
  const int shift = static_cast<int>(set);  // the sets 6.25 to 200 are in the order of their shifts
  const bool twoDrops = set == CoverageSet::Set200;
  return {.input = (twoDrops ? level % 128 : level) << shift,
          .drop = twoDrops ? 4064 : 4080,
          .modulationShift = kModulationShift[static_cast<int>(set)][level],
          .weights = WeightsOf(set, level)};
}

struct PatchRow {
  std::int64_t drops;
  std::int64_t pixels;
  bool hasEmptyRow;
};

// The first row of a flat patch, begun at eight phases.
PatchRow FirstRow(const Sequence& sequence, const PatchLevel& patch, std::int32_t bias,
                  int length) {
  PatchRow total{};
  for (int start = 1; start < kLargestModulation; start += 32) {
    std::int32_t error = 0;
    int phase = start;
    std::int64_t drops = 0;
    for (int pixel = 0; pixel < length; ++pixel) {
      error += patch.input;
      if (error > bias + (sequence[phase] << patch.modulationShift)) {
        error -= patch.drop;
        ++drops;
      }
      error -= patch.weights.below.Of(error) + patch.weights.behind.Of(error);
      phase = (phase + 1) % kModulationLength;
    }
    total.drops += drops;
    total.pixels += length;
    total.hasEmptyRow |= drops == 0;
  }
  return total;
}

// The odd bias with which the first row is nearest to its ideal number of drops.
std::int32_t CalibratedBias(const Sequence& sequence, const PatchLevel& patch) {
  if (patch.input == 0) return 1;
  if (patch.input >= patch.drop) return patch.drop - kLargestModulation - 1;

  const int length = std::max(8192, 800000 / patch.input) / 8;
  const auto input = 8 * std::int64_t{length} * patch.input;
  const auto output = [&](std::int32_t half) {
    return FirstRow(sequence, patch, 2 * half + 1, length).drops * patch.drop;
  };
  std::int32_t low = 0;
  std::int32_t high = 2048;
  while (high - low > 1) {
    const std::int32_t middle = (low + high) / 2;
    (output(middle) >= input ? low : high) = middle;
  }
  // Nearer as a quotient, a row without drops counting as a third.
  const bool lowIsNearer = output(low) * std::max(input, 3 * output(high)) <= 3 * input * input;
  return 2 * (lowIsNearer ? low : high) + 1;
}

struct FixedLevel {
  int level;
  std::int32_t bias;
};

// The biases that are fixed beforehand, in the order of their levels, by set.
const std::array<std::vector<FixedLevel>, kCoverageSetCount> kFixedBias = {{
    // clang-format off
    /* 6.25  */ {{0, 0}, {1, 15}, {2, 15}, {3, 17}, {4, 29}, {5, 31}, {6, 31}, {7, 45}, {228, 495},
                 {255, 479}},
    /* 12.5  */ {{0, 0}, {1, 15}, {2, 29}, {3, 31}, {4, 47}, {5, 39}, {6, 45}, {7, 53}, {255, 907}},
    /* 25    */ {{0, 0}, {1, 29}, {2, 47}, {3, 45}, {4, 61}, {5, 63}, {6, 77}, {7, 91}, {100, 729},
                 {248, 1331}, {255, 1169}},
    /* 50    */ {{0, 0}, {1, 47}, {2, 61}, {3, 77}, {4, 101}, {5, 103}, {6, 123}, {7, 145},
                 {244, 2233}, {255, 1573}},
    /* 100   */ {{0, 0}, {1, 61}, {2, 101}, {3, 123}, {4, 165}, {5, 207}, {6, 213}, {7, 247},
                 {255, 3823}},
    /* 200   */ {{0, 0}, {1, 101}, {2, 165}, {3, 213}, {4, 283}, {5, 353}, {6, 419}, {7, 485},
                 {127, 3813}, {128, 1}, {255, 3807}},
    /* 1x2   */ {},
    /* 1x2-K */ {{0, 0}, {1, 45}, {2, 90}, {3, 136}, {4, 181}, {5, 226}, {6, 271}, {7, 317},
                 {255, 6502}},
    // clang-format on
}};

// Levels from `first` to before `end` over which the bias runs without a step.
struct LevelRun {
  int first;
  int end;
};

std::vector<LevelRun> RunsOf(CoverageSet set) {
  const int index = static_cast<int>(set);
  std::vector<LevelRun> runs;
  for (int level = 0; level < kLevelCount; ++level) {
    const bool begins = level == 0 ||
                        kModulationShift[index][level] != kModulationShift[index][level - 1] ||
                        kWeightMaps[index][level] != kWeightMaps[index][level - 1] ||
                        (set == CoverageSet::Set200 && level == 128);
    if (begins) {
      runs.push_back({level, level + 1});
    } else {
      runs.back().end = level + 1;
    }
  }
  return runs;
}

constexpr std::int32_t FloorDivide(std::int32_t dividend, std::int32_t divisor) {
  const std::int32_t quotient = dividend / divisor;
  return dividend % divisor < 0 ? quotient - 1 : quotient;
}

// The odd number of the pair 2n, 2n + 1 in which numerator / denominator lies.
constexpr std::int32_t OddOfPair(std::int32_t numerator, std::int32_t denominator) {
  return 2 * FloorDivide(numerator, 2 * denominator) + 1;
}

// Leads the calibrated curve of one run through its fixed levels: what they differ by is added,
// linear between them and constant outside.
void LeadThrough(const std::vector<FixedLevel>& fixed, BiasTable* bias, LevelRun run) {
  const BiasTable calibrated = *bias;
  const auto difference = [&](const FixedLevel& point) {
    return point.bias - calibrated[point.level];
  };
  for (int level = run.first; level < run.end; ++level) {
    const auto next = std::find_if(fixed.begin(), fixed.end(),
                                   [&](const FixedLevel& point) { return point.level >= level; });
    const bool hasNext = next != fixed.end() && next->level < run.end;
    const bool hasPrevious = next != fixed.begin() && (next - 1)->level >= run.first;
    std::int32_t numerator = 0;
    std::int32_t denominator = 1;
    if (hasNext && hasPrevious) {
      const FixedLevel& previous = *(next - 1);
      denominator = next->level - previous.level;
      numerator = difference(previous) * denominator +
                  (difference(*next) - difference(previous)) * (level - previous.level);
    } else if (hasNext || hasPrevious) {
      numerator = difference(hasNext ? *next : *(next - 1));
    }
    (*bias)[level] = OddOfPair(calibrated[level] * denominator + numerator, denominator);
  }
}

BiasTable MakeCalibratedBias(const Sequence& sequence, CoverageSet set) {
  BiasTable bias;
  for (int level = 0; level < kLevelCount; ++level) {
    bias[level] = CalibratedBias(sequence, PatchLevelOf(set, level));
  }
  const std::vector<FixedLevel>& fixed = kFixedBias[static_cast<int>(set)];
  for (const LevelRun& run : RunsOf(set)) LeadThrough(fixed, &bias, run);
  for (const FixedLevel& point : fixed) bias[point.level] = point.bias;
  return bias;
}

// The fixed levels, then a straight line to the last one.
BiasTable MakeStraightBias(CoverageSet set) {
  const std::vector<FixedLevel>& fixed = kFixedBias[static_cast<int>(set)];
  BiasTable bias{};
  for (const FixedLevel& point : fixed) bias[point.level] = point.bias;
  const FixedLevel& from = fixed[fixed.size() - 2];
  const FixedLevel& to = fixed.back();
  const std::int32_t run = to.level - from.level;
  for (int level = from.level + 1; level < to.level; ++level) {
    bias[level] = from.bias + (2 * (to.bias - from.bias) * (level - from.level) + run) / (2 * run);
  }
  return bias;
}

BiasTable MakeBias(const Sequence& sequence, CoverageSet set) {
  switch (set) {
    case CoverageSet::Set1x2:
      return {};
    case CoverageSet::Set1x2K:
      return MakeStraightBias(set);
    default:
      return MakeCalibratedBias(sequence, set);
  }
}

// ---- Output

constexpr std::array<const char*, kCoverageSetCount> kSetNames = {"6.25", "12.5", "25",  "50",
                                                                  "100",  "200",  "1x2", "1x2-K"};

template <typename Table>
void AppendValues(const Table& table, const char* indent, std::string* text) {
  constexpr std::size_t kValuesInLine = 16;
  for (std::size_t i = 0; i < table.size(); ++i) {
    *text += i % kValuesInLine == 0 ? indent : " ";
    *text += std::to_string(table[i]) + ",";
    if (i % kValuesInLine == kValuesInLine - 1) *text += "\n";
  }
}

std::string SourceOf(const Sequence& sequence,
                     const std::array<BiasTable, kCoverageSetCount>& biases) {
  std::string text =
      "// SPDX-License-Identifier: MIT\n"
      "//\n"
      "// Written by generate_tables.cpp; change the tables there.\n"
      "#include \"halftone/threshold_tables.h\"\n"
      "\n"
      "namespace corvane {\n"
      "\n"
      "// clang-format off\n"
      "const std::array<std::int32_t, kModulationLength> kModulation = {\n";
  AppendValues(sequence, "    ", &text);
  text +=
      "};\n"
      "\n"
      "const std::array<LevelTable<std::int32_t>, kCoverageSetCount> kBias = {{\n";
  for (int set = 0; set < kCoverageSetCount; ++set) {
    text += std::string("    // ") + kSetNames[set] + "\n    {{\n";
    AppendValues(biases[set], "        ", &text);
    text += "    }},\n";
  }
  text +=
      "}};\n"
      "// clang-format on\n"
      "\n"
      "}  // namespace corvane\n";
  return text;
}

// ---- Report

void ReportSequence(const Sequence& sequence) {
  std::int64_t largest = 0;
  for (int lag = 1; lag <= kCorrelationLags; ++lag) {
    largest = std::max<std::int64_t>(largest, std::abs(Autocorrelation(sequence, lag)));
  }
  std::fprintf(stderr, "sequence: autocorrelation at lags 1 to %d at most %.4f\n", kCorrelationLags,
               static_cast<double>(largest) / static_cast<double>(kVariance));
}

// How far the first rows of the levels from 8 up are from their ideal number of drops.
void ReportFirstRows(const Sequence& sequence, CoverageSet set, const BiasTable& bias) {
  constexpr int kFirstReported = 8;
  constexpr int kLength = 8192;
  double deviation = 0;
  int levels = 0;
  int emptyLevels = 0;
  for (int level = kFirstReported; level < kLevelCount; ++level) {
    const PatchLevel patch = PatchLevelOf(set, level);
    if (patch.input == 0) continue;
    const PatchRow row = FirstRow(sequence, patch, bias[level], kLength);
    const double ideal = static_cast<double>(row.pixels) * patch.input / patch.drop;
    deviation += std::abs(static_cast<double>(row.drops) / ideal - 1.0);
    emptyLevels += row.hasEmptyRow ? 1 : 0;
    ++levels;
  }
  std::int64_t sum = 0;
  for (const std::int32_t value : bias) sum += value;
  std::fprintf(stderr,
               "set %-5s: sum of biases %lld, mean deviation of the first row %.4f, "
               "levels with an empty one %d\n",
               kSetNames[static_cast<int>(set)], static_cast<long long>(sum), deviation / levels,
               emptyLevels);
}

bool FileHolds(const char* path, const std::string& text) {
  std::ifstream file(path, std::ios::binary);
  const std::string held{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return held == text;
}

int Run(const char* checkedFile) {
  const Sequence sequence = MakeSequence();
  ReportSequence(sequence);
  std::array<BiasTable, kCoverageSetCount> biases{};
  for (int index = 0; index < kCoverageSetCount; ++index) {
    const auto set = static_cast<CoverageSet>(index);
    biases[index] = MakeBias(sequence, set);
    if (set <= CoverageSet::Set200) ReportFirstRows(sequence, set, biases[index]);
  }
  const std::string source = SourceOf(sequence, biases);
  if (checkedFile == nullptr) {
    std::fputs(source.c_str(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
  }
  if (FileHolds(checkedFile, source)) return 0;
  std::fprintf(stderr, "%s does not hold these tables\n", checkedFile);
  return 1;
}

}  // namespace
}  // namespace corvane

int main(int argumentCount, char** arguments) {
  return corvane::Run(argumentCount > 1 ? arguments[1] : nullptr);
}
