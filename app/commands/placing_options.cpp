// SPDX-License-Identifier: MIT
#include "app/commands/placing_options.h"

#include "app/paperfeed/head.h"

namespace corvane {
namespace {

// What the paper feed assumes of a page that is not printed end to end.
Margins MarginsOfHead() {
  constexpr double kSideMm = 3;
  const Printhead head;
  return {kSideMm, head.topMarginMm, kSideMm, head.bottomMarginMm};
}

}  // namespace

ImagePlacing PlacingFrom(const PlacingOptions& options) {
  ImagePlacing placing;
  if (options.scalePercent != 0) placing.scale = options.scalePercent / 100;
  if (!options.borderless && !options.margins.empty()) {
    placing.margins = options.margins == "head" ? MarginsOfHead() : ParseMargins(options.margins);
  }
  placing.degrees = ParseDegrees(options.rotation);
  placing.position = ParsePosition(options.position);
  return placing;
}

}  // namespace corvane
