// SPDX-License-Identifier: MIT
//
// Colour tables in the form in which a file stores them (docs/color-table-file.md): the inverse of
// the plug-in's decoder, as small as the form allows.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "color/table/stored_form.h"

namespace corvane {

// The coded form of a table of whole cubes of 4913 bytes each, the first channel first. Nothing
// when the coded form would not be smaller than the table: then no file can hold the table.
std::optional<std::vector<std::uint8_t>> EncodeColorTable(std::span<const std::uint8_t> table);

// The stored form of a black curve: 128 bytes when no step is above 15, else the curve itself.
std::vector<std::uint8_t> EncodeBlackCurve(std::span<const std::uint8_t, kBlackCurveBytes> curve);

}  // namespace corvane
