// SPDX-License-Identifier: MIT
#include "color/points.h"

#include <algorithm>

#include "host/framework.h"

namespace corvane {

void ReadPoints(unsigned char* points) {
  ZCOM::fwmemset(points, 0, kPointsBytes);
  const ZCOM::FILEHANDLE file = ZCOM::fwfopen(kPointsFile, "rb");
  if (file == nullptr) return;
  ZCOM::fwfread(points, 1, kPointsBytes, file);
  ZCOM::fwfclose(file);
}

void FillPointsRow(const unsigned char* points, std::int32_t rowNumber, std::size_t planes,
                   unsigned char* rowBuffer, std::size_t planeStride, std::uint32_t first,
                   std::uint32_t end) {
  const std::int32_t patchRow = rowNumber / static_cast<std::int32_t>(kPatchPixels);
  const bool inChart =
      points != nullptr && patchRow >= 0 && patchRow < static_cast<std::int32_t>(kPatchesPerSide);

  // Patch by patch; what lies right of the last one is a single stretch.
  std::uint32_t x = first;
  while (x < end) {
    const std::uint32_t column = x / kPatchPixels;
    const bool inPatch = inChart && column < kPatchesPerSide;
    const std::uint32_t stop =
        column < kPatchesPerSide ? std::min(end, (column + 1) * kPatchPixels) : end;
    const std::size_t record =
        inPatch
            ? (static_cast<std::size_t>(patchRow) * kPatchesPerSide + column) * kPointsRecordBytes
            : 0;
    for (std::size_t k = 0; k < planes; ++k) {
      ZCOM::fwmemset(rowBuffer + k * planeStride + x, inPatch ? points[record + k] : 0, stop - x);
    }
    x = stop;
  }
}

}  // namespace corvane
