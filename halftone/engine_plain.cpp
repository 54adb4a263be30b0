// SPDX-License-Identifier: MIT
//
// The plain engine: the definition that the fast one has to equal. Inks are halftoned one after
// the other, coupled inks in pairs.
#include <algorithm>
#include <cstddef>

#include "halftone/engine.h"
#include "halftone/threshold_tables.h"
#include "halftone/weight_maps.h"

namespace corvane {
namespace {

// One ink's view of the row and of its own state.
struct InkRow {
  const std::uint8_t* levels;
  const std::uint8_t* foldedLevels;  // null where nothing is folded in
  const LevelRule* rules;
  std::int16_t* line;
  std::uint8_t* plane;
  std::uint8_t* secondPlane;  // of a two-drop ink
  std::int16_t* carriedError;
  std::uint32_t* dotCount;
  std::uint32_t shift;
  ZeroLevelDecay decay;

  int LevelAt(std::uint32_t x) const {
    return foldedLevels == nullptr ? levels[x] : (3 * levels[x] + foldedLevels[x]) / 4;
  }
};

InkRow MakeInkRow(const KernelInk& ink, const RowState& state) {
  const std::size_t planeBytes = (state.outputWidth - 1) / 8 + 1;
  const int inkIndex = static_cast<int>(ink.ink);
  const int stateIndex = static_cast<int>(ink.state);
  InkRow row{};
  if (state.data != nullptr) {  // which a row without pixels may lack
    row.levels = state.data + std::size_t{ink.contonePlane} * state.stride;
  }
  if (state.data != nullptr && ink.foldedPlane != kNoPlane) {
    row.foldedLevels = state.data + std::size_t{ink.foldedPlane} * state.stride;
  }
  row.rules = LevelRulesOf(ink.set);
  row.line = state.ErrorRows[stateIndex];
  row.plane = state.output + ink.outputPlane * planeBytes;
  row.secondPlane = row.plane + planeBytes;
  row.carriedError = &state.CarriedError[stateIndex];
  row.dotCount = &state.DotCount[inkIndex];
  row.shift = ShiftOf(ink.group, state);
  row.decay = ink.decay;
  return row;
}

// One pass over the row, in the direction kStep: +1 forward, -1 backward.
struct Pass {
  std::uint32_t firstPixel;  // contone pixel that is visited first
  std::uint32_t pixelCount;
  std::uint32_t numPix;
  std::uint32_t phase;  // of the modulation at the first binary pixel
};

// Errors have 16 bits and wrap.
std::int32_t Wrap(std::int32_t error) { return static_cast<std::int16_t>(error); }

std::int32_t Decay(std::int32_t error, ZeroLevelDecay decay) {
  return decay == ZeroLevelDecay::Half ? error / 2 : 31 * error / 32;
}

std::int32_t ThresholdAt(const LevelRule& rule, std::uint32_t phase) {
  return rule.bias + (kModulation[phase] << rule.modulationShift);
}

std::uint32_t NextPhase(std::uint32_t phase) { return (phase + 1) % kModulationLength; }

void SetBit(std::uint8_t* plane, std::uint32_t pixel) {
  plane[pixel / 8] = static_cast<std::uint8_t>(plane[pixel / 8] | 0x80 >> pixel % 8);
}

// Hands the shares of the error to the next row, at the pixel's own entry and at the one behind
// it, and returns what is left for the next pixel.
template <int kStep>
std::int32_t Spread(std::int32_t error, const ErrorWeights& weights, std::int16_t* entry) {
  const std::int32_t below = weights.below.Of(error);
  const std::int32_t behind = weights.behind.Of(error);
  entry[0] = static_cast<std::int16_t>(below);
  entry[-kStep] = static_cast<std::int16_t>(entry[-kStep] + behind);
  return Wrap(error - below - behind);
}

// Inks and passes are taken by value: what a drop writes cannot change them then, and they stay in
// registers.
template <int kStep>
void DiffuseInk(const InkRow ink, const Pass pass) {
  std::uint8_t* const plane = ink.plane;
  std::int32_t error = *ink.carriedError;
  std::uint32_t dots = 0;
  std::uint32_t phase = pass.phase;
  std::uint32_t x = pass.firstPixel;
  for (std::uint32_t i = 0; i < pass.pixelCount; ++i, x += kStep) {
    const int level = ink.LevelAt(x);
    const std::int32_t input = level << ink.shift;
    const LevelRule rule = ink.rules[level];
    const ErrorWeights weights = kErrorWeights[rule.weights];
    std::uint32_t pixel = x * pass.numPix + (kStep > 0 ? 0 : pass.numPix - 1);
    for (std::uint32_t k = 0; k < pass.numPix; ++k, pixel += kStep) {
      std::int16_t* const entry = &ink.line[pixel + 1];
      error = Wrap(error + input + *entry);
      if (level == 0) {
        error = Decay(error, ink.decay);
      } else if (error > ThresholdAt(rule, phase)) {
        SetBit(plane, pixel);
        ++dots;
        error -= kFullDrop;
      }
      error = Spread<kStep>(error, weights, entry);
      phase = NextPhase(phase);
    }
  }
  *ink.carriedError = static_cast<std::int16_t>(error);
  *ink.dotCount += dots;
}

// An ink of up to two drops a pixel: from level 128 up the first drop is certain, and what the
// level has above it decides on the second.
template <int kStep>
void DiffuseTwoDropInk(const InkRow ink, const Pass pass) {
  std::int32_t error = *ink.carriedError;
  std::uint32_t dots = 0;
  std::uint32_t phase = pass.phase;
  std::uint32_t x = pass.firstPixel;
  for (std::uint32_t i = 0; i < pass.pixelCount; ++i, x += kStep) {
    const int level = ink.LevelAt(x);
    const bool certainDrop = level >= 128;
    const std::int32_t input = (level % 128) << ink.shift;
    const LevelRule rule = ink.rules[level];
    const ErrorWeights weights = kErrorWeights[rule.weights];
    std::uint32_t pixel = x * pass.numPix + (kStep > 0 ? 0 : pass.numPix - 1);
    for (std::uint32_t k = 0; k < pass.numPix; ++k, pixel += kStep) {
      std::int16_t* const entry = &ink.line[pixel + 1];
      error = Wrap(error + input + *entry);
      if (level == 0) {
        error = Decay(error, ink.decay);
      } else {
        const bool decidedDrop = error > ThresholdAt(rule, phase);
        if (decidedDrop) error -= kTwoDropUnit;
        if (certainDrop && decidedDrop) {
          SetBit(ink.secondPlane, pixel);
          dots += 2;
        } else if (certainDrop || decidedDrop) {
          SetBit(ink.plane, pixel);
          ++dots;
        }
      }
      error = Spread<kStep>(error, weights, entry);
      phase = NextPhase(phase);
    }
  }
  *ink.carriedError = static_cast<std::int16_t>(error);
  *ink.dotCount += dots;
}

// Two light inks. Where both are light, they share one decision at the sum of their levels, and
// the ink with the larger error (the second, if equal) gets the drop.
template <int kStep>
void DiffusePair(const InkRow a, const InkRow b, const Pass pass) {
  std::int32_t errorA = *a.carriedError;
  std::int32_t errorB = *b.carriedError;
  std::uint32_t dotsA = 0;
  std::uint32_t dotsB = 0;
  std::uint32_t phase = pass.phase;
  std::uint32_t x = pass.firstPixel;
  for (std::uint32_t i = 0; i < pass.pixelCount; ++i, x += kStep) {
    const int levelA = a.LevelAt(x);
    const int levelB = b.LevelAt(x);
    const bool joint = levelA < kJointLevelLimit && levelB < kJointLevelLimit;
    const LevelRule ruleA = a.rules[joint ? levelA + levelB : levelA];
    const LevelRule ruleB = b.rules[joint ? levelA + levelB : levelB];
    const ErrorWeights weightsA = kErrorWeights[ruleA.weights];
    const ErrorWeights weightsB = kErrorWeights[ruleB.weights];
    std::uint32_t pixel = x * pass.numPix + (kStep > 0 ? 0 : pass.numPix - 1);
    for (std::uint32_t k = 0; k < pass.numPix; ++k, pixel += kStep) {
      std::int16_t* const entryA = &a.line[pixel + 1];
      std::int16_t* const entryB = &b.line[pixel + 1];
      errorA = Wrap(errorA + (levelA << a.shift) + *entryA);
      errorB = Wrap(errorB + (levelB << b.shift) + *entryB);
      bool dropA = false;
      bool dropB = false;
      if (joint) {
        if (errorA + errorB > ThresholdAt(ruleA, phase)) {
          dropA = errorA > errorB && levelA != 0;
          dropB = !dropA && levelB != 0;
        }
      } else {
        dropA = levelA != 0 && errorA > ThresholdAt(ruleA, phase);
        dropB = levelB != 0 && errorB > ThresholdAt(ruleB, phase);
      }
      if (dropA) {
        SetBit(a.plane, pixel);
        ++dotsA;
        errorA -= kFullDrop;
      }
      if (dropB) {
        SetBit(b.plane, pixel);
        ++dotsB;
        errorB = Wrap(errorB - kFullDrop);  // it may be far below 0 where a has no ink
      }
      if (levelA == 0) errorA = Decay(errorA, a.decay);
      if (levelB == 0) errorB = Decay(errorB, b.decay);
      errorA = Spread<kStep>(errorA, weightsA, entryA);
      errorB = Spread<kStep>(errorB, weightsB, entryB);
      phase = NextPhase(phase);
    }
  }
  *a.carriedError = static_cast<std::int16_t>(errorA);
  *b.carriedError = static_cast<std::int16_t>(errorB);
  *a.dotCount += dotsA;
  *b.dotCount += dotsB;
}

// Clears the entries on the side where the pass begins, up to the guard of its first pixel.
template <int kStep>
void ClearLineStart(std::int16_t* line, const RowState& state) {
  if (kStep > 0) {
    std::fill_n(line, std::size_t{state.first} * state.NumPix + 1, std::int16_t{0});
  } else {
    std::fill(line + std::size_t{state.end} * state.NumPix + 1,
              line + std::size_t{state.width} * state.NumPix + 2, std::int16_t{0});
  }
}

// What the pass's first pixel handed to the guard goes to that pixel's own entry.
template <int kStep>
void FoldGuard(std::int16_t* line, const RowState& state) {
  std::int16_t* const guard = kStep > 0 ? line + std::size_t{state.first} * state.NumPix
                                        : line + std::size_t{state.end} * state.NumPix + 1;
  guard[kStep] = static_cast<std::int16_t>(guard[kStep] + guard[0]);
  guard[0] = 0;
}

// A pass of one ink; a pair runs with the later one of its inks.
template <int kStep>
void DiffuseInkOf(const Kernel& kernel, int index, const RowState& state, const Pass& pass) {
  const KernelInk& ink = kernel.inks[index];
  const InkRow row = MakeInkRow(ink, state);
  if (ink.twoDrop) {
    DiffuseTwoDropInk<kStep>(row, pass);
  } else if (ink.partner == kNoPartner) {
    DiffuseInk<kStep>(row, pass);
  } else if (ink.partner < index) {
    DiffusePair<kStep>(MakeInkRow(kernel.inks[ink.partner], state), row, pass);
  }
}

template <int kStep>
void RunPass(const Kernel& kernel, const RowState& state) {
  Pass pass{};
  pass.firstPixel = kStep > 0 ? state.first : state.end - 1;
  pass.pixelCount = state.first < state.end ? state.end - state.first : 0;
  pass.numPix = state.NumPix;
  pass.phase = *state.RowPhase;

  for (int i = 0; i < kernel.inkCount; ++i) {
    ClearLineStart<kStep>(state.ErrorRows[static_cast<int>(kernel.inks[i].state)], state);
  }
  for (int i = 0; i < kernel.inkCount; ++i) DiffuseInkOf<kStep>(kernel, i, state, pass);
  for (int i = 0; i < kernel.inkCount; ++i) {
    FoldGuard<kStep>(state.ErrorRows[static_cast<int>(kernel.inks[i].state)], state);
  }
  *state.RowPhase = static_cast<std::uint32_t>(
      (pass.phase + std::uint64_t{pass.pixelCount} * pass.numPix) % kModulationLength);
}

}  // namespace

void DiffuseSpanPlain(const Kernel& kernel, int index, const RowState& state, bool forward,
                      std::uint32_t first, std::uint32_t count, std::uint32_t phase) {
  Pass pass{};
  pass.firstPixel = forward ? first : first + count - 1;
  pass.pixelCount = count;
  pass.numPix = state.NumPix;
  pass.phase = phase % kModulationLength;
  if (forward) {
    DiffuseInkOf<+1>(kernel, index, state, pass);
  } else {
    DiffuseInkOf<-1>(kernel, index, state, pass);
  }
}

std::uint32_t RunKernelPlain(const Kernel& kernel, const RowState& state) {
  const std::uint32_t rowBytes = ClearOutput(kernel, state);
  const RowPasses passes = PassesOf(kernel, state);
  if (passes.forward) RunPass<+1>(kernel, state);
  if (passes.backward) RunPass<-1>(kernel, state);
  return rowBytes;
}

}  // namespace corvane
