// SPDX-License-Identifier: MIT
#include "app/page/paper.h"

#include <gtest/gtest.h>

#include "app/support/failure.h"

namespace corvane {
namespace {

TEST(Paper, NamesAndSizes) {
  EXPECT_EQ(ParsePaperSize("a4").name, "A4");
  EXPECT_DOUBLE_EQ(ParsePaperSize("LETTER").heightMm, 279.4);
  EXPECT_DOUBLE_EQ(ParsePaperSize("100.5x150mm").widthMm, 100.5);
  EXPECT_DOUBLE_EQ(ParsePaperSize("8X10IN").heightMm, 254);
  for (const char* wrong : {"", "A", "100x150", "100mm", "100x150cm", "100x150mm ", "-100x150mm",
                            "0x0mm", "9x150mm", "100x5001mm", "nanxnanmm", "infx150mm"}) {
    EXPECT_THROW(ParsePaperSize(wrong), UsageFailure) << wrong;
  }
}

}  // namespace
}  // namespace corvane
