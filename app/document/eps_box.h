// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "app/support/descriptor.h"

namespace corvane {

// In points from the lower left corner of the user's space.
struct EpsBox {
  double left = 0, bottom = 0, right = 0, top = 0;
};

// The bounding box of an illustration, as the comments of Adobe's Document Structuring Conventions
// have it, the one in fractions of a point first: in the head, behind the blanks that may stand
// before it, or at the end where the head puts it off. Nothing: it has none, or a damaged one.
std::optional<EpsBox> BoxOfEps(const Descriptor& file, std::uint64_t fileBytes);

}  // namespace corvane
