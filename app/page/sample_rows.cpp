// SPDX-License-Identifier: MIT
#include "app/page/sample_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>

namespace corvane {
namespace {

using Row = std::vector<std::uint8_t>;

constexpr std::uint32_t kGrainLength = 1 << 16;

const std::vector<float>& Grain() {
  static const std::vector<float> grain = [] {
    std::mt19937 source(5);
    std::normal_distribution<float> normal(0, 3);
    std::vector<float> values(kGrainLength);
    for (float& value : values) value = normal(source);
    return values;
  }();
  return grain;
}

// A number that two or three others lead to, always the same.
std::uint32_t Mixed(std::uint32_t a, std::uint32_t b, std::uint32_t c = 0) {
  return std::minstd_rand((a * 73856093u) ^ (b * 19349663u) ^ (c * 83492791u))();
}

void DrawPhoto(Row& row, std::uint32_t width, std::uint32_t y) {
  const std::vector<float>& grain = Grain();
  std::uint32_t at = Mixed(y, 1);
  const auto height = static_cast<float>(y);
  for (std::uint32_t x = width / 20; x < width - width / 20; ++x) {
    const auto across = static_cast<float>(x);
    for (std::uint32_t channel = 0; channel < 3; ++channel) {
      const auto c = static_cast<float>(channel);
      const float value = 128 + 70 * std::sin(across * 0.004f + c * 1.3f + height * 0.001f) +
                          40 * std::sin(across * 0.021f * (c + 1) + height * 0.005f) +
                          (x / 700 % 2 == 0 ? 0.0f : 25.0f) + grain[at++ % kGrainLength];
      row[std::size_t{3} * x + channel] =
          static_cast<std::uint8_t>(std::clamp(value, 0.0f, 255.0f));
    }
  }
}

// Letters of 28 by 40 pixels in lines of 80, each of a few strokes of 5 pixels on a grid.
void DrawText(Row& row, std::uint32_t width, std::uint32_t y) {
  constexpr std::uint32_t kLine = 80, kHeight = 40, kLetter = 28, kStroke = 5;
  if (y % kLine >= kHeight) return;
  const std::uint32_t strokeRow = y % kLine / kStroke;
  for (std::uint32_t x = width / 10; x < width - width / 10; ++x) {
    const std::uint32_t letter = x / kLetter, strokeColumn = x % kLetter / kStroke;
    const bool gap = strokeColumn == kLetter / kStroke || Mixed(letter, y / kLine) % 6 == 0;
    // Neighbouring rows of a letter share their strokes in pairs, so that there are long ones.
    const bool ink = Mixed(letter + strokeColumn * 131, y / kLine, strokeRow / 2) % 5 < 2;
    if (gap || !ink) continue;
    std::fill_n(row.begin() + std::size_t{3} * x, 3, std::uint8_t{0});
  }
}

}  // namespace

const char* NameOf(SampleContent content) {
  return content == SampleContent::Photo ? "photo" : "text";
}

Row SampleRow(SampleContent content, std::uint32_t width, std::uint32_t y) {
  Row row(std::size_t{3} * width, 255);
  if (content == SampleContent::Photo) {
    DrawPhoto(row, width, y);
  } else {
    DrawText(row, width, y);
  }
  return row;
}

}  // namespace corvane
