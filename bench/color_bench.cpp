// SPDX-License-Identifier: MIT
//
// Colour conversion: every instruction level against the plain converters and against Little CMS
// doing the same (8-bit RGB to as many channels, 17 nodes an axis, tetrahedral).

#include <benchmark/benchmark.h>
#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "color/conversion.h"

namespace {

using corvane::CpuLevel;
using corvane::InterleavedTable;
using Bytes = std::vector<unsigned char>;

constexpr std::uint32_t kWidth = 4960;  // an A4 row at 600 dpi
constexpr std::size_t kRows = 64;
constexpr unsigned kEdge = InterleavedTable::kEdge;
constexpr std::size_t kNodes = InterleavedTable::kNodes;

enum class Picture { Photo, Random, Flat };
constexpr const char* kPictureNames[] = {"photo", "random", "flat"};

// Rows of R, G, B. A photograph is smooth fields, grain and a hard edge now and then.
std::vector<Bytes> MakeRows(Picture picture) {
  std::mt19937 random(5);
  std::normal_distribution<double> grain(0, 3);
  std::vector<Bytes> rows(kRows, Bytes(kWidth * 3));
  for (std::size_t y = 0; y < kRows; ++y) {
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      for (std::uint32_t channel = 0; channel < 3; ++channel) {
        double value = 200 - 40.0 * channel;
        if (picture == Picture::Random) value = random() % 256;
        if (picture == Picture::Photo) {
          value = 128 + 70 * std::sin(x * 0.004 + channel * 1.3 + y * 0.01) +
                  40 * std::sin(x * 0.021 * (channel + 1) + y * 0.05) +
                  (x / 700 % 2 == 0 ? 0 : 25) + grain(random);
        }
        rows[y][x * 3 + channel] =
            static_cast<unsigned char>(std::min(255.0, std::max(0.0, value)));
      }
    }
  }
  return rows;
}

// Ink amounts that vary smoothly over the cube.
unsigned char InkAt(std::size_t plane, std::size_t node) {
  const double c = static_cast<double>(node / 289) / 16;
  const double m = static_cast<double>(node / 17 % 17) / 16;
  const double y = static_cast<double>(node % 17) / 16;
  const double mix =
      std::fabs(std::sin(c * (1 + plane) + m * (2 + plane % 3) + y * (1 + plane % 2)));
  return static_cast<unsigned char>(255 * mix * (c + m + y) / 3);
}

Bytes MakeTable(std::size_t planes) {
  if (planes == 1) {
    Bytes curve(256);
    for (std::size_t i = 0; i < curve.size(); ++i)
      curve[i] = static_cast<unsigned char>(i * i / 255);
    return curve;
  }
  Bytes table(planes * kNodes);
  for (std::size_t i = 0; i < table.size(); ++i) table[i] = InkAt(i / kNodes, i % kNodes);
  return table;
}

// Converts the rows of a picture again and again. `tagStep` above 0 converts pixels with tags that
// change between two tables every so many pixels.
class Conversion {
 public:
  Conversion(std::size_t planes, Picture picture, std::uint32_t tagStep)
      : planes_(planes), rows_(MakeRows(picture)), table_(MakeTable(planes)) {
    if (planes > 1)
      corvane::Interleave(table_.data(), static_cast<unsigned>(planes), *interleaved_);
    *second_ = *interleaved_;
    secondTable_ = table_;
    for (std::size_t tag = 0; tag < corvane::kTags; ++tag) {
      tables_[tag] = tag < 2 ? table_.data() : secondTable_.data();
      interleavedTables_[tag] = tag < 2 ? interleaved_.get() : second_.get();
    }
    if (tagStep > 0) AddTags(tagStep);
    layout_ = tagStep > 0 ? 2 : 0;
  }

  void Run(benchmark::State& state, CpuLevel level) {
    const corvane::Converters& converters = corvane::ConvertersFor(level);
    const corvane::RowConverter convert = planes_ == 1   ? converters.black[layout_]
                                          : planes_ == 7 ? converters.sevenInks[layout_]
                                                         : converters.nineInks[layout_];
    std::size_t row = 0;
    for (auto _ : state) {
      convert({rows_[row].data(), 0, kWidth, out_.data(), kWidth, tables_.data(),
               interleavedTables_.data(), slots_.get()});
      benchmark::ClobberMemory();
      row = (row + 1) % kRows;
    }
    state.SetItemsProcessed(state.iterations() * kWidth);
  }

 private:
  void AddTags(std::uint32_t tagStep) {
    for (Bytes& row : rows_) {
      Bytes tagged;
      for (std::uint32_t x = 0; x < kWidth; ++x) {
        tagged.insert(tagged.end(), row.begin() + x * 3, row.begin() + x * 3 + 3);
        tagged.push_back(x / tagStep % 2 == 0 ? 0 : 2);
      }
      row = tagged;
    }
  }

  std::size_t planes_;
  std::size_t layout_ = 0;
  std::vector<Bytes> rows_;
  Bytes table_;
  Bytes secondTable_;
  std::unique_ptr<InterleavedTable> interleaved_ = std::make_unique<InterleavedTable>();
  std::unique_ptr<InterleavedTable> second_ = std::make_unique<InterleavedTable>();
  std::array<const unsigned char*, corvane::kTags> tables_{};
  std::array<const InterleavedTable*, corvane::kTags> interleavedTables_{};
  std::unique_ptr<corvane::ConversionSlots> slots_ = std::make_unique<corvane::ConversionSlots>();
  Bytes out_ = Bytes(kWidth * 9);
};

cmsInt32Number SampleInk(const cmsUInt16Number in[], cmsUInt16Number out[], void* planes) {
  std::size_t node = 0;
  for (int axis = 0; axis < 3; ++axis) {
    node = node * kEdge + static_cast<std::size_t>((65535 - in[axis]) * 16L / 65535);
  }
  for (std::size_t k = 0; k < *static_cast<std::size_t*>(planes); ++k) {
    out[k] = static_cast<cmsUInt16Number>(InkAt(k, node) * 257);
  }
  return TRUE;
}

// Little CMS with a device link of one 17-node table; its default interpolation for three inputs is
// tetrahedral.
void RunLittleCms(benchmark::State& state, std::size_t planes, Picture picture) {
  const std::vector<Bytes> rows = MakeRows(picture);
  const cmsUInt32Number channels = static_cast<cmsUInt32Number>(planes);
  cmsHPROFILE link = cmsCreateProfilePlaceholder(nullptr);
  cmsSetProfileVersion(link, 4.3);
  cmsSetDeviceClass(link, cmsSigLinkClass);
  cmsSetColorSpace(link, cmsSigRgbData);
  cmsSetPCS(link, planes == 7 ? cmsSig7colorData : cmsSig9colorData);
  cmsPipeline* pipeline = cmsPipelineAlloc(nullptr, 3, channels);
  cmsStage* table = cmsStageAllocCLut16bit(nullptr, kEdge, 3, channels, nullptr);
  cmsStageSampleCLut16bit(table, SampleInk, &planes, 0);
  cmsPipelineInsertStage(pipeline, cmsAT_END, table);
  cmsWriteTag(link, cmsSigAToB0Tag, pipeline);
  cmsPipelineFree(pipeline);

  const cmsUInt32Number outFormat =
      COLORSPACE_SH(planes == 7 ? PT_MCH7 : PT_MCH9) | CHANNELS_SH(channels) | BYTES_SH(1);
  cmsHPROFILE profiles[] = {link};
  // As many nodes as the table has, else it is resampled to more. The cache of the last pixel stays
  // on, as it does for most users; of the flags tried this is the fastest way.
  cmsHTRANSFORM transform = cmsCreateMultiprofileTransform(
      profiles, 1, TYPE_RGB_8, outFormat, INTENT_PERCEPTUAL, cmsFLAGS_GRIDPOINTS(kEdge));
  cmsCloseProfile(link);
  if (transform == nullptr) {
    state.SkipWithError("Little CMS refused the transform");
    return;
  }

  Bytes out(kWidth * planes);
  std::size_t row = 0;
  for (auto _ : state) {
    cmsDoTransform(transform, rows[row].data(), out.data(), kWidth);
    benchmark::ClobberMemory();
    row = (row + 1) % kRows;
  }
  state.SetItemsProcessed(state.iterations() * kWidth);
  cmsDeleteTransform(transform);
}

void Register(const std::string& what, std::size_t planes, Picture picture, std::uint32_t tagStep) {
  for (CpuLevel level : corvane::kCpuLevels) {
    if (level > corvane::DetectedCpuLevel()) continue;
    const std::string name = "color/" + what + "/" + corvane::NameOf(level);
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
      Conversion(planes, picture, tagStep).Run(state, level);
    });
  }
}

const bool registered = [] {
  for (std::size_t planes : {std::size_t{7}, std::size_t{9}}) {
    for (Picture picture : {Picture::Photo, Picture::Random, Picture::Flat}) {
      const std::string what =
          std::to_string(planes) + "_inks/" + kPictureNames[static_cast<int>(picture)];
      Register(what, planes, picture, 0);
      benchmark::RegisterBenchmark(
          ("color/" + what + "/lcms2").c_str(),
          [=](benchmark::State& state) { RunLittleCms(state, planes, picture); });
    }
  }
  Register("7_inks/photo_tags_every_200", 7, Picture::Photo, 200);
  Register("7_inks/photo_tags_every_3", 7, Picture::Photo, 3);
  Register("black/photo", 1, Picture::Photo, 0);
  Register("black/photo_tags_every_200", 1, Picture::Photo, 200);
  return true;
}();

}  // namespace
