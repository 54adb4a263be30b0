// SPDX-License-Identifier: MIT
#include "app/jobs/csv.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/app/support/failure_of.h"

namespace corvane {
namespace {

// The records of a table, its columns first.
std::vector<std::vector<std::string>> Read(const std::string& text) {
  std::istringstream stream(text);
  CsvReader csv(stream, "t.csv");
  std::vector<std::vector<std::string>> records = {csv.Columns()};
  for (std::vector<std::string> cells; csv.Next(&cells);) records.push_back(cells);
  return records;
}

TEST(Csv, ReadsQuotesLineEndsAndSeparators) {
  using Records = std::vector<std::vector<std::string>>;
  const Records kPlain = {{"input", "mode"}, {"a.png", "12"}, {"b.png", ""}};
  EXPECT_EQ(Read("input,mode\na.png,12\nb.png,\n"), kPlain);
  EXPECT_EQ(Read("\xEF\xBB\xBFinput;mode\r\na.png;12\r\n\r\nb.png;"), kPlain);
  EXPECT_EQ(Read("input\tmode\na.png\t12\nb.png\t\n"), kPlain);
  const Records kQuoted = {{"input"}, {"a,\"b\".png"}, {"two\nlines"}, {"5\" x"}};
  EXPECT_EQ(Read("input\n\"a,\"\"b\"\".png\"\n\"two\nlines\"\n5\" x\n"), kQuoted);
}

TEST(Csv, NamesTheLineOfWhatIsWrong) {
  EXPECT_EQ(FailureOf([] { Read("input,mode\na,1\nb\n"); }), "t.csv:3: 1 cells for 2 columns");
  EXPECT_EQ(FailureOf([] { Read("input\n\"a\nb\n"); }), "t.csv:2: a quote does not end");
  EXPECT_EQ(FailureOf([] { Read("input,input\n"); }), "t.csv: two columns are named \"input\"");
  EXPECT_EQ(FailureOf([] { Read("#,input,#\n,a,\n"); }), "no failure");
  EXPECT_EQ(FailureOf([] { Read("\n\n"); }), "t.csv: is empty; its first line names the columns");
}

}  // namespace
}  // namespace corvane
