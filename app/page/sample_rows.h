// SPDX-License-Identifier: MIT
//
// Pages without a file, for measurements: the same rows on every machine.
#pragma once

#include <cstdint>
#include <vector>

namespace corvane {

enum class SampleContent {
  Photo,  // smooth fields, grain of 3 levels, an edge every 700 pixels, white margins
  Text,   // black strokes of letters on white, in lines with white between them
};

inline constexpr SampleContent kSampleContents[] = {SampleContent::Photo, SampleContent::Text};

// "photo" or "text".
const char* NameOf(SampleContent content);

// Row `y` of a page of `width` pixels: R, G, B in 8 bits.
std::vector<std::uint8_t> SampleRow(SampleContent content, std::uint32_t width, std::uint32_t y);

}  // namespace corvane
