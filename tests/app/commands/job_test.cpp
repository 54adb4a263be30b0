// SPDX-License-Identifier: MIT
//
// `corvane job` from the command line to the files.
#include "app/commands/job.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/app/commands/run_corvane.h"
#include "tests/app/image/test_images.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

// Five pages of which page 3 is damaged: a.png, b.tif with two pages around it, c.png.
class JobTest : public testing::Test {
 protected:
  JobTest() {
    const auto picture = [](int shade) {
      return MakeImage(40, 50, 3, 8, [=](int x, int y, int c) { return shade + x * c + y; });
    };
    WritePng(folder_.File("a.png"), picture(20), {.colourType = 2});
    WritePng(folder_.File("c.png"), picture(90), {.colourType = 2});
    WriteTiff(folder_.File("b.tif"), picture(50), {});
    WriteTiff(folder_.File("b.tif"), picture(70), {.append = true});
    const std::string good = folder_.Read("a.png");
    folder_.Write("bad.png", good.substr(0, good.size() / 2));
  }

  std::string Make(std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {"job",          "make",
                                          job_,           folder_.File("a.png"),
                                          Path("b*.tif"), folder_.File("bad.png"),
                                          Path("c.png"),  "--paper",
                                          "10x12mm"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Output(arguments);
  }

  std::string Run(std::vector<std::string> more, int status) {
    more.insert(more.begin(), {"job", "run", job_});
    testing::internal::CaptureStderr();
    const std::string output = Output(more, status);
    complaint_ = testing::internal::GetCapturedStderr();
    return output;
  }

  nlohmann::json Status() {
    return nlohmann::json::parse(Output({"job", "status", job_, "--json"}));
  }

  std::string Verify(int status) { return Output({"job", "verify", job_}, status); }

  // Every page's bytes.
  std::map<std::string, std::string> Pages(const std::string& folder) {
    std::map<std::string, std::string> pages;
    for (const auto& entry : fs::directory_iterator(folder_.File(folder))) {
      if (entry.path().extension() != ".json") {
        pages[entry.path().filename().string()] = ReadFile(entry.path().string());
      }
    }
    return pages;
  }

  std::string Path(const std::string& name) { return folder_.File(name); }

  ScratchFolder folder_;
  std::string job_ = folder_.File("day.job");
  std::string complaint_;
};

TEST_F(JobTest, PrintsEveryPageOnceAndRecordsAFailureOnce) {
  EXPECT_THAT(Make(), HasSubstr("5 pages"));
  EXPECT_THAT(folder_.Read("day.job"), HasSubstr("\"input\":\"b.tif\""));
  EXPECT_EQ(fs::status(job_).permissions() & fs::perms::owner_write, fs::perms::none);
  EXPECT_EQ(Run({"--tasks", "2"}, kPagesFailed), "4 printed, 1 failed\n");
  EXPECT_THAT(complaint_, HasSubstr("page 4: " + Path("bad.png") + ": the PNG image is cut short"));
  EXPECT_EQ(Pages("day").size(), 4u);

  EXPECT_EQ(Run({}, kPagesFailed), "0 printed, 4 there before, 1 failed\n");
  EXPECT_EQ(complaint_, "");
  EXPECT_EQ(Run({"--retry-failed"}, kPagesFailed), "0 printed, 4 there before, 1 failed\n");

  const nlohmann::json status = Status();
  EXPECT_EQ(status["done"], 4);
  EXPECT_EQ(status["failed"], 1);
  EXPECT_EQ(status["missing"], 0);
  EXPECT_EQ(status["failures"][0]["page"], 4);
  EXPECT_EQ(status["failures"][0]["input"], "bad.png");
  EXPECT_THAT(Output({"job", "status", job_}), HasSubstr("       4 done"));
}

// A job is a file that anybody may have written.
TEST_F(JobTest, APageThatItsInputDoesNotHaveFails) {
  Make();
  const std::string job = folder_.Read("day.job");
  const std::size_t at = job.find("\"inputPage\":1") + 12;
  const auto write = [&](const char* page) {
    job_ = folder_.Write("other.job", job.substr(0, at) + page + job.substr(at + 1));
  };
  write("9");
  Run({}, kPagesFailed);
  EXPECT_THAT(complaint_, HasSubstr("a.png: has no page 9"));
  write("0");
  EXPECT_THAT(Complaint({"job", "run", job_}), HasSubstr("other.job:1: the pages of an input"));
}

// The pages of a job are those of `print`, but for the input's name in them, and shares make up the
// whole.
TEST_F(JobTest, SharesMakeTheSamePagesAsOneRun) {
  Make();
  Run({}, kPagesFailed);
  const auto whole = Pages("day");
  Output({"job", "make", Path("shares.job"), Path("a.png"), Path("b.tif"), Path("bad.png"),
          Path("c.png"), "--paper", "10x12mm", "-o", Path("parts")});
  job_ = Path("shares.job");
  for (const std::string task : {"0", "1", "2"}) {
    Run({"--task", task, "--of", "3"}, task == "2" ? kPagesFailed : 0);
  }
  EXPECT_TRUE(Pages("parts") == whole);
}

TEST_F(JobTest, TellsWhatPassesFromWhatStays) {
  fs::create_directory(Path("server"));
  fs::copy(Path("a.png"), Path("server/a.png"));
  fs::copy(Path("c.png"), Path("server/c.png"));
  Output({"job", "make", job_, Path("server/a.png"), Path("server/c.png"), "--paper", "10x12mm"});
  fs::rename(Path("server"), Path("away"));
  EXPECT_EQ(Run({}, kTryAgain), "0 printed, 2 left for another try\n");
  EXPECT_EQ(Status()["missing"], 2);

  fs::rename(Path("away"), Path("server"));
  fs::remove(Path("server/a.png"));
  fs::copy(Path("a.png"), Path("server/c.png"), fs::copy_options::overwrite_existing);
  EXPECT_EQ(Run({}, kPagesFailed), "0 printed, 2 failed\n");
  EXPECT_THAT(complaint_, HasSubstr("is not the file that the job was made for"));

  // A folder that cannot be written to stops the run, and no page is blamed.
  fs::remove_all(Path("day"));
  folder_.Write("day", "");
  EXPECT_EQ(Run({}, kTryAgain), "");
  EXPECT_THAT(complaint_, HasSubstr("cannot make the folder"));
}

TEST_F(JobTest, VerifyNamesWhatIsMissingSurplusOrChanged) {
  Output({"job", "make", job_, Path("a.png"), Path("c.png"), "--paper", "10x12mm", "--contone"});
  EXPECT_THAT(Verify(1), HasSubstr("000001.tif: is missing"));
  Run({}, 0);
  EXPECT_EQ(Verify(0), "2 pages, as they were recorded\n");
  const std::string page = folder_.Read("day/000001-contone.tif");
  std::string changed = page;
  changed[changed.size() / 2] ^= 1;
  folder_.Write("day/000001-contone.tif", changed);
  folder_.Write("day/000003.tif", "");
  const std::string verified = Verify(1);
  EXPECT_THAT(verified, HasSubstr("000001-contone.tif: differs from its record"));
  EXPECT_THAT(verified, HasSubstr("000003.tif: is of no page of the job"));
  EXPECT_THAT(verified, HasSubstr("2 problems"));
  // A page that has lost bytes is printed again.
  folder_.Write("day/000001-contone.tif", page.substr(1));
  EXPECT_THAT(Verify(1), HasSubstr("000001.tif: is not of the size in its record"));
  EXPECT_EQ(Run({}, 0), "1 printed, 1 there before\n");
  EXPECT_EQ(folder_.Read("day/000001-contone.tif"), page);
}

// Two jobs may have been made for one folder before either was run.
TEST_F(JobTest, LeavesThePagesOfAnotherJob) {
  const std::string other = Path("other.job");
  Output({"job", "make", job_, Path("a.png"), "--paper", "10x12mm"});
  Output({"job", "make", other, Path("c.png"), "--paper", "10x12mm", "-o", Path("day")});
  Run({}, 0);
  const auto pages = Pages("day");
  job_ = other;
  EXPECT_THAT(Complaint({"job", "run", other}), HasSubstr("000001.tif: belongs to another job"));
  EXPECT_THAT(Verify(1), HasSubstr("000001.tif: belongs to another job"));
  EXPECT_TRUE(Pages("day") == pages);
}

TEST_F(JobTest, TakesListsAndTables) {
  folder_.Write("records.csv", "#name,input,mode,landscape\n\"Doe, J.\"," + Path("a.png") +
                                   ",54,\nRoe," + Path("b.tif") + ",,true\n");
  Output({"job", "make", job_, "--csv", Path("records.csv"), "--paper", "10x12mm", "-m", "53"});
  std::vector<nlohmann::json> lines;
  std::istringstream manifest(folder_.Read("day.job"));
  for (std::string line; std::getline(manifest, line);) {
    lines.push_back(nlohmann::json::parse(line));
  }
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0]["settings"], nlohmann::json({{"mode", "54"}, {"paper", "10x12mm"}}));
  EXPECT_EQ(lines[2]["settings"],
            nlohmann::json({{"mode", "53"}, {"paper", "10x12mm"}, {"landscape", "true"}}));
  EXPECT_EQ(lines[2]["inputPage"], 2);
  Run({}, 0);

  const struct {
    const char *table, *complaint;
  } kCases[] = {
      {"input,quantity\n", "the column \"quantity\" is neither"},
      {"mode\n53\n", "no column is named \"input\""},
      {"input,mode\na.png,99\n", "records.csv:2: 99: is not a print mode"},
      {"input,uam\na.png,7\n", "records.csv:2: --uam: "},
      {"input\nnone.png\n", "records.csv:2: "},
      {"input\n", "there is no page to print"},
  };
  for (const auto& test : kCases) {
    std::string table = test.table;
    if (const std::size_t name = table.find("\na.png"); name != std::string::npos) {
      table.replace(name + 1, 5, Path("a.png"));
    }
    folder_.Write("records.csv", table);
    EXPECT_THAT(Complaint({"job", "make", Path("x.job"), "--csv", Path("records.csv")}),
                HasSubstr(test.complaint));
    EXPECT_FALSE(fs::exists(Path("x.job")));
  }
  fs::create_directory(Path("near.png"));
  EXPECT_THAT(Complaint({"job", "make", Path("x.job"), Path("n*.png")}), HasSubstr("no file has"));
  EXPECT_THAT(Complaint({"job", "make", job_, Path("a.png")}), HasSubstr("is there already"));
  EXPECT_THAT(Complaint({"job", "make", Path("x.job"), Path("a.png"), "-o", Path("day")}),
              HasSubstr("is not empty"));
}

TEST_F(JobTest, CacheGivesTheSameBytesAndChecksThem) {
  Make({"--contone"});
  const std::string cache = Path("cache");
  EXPECT_EQ(Run({"--cache", cache}, kPagesFailed), "4 printed, 1 failed\n");
  const auto first = Pages("day");
  const auto again = [&](const std::string& expected) {
    fs::remove_all(Path("day"));
    EXPECT_EQ(Run({"--cache", cache}, kPagesFailed), expected);
    EXPECT_TRUE(Pages("day") == first);
    EXPECT_THAT(Verify(1), HasSubstr("5 pages, 1 problem"));  // the damaged one
  };
  again("0 printed, 4 from the cache, 1 failed\n");
  // An output that somebody writes into shares its bytes with the cache.
  std::fstream(Path("day/000001.tif"), std::ios::in | std::ios::out) << "other";
  again("1 printed, 3 from the cache, 1 failed\n");
  again("0 printed, 4 from the cache, 1 failed\n");
}

// A form with a changed block: the rows above are taken over. Mode 109 has planes of two widths,
// strips and rows of which do not end together, and an expansion that carries something on as well.
// In mode 106 the error lines come together in the white paper below the block.
TEST_F(JobTest, FormsShareRowsAndKeepTheirBytes) {
  constexpr int kWidth = 1417, kHeight = 945, kBlock = 600, kWhite = 620, kFoot = 800;
  for (int record = 1; record <= 3; ++record) {
    const auto pixel = [=](int x, int y, int c) {
      if (y >= kWhite && y < kFoot) return 255;
      const bool changed = y >= kBlock && y < kWhite && x < 300;
      return (x / 3 + y * (c + 1) / 4 + (changed ? 60 * record : 0)) % 256;
    };
    WriteTiff(Path("form" + std::to_string(record) + ".tif"),
              MakeImage(kWidth, kHeight, 3, 8, pixel), {.photometric = 2});
  }
  const auto print = [&](const std::string& name, const std::vector<std::string>& settings,
                         const std::vector<std::string>& options) {
    std::vector<std::string> make = {"job",     "make",   Path(name + ".job"), Path("form*.tif"),
                                     "--paper", "60x40mm"};
    make.insert(make.end(), settings.begin(), settings.end());
    Output(make);
    job_ = Path(name + ".job");
    EXPECT_EQ(Run(options, 0), "3 printed\n");
    return Pages(name);
  };
  const std::vector<std::string> kSettings[] = {
      {"--mode", "12", "--contone"}, {"--mode", "106"}, {"--mode", "109", "--quality", "best"}};
  for (const auto& settings : kSettings) {
    const std::string mode = settings[1];
    const auto pages = print("plain" + mode, settings, {});
    const auto shared =
        print("shared" + mode, settings, {"--tasks", "1", "--cache", Path("cache")});
    EXPECT_TRUE(pages == shared) << mode;
    for (int page = 1; page <= 3; ++page) {
      const std::string file = "shared" + mode + "/00000" + std::to_string(page) + ".record.json";
      const auto record = nlohmann::json::parse(folder_.Read(file));
      const int reused = record.value("reusedRows", 0);
      EXPECT_EQ(reused > kHeight / 2, page > 1) << mode << ", page " << page << ": " << reused;
      EXPECT_EQ(reused > kBlock, page > 1 && mode == "106") << mode << ": " << reused;
    }
  }
}

TEST_F(JobTest, ReportsInkAndItsCost) {
  Make();
  Run({}, kPagesFailed);
  folder_.Write("prices.json", R"({"currency": "EUR", "perLitre": {"C": 1000000}})");
  Output({"job", "report", job_, "-o", Path("day.html"), "--prices", Path("prices.json")});
  const std::string html = folder_.Read("day.html");
  EXPECT_THAT(html, HasSubstr("<th>EUR</th>"));
  EXPECT_THAT(html, HasSubstr("bad.png: the PNG image is cut short"));
  double nanolitres = 0;
  for (const std::string page : {"1", "2", "3", "5"}) {
    const auto record = nlohmann::json::parse(folder_.Read("day/00000" + page + ".record.json"));
    nanolitres += record["inks"][0]["nanolitres"].get<double>();
  }
  char cost[32];
  std::snprintf(cost, sizeof cost, "<td>%.2f</td>", nanolitres / 1000);
  EXPECT_THAT(html, HasSubstr(cost));
  EXPECT_THAT(Complaint({"job", "report", job_, "-o", Path("x"), "--prices", job_}),
              HasSubstr("day.job"));
  for (const char* price : {R"("Z": 1)", R"("C": -1)"}) {
    folder_.Write("prices.json",
                  std::string(R"({"currency": "EUR", "perLitre": {)") + price + "}}");
    EXPECT_THAT(
        Complaint({"job", "report", job_, "-o", Path("x"), "--prices", Path("prices.json")}),
        HasSubstr("prices.json: "));
  }
  const std::string page = folder_.Read("day/000001.tif");
  fs::create_symlink("bad.png", Path("page.html"));
  for (const char* taken : {"a.png", "day/000001.tif", "x.pdf", "page.html"}) {
    EXPECT_THAT(Complaint({"job", "report", job_, "-o", Path(taken)}), HasSubstr(taken));
  }
  EXPECT_EQ(folder_.Read("day/000001.tif"), page);
}

}  // namespace
}  // namespace corvane
