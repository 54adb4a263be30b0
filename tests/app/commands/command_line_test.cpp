// SPDX-License-Identifier: MIT
#include "app/commands/command_line.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "app/support/interrupt.h"
#include "tests/app/commands/run_corvane.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::HasSubstr;

TEST(CommandLine, TakesNoNumberOutsideItsRange) {
  for (const char* option : {"--scale", "--preview-dpi"}) {
    for (const char* number : {"nan", "-nan", "inf", "0", "1e309", "1e9", "ten"}) {
      const std::string failure =
          Complaint({"print", "a.png", "-o", "a.tif", "--mode", "52", option, number});
      EXPECT_THAT(failure, HasSubstr(option)) << number;
      EXPECT_THAT(failure, HasSubstr(number));
    }
  }
}

TEST(CommandLine, TakesNoInstructionLevelThatIsNone) {
  const char* wish = std::getenv("CORVANE_CPU");
  const std::string before = wish == nullptr ? "" : wish;
  setenv("CORVANE_CPU", "bogus", 1);
  EXPECT_THAT(Complaint({"modes"}), HasSubstr("\"bogus\" is none of plain, sse4"));
  before.empty() ? unsetenv("CORVANE_CPU") : setenv("CORVANE_CPU", before.c_str(), 1);
}

TEST(CommandLine, TakesNoNameOfAnotherFormat) {
  const std::vector<std::vector<std::string>> kCommands = {
      {"replay", "page.jsonl", "-o", "out.tif"},
      {"table", "profile", "-o", "printer.png"},
      {"calibrate", "measured.ti3", "-o", "inks.html"},
      {"calibrate", "measured.ti3", "-o", "inks.json", "--report", "fit.pdf"},
      {"swaths", "--mode", "8", "--png", "plan.svg"},
      {"report", "print.tif", "-o", "print.pdf"}};
  for (const auto& command : kCommands) {
    EXPECT_THAT(Complaint(command), HasSubstr("what is written there is no ")) << command.back();
  }
}

TEST(CommandLine, RefusesWhatAnotherOptionLeavesWithoutMeaning) {
  EXPECT_THAT(Complaint({"calibrate", "m.ti3", "--verify", "--inks", "i.json", "--name", "N"}),
              HasSubstr("neither -o nor --name is taken"));
  EXPECT_THAT(Complaint({"table", "show", "--chart", "ramps.svg", "--json"}),
              HasSubstr("--json with --chart needs --rgb"));
}

TEST(CommandLine, LeavesNoPageOfAnotherChartAmongThoseOfANewOne) {
  const ScratchFolder folder;
  const std::string page = folder.Write("chart-2.tif", "old");
  EXPECT_THAT(
      Complaint({"chart", "--mode", "8", "--paper", "A6", "--update", "-o", folder.File("")}),
      HasSubstr(page + ": this page and any after it are of another chart"));
}

// Puts the standard output into a file for as long as it lives.
class StandardOutputInto {
 public:
  explicit StandardOutputInto(int file) : saved_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    dup2(file, STDOUT_FILENO);
    close(file);
  }
  ~StandardOutputInto() {
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }
  StandardOutputInto(const StandardOutputInto&) = delete;
  StandardOutputInto& operator=(const StandardOutputInto&) = delete;

 private:
  int saved_;
};

TEST(CommandLine, FindsOutWhetherItsTextArrives) {
  const std::vector<std::vector<std::string>> kCommands = {
      {"--help"}, {"print", "--help"}, {"modes"}, {"modes", "--json"}};
  for (const auto& command : kCommands) {
    SCOPED_TRACE(command.back());
    {
      const StandardOutputInto full(open("/dev/full", O_WRONLY));
      EXPECT_THAT(Complaint(command), HasSubstr("standard output: cannot write: No space left"));
    }
    CatchInterrupts();  // the pipe's signal
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    const StandardOutputInto nobody(ends[1]);
    EXPECT_THROW(RunCorvane(command), Interrupted);
  }
}

}  // namespace
}  // namespace corvane
