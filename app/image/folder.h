// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// The pictures and documents in a folder, not below it, in the natural order of their names: "page
// 2" comes before "page 10". Other files and hidden ones are passed over; a file that cannot be
// opened is not, so that whoever reads it says why. Throws Failure when there is none.
std::vector<std::string> PrintableFilesIn(const std::filesystem::path& folder);

// Whether `a` comes before `b`: runs of digits count as numbers.
bool ComesBefore(std::string_view a, std::string_view b);

}  // namespace corvane
