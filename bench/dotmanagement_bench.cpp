// SPDX-License-Identifier: MIT
//
// The passes of the raster filters at every instruction level: a row of 9920 pixels, which is the
// width of an A4 page at 1200 dpi, with 15 % dots in every plane. Items are the pixels of a pass,
// whatever its number of inks; "rows" are whole rows of seven planes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "dotmanagement/raster_filter_best_glossy.h"
#include "dotmanagement/raster_filter_better_glossy.h"
#include "dotmanagement/raster_filter_better_glossy_1.h"

namespace {

using corvane::CpuLevel;
using Bytes = std::vector<std::uint8_t>;

constexpr unsigned kPlaneBytes = 1240;
constexpr unsigned kPlanes = 7;
constexpr unsigned kDotPercent = 15;

Bytes ScatteredDots() {
  std::mt19937 random(1);
  Bytes bytes(kPlanes * kPlaneBytes);
  for (std::uint8_t& byte : bytes) {
    for (int bit = 0; bit < 8; ++bit) {
      byte = static_cast<std::uint8_t>(byte << 1 | (random() % 100 < kDotPercent));
    }
  }
  return bytes;
}

// A filter whose single passes can be run.
template <class Filter>
class Bench : public Filter {
 public:
  explicit Bench(CpuLevel level) : Filter(level), row_(ScatteredDots()) {
    this->Initialize(2 * kPlanes * kPlaneBytes);
  }

  void ColorPass() {
    Aim();
    this->FilterColorPlanes(kPlaneBytes);
  }
  void BlackPass() {
    Aim();
    this->FilterBlackPlane(kPlaneBytes);
  }
  void SecondExpansion() {
    Aim();
    this->ringCursor_ = this->secondExpansionRing_.First();
    this->FiltercmKPlanes(kPlaneBytes);
  }
  void WholeRow() {
    unsigned char* data = row_.data();
    unsigned long start = 0, end = kPlaneBytes, planeBytes = kPlaneBytes, width = 8 * kPlaneBytes;
    this->FilterCurrentRaster(&data, 0, &start, &end, &planeBytes, &width,
                              static_cast<tagBinaryCMYKDescriptor>(83));
  }

 private:
  const std::uint8_t* In(std::size_t plane) const { return row_.data() + plane * kPlaneBytes; }

  void Aim() {
    for (std::size_t plane = 0; plane < 3; ++plane) this->colorIn_[plane] = In(plane);
    for (std::size_t plane = 0; plane < 6; ++plane) this->furtherIn_[plane] = In(plane);
    this->blackIn_ = In(6);
    for (std::size_t plane = 0; plane < 4; ++plane) {
      this->firstRowOut_[plane] = this->firstBuffer_.Data() + 2 * plane * kPlaneBytes;
      if (this->secondBuffer_) {
        this->secondRowOut_[plane] = this->secondBuffer_.Data() + 2 * plane * kPlaneBytes;
      }
    }
    if constexpr (requires { this->rings_; }) {
      this->cellRingCursor_ = this->rings_[0].First();
    } else if constexpr (requires { this->ringFromT0_; }) {
      this->ringCursor_ = this->ringFromT0_.First();
    } else {
      this->ringCursor_ = this->ringU0U1_.First();
    }
  }

  Bytes row_;
};

template <class Filter>
void Register(const std::string& pass, void (Bench<Filter>::*run)()) {
  for (const CpuLevel level : corvane::kCpuLevels) {
    if (level > corvane::DetectedCpuLevel()) continue;
    const std::string name = "dots/" + pass + "/" + corvane::NameOf(level);
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
      Bench<Filter> filter(level);
      for (auto _ : state) {
        (filter.*run)();
        benchmark::ClobberMemory();
      }
      state.SetItemsProcessed(state.iterations() * 8 * kPlaneBytes);
    });
  }
}

const bool registered = [] {
  using Best = Bench<RasterFilterBestGlossy>;
  using Better = Bench<RasterFilterBetterGlossy>;
  using Cells = Bench<RasterFilterBetterGlossy_1>;
  Register("best glossy, three inks", &Best::ColorPass);
  Register("better glossy, three inks", &Better::ColorPass);
  Register("cells, three inks", &Cells::ColorPass);
  Register("second expansion", &Best::SecondExpansion);
  Register("best glossy, black", &Best::BlackPass);
  Register("cells, black", &Cells::BlackPass);
  Register("best glossy, rows", &Best::WholeRow);
  return true;
}();

}  // namespace
