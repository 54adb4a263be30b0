// SPDX-License-Identifier: MIT
//
// What a host's page start lacks. The elements take a page start as it comes: some mistakes end the
// page with an error, others print something else without a word.
#pragma once

#include <string>
#include <vector>

#include "host/raster.h"
#include "printmode/print_mode.h"

namespace corvane {

// A property that the stages read, and the value that a page of a mode needs in it.
struct PageRequirement {
  std::string name;
  std::string value;   // as it is to be, "1 to 7" for a range
  const char* unless;  // what happens otherwise
};

// What the chain needs of a page start of that mode; `alternateMode` is 0, 1 or 2.
std::vector<PageRequirement> RequirementsOf(const PrintMode& mode, int alternateMode);

// A line for each fault: the property, what it is, what it should be and what happens now. Empty
// for a page start that prints its mode.
std::vector<std::string> CheckPageStart(const QStartPage& page);

}  // namespace corvane
