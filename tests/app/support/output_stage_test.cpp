// SPDX-License-Identifier: MIT
//
// That files appear complete or not at all, whatever ends a run and whatever lies in their way.
#include "app/support/output_stage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utime.h>
#include <csignal>
#include <cstdlib>
#include <thread>

#include "app/support/failure.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

int EntriesIn(const std::string& folder) {
  return static_cast<int>(std::distance(fs::directory_iterator(folder), {}));
}

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & mode_t{07777};
}

// Runs `work` in a process of its own and gives how it ended. As another run of the program, that
// process has seen no folder yet.
template <class Work>
int InAnotherProcess(Work work) {
  const pid_t child = fork();
  if (child == 0) {
    try {
      work();
    } catch (...) {
      _exit(1);
    }
    _exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

// A run that has written half of a file and been killed.
void LeaveHalfOf(const std::string& path) {
  const int status = InAnotherProcess([&] {
    OutputStage stage;
    stage.Create(path).Append("half");
    std::raise(SIGKILL);
  });
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

void WriteOnce(const std::string& path, const std::string& text) {
  OutputStage stage;
  stage.Create(path).Append(text);
  stage.Commit();
}

TEST(OutputStage, ShowsFilesOnlyWhenAllAreComplete) {
  const ScratchFolder folder;
  WriteFile(folder.File("old"), "before");
  {
    OutputStage stage(folder.File("new/deep/"));
    stage.Create(folder.File("old")).Append("half", 4);
    stage.Create(folder.File("new/deep/file")).Append("half", 4);
    EXPECT_EQ(ReadFile(folder.File("old")), "before");
  }
  EXPECT_EQ(ReadFile(folder.File("old")), "before");
  EXPECT_FALSE(std::filesystem::exists(folder.File("new")));
  {
    // What others have put there meanwhile stays.
    OutputStage stage(folder.File("new/deep/"));
    WriteFile(folder.File("new/other"), "theirs");
  }
  EXPECT_EQ(ReadFile(folder.File("new/other")), "theirs");
  EXPECT_FALSE(std::filesystem::exists(folder.File("new/deep")));
  {
    OutputStage stage(folder.File("new/deep/"));
    stage.Create(folder.File("old")).Append("after", 5);
    stage.Create(folder.File("new/deep/file")).Append("whole", 5);
    stage.Commit();
  }
  EXPECT_EQ(ReadFile(folder.File("old")), "after");
  EXPECT_EQ(ReadFile(folder.File("new/deep/file")), "whole");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.File("new/deep")), {}), 1);
}

TEST(OutputStage, RemovesWhatAKilledRunLeft) {
  const ScratchFolder folder;
  const std::string path = folder.Write("page.tif", "old");
  LeaveHalfOf(path);
  EXPECT_EQ(ReadFile(path), "old");
  EXPECT_EQ(EntriesIn(folder.File("")), 2) << "the file and what is left";
  WriteOnce(path, "new");
  EXPECT_EQ(ReadFile(path), "new");
  EXPECT_EQ(EntriesIn(folder.File("")), 1);
}

TEST(OutputStage, LeavesTheFilesOfARunThatLives) {
  const ScratchFolder folder;
  const std::string path = folder.File("page.tif");
  OutputStage living;
  StagedFile& file = living.Create(path);
  file.Append("mine");
  file.Finish();  // and so is open no longer
  EXPECT_EQ(InAnotherProcess([&] { WriteOnce(path, "theirs"); }), 0);
  EXPECT_EQ(ReadFile(path), "theirs");
  living.Commit();
  EXPECT_EQ(ReadFile(path), "mine");
}

// Without a lock that this computer sees, only a week without a change shows that a run is dead.
TEST(OutputStage, LeavesWhatAnotherComputerMayStillWrite) {
  const ScratchFolder folder;
  const std::string left = folder.File(".corvane-00000000-1"), file = left + "/1";
  const auto nextRun = [&] {
    ASSERT_EQ(InAnotherProcess([&] { WriteOnce(folder.File("page.tif"), "new"); }), 0);
  };
  fs::create_directory(left);
  for (const std::string& name : {file, left + "/lock"}) WriteFile(name, "half");
  nextRun();
  EXPECT_TRUE(fs::exists(file));
  const utimbuf old = {0, std::time(nullptr) - 8 * 24 * 3600};
  for (const std::string& name : {file, left + "/lock", left}) utime(name.c_str(), &old);
  nextRun();
  EXPECT_FALSE(fs::exists(left));
}

TEST(OutputStage, RunsThatWriteOneFileLeaveOneOfThemWhole) {
  const ScratchFolder folder;
  const std::string path = folder.File("page.tif");
  constexpr int kRuns = 8;
  const std::size_t size = 300000;
  std::vector<std::thread> runs;
  std::vector<int> ends(kRuns);
  for (int i = 0; i < kRuns; ++i) {
    runs.emplace_back([&, i] {
      ends[static_cast<std::size_t>(i)] = InAnotherProcess([&] {
        OutputStage stage;
        StagedFile& file = stage.Create(path);
        const std::string piece(1000, static_cast<char>('a' + i));
        for (std::size_t done = 0; done < size; done += piece.size()) file.Append(piece);
        stage.Commit();
      });
    });
  }
  for (std::thread& run : runs) run.join();
  EXPECT_THAT(ends, testing::Each(0));
  const std::string whole = ReadFile(path);
  ASSERT_EQ(whole.size(), size);
  EXPECT_EQ(whole, std::string(size, whole[0]));
  EXPECT_EQ(EntriesIn(folder.File("")), 1);
}

TEST(OutputStage, WritesThroughALink) {
  const ScratchFolder folder;
  fs::create_directory(folder.File("there"));
  const std::string old = folder.Write("there/old", "before");
  fs::create_symlink("there/old", folder.File("link"));
  fs::create_symlink("link", folder.File("second"));
  fs::create_symlink("there/none", folder.File("dangling"));
  fs::create_symlink("loop", folder.File("loop"));
  {
    OutputStage dropped;
    dropped.Create(folder.File("link")).Append("half");
  }
  EXPECT_EQ(ReadFile(old), "before");
  WriteOnce(folder.File("second"), "after");
  WriteOnce(folder.File("dangling"), "made");
  EXPECT_EQ(ReadFile(old), "after");
  EXPECT_EQ(folder.Read("there/none"), "made");
  for (const char* link : {"link", "second", "dangling"}) {
    EXPECT_TRUE(fs::is_symlink(folder.File(link))) << link;
  }
  EXPECT_EQ(EntriesIn(folder.File("there")), 2);
  EXPECT_THAT(FailureOf([&] { WriteOnce(folder.File("loop"), ""); }),
              HasSubstr("/loop: cannot write"));
  EXPECT_THAT(FailureOf([&] {
                CheckOutputNames({folder.File("dangling"), folder.File("there/none")}, {});
              }),
              HasSubstr("two files would be written there"));
  EXPECT_THAT(FailureOf([] {
                CheckOutputNames({"-", "", "-"}, {});
              }),
              HasSubstr("two files would be written there"));
  EXPECT_EQ(FailureOf([] { CheckOutputNames({"-", "/dev/null", "/dev/null"}, {}); }), "no failure");
  // A name that cannot be is not the same as none.
  const std::string tooLong = folder.File(std::string(256, 'a'));
  EXPECT_EQ(FailureOf([&] {
              CheckOutputNames({tooLong}, {"", tooLong});
            }),
            tooLong + ": cannot write: File name too long");
}

TEST(OutputStage, KeepsModeAndOwnerOfAnOlderFile) {
  const ScratchFolder folder;
  const std::string path = folder.Write("page.tif", "old");
  const bool privileged = chown(path.c_str(), 12345, 23456) == 0;
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  WriteOnce(path, "new");
  EXPECT_EQ(ReadFile(path), "new");
  EXPECT_EQ(ModeOf(path), mode_t{0640});
  struct stat status = {};
  stat(path.c_str(), &status);
  if (privileged) {
    EXPECT_EQ(status.st_uid, uid_t{12345});
    EXPECT_EQ(status.st_gid, gid_t{23456});
  }
  const mode_t mask = umask(027);
  WriteOnce(folder.File("other.tif"), "new");
  umask(mask);
  EXPECT_EQ(ModeOf(folder.File("other.tif")), mode_t{0640});
}

TEST(OutputStage, TakesNamesUpToTheFileSystemsLimit) {
  const ScratchFolder folder;
  const std::string path = folder.File(std::string(255, 'n'));
  WriteOnce(path, "whole");
  EXPECT_EQ(ReadFile(path), "whole");
  EXPECT_THAT(FailureOf([&] { WriteOnce(path + "n", ""); }), HasSubstr("File name too long"));
}

TEST(OutputStage, HoldsFewFilesOpen) {
  const ScratchFolder folder;
  rlimit old = {};
  getrlimit(RLIMIT_NOFILE, &old);
  rlimit low = old;
  low.rlim_cur = 40;
  setrlimit(RLIMIT_NOFILE, &low);
  {
    OutputStage stage;
    std::vector<StagedFile*> files;
    for (int i = 0; i < 200; ++i) files.push_back(&stage.Create(folder.File(std::to_string(i))));
    for (StagedFile* file : files) {
      file->Append("whole");
      file->Finish();
    }
    stage.Commit();
  }
  setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_EQ(EntriesIn(folder.File("")), 200);
}

// The names change in order: what stands behind one that cannot change keeps its old file.
TEST(OutputStage, GivesNamesInOrder) {
  const ScratchFolder folder;
  for (const char* name : {"1", "2", "3"}) folder.Write(name, "old");
  OutputStage stage;
  for (const char* name : {"1", "2", "3"}) stage.Create(folder.File(name)).Append("new");
  fs::remove(folder.File("2"));
  fs::create_directory(folder.File("2"));
  EXPECT_THAT(FailureOf([&] { stage.Commit(); }), HasSubstr("/2: cannot write"));
  EXPECT_EQ(folder.Read("1"), "new");
  EXPECT_EQ(folder.Read("3"), "old");
}

TEST(OutputStage, WritesPipesAndDevicesDirectly) {
  const ScratchFolder folder;
  const std::string pipe = folder.File("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::string arrived;
  std::thread reader([&] { arrived = ReadFile(pipe); });
  WriteOutput(pipe, "through");
  reader.join();
  EXPECT_EQ(arrived, "through");
  EXPECT_TRUE(fs::is_fifo(pipe));
  EXPECT_EQ(FailureOf([] { WriteOutput("/dev/full", "x"); }),
            "/dev/full: cannot write: No space left on device");
  EXPECT_EQ(FailureOf([&] { OutputStage().Create(pipe); }), pipe + ": is not an ordinary file");
  EXPECT_EQ(FailureOf([&] { WriteOutput(folder.File(""), "x"); }),
            folder.File("") + ": is a folder");
}

TEST(OutputStage, NamesTheFileThatHasNoPlace) {
  const ScratchFolder folder;
  const std::string missing = folder.File("missing/page.tif");
  EXPECT_EQ(FailureOf([&] { OutputStage().Create(missing); }),
            missing + ": cannot write: No such file or directory");
  if (geteuid() == 0) {
    // Nothing forbids root an ordinary folder.
    EXPECT_THAT(FailureOf([] { OutputStage().Create("/proc/page.tif"); }),
                HasSubstr("/proc/page.tif: cannot write"));
    return;
  }
  const std::string locked = folder.File("locked");
  fs::create_directory(locked);
  chmod(locked.c_str(), 0500);
  EXPECT_EQ(FailureOf([&] { OutputStage().Create(locked + "/page.tif"); }),
            locked + "/page.tif: cannot write: Permission denied");
  const std::string kept = folder.Write("kept", "old");
  chmod(kept.c_str(), 0400);
  EXPECT_EQ(FailureOf([&] { OutputStage().Create(kept); }),
            kept + ": cannot write: Permission denied");
}

}  // namespace
}  // namespace corvane
