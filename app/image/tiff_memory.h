// SPDX-License-Identifier: MIT
#pragma once

namespace corvane {

// Sees to it that the TIFF library finds memory for what it keeps of a directory even when there is
// none: it frees or follows what it could not allocate. Whoever calls it asks ThrowIfMemoryFailed
// afterwards.
void KeepMemoryForTiff();

}  // namespace corvane
