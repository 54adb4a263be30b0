// SPDX-License-Identifier: MIT
#include "host/property_names.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "tests/harness/paths.h"

namespace corvane::property {
namespace {

const char* NameOf(Bag bag) {
  switch (bag) {
    case Bag::Host:
      return "host";
    case Bag::Element:
      return "element";
    case Bag::Page:
      return "page";
    case Bag::SecondPage:
      return "page, second bag";
    case Bag::Error:
      return "error";
  }
  return "";
}

// The document lists every property once, as the table has it, and no other.
TEST(PropertyNames, AreWhatTheDocumentLists) {
  std::ifstream file(corvane::harness::SourceDirectory() + "/docs/properties.md");
  ASSERT_TRUE(file);
  std::set<std::string> listed;
  int rows = 0;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("| `", 0) != 0) continue;
    listed.insert(line);
    ++rows;
  }
  for (const Property& p : kProperties) {
    std::ostringstream row;
    row << "| `" << p.name << "` | " << NameOf(p.bag) << " | " << p.group << " | " << p.type
        << " | " << p.fallback << " | " << p.users << " | " << p.meaning << " |";
    EXPECT_EQ(listed.count(row.str()), 1u) << row.str();
  }
  EXPECT_EQ(rows, static_cast<int>(std::size(kProperties)));
}

}  // namespace
}  // namespace corvane::property
