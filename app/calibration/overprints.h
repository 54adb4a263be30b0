// SPDX-License-Identifier: MIT
#pragma once

#include "app/inks/ink_model.h"

namespace corvane {

// Says the overprints of the dark inks' solids as colours, as readers of an ink file want them, and
// takes from the terms what these say. The colours of the set stay as they are.
void NameOverprintedSolids(InkData& inks, int media);

// The reverse: terms alone.
void DissolveOverprintedSolids(InkData& inks, int media);

}  // namespace corvane
