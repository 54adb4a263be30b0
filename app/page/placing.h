// SPDX-License-Identifier: MIT
//
// How an image is to lie on the sheet, as a person types it.
#pragma once

#include <optional>
#include <string>

namespace corvane {

// What stays bare along the sides of a sheet, in millimetres.
struct Margins {
  double left = 0, top = 0, right = 0, bottom = 0;
};

// Where an image lies in the area that may be printed.
struct Position {
  double across = 0.5,
         down = 0.5;             // of the room that it leaves: 0 at the left or top, 1 at the end
  double leftMm = 0, topMm = 0;  // that stay bare before it all the same
};

// Instead of an angle: by a quarter where that makes the image larger.
inline constexpr int kTurnToFit = -1;

struct ImagePlacing {
  std::optional<double> scale = {};  // of the image's natural size; none: as large as there is room
  Margins margins = {};
  Position position = {};
  int degrees = 0;        // that the image is turned clockwise: 0, 90, 180, 270 or kTurnToFit
  double assumedDpi = 0;  // of an image that does not say its resolution; 0: the sheet's finer one
};

// Whether rows and columns change places.
inline bool IsSideways(int degrees) { return degrees == 90 || degrees == 270; }

// "3" for all sides, or "3,3,3,5" for the left, top, right and bottom one. Throws UsageFailure for
// anything else.
Margins ParseMargins(const std::string& text);

// A side or corner such as "top-left", or "10,20", how far its upper left corner lies from that of
// the area, in millimetres. Throws UsageFailure for anything else.
Position ParsePosition(const std::string& text);

// The sides and corners, for a help text.
std::string PositionNames();

// "auto", "0", "90", "180" or "270". Throws UsageFailure for anything else.
int ParseDegrees(const std::string& text);

}  // namespace corvane
