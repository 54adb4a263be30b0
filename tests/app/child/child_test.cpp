// SPDX-License-Identifier: MIT
#include "app/child/child.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "app/support/input_stream.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

ChildCommand Script(const std::string& script) {
  return {.program = "sh", .package = "dash", .arguments = {"-c", script}};
}

std::string TextOf(Descriptor output) {
  InputStream stream(std::move(output), "child");
  std::string text(100'000, ' ');
  text.resize(stream.Read(text.data(), text.size()));
  return text;
}

// What a script writes; it has to end well.
std::string Written(const ChildCommand& command) {
  Child child(command);
  std::string text = TextOf(child.TakeOutput());
  EXPECT_EQ(child.End(Child::kInTime), "");
  return text;
}

std::string EndingOf(const ChildCommand& command) {
  Child child(command);
  TextOf(child.TakeOutput());
  return child.End(Child::kInTime);
}

TEST(Child, SeesWhatItIsGivenAlone) {
  const ScratchFolder folder;
  std::ofstream(folder.File("given")) << "of the file";
  const Descriptor inherited(open(folder.File("given").c_str(), O_RDONLY));
  Descriptor file(open(folder.File("given").c_str(), O_RDONLY | O_CLOEXEC));
  setenv("CORVANE_SECRET", "secret", 1);
  // A listing has its folder open itself.
  ChildCommand command =
      Script("cat /dev/fd/3; echo; env; read line; ls /proc/self/fd | tr '\\n' ,");
  command.files = {&file};
  const std::string seen = Written(command);
  unsetenv("CORVANE_SECRET");
  EXPECT_THAT(seen, StartsWith("of the file\n"));
  EXPECT_THAT(seen, testing::Not(HasSubstr("secret")));
  EXPECT_THAT(seen, testing::EndsWith("0,1,2,3,4,"));
}

// Arguments reach the program as they are: nothing expands or splits them.
TEST(Child, TakesArgumentsLiterally) {
  ChildCommand command = Script("for word; do echo \"<$word>\"; done");
  command.arguments.insert(command.arguments.end(), {"sh", "a b", "$(id)", "*", "", "'\"\n"});
  EXPECT_EQ(Written(command), "<a b>\n<$(id)>\n<*>\n<>\n<'\"\n>\n");
}

TEST(Child, LeavesNoFilesBehind) {
  const ScratchFolder folder;
  const char* before = std::getenv("TMPDIR");
  const std::string old = before == nullptr ? "" : before;
  setenv("TMPDIR", folder.File(".").c_str(), 1);
  EXPECT_EQ(Written(Script("mkdir $TMPDIR/a && echo x > $TMPDIR/a/b && echo y > $TMPDIR/c && "
                           "cat $TMPDIR/a/b $TMPDIR/c")),
            "x\ny\n");
  before == nullptr ? unsetenv("TMPDIR") : setenv("TMPDIR", old.c_str(), 1);
  EXPECT_TRUE(std::filesystem::is_empty(folder.File(".")));
}

TEST(Child, SaysHowItEnded) {
  EXPECT_EQ(EndingOf(Script("printf 'no \\033[31mfont\\n\\n at\\200 all\\n' >&2; exit 3")),
            "ended with status 3: no [31mfont at? all");
  EXPECT_THAT(EndingOf(Script("kill -SEGV $$")), StartsWith("was ended by signal 11 ("));
  for (const auto& [script, killed] : {std::pair("kill -KILL $$", true), {"exit 1", false}}) {
    Child child(Script(script));
    EXPECT_NE(child.End(Child::kInTime), "");
    EXPECT_EQ(child.WasKilled(), killed) << script;
  }
  Child stopped(Script("sleep 60"));
  EXPECT_EQ(stopped.End(Child::kAtOnce), "was stopped");
  EXPECT_FALSE(stopped.WasKilled());
  // What it says of a good end is nothing that anybody has to know.
  EXPECT_EQ(EndingOf(Script("echo by the way >&2")), "");
  EXPECT_EQ(
      FailureOf([] { Child child({.program = "corvane-none", .package = "corvane-nowhere"}); }),
      "corvane-none is not installed (Debian package corvane-nowhere)");
}

// A child that complains without end never waits for a reader, and what is kept is its beginning
// and its end.
TEST(Child, MayComplainAtLength) {
  Child child(
      Script("echo first >&2; yes complaint | head -c 5000000 >&2; echo last >&2; echo out; "
             "exit 1"));
  EXPECT_EQ(TextOf(child.TakeOutput()), "out\n");
  const std::string ending = child.End(Child::kInTime);
  EXPECT_THAT(ending, AllOf(StartsWith("ended with status 1: first complaint"), HasSubstr(" ... "),
                            testing::EndsWith("complaint last")));
  EXPECT_LT(ending.size(), 500u);
}

TEST(Child, KeepsToItsLimits) {
  ChildCommand busy = Script("while :; do :; done");
  busy.limits.processorSeconds = 1;
  EXPECT_EQ(EndingOf(busy), "took more than 1 s of processor time");
  ChildCommand greedy = Script("head -c 80000000 /dev/zero | tail -c 79999999 | wc -c");
  EXPECT_EQ(Written(greedy), "79999999\n");
  greedy.limits.memoryBytes = 40'000'000;
  EXPECT_THAT(Written(greedy), testing::Not(HasSubstr("79999999")));
}

// One that does nothing, ignores what it is asked and has children of its own ends at once, and
// they with it.
TEST(Child, EndsWithAllItHasStarted) {
  Child child(Script("trap '' TERM HUP INT; (trap '' TERM HUP; sleep 1000) & echo ready; wait"));
  InputStream output(child.TakeOutput(), "child");
  std::string ready(6, ' ');
  output.Read(ready.data(), ready.size());
  EXPECT_EQ(ready, "ready\n");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(child.End(Child::kAtOnce), "was stopped");
  // The pipe ends when nobody holds it any more.
  EXPECT_EQ(output.Read(ready.data(), 1), 0u);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // none is left to be reaped
}

TEST(Child, IsShutInWhereThatWorks) {
  if (!SandboxWorks()) GTEST_SKIP() << "no sandbox here";
  const ScratchFolder folder;
  std::ofstream(folder.File("private")) << "private";
  const std::string seen =
      Written(Script("cat " + folder.File("private") +
                     "; touch /usr/corvane && echo written; "
                     "grep -c : /proc/net/dev; id -u > /dev/null && echo alive"));
  EXPECT_EQ(seen, "1\nalive\n");  // the loopback device alone
}

}  // namespace
}  // namespace corvane
