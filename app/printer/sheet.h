// SPDX-License-Identifier: MIT
//
// A page of a print job and its file, whoever asks for it.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "app/commands/print_page.h"
#include "app/inks/ink_use.h"
#include "app/support/output_stage.h"
#include "printmode/page_shape.h"

namespace corvane {

struct PrintedSheet {
  PageShape shape;
  std::vector<InkUse> inkUse;  // of one copy
};

// Prints a page, which has its settings and colour table, into `file` as TIFF, and a small picture
// of it into `thumbnail` unless that is null. `progress` is told of every row that is done; what it
// throws ends the page. `stream` as for PrintPage. Throws Failure.
PrintedSheet PrintSheet(const PageJob& page, PageStream* stream, StagedFile& file,
                        StagedFile* thumbnail,
                        const std::function<void(std::uint32_t rows)>& progress);

}  // namespace corvane
