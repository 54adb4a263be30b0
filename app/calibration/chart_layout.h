// SPDX-License-Identifier: MIT
//
// Where the patches of a chart lie on its pages.
#pragma once

#include <cstddef>
#include <string>

#include "app/page/paper.h"

namespace corvane {

// How a chart is read: strip by strip in one pull, or patch by patch with the instrument set down.
enum class ChartReading { Strip, HandHeld };

struct PatchPlace {
  int page = 0;
  int strip = 0;        // of the chart, from 0
  int step = 0;         // in the strip, from 0
  double x = 0, y = 0;  // mm from the upper left corner of the sheet
  double width = 0, height = 0;
};

// Strips run across the page. The last one is filled up with patches without ink.
class ChartLayout {
 public:
  // Throws UsageFailure for a sheet that holds no strip.
  ChartLayout(const PaperSize& paper, ChartReading reading, std::size_t patches);

  PatchPlace PlaceOf(std::size_t patch) const;
  // "B12": the strip and the step in it, as on the page.
  std::string LocationOf(std::size_t patch) const;

  std::size_t Patches() const { return patches_; }
  std::size_t Filled() const;  // with those that fill up the last strip
  int Steps() const { return steps_; }
  int Strips() const;
  int StripsOfPage(int page) const;
  bool IsFirstOfPage(int strip) const { return strip % stripsPerPage_ == 0; }
  int Pages() const;
  ChartReading Reading() const { return reading_; }

 private:
  ChartReading reading_;
  std::size_t patches_;
  int steps_ = 0, stripsPerPage_ = 0;
  double left_ = 0;
};

// "A" to "Z", then "AA".
std::string StripName(int strip);

}  // namespace corvane
