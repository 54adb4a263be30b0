// SPDX-License-Identifier: MIT
//
// The plain converters: the definition that the fast ones equal bit for bit.

#include <cstdint>

#include "color/conversion.h"

namespace corvane {
namespace {

constexpr std::int32_t kStepRed = InterleavedTable::kAxisSteps[0];
constexpr std::int32_t kStepGreen = InterleavedTable::kAxisSteps[1];
constexpr std::int32_t kStepBlue = InterleavedTable::kAxisSteps[2];
constexpr std::int32_t kStepAll = kStepRed + kStepGreen + kStepBlue;

// Place of one inverted colour byte on its axis: cell 0 to 15 and the position in it, 0 to 256.
struct AxisPosition {
  std::int32_t cell;
  std::int32_t fraction;
};

AxisPosition LocateOnAxis(std::uint8_t value) {
  const std::int32_t inverted = 255 - value;
  const std::int32_t cell = inverted >> 4;
  return {cell, inverted * 4096 / 255 - 256 * cell};
}

// The way through a cell from its base node to the opposite corner: along the axis of the largest
// fraction first, along that of the smallest last.
struct Tetrahedron {
  std::int32_t base;        // node T000
  std::int32_t steps[2];    // nodes from the base after the first and after the second axis
  std::int32_t weights[3];  // the fractions, in the order of the axes
};

Tetrahedron ChooseTetrahedron(const Pixel& pixel) {
  const AxisPosition c = LocateOnAxis(pixel.red);
  const AxisPosition m = LocateOnAxis(pixel.green);
  const AxisPosition y = LocateOnAxis(pixel.blue);
  const std::int32_t base = c.cell * kStepRed + m.cell * kStepGreen + y.cell * kStepBlue;
  const std::int32_t fc = c.fraction;
  const std::int32_t fm = m.fraction;
  const std::int32_t fy = y.fraction;

  if (fc >= fm && fm >= fy) return {base, {kStepRed, kStepRed + kStepGreen}, {fc, fm, fy}};
  if (fc >= fy && fy > fm) return {base, {kStepRed, kStepRed + kStepBlue}, {fc, fy, fm}};
  if (fy > fc && fc >= fm) return {base, {kStepBlue, kStepRed + kStepBlue}, {fy, fc, fm}};
  if (fm > fc && fc >= fy) return {base, {kStepGreen, kStepRed + kStepGreen}, {fm, fc, fy}};
  if (fm >= fy && fy > fc) return {base, {kStepGreen, kStepGreen + kStepBlue}, {fm, fy, fc}};
  return {base, {kStepBlue, kStepGreen + kStepBlue}, {fy, fm, fc}};
}

std::uint8_t Interpolate(const unsigned char* channel, const Tetrahedron& t) {
  const unsigned char* const node = channel + t.base;
  const std::int32_t v0 = node[0];
  const std::int32_t v1 = node[t.steps[0]];
  const std::int32_t v2 = node[t.steps[1]];
  const std::int32_t v3 = node[kStepAll];
  const std::int32_t sum =
      256 * v0 + t.weights[0] * (v1 - v0) + t.weights[1] * (v2 - v1) + t.weights[2] * (v3 - v2);
  return static_cast<std::uint8_t>(sum >> 8);
}

std::uint32_t SlotOf(const Pixel& pixel) {
  return (pixel.red & 15u) << 8 | (pixel.green & 15u) << 4 | (pixel.blue & 15u);
}

std::uint32_t KeyOf(const Pixel& pixel) {
  return std::uint32_t{pixel.tag} << 24 | std::uint32_t{pixel.red} << 16 |
         std::uint32_t{pixel.green} << 8 | pixel.blue;
}

template <class View>
View ViewOf(const ConversionRow& row) {
  return {nullptr, row.pixels + row.first * View::kBytesPerPixel};
}

template <class View>
void ConvertBlack(const ConversionRow& rowToConvert) {
  const ConversionRow row = rowToConvert;  // a copy: bytes written to the planes cannot change it
  View view = ViewOf<View>(row);
  for (std::uint32_t x = row.first; x < row.end; ++x) {
    const Pixel pixel = view.Next();
    const unsigned luminance = (3u * pixel.red + 4u * pixel.green + pixel.blue) >> 3;
    row.planes[x] = row.tables[pixel.tag][255 - luminance];
  }
}

template <class View, std::size_t kPlanes>
void ConvertInks(const ConversionRow& rowToConvert) {
  const ConversionRow row = rowToConvert;
  constexpr std::size_t kChannelBytes = InterleavedTable::kNodes;
  View view = ViewOf<View>(row);
  for (std::uint32_t x = row.first; x < row.end; ++x) {
    const Pixel pixel = view.Next();
    const std::uint32_t slot = SlotOf(pixel);
    const std::uint32_t key = KeyOf(pixel);
    std::uint8_t* const values = row.slots->values[slot];
    if (row.slots->keys[slot] != key) {
      row.slots->keys[slot] = key;
      const Tetrahedron tetrahedron = ChooseTetrahedron(pixel);
      const unsigned char* const table = row.tables[pixel.tag];
      for (std::size_t k = 0; k < kPlanes; ++k) {
        values[k] = Interpolate(table + k * kChannelBytes, tetrahedron);
      }
    }
    unsigned char* const planes = row.planes + x;
    for (std::size_t k = 0; k < kPlanes; ++k) planes[k * row.planeStride] = values[k];
  }
}

}  // namespace

constinit const Converters kPlainConverters = {
    {ConvertBlack<InlineRGBRGBRaster>, ConvertBlack<InlineXRGBXRGBRaster>,
     ConvertBlack<InlineRGBMRGBMRaster>},
    {ConvertInks<InlineRGBRGBRaster, 7>, ConvertInks<InlineXRGBXRGBRaster, 7>,
     ConvertInks<InlineRGBMRGBMRaster, 7>},
    {ConvertInks<InlineRGBRGBRaster, 9>, ConvertInks<InlineXRGBXRGBRaster, 9>,
     ConvertInks<InlineRGBMRGBMRaster, 9>},
    false,
};

}  // namespace corvane
