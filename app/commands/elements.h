// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace corvane {

// `corvane elements`: the elements, their pads and properties.
struct ElementsOptions {
  std::string name;  // of an element or a property; empty: all
  bool json = false;
};

// Throws Failure for a name that is none.
int RunElements(const ElementsOptions& options);

}  // namespace corvane
