// SPDX-License-Identifier: MIT
#include "app/tables/encoder.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <deque>
#include <limits>

#include "app/tables/stored_table.h"
#include "color/table/decoder.h"
#include "color/table/stored_form.h"

namespace corvane {
namespace {

constexpr std::size_t kRowBytes = kCubeEdge;
constexpr int kCubeModes = 4;

using Row = std::array<std::uint8_t, kRowBytes>;

// ---------------------------------------------------------------------------------------------
// Which operations can express a row

// What decides which operations can express a row.
struct RowTraits {
  std::uint8_t maximum;    // of the row's bytes
  std::uint8_t rise;       // largest step, taken upwards modulo 256
  std::uint8_t fall;       // largest step, taken downwards modulo 256
  std::uint8_t magnitude;  // largest step, each taken the shorter way
  std::uint8_t range;      // largest minus smallest byte
};

RowTraits TraitsOf(const std::uint8_t* row) {
  const auto [least, most] = std::minmax_element(row, row + kRowBytes);
  RowTraits traits{*most, 0, 0, 0, static_cast<std::uint8_t>(*most - *least)};
  for (std::size_t k = 1; k < kRowBytes; ++k) {
    const auto up = static_cast<std::uint8_t>(row[k] - row[k - 1]);
    const auto down = static_cast<std::uint8_t>(row[k - 1] - row[k]);
    traits.rise = std::max(traits.rise, up);
    traits.fall = std::max(traits.fall, down);
    traits.magnitude = std::max(traits.magnitude, std::min(up, down));
  }
  return traits;
}

bool Expresses(const RowOperation& operation, const RowTraits& row) {
  const int limit = 1 << operation.bits;
  switch (operation.form) {
    case RowForm::Zero:
      return row.maximum == 0;
    case RowForm::Constant:
      return row.range == 0;
    case RowForm::Add:
      return row.rise < limit;
    case RowForm::Subtract:
      return row.fall < limit;
    case RowForm::Signed:
      return row.magnitude < limit;
    case RowForm::Offsets:
      return row.range < 128;
    case RowForm::Literal:
      return true;
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// Operand bytes

// Puts the low seven bits of `value`, the highest first, into the top bits of seven bytes.
void SpreadOverTopBits(unsigned value, std::uint8_t* bytes) {
  for (int i = 0; i < 7; ++i) bytes[i] |= (value >> (6 - i) & 1) << 7;
}

// Packs 16 values of `bits` bits into 2 * `bits` zeroed bytes. Widths that divide 8 follow one
// another from the top bit down; with the others each byte holds whole values in its low bits, and
// the last values are spread over what is left at the top.
void PackDeltas(const std::array<std::uint8_t, kDeltaCount>& d, int bits, std::uint8_t* c) {
  switch (bits) {
    case 3:
      for (int i = 0; i < 6; ++i) c[i] = d[i] | d[i + 6] << 3;
      for (int j = 0; j < 3; ++j) {
        c[2 * j] |= (d[12 + j] >> 1) << 6;
        c[2 * j + 1] |= (d[12 + j] & 1) << 6 | (d[15] >> (2 - j) & 1) << 7;
      }
      break;
    case 5:
      for (int i = 0; i < 10; ++i) c[i] = d[i];
      for (int j = 0; j < 5; ++j) {
        c[2 * j] |= (d[10 + j] >> 2) << 5;
        c[2 * j + 1] |= (d[10 + j] & 3) << 5 | (d[15] >> (4 - j) & 1) << 7;
      }
      break;
    case 6:
      for (int i = 0; i < 12; ++i) c[i] = d[i] | (d[12 + i / 3] >> (4 - 2 * (i % 3)) & 3) << 6;
      break;
    case 7:
      for (int i = 0; i < 14; ++i) c[i] = d[i];
      SpreadOverTopBits(d[14], c);
      SpreadOverTopBits(d[15], c + 7);
      break;
    default: {
      const int perByte = 8 / bits;
      for (int k = 0; k < static_cast<int>(kDeltaCount); ++k) {
        c[k / perByte] |= d[k] << (8 - bits * (k % perByte + 1));
      }
    }
  }
}

// The first byte, the packed differences and, for `Signed`, a bit for each that is 1 for plus.
void AppendDeltaRow(const RowOperation& operation, const std::uint8_t* row, std::uint8_t* out) {
  std::array<std::uint8_t, kDeltaCount> deltas;
  std::uint8_t* const signs = out + 1 + 2 * operation.bits;
  out[0] = row[0];
  for (std::size_t k = 0; k < kDeltaCount; ++k) {
    const auto up = static_cast<std::uint8_t>(row[k + 1] - row[k]);
    const auto down = static_cast<std::uint8_t>(row[k] - row[k + 1]);
    const bool plus = operation.form == RowForm::Add ||
                      (operation.form == RowForm::Signed && up < 1 << operation.bits);
    deltas[k] = plus ? up : down;
    if (plus && operation.form == RowForm::Signed) signs[k / 8] |= 0x80 >> k % 8;
  }
  PackDeltas(deltas, operation.bits, out + 1);
}

void AppendOffsetRow(const std::uint8_t* row, std::uint8_t* out) {
  const std::uint8_t base = *std::min_element(row, row + kRowBytes);
  out[0] = base;
  for (int k = 0; k < 15; ++k) out[1 + k] = row[k] - base;
  SpreadOverTopBits(row[15] - base, out + 1);
  SpreadOverTopBits(row[16] - base, out + 8);
}

void AppendOperands(const RowOperation& operation, const std::uint8_t* row,
                    std::vector<std::uint8_t>* codes) {
  const std::size_t start = codes->size();
  codes->resize(start + operation.operandBytes);
  std::uint8_t* const out = codes->data() + start;
  switch (operation.form) {
    case RowForm::Zero:
      break;
    case RowForm::Constant:
      out[0] = row[0];
      break;
    case RowForm::Add:
    case RowForm::Subtract:
    case RowForm::Signed:
      AppendDeltaRow(operation, row, out);
      break;
    case RowForm::Offsets:
      AppendOffsetRow(row, out);
      break;
    case RowForm::Literal:
      std::copy_n(row, kRowBytes, out);
      break;
  }
}

// ---------------------------------------------------------------------------------------------
// Runs: consecutive rows that share one code byte, and a count byte when they are more than three.

constexpr std::size_t kShortRun = 3;
constexpr std::size_t kLongestRun = 256;

struct Run {
  std::uint32_t bytes = 0;  // of this run and all after it
  std::uint16_t operation = 0;
  std::uint16_t rows = 0;
};

// The candidates for the end of a long run of one operation. A run from row i to row j takes
// operand x (j - i) bytes, so what the end j contributes, bytes(j) + operand x j, does not depend
// on where the run starts and the best end is the least of a sliding window.
class LongRunEnds {
 public:
  void Clear() { ends_.clear(); }
  void Add(std::size_t end, std::uint64_t cost) {
    while (!ends_.empty() && ends_.back().cost >= cost) ends_.pop_back();
    ends_.push_back({end, cost});
  }
  // The cheapest end not beyond `last`, or 0.
  std::size_t Best(std::size_t last) {
    while (!ends_.empty() && ends_.front().end > last) ends_.pop_front();
    return ends_.empty() ? 0 : ends_.front().end;
  }

 private:
  struct Candidate {
    std::size_t end;
    std::uint64_t cost;
  };
  std::deque<Candidate> ends_;
};

// The cheapest codes for rows i to the end, for every i; one more entry stands for the end itself.
std::vector<Run> PlanRuns(std::span<const std::uint8_t> table) {
  const std::size_t rowCount = table.size() / kRowBytes;
  std::vector<Run> plan(rowCount + 1);
  std::array<LongRunEnds, kRowOperationCount> longRuns;
  std::array<std::size_t, kRowOperationCount>
      reach;  // one past the last row that a run from here may hold
  reach.fill(rowCount);

  for (std::size_t i = rowCount; i-- > 0;) {
    const RowTraits traits = TraitsOf(table.data() + i * kRowBytes);
    Run& best = plan[i];
    best.bytes = std::numeric_limits<std::uint32_t>::max();
    for (std::size_t op = 0; op < kRowOperationCount; ++op) {
      const std::uint32_t operand = kRowOperations[op].operandBytes;
      if (!Expresses(kRowOperations[op], traits)) {
        reach[op] = i;
        longRuns[op].Clear();
        continue;
      }
      const auto consider = [&](std::size_t end, std::uint32_t codeBytes) {
        const auto rows = static_cast<std::uint32_t>(end - i);
        const std::uint32_t bytes = codeBytes + operand * rows + plan[end].bytes;
        if (bytes < best.bytes) {
          best = {bytes, static_cast<std::uint16_t>(op), static_cast<std::uint16_t>(rows)};
        }
      };
      for (std::size_t end = i + 1; end <= std::min(i + kShortRun, reach[op]); ++end) {
        consider(end, 1);
      }
      const std::size_t newEnd = i + kShortRun + 1;
      if (newEnd <= reach[op]) {
        longRuns[op].Add(newEnd, plan[newEnd].bytes + std::uint64_t{operand} * newEnd);
      }
      if (const std::size_t end = longRuns[op].Best(i + kLongestRun)) consider(end, 2);
    }
  }
  return plan;
}

std::uint32_t CodeBytes(std::span<const std::uint8_t> table) { return PlanRuns(table)[0].bytes; }

void AppendRowCodes(std::span<const std::uint8_t> table, std::vector<std::uint8_t>* codes) {
  const std::vector<Run> plan = PlanRuns(table);
  for (std::size_t row = 0; row + 1 < plan.size();) {
    const Run& run = plan[row];
    const RowOperation& operation = kRowOperations[run.operation];
    const unsigned repeats = run.rows - 1;
    codes->push_back(RowCode(operation.code, repeats));
    if (repeats >= kRepeatInNextByte) codes->push_back(repeats);
    for (const std::size_t end = row + run.rows; row < end; ++row) {
      AppendOperands(operation, table.data() + row * kRowBytes, codes);
    }
  }
}

// ---------------------------------------------------------------------------------------------
// The table as a whole

// Exchanges the cube's axes so that its codes are shortest, and returns the mode that undoes it.
std::uint8_t ChooseAxes(std::span<std::uint8_t> cube) {
  std::uint8_t bestMode = 0;
  std::uint32_t bestBytes = std::numeric_limits<std::uint32_t>::max();
  for (std::uint8_t mode = 0; mode < kCubeModes; ++mode) {
    TransposeCube(cube.data(), mode);
    const std::uint32_t bytes = CodeBytes(cube);
    TransposeCube(cube.data(), mode);
    if (bytes < bestBytes) {
      bestBytes = bytes;
      bestMode = mode;
    }
  }
  TransposeCube(cube.data(), bestMode);
  return bestMode;
}

bool DecodesTo(const std::vector<std::uint8_t>& stored, std::span<const std::uint8_t> table) {
  if (stored.size() >= table.size()) return false;
  const DecodedTable decoded = DecodeStoredTable(stored, static_cast<std::uint32_t>(table.size()));
  return std::equal(table.begin(), table.end(), decoded.bytes.begin(), decoded.bytes.end());
}

}  // namespace

std::optional<std::vector<std::uint8_t>> EncodeColorTable(std::span<const std::uint8_t> table) {
  std::vector<std::uint8_t> work(table.begin(), table.end());
  std::vector<std::uint8_t> modes;
  for (std::size_t at = 0; at < work.size(); at += kCubeBytes) {
    modes.push_back(ChooseAxes(std::span(work).subspan(at, kCubeBytes)));
  }
  std::vector<std::uint8_t> codes;
  AppendRowCodes(work, &codes);
  // A size by which a reader would take the bytes for another form; a mode byte more than there are
  // cubes is skipped by the decoder.
  const std::size_t size = kCodedHeaderBytes + modes.size() + codes.size();
  if (StoredFormOf(size) != StoredForm::Coded) modes.push_back(0);

  const std::uint32_t checksum =
      TableChecksum(table.data(), static_cast<std::uint32_t>(table.size()));
  std::vector<std::uint8_t> stored;
  stored.reserve(kCodedHeaderBytes + modes.size() + codes.size());
  for (int shift = 24; shift >= 0; shift -= 8) stored.push_back(checksum >> shift & 0xFF);
  stored.push_back(static_cast<std::uint8_t>(modes.size()));
  stored.insert(stored.end(), modes.begin(), modes.end());
  stored.insert(stored.end(), codes.begin(), codes.end());
  ScrambleCodedTable(stored.data(), static_cast<std::uint32_t>(stored.size()));
  if (!DecodesTo(stored, table)) return std::nullopt;
  return stored;
}

std::vector<std::uint8_t> EncodeBlackCurve(std::span<const std::uint8_t, kBlackCurveBytes> curve) {
  std::vector<std::uint8_t> stored(kDeltaCurveBytes);
  std::uint8_t previous = 0;
  for (std::size_t i = 0; i < kBlackCurveBytes; ++i) {
    const auto step = static_cast<std::uint8_t>(curve[i] - previous);
    if (step > 15) return {curve.begin(), curve.end()};
    stored[i / 2] |= i % 2 == 0 ? step << 4 : step;
    previous = curve[i];
  }
  return stored;
}

}  // namespace corvane
