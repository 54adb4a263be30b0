// SPDX-License-Identifier: MIT
#include "app/tables/chart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/commands/table_inspect.h"
#include "app/support/failure.h"
#include "app/tables/builder.h"

namespace corvane {
namespace {

TEST(TableChart, NamesTheInksThatATableHolds) {
  const TableBuilder builder(DefaultInkData());
  const PrintModel model(DefaultInkData(), 2);
  const struct {
    TableKey key;
    bool light, further;
  } tables[] = {{{0, 2, 0, 1, 0}, false, false},
                {{2, 2, 0, 1, 0}, true, false},
                {{3, 2, 0, 1, 0}, true, true}};
  for (const auto& table : tables) {
    const std::string svg = ToSvg(DrawTableChart(builder.Build(table.key), model, "a title"));
    EXPECT_THAT(svg, testing::HasSubstr("a title"));
    EXPECT_THAT(svg, testing::HasSubstr(">K<"));
    EXPECT_EQ(svg.find(">c<") != std::string::npos, table.light);
    EXPECT_EQ(svg.find(">md<") != std::string::npos, table.further);
  }
}

TEST(TableInspect, RefusesWhatIsNoColourOrTable) {
  TableInspectOptions options;
  options.file = "nowhere.cvt";
  options.indices = "2,2,0,1";
  EXPECT_THROW(RunTableInspect(options), UsageFailure);
  options.indices = "2,2,0,1,0";
  EXPECT_THROW(RunTableInspect(options), Failure);
}

}  // namespace
}  // namespace corvane
