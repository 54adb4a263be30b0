// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "app/image/row_source.h"

namespace corvane {

// Of rows with a tag behind the three bytes of each pixel, the colours alone.
std::unique_ptr<RowSource> DropTags(std::unique_ptr<RowSource> tagged);

// Both, for readers that take them at different times. What one has read and the other has not is
// held; one thread at a time may read.
struct ColoursAndTags {
  std::unique_ptr<RowSource> colours;  // three bytes a pixel
  std::unique_ptr<RowSource> tags;     // one
};
ColoursAndTags SplitTags(std::unique_ptr<RowSource> tagged);

}  // namespace corvane
