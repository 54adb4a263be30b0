// SPDX-License-Identifier: MIT
//
// What a filter of CUPS is asked for: by its command line, by the printer's PPD file and by the
// header of each page.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "app/image/page_stream.h"
#include "app/printer/head.h"

namespace corvane {

struct FilterCall {
  int copies = 1;
  std::map<std::string, std::string> options;  // the last of each name
  std::string file;                            // empty: the standard input
};

// The head in a PPD file's `*cupsModelNumber`, and the one with seven inks without a file. Throws
// Failure for a file that cannot be read or names no head.
const PrintHead& HeadOfPpd(const std::filesystem::path& ppd);

// What the job asks for, and what one of its pages does instead. Both throw UsageFailure for what
// is no print mode.
JobWishes WishesOf(const FilterCall& call);
JobWishes WithTicket(JobWishes wishes, const StreamedPage& page);

// How often a page is printed. Copies are made once: by the filter that is given the job's file and
// with it the number of copies. Filters behind it read a pipe and get that number, too, but what
// comes through the pipe has been copied, as repeated pages or by the number in their headers.
int CopiesOf(const FilterCall& call, const StreamedPage& page);

}  // namespace corvane
