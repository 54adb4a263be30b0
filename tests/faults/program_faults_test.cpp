// SPDX-License-Identifier: MIT
//
// Whole runs of the program in which the nth allocation, open, read, write, sync, rename or thread
// fails. Whatever fails, a run ends by itself, says why in a line, and leaves each file old or new;
// one that says it succeeded has written what an undisturbed one writes.
//
// CORVANE_FAULTS says how many runs, over all commands and kinds, and CORVANE_KILLS how many runs
// are killed at a random moment; `./dev faults` and `./dev kills` ask for many.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "tests/app/image/test_images.h"
#include "tests/harness/paths.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr long kRunsInTests = 150, kKillsInTests = 15;
constexpr unsigned kMostSeconds = 300;  // a run takes a fraction of one, but where all is busy

long Wanted(const char* variable, long otherwise) {
  const char* wanted = std::getenv(variable);
  return wanted == nullptr ? otherwise : std::atol(wanted);
}

// Where not even what clears up finds memory, the next run clears up.
constexpr const char* kOutOfMemory = "corvane: out of memory\n";
// The C library ends a process whose thread cannot keep what a library has for each thread.
constexpr const char* kNoThreadStorage = "Fatal glibc error: failed to register TLS destructor";

using Files = std::map<std::string, std::string>;  // contents by name

Files FilesIn(const fs::path& folder) {
  Files files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    files[fs::relative(entry.path(), folder).string()] = ReadFile(entry.path().string());
  }
  return files;
}

struct Ending {
  int status = 0;  // as waitpid gives it
  std::string said, printed;

  bool Succeeded() const { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }
  bool ByTheCLibrary() const { return said.find(kNoThreadStorage) != std::string::npos; }
};

// A command and the folder that it runs in, which holds its inputs and old outputs.
struct Command {
  std::string name;
  std::vector<std::string> arguments;
  std::function<void(const ScratchFolder&)> prepare;
  bool saysMore = false;  // a line for each page, or for each thing that it has found
  // What it writes tells of faults: pages that will fail, errors that elements sent.
  bool recordsFaults = false;
  bool printsPage = false;  // to the standard output
};

class Trial {
 public:
  explicit Trial(const Command& command) : command_(command) {
    fs::create_directory(before_.File("work"));
    const fs::path here = fs::current_path();
    fs::current_path(before_.File("work"));
    if (command.prepare) command.prepare(before_);
    fs::current_path(here);
    old_ = FilesIn(before_.File("work"));
    const auto start = std::chrono::steady_clock::now();
    whole_ = Run({{"CORVANE_FAULT_COUNTS", scratch_.File("counts")}});
    duration_ = std::chrono::steady_clock::now() - start;
    new_ = FilesIn(Work());
    std::istringstream counts(scratch_.Read("counts"));
    for (std::string kind; counts >> kind;) counts >> calls_[kind];
  }

  const Ending& Whole() const { return whole_; }
  const std::map<std::string, long>& Calls() const { return calls_; }

  // The same for a run that is killed in the first `part` of its time, and then done again.
  std::string ProblemWithKillAt(double part) {
    const pid_t child = Start({});
    std::this_thread::sleep_for(part * duration_);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    const Files left = FilesIn(Work());
    std::string problem = ProblemWith(left);
    // One that had done all there was has left nothing for the next to do.
    if (problem.empty() && !ProblemWithNew(left).empty()) problem = ProblemWithRunAfter();
    if (problem.empty()) return {};
    return fmt::format("corvane {} killed after {:.3f} of its time: {}", command_.name, part,
                       problem);
  }

  // What is wrong with a run with this fault; empty when nothing is.
  std::string ProblemWith(const std::string& fault) {
    const Ending ending = Run({{"CORVANE_FAULT", fault}});
    const std::string problem = ProblemWith(ending);
    if (problem.empty()) return {};
    return fmt::format("corvane {} with {}: {} (status {:#x})\n{}", command_.name, fault, problem,
                       ending.status, ending.said);
  }

 private:
  std::string Work() const { return scratch_.File("work"); }

  Ending Run(const std::map<std::string, std::string>& environment) {
    return Finish(Start(environment));
  }

  pid_t Start(const std::map<std::string, std::string>& environment) {
    fs::remove_all(Work());
    fs::copy(before_.File("work"), Work(), fs::copy_options::recursive);
    return Launch(environment);
  }

  pid_t Launch(const std::map<std::string, std::string>& environment) {
    const pid_t child = fork();
    if (child == 0) Become(environment);
    return child;
  }

  Ending Finish(pid_t child) {
    Ending ending;
    waitpid(child, &ending.status, 0);
    ending.said = scratch_.Read("said");
    ending.printed = scratch_.Read("printed");
    return ending;
  }

  [[noreturn]] void Become(const std::map<std::string, std::string>& environment) {
    fs::current_path(Work());
    std::freopen(scratch_.File("printed").c_str(), "w", stdout);
    std::freopen(scratch_.File("said").c_str(), "w", stderr);
    std::freopen("/dev/null", "r", stdin);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    alarm(kMostSeconds);  // stays when another program takes the process over
    setenv("LD_PRELOAD", CORVANE_FAULTS_LIBRARY, 1);
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    std::vector<std::string> words = {CORVANE_PROGRAM};
    words.insert(words.end(), command_.arguments.begin(), command_.arguments.end());
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execv(CORVANE_PROGRAM, arguments.data());
    _exit(127);
  }

  std::string ProblemWith(const Ending& ending) const {
    const bool cut = ending.ByTheCLibrary();
    if (!cut && !WIFEXITED(ending.status)) return "did not end by itself";
    if (!cut && WEXITSTATUS(ending.status) > 3 && WEXITSTATUS(ending.status) != 75)
      return "strange status";
    // None of these faults stays.
    if (!cut && command_.name == "job run" && WEXITSTATUS(ending.status) == 3)
      return "counts a page as failed for good";
    const Files files = FilesIn(Work());
    for (const auto& [name, bytes] : files) {
      if (IsWork(name) && !cut && ending.said != kOutOfMemory) return name + " is left";
    }
    if (std::string problem = ProblemWith(files); !problem.empty()) return problem;
    if (cut) return "";
    return ending.status == whole_.status ? ProblemWithSuccess(ending, files)
                                          : ProblemWithWords(ending);
  }

  std::string ProblemWith(const Files& files) const {
    for (const auto& [name, bytes] : files) {
      if (!IsWork(name) && !IsDiagnostic(name) && !IsOldOrNew(name, bytes)) {
        return name + " is neither old nor new";
      }
    }
    for (const auto& [name, bytes] : old_) {
      if (!files.contains(name)) return name + " is gone";
    }
    return "";
  }

  std::string ProblemWithWords(const Ending& ending) const {
    std::string_view said = ending.said;
    // An element's own words go ahead.
    if (said.starts_with("EColorInline::Initialize: ")) said.remove_prefix(said.find('\n') + 1);
    const auto lines = std::count(said.begin(), said.end(), '\n');
    if (command_.saysMore) return lines == 0 && ending.printed.empty() ? "says nothing" : "";
    if (lines == 0 || said.back() != '\n') return "says nothing";
    if (lines > 1) return "says more than a line";
    return said.starts_with("corvane: ") ? "" : "says it without its name";
  }

  std::string ProblemWithRunAfter() {
    const Ending again = Finish(Launch({}));
    if (again.status != whole_.status) return "the next does not end well: " + again.said;
    const Files files = FilesIn(Work());
    for (const auto& [name, bytes] : files) {
      if (IsWork(name)) return name + " is left";
    }
    return ProblemWithSuccess(again, files);
  }

  std::string ProblemWithNew(const Files& files) const {
    for (const auto& [name, bytes] : new_) {
      const auto found = files.find(name);
      if (found == files.end()) return "succeeds without " + name;
      if (found->second != bytes && !Varies(name)) return "succeeds with an old or other " + name;
    }
    return "";
  }

  std::string ProblemWithSuccess(const Ending& ending, const Files& files) const {
    if (std::string problem = ProblemWithNew(files); !problem.empty()) return problem;
    // A page that will fail is told of.
    const auto job = files.find("day.job"), wholeJob = new_.find("day.job");
    if (job != files.end() && job->second != wholeJob->second && ending.said.empty()) {
      return "succeeds with another job and says nothing";
    }
    if (ending.printed.empty() != whole_.printed.empty()) return "succeeds and prints nothing";
    if (command_.printsPage && ending.printed != whole_.printed) return "prints another page";
    return "";
  }

  // What a run works in; one that is killed leaves it to the next.
  static bool IsWork(const fs::path& path) {
    return std::any_of(path.begin(), path.end(),
                       [](const fs::path& part) { return part.string().starts_with(".corvane-"); });
  }

  // The elements write them as they go.
  static bool IsDiagnostic(const std::string& name) { return name.starts_with("diagnostics/"); }

  // Records and reports of jobs hold when, where and how fast.
  bool Varies(const std::string& name) const {
    return command_.recordsFaults || name.ends_with(".record.json") || name.ends_with(".html");
  }

  bool IsOldOrNew(const std::string& name, const std::string& bytes) const {
    const auto old = old_.find(name), made = new_.find(name);
    if (old != old_.end() && old->second == bytes) return true;
    if (made == new_.end()) return false;
    if (name.ends_with(".job")) return IsWholeJob(bytes);
    return Varies(name) ? bytes.ends_with(LastOf(made->second, 2)) : bytes == made->second;
  }

  static std::string_view LastOf(std::string_view text, std::size_t count) {
    return text.substr(text.size() - std::min(count, text.size()));
  }

  // As many lines as the last one says.
  static bool IsWholeJob(const std::string& bytes) {
    const std::size_t totals = bytes.rfind("{\"pages\":");
    const auto lines = std::count(bytes.begin(), bytes.end(), '\n');
    return totals != std::string::npos && std::atol(bytes.c_str() + totals + 9) == lines - 1;
  }

  const Command& command_;
  ScratchFolder before_, scratch_;
  Files old_, new_;
  Ending whole_;
  std::map<std::string, long> calls_;
  std::chrono::duration<double> duration_{};
};

void WritePhoto(const std::string& path, int step) {
  WritePng(path,
           MakeImage(48, 40, 3, 8, [=](int x, int y, int c) { return (x * step + y * c) % 256; }),
           {.colourType = 2, .profile = {}});
}

void WriteScan(const std::string& path) {
  const TestImage image = MakeImage(40, 30, 1, 8, [](int x, int y, int) { return x + y; });
  WriteTiff(path, image, {.compression = 5});
  WriteTiff(path, image, {.orientation = 6, .append = true});
}

int Succeed(const std::string& words) {
  return std::system((std::string(CORVANE_PROGRAM) + " " + words + " >/dev/null 2>&1").c_str());
}

void PreparePhoto(const ScratchFolder&) {
  WritePhoto("photo.png", 5);
  for (const char* name : {"page.tif", "page.raw", "page.json", "preview.png", "ink.png",
                           "record.jsonl", "page-contone.tif"}) {
    WriteFile(name, "old");
  }
}

void PreparePages(const ScratchFolder&) {
  WritePhoto("a.png", 3);
  WriteJpeg("b.jpg", MakeImage(40, 40, 3, 8, [](int x, int y, int c) { return x * c + y; }));
  WriteScan("c.tif");
}

void PrepareJob(const ScratchFolder& folder) {
  PreparePages(folder);
  ASSERT_EQ(Succeed("job make day.job a.png c.tif --paper 11x11mm --mode 5"), 0);
}

void PrepareDoneJob(const ScratchFolder& folder) {
  PrepareJob(folder);
  ASSERT_EQ(Succeed("job run day.job -q"), 0);
  WriteFile("day.html", "old\n");
}

void PreparePrint(const ScratchFolder& folder) {
  PreparePhoto(folder);
  ASSERT_EQ(Succeed("print photo.png -o planes.tif --paper 11x11mm --contone"), 0);
  WriteFile("page.html", "old\n");
}

void PreparePoints(const ScratchFolder& folder) {
  PreparePhoto(folder);
  fs::create_directory("diagnostics");
  WriteFile("diagnostics/points.bin", std::string(2304, '\x30'));
}

void PrepareDocument(const ScratchFolder& folder) {
  PreparePhoto(folder);
  WriteFile("pages.ps",
            "%!PS-Adobe-3.0\n%%Pages: 2\n%%Page: 1 1\n0 0 50 50 rectfill showpage\n"
            "%%Page: 2 2\n9 9 50 50 rectfill showpage\n%%EOF\n");
}

// Each patch of the reference as if it had been printed so.
void PrepareMeasurement(const ScratchFolder& folder) {
  PreparePhoto(folder);
  ASSERT_EQ(Succeed("chart --mode 8 -o chart/"), 0);
  std::string measured = ReadFile("chart/chart.ti2");
  ASSERT_EQ(measured.compare(0, 4, "CTI2"), 0);
  measured[3] = '3';
  WriteFile("measured.ti3", measured);
  fs::remove_all("chart");
  WriteFile("inks.json", "old");
  WriteFile("page.html", "old\n");
}

void PrepareScript(const ScratchFolder& folder) {
  PreparePhoto(folder);
  ASSERT_EQ(Succeed("print photo.png -o page.tif --paper 10x10mm --mode 5 --record script.jsonl"),
            0);
  WriteFile("messages.jsonl", "old");
}

void PrepareDrawings(const ScratchFolder&) {
  WriteFile("plan.svg", "old");
  WriteFile("plan.png", "old");
}

std::vector<Command> Commands() {
  return {
      {"print",
       {"print", "photo.png", "-o", "page.tif", "--paper", "12x12mm", "--contone", "--preview",
        "preview.png", "--ink-map", "ink.png", "--record", "record.jsonl"},
       PreparePhoto},
      {"print raw",
       {"print", "photo.png", "-o", "page.raw", "--format", "raw", "--paper", "11x11mm", "--mode",
        "109"},
       PreparePhoto},
      {"print pages",
       {"print", "a.png", "b.jpg", "c.tif", "-o", "out/", "-j", "3", "-q", "--paper", "11x11mm"},
       PreparePages,
       true},
      {"print sheet",
       {"print", "a.png", "b.jpg", "c.tif", "-o", "page.tif", "--nup", "4", "--rotate", "90", "-q",
        "--paper", "12x12mm"},
       PreparePages},
      {"print all",
       {"print", "a.png", "c.tif", "-o", "out/", "-q", "--paper", "11x11mm", "--all-or-nothing"},
       PreparePages,
       true},
      {"job make",
       {"job", "make", "day.job", "a.png", "b.jpg", "c.tif", "--mode", "5"},
       PreparePages,
       true,
       true},
      {"job run", {"job", "run", "day.job", "--tasks", "2", "-q"}, PrepareJob, true},
      {"job status", {"job", "status", "day.job"}, PrepareDoneJob, true},
      {"job verify", {"job", "verify", "day.job"}, PrepareDoneJob, true},
      {"job report", {"job", "report", "day.job", "-o", "day.html"}, PrepareDoneJob},
      {"preview",
       {"preview", "planes.tif", "-o", "preview.png", "--ink-map", "ink.png"},
       PreparePrint},
      {"print separations",
       {"print", "planes-contone.tif", "--separations", "-o", "page.tif", "-q"},
       PreparePrint},
      {"print stream",
       {"print", "photo.png", "-o", "-", "-q", "--paper", "11x11mm"},
       PreparePhoto,
       false,
       false,
       true},
      {"print report",
       {"print", "photo.png", "-o", "page.tif", "--report", "page.html", "-q", "--paper",
        "11x11mm"},
       PreparePrint},
      {"print points",
       {"print", "photo.png", "-o", "page.tif", "-q", "--paper", "11x11mm", "--diagnostics",
        "diagnostics", "--points", "--mode", "8"},
       PreparePoints},
      {"print document",
       {"print", "pages.ps", "-o", "out/", "-q", "--paper", "11x11mm"},
       PrepareDocument,
       true},
      {"report", {"report", "planes.tif", "-o", "page.html"}, PreparePrint},
      {"compare", {"compare", "planes.tif", "planes.tif"}, PreparePrint},
      {"chart",
       {"chart", "--mode", "8", "--paper", "A6", "--update", "-o", "chart/"},
       PreparePhoto,
       true},
      {"calibrate",
       {"calibrate", "measured.ti3", "-o", "inks.json", "--report", "page.html"},
       PrepareMeasurement},
      {"check-page", {"check-page", "script.jsonl"}, PrepareScript},
      {"elements", {"elements"}, nullptr},
      {"reference", {"reference", "bash"}, nullptr},
      {"replay", {"replay", "script.jsonl", "-o", "messages.jsonl"}, PrepareScript, false, true},
      {"swaths",
       {"swaths", "--mode", "54", "--paper", "A6", "--svg", "plan.svg", "--png", "plan.png"},
       PrepareDrawings},
      {"modes", {"modes", "--json"}, nullptr},
      {"table show",
       {"table", "show", "--rgb", "10,200,30", "--chart", "plan.png"},
       PrepareDrawings},
      {"table verify", {"table", "verify"}, nullptr, true},
  };
}

// How many faults each kind gets of so many for all: none more than it has calls, and the rest
// alike.
std::vector<long> Shares(const std::vector<long>& calls, long all) {
  std::vector<long> shares(calls.size(), 0);
  for (bool given = true; given && all > 0;) {
    given = false;
    for (std::size_t i = 0; i < calls.size() && all > 0; ++i) {
      if (shares[i] == calls[i]) continue;
      ++shares[i];
      --all;
      given = true;
    }
  }
  return shares;
}

std::vector<std::unique_ptr<Trial>> TrialsOf(const std::vector<Command>& commands) {
  std::vector<std::unique_ptr<Trial>> trials;
  for (const Command& command : commands) trials.push_back(std::make_unique<Trial>(command));
  return trials;
}

TEST(ProgramFaults, EndInALineAndLeaveFilesOldOrNew) {
  const std::vector<Command> commands = Commands();
  const auto trials = TrialsOf(commands);
  std::vector<std::pair<Trial*, std::string>> kinds;
  std::vector<long> calls;
  for (const auto& trial : trials) {
    ASSERT_TRUE(trial->Whole().Succeeded()) << trial->Whole().said;
    for (const auto& [kind, count] : trial->Calls()) {
      kinds.emplace_back(trial.get(), kind);
      calls.push_back(count);
    }
  }
  const std::vector<long> shares = Shares(calls, Wanted("CORVANE_FAULTS", kRunsInTests));
  long runs = 0, failed = 0;
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    for (long k = 0; k < shares[i]; ++k, ++runs) {
      const long call = 1 + k * calls[i] / shares[i];
      const std::string problem = kinds[i].first->ProblemWith(
          fmt::format("{}:{}{}", kinds[i].second, call, k % 2 == 0 ? "" : "+"));
      if (problem.empty()) continue;
      ++failed;
      ADD_FAILURE() << problem;
    }
  }
  fmt::print("{} runs of {} commands, {} of them failed\n", runs, commands.size(), failed);
}

TEST(ProgramFaults, EndAsEverWhereTheErrorStreamTakesNothing) {
  const ScratchFolder folder;
  const fs::path here = fs::current_path();
  fs::current_path(folder.File(""));
  PreparePages(folder);
  for (const auto& [words, status] : {std::pair{"print none.png -o page.tif", 1},
                                      {"print --none", 2},
                                      {"print a.png none.png c.tif -o out/ --paper 11x11mm", 1},
                                      {"swaths --mode 54 --paper A6 --svg -", 0},
                                      {"print a.png -o - --json --paper 11x11mm", 1},
                                      {"print a.png -o - --paper 11x11mm --progress json", 0}}) {
    for (const char* stream : {"/dev/full", "&-"}) {
      const std::string line = fmt::format("{} {} >/dev/null 2>{}", CORVANE_PROGRAM, words, stream);
      EXPECT_EQ(std::system(line.c_str()), status << 8) << line;
    }
  }
  EXPECT_TRUE(fs::exists("out/c-002.tif")) << "the pages behind are printed";
  fs::current_path(here);
}

TEST(ProgramKills, LeaveFilesOldOrNewAndNothingToTheRunAfter) {
  const std::vector<Command> commands = Commands();
  const auto trials = TrialsOf(commands);
  for (const auto& trial : trials) ASSERT_TRUE(trial->Whole().Succeeded()) << trial->Whole().said;
  std::mt19937 random(std::random_device{}());
  const long kills = Wanted("CORVANE_KILLS", kKillsInTests);
  for (long i = 0; i < kills; ++i) {
    const double part = std::uniform_real_distribution(0.0, 1.1)(random);
    EXPECT_EQ(trials[static_cast<std::size_t>(i) % trials.size()]->ProblemWithKillAt(part), "");
  }
}

}  // namespace
}  // namespace corvane
