// SPDX-License-Identifier: MIT
//
// Texts in the form of CGATS.17: tables of patches with keywords, as colour measurement programs
// exchange them (.ti1, .ti2, .ti3).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane {

struct CgatsRow {
  std::vector<std::string> values;  // one for each field
  std::size_t line = 0;             // of the text, from 1
};

struct CgatsTable {
  std::vector<std::pair<std::string, std::string>> keywords;
  std::vector<std::string> fields;
  std::vector<CgatsRow> rows;

  std::optional<std::string> Keyword(std::string_view name) const;
  std::optional<std::size_t> Field(std::string_view name) const;
};

struct Cgats {
  std::string kind;  // the word that the text begins with, such as "CTI3"
  std::vector<CgatsTable> tables;
};

// `name` is what errors call the text. Throws Failure, with the line, for a text that is no CGATS,
// that ends early, or whose rows do not fit its fields.
Cgats ParseCgats(std::string_view text, const std::string& name);

std::string CgatsText(const Cgats& cgats);

}  // namespace corvane
