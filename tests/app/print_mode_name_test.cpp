// SPDX-License-Identifier: MIT
#include "app/print_mode_name.h"

#include <gtest/gtest.h>

#include "app/failure.h"

namespace corvane {
namespace {

TEST(PrintModeName, NumbersAndNames) {
  const struct {
    const char* text;
    int descriptor;
  } cases[] = {{"54", 54},
               {"k_600x600_2pass", 14},
               {"CcMmYyK_1200x1200_8Pass", 54},
               {"CcMmYyK_4800x1200_16Pass", 83},
               {"CcMmYyK_600x600_2Pass", 12}};
  for (const auto& c : cases) EXPECT_EQ(PrintModeNamed(c.text).descriptor, c.descriptor) << c.text;
  for (const char* wrong : {"", "0", "55", "54 ", "0x36", "4294967350", "K_600x600"}) {
    EXPECT_THROW(PrintModeNamed(wrong), UsageFailure) << wrong;
  }
}

}  // namespace
}  // namespace corvane
