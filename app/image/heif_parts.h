// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane {

// Whether the pictures of a HEIF file (ISO/IEC 23008-12) are put together in a sound way: a grid of
// tiles that are grids themselves, or that hold the grid, would be decoded until there is no memory
// left. Throws Failure naming the file.
void CheckHeifParts(const std::string& path);

}  // namespace corvane
