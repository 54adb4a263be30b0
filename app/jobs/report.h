// SPDX-License-Identifier: MIT
//
// What a job took, as one HTML file without anything from elsewhere.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "app/jobs/standing.h"
#include "app/support/output_stage.h"

namespace corvane {

// What ink costs; without any, its cost is left out.
struct InkPrices {
  std::string currency;
  std::map<std::string, double> perLitre;  // by ink

  bool Known() const { return !perLitre.empty(); }
  double Of(const RecordedInk& ink) const;
};

// A JSON file such as {"currency": "EUR", "perLitre": {"C": 120, "K": 80}}. An ink
// that it does not have costs nothing. Throws Failure, for an ink or a price that is none, too.
InkPrices ReadInkPrices(const std::filesystem::path& path);

// Writes the report page by page, so that a job of any length takes the same memory.
void WriteJobReport(const std::filesystem::path& manifest, const InkPrices& prices,
                    StagedFile& file);

}  // namespace corvane
