// SPDX-License-Identifier: MIT
//
// The halftone engines, fast against plain in one run. Both take the same rows in turn, each row
// is timed alone, and the least of several sweeps counts, so that other load drops out.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "halftone/engine.h"
#include "halftone/engine_fast.h"
#include "simd/level.h"
#include "tests/halftone/engine_page.h"

namespace corvane {
namespace {

constexpr std::uint32_t kWidth = 4960;  // contone pixels: A4 at 600 dpi
constexpr int kRows = 16;
constexpr int kRepeats = 2;  // each contone row is halftoned twice, as at twice the resolution
constexpr int kSweeps = 7;

using Row = std::vector<std::uint8_t>;

enum class Content { Photo, Text, Flat, White, Faint, Gradient };

// Smooth fields with grain and edges; dark inks and black are absent from the lighter parts.
Row PhotoRow(int y, std::mt19937& random) {
  Row row(std::size_t{kInkCount} * kWidth);
  for (int plane = 0; plane < kInkCount; ++plane) {
    const bool light = plane == 1 || plane == 3 || plane == 5;
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      const double u = x / 700.0 + plane * 1.3;
      const double v = y / 40.0 + plane * 0.7;
      double level = 100 + 70 * std::sin(u) + 40 * std::sin(2.7 * u + v) + 20 * std::cos(v);
      if (x / 613 % 3 == 1) level = 240 - level;
      if (!light) level = level * 1.1 - 70;
      level += static_cast<int>(random() % 9) - 4;
      row[std::size_t{kWidth} * plane + x] =
          static_cast<std::uint8_t>(std::clamp(level, 0.0, 255.0));
    }
  }
  return row;
}

// Strokes of letters with grey edges on white, a different cut through them on every fourth row.
Row TextRow(int y) {
  std::mt19937 random(static_cast<unsigned>(y / 4));
  Row row(std::size_t{kInkCount} * kWidth);
  for (std::uint32_t x = 0; x < kWidth;) {
    x += 4 + random() % 28;
    const std::uint32_t end = std::min(x + 3 + static_cast<std::uint32_t>(random() % 8), kWidth);
    for (std::uint32_t first = x; x < end; ++x) {
      const bool edge = x == first || x + 1 == end;
      const auto level = static_cast<std::uint8_t>(edge ? 40 + random() % 200 : 255);
      for (int plane = 0; plane < kInkCount; ++plane) row[std::size_t{kWidth} * plane + x] = level;
    }
  }
  return row;
}

std::vector<Row> MakeRows(Content content) {
  std::mt19937 random(1);
  std::vector<Row> rows;
  for (int y = 0; y < kRows; ++y) {
    if (content == Content::Photo) {
      rows.push_back(PhotoRow(y, random));
    } else if (content == Content::Text) {
      rows.push_back(TextRow(y));
    } else if (content == Content::Gradient) {
      Row row(std::size_t{kInkCount} * kWidth);
      for (std::size_t i = 0; i < row.size(); ++i) {
        row[i] = static_cast<std::uint8_t>(i % kWidth * 255 / kWidth);
      }
      rows.push_back(std::move(row));
    } else {
      Row row(std::size_t{kInkCount} * kWidth);
      if (content == Content::Faint) row.assign(row.size(), 2);
      for (int plane = 0; plane < kInkCount && content == Content::Flat; ++plane) {
        std::fill_n(row.begin() + std::size_t{kWidth} * plane, kWidth,
                    static_cast<std::uint8_t>(40 + 20 * plane));
      }
      rows.push_back(std::move(row));
    }
  }
  return rows;
}

struct Setting {
  KernelName kernel;
  std::uint32_t numPix;
  bool bothDirections;
  std::uint16_t ShiftCMY, Shiftcmy, ShiftK;
};

void SetUp(EnginePage& page, const Setting& setting) {
  page.state.ShiftCMY = setting.ShiftCMY;
  page.state.Shiftcmy = setting.Shiftcmy;
  page.state.ShiftK = setting.ShiftK;
  page.state.BothDirections = setting.bothDirections;
}

double TimeRow(EnginePage& page, const Row& row, std::uint32_t number) {
  page.state.data = row.data();
  page.state.row = number;
  page.rowPhase = number * 37 % 1024;
  const auto start = std::chrono::steady_clock::now();
  RunKernel(page.kernel(), page.state);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct FastPageDeleter {
  void operator()(FastPage* page) const { DeleteFastPage(page); }
};

void BenchHalftone(benchmark::State& bench, const Setting& setting, Content content,
                   CpuLevel level) {
  const Kernel& kernel = KernelOf(setting.kernel);
  const std::vector<Row> rows = MakeRows(content);
  const std::size_t count = std::size_t{kRows} * kRepeats;
  std::vector<double> plainBest(count, 1e9);
  std::vector<double> lanesBest(count, 1e9);
  std::vector<double> fastBest(count, 1e9);
  for (auto _ : bench) {
    EnginePage plain(kernel, setting.numPix, kWidth);
    EnginePage fast(kernel, setting.numPix, kWidth);
    EnginePage lanes(kernel, setting.numPix, kWidth);
    SetUp(plain, setting);
    SetUp(lanes, setting);
    SetUp(fast, setting);
    const std::unique_ptr<FastPage, FastPageDeleter> fastPage(
        NewFastPage(kernel, fast.state, level));
    fast.state.fastPage = fastPage.get();
    const std::unique_ptr<FastPage, FastPageDeleter> lanesPage(
        NewLanesPage(kernel, lanes.state, level));
    lanes.state.fastPage = lanesPage.get();
    double seconds = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const auto number = static_cast<std::uint32_t>(i);
      plainBest[i] = std::min(plainBest[i], TimeRow(plain, rows[i / kRepeats], number));
      lanesBest[i] = std::min(lanesBest[i], TimeRow(lanes, rows[i / kRepeats], number));
      const double fastTime = TimeRow(fast, rows[i / kRepeats], number);
      fastBest[i] = std::min(fastBest[i], fastTime);
      seconds += fastTime;
    }
    if (plain.output() != fast.output()) bench.SkipWithError("fast and plain differ");
    bench.SetIterationTime(seconds);
  }
  double plainTime = 0;
  double lanesTime = 0;
  double fastTime = 0;
  // The rows with which a page begins make tables.
  for (std::size_t i = kRepeats; i < count; ++i) {
    plainTime += plainBest[i];
    lanesTime += lanesBest[i];
    fastTime += fastBest[i];
  }
  // Per binary pixel and pass, all inks together.
  const double pixels = static_cast<double>(count - kRepeats) * kWidth * setting.numPix *
                        (setting.bothDirections ? 2 : 1);
  bench.counters["plain_ns"] = plainTime / pixels * 1e9;
  bench.counters["fast_ns"] = fastTime / pixels * 1e9;
  bench.counters["lanes_ns"] = lanesTime / pixels * 1e9;
  bench.counters["lanes_ratio"] = lanesTime / fastTime;
  bench.counters["ratio"] = plainTime / fastTime;
  bench.counters["Mink_px/s"] = pixels * kernel.inkCount / fastTime / 1e6;
}

void RegisterAll() {
  using enum KernelName;
  const Setting settings[] = {
      {CcMmYyK22QDSD_25_25_25, 2, false, 2, 2, 2},
      {CcMmYyK22QDSD_25_50_25_Coupled, 2, false, 2, 3, 2},
      {CcMmYyK22QDSD_12_5_25_12_5_Coupled, 4, false, 1, 2, 1},
      {CcMmYyKcm22QDSD_25_25_50, 2, false, 2, 2, 3},
      {CcMmYyKcm22QDSD_6_25_12_5_25_Coupled, 4, true, 0, 1, 2},
      {CcMmYyKKccmm23QDSD_50_50_200, 1, false, 3, 3, 5},
      {K2QDSD_25, 2, false, 2, 2, 2},
      {K2QDSD_6_25, 4, true, 0, 0, 0},
  };
  const std::pair<const char*, Content> contents[] = {
      {"photo", Content::Photo}, {"text", Content::Text},   {"flat", Content::Flat},
      {"white", Content::White}, {"faint", Content::Faint}, {"gradient", Content::Gradient}};
  for (const Setting& setting : settings) {
    for (const auto& [contentName, content] : contents) {
      for (const CpuLevel level : kCpuLevels) {
        if (level == CpuLevel::Plain || level > DetectedCpuLevel()) continue;
        const std::string name = std::string("halftone/") + KernelOf(setting.kernel).name + "/" +
                                 contentName + "/" + NameOf(level);
        benchmark::RegisterBenchmark(name.c_str(), BenchHalftone, setting, content, level)
            ->Iterations(kSweeps)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
      }
    }
  }
}

const bool kRegistered = (RegisterAll(), true);

}  // namespace
}  // namespace corvane
