// SPDX-License-Identifier: MIT
//
// What the script of a report reads: numbers and pictures as text.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "app/report/press_check.h"

namespace corvane {

// Bytes as a zlib stream in base64.
std::string PackedBytes(std::span<const std::uint8_t> bytes);

// Numbers that lie in rows of `columns` and change little from one to the next: of each what it has
// more than the mean, rounded down, of those left of it and above it (0 beyond the edges), folded
// to 2 n, or to -2 n - 1 where that is negative; of 16 bits, or of 32 where one needs more, all low
// bytes, then all next ones and so on, as PackedBytes.
std::string PackedNumbers(std::span<const std::uint32_t> numbers, std::size_t columns);

// Squares of a picture of up to `side` pixels, row by row of them, as WebP in base64.
std::vector<std::string> PackedTiles(const PictureLevel& picture, std::uint32_t side);

}  // namespace corvane
