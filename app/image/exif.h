// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane {

// The orientation (1 to 8) that a block of EXIF data gives, starting at its byte-order mark;
// 1 when it gives none.
int ExifOrientation(const std::uint8_t* data, std::size_t size);

}  // namespace corvane
