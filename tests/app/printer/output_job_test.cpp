// SPDX-License-Identifier: MIT
//
// What the printer application does with a job, without its framework.
#include "app/printer/output_job.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "app/image/reader.h"
#include "app/printer/head.h"
#include "app/printer/ink_account.h"
#include "app/printer/printed_jobs.h"
#include "app/printer/pushed_page.h"
#include "app/support/failure.h"
#include "app/support/json.h"
#include "printmode/print_modes.h"
#include "tests/app/image/test_images.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

std::string BytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

int Level(int x, int y, int c) { return (x * 7 + y * (c + 3)) % 256; }

class OutputJobTest : public testing::Test {
 protected:
  static constexpr std::uint32_t kWidth = 90, kHeight = 120;

  OutputJobTest() : photo_(folder_.File("photo.png")) {
    WritePng(photo_, MakeImage(kWidth, kHeight, 3, 8, Level), {.colourType = 2});
    description_ = {"Corvane", 7, 1000, "a/../name\x1b", "user", "image/png", 1, false, 1, {}};
  }

  PageJob Page() const {
    PageJob page;
    page.image = photo_;
    page.paper = {"test", 12, 17};
    return page;
  }

  nlohmann::json Told(const std::string& job = "job-00007") const {
    return ReadJsonFile(Out() / job / "job.json");
  }

  fs::path Out() const { return folder_.File("out"); }

  static StreamedPage Header() {
    StreamedPage page;
    page.image.path = "job 7, page 1";
    page.image.width = kWidth;
    page.image.height = kHeight;
    return page;
  }

  // The photograph's rows, as they arrive.
  static void Push(PushedPage& page, std::uint32_t rows) {
    std::vector<std::uint8_t> row(std::size_t{3} * kWidth);
    for (std::uint32_t y = 0; y < rows; ++y) {
      for (std::size_t i = 0; i < row.size(); ++i) {
        row[i] = static_cast<std::uint8_t>(
            Level(static_cast<int>(i / 3), static_cast<int>(y), static_cast<int>(i % 3)));
      }
      if (!page.Push(row.data())) break;
    }
    page.End();
  }

  ScratchFolder folder_;
  std::string photo_;
  JobDescription description_;
};

const std::function<bool()> kNever = [] { return false; };

TEST_F(OutputJobTest, PrintsTheBytesOfThePrintCommandOncePerCopy) {
  JobWishes wishes;
  wishes.quality = Quality::Draft;
  PrintOptions options = OptionsFor(kPrintHeads[1], wishes);
  description_.copies = 3;
  OutputJob job(Out(), description_, nullptr);
  job.Convert(options);
  EXPECT_EQ(Told()["state"], "processing");
  job.Print(Page(), nullptr, kNever);
  const std::vector<InkUse> uses = job.TakeInkUse();
  PushedPage pushed(Header());
  std::thread client([&] { Push(pushed, kHeight); });
  job.Print(Page(), &pushed, kNever);
  client.join();
  job.Finish("completed", "");

  options.inputs = {photo_};
  options.output = folder_.File("expected.tif");
  options.paper = "12x17mm";
  options.untitled = options.quiet = true;
  const PrintReport report = Print(options);
  const std::string expected = BytesOf(options.output);
  for (int i = 1; i <= 6; ++i) {
    EXPECT_EQ(BytesOf(Out() / "job-00007" / ("sheet-000" + std::to_string(i) + ".tif")), expected);
  }
  EXPECT_FALSE(fs::exists(Out() / "job-00007" / "sheet-0007.tif"));
  ASSERT_EQ(uses.size(), report.pages[0].inkUse.size());
  EXPECT_EQ(uses[0].drops, 3 * report.pages[0].inkUse[0].drops);
  const nlohmann::json told = Told();
  EXPECT_EQ(told["state"], "completed");
  EXPECT_EQ(told["sheets"].size(), 6U);
  EXPECT_EQ(told["sheets"][5]["copy"], 3);
  EXPECT_EQ(told["asked"]["name"], description_.name);
  EXPECT_EQ(told["converted"]["mode"], 7);
  EXPECT_EQ(told["ink"]["C"]["drops"], 6 * report.pages[0].inkUse[0].drops);
}

TEST_F(OutputJobTest, LeavesNoSheetOfAPageThatIsNotWhole) {
  OutputJob job(Out(), description_, nullptr);
  job.Convert(OptionsFor(kPrintHeads[1], {}));
  PushedPage pushed(Header());
  std::thread client([&] { Push(pushed, kHeight / 2); });
  EXPECT_THROW(job.Print(Page(), &pushed, kNever), Failure);
  client.join();
  int rows = 0;
  EXPECT_THROW(job.Print(Page(), nullptr, [&] { return ++rows > 20; }), OutputJob::Cancelled);
  job.Finish("aborted", "why");
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(Out() / "job-00007")) {
    files.push_back(entry.path().filename());
  }
  EXPECT_THAT(files, testing::ElementsAre("job.json"));
  EXPECT_EQ(Told()["reason"], "why");
}

TEST_F(OutputJobTest, CountsAttemptsAndKeepsOtherJobsOfItsNumber) {
  fs::create_directories(Out() / "job-00007");  // by a server that ended before it said what for
  { const OutputJob killed(Out(), description_, nullptr); }
  { const OutputJob again(Out(), description_, nullptr); }
  EXPECT_EQ(Told()["attempt"], 2);
  description_.created = 2000;
  { const OutputJob other(Out(), description_, nullptr); }
  EXPECT_EQ(Told()["attempt"], 2);
  EXPECT_EQ(Told("job-00007-2")["attempt"], 1);
}

TEST_F(OutputJobTest, HandsEachCopyOverAndLeavesNothing) {
  struct Counter : SheetReceiver {
    void Take(const fs::path& sheet, const std::function<bool()>&) override {
      if (sheets == 3) throw OutputJob::Cancelled{};
      ++sheets;
      bytes += fs::file_size(sheet);
    }
    void Finish(const std::function<bool()>&) override {}
    int sheets = 0;
    std::uintmax_t bytes = 0;
  } counter;
  description_.copies = 2;
  {
    OutputJob job(Out(), description_, &counter);
    job.Convert(OptionsFor(kPrintHeads[1], {}));
    job.Print(Page(), nullptr, kNever);
    const std::vector<InkUse> two = job.TakeInkUse();
    // What was delivered before a device fails was printed.
    EXPECT_THROW(job.Print(Page(), nullptr, kNever), OutputJob::Cancelled);
    const std::vector<InkUse> one = job.TakeInkUse();
    ASSERT_FALSE(one.empty());
    EXPECT_EQ(two[0].drops, 2 * one[0].drops);
    EXPECT_TRUE(job.TakeInkUse().empty());
    job.Finish("canceled", "");
  }
  EXPECT_EQ(counter.sheets, 3);
  EXPECT_GT(counter.bytes, 0U);
  EXPECT_TRUE(fs::is_empty(Out()));
}

TEST_F(OutputJobTest, DrawsASmallPictureOfTheFirstSheet) {
  const auto half = [](int, int y, int) { return y < static_cast<int>(kHeight) / 2 ? 0 : 255; };
  const std::string later = photo_;
  photo_ = folder_.File("half.png");
  WritePng(photo_, MakeImage(kWidth, kHeight, 3, 8, half), {.colourType = 2});
  OutputJob job(Out(), description_, nullptr);
  job.Convert(OptionsFor(kPrintHeads[2], {}));
  job.Print(Page(), nullptr, kNever);
  photo_ = later;
  job.Print(Page(), nullptr, kNever);

  const auto picture = OpenImage(Out() / "job-00007" / kThumbnailFile);
  ASSERT_EQ(picture->Info().width, 15U);  // 12 x 17 mm at 30 dpi
  ASSERT_EQ(picture->Info().height, 21U);
  std::vector<std::uint8_t> row(picture->Info().RowBytes());
  for (int y = 0; y < 21; ++y) {
    picture->ReadRow(row.data());
    const int green = row[3 * 7 + 1];
    // Half a millimetre stays bare at the top.
    if (y == 0) continue;
    EXPECT_TRUE(y < 9 ? green < 60 : y < 12 || green > 230) << "row " << y << ": " << green;
  }
}

TEST_F(OutputJobTest, IsListedWithWhatStrangersSayEscaped) {
  const PrintOptions options = OptionsFor(kPrintHeads[1], {});
  description_.name = "<script>&\"";
  for (int number = 7; number <= 9; ++number) {
    description_.number = number;
    description_.printer = number == 8 ? "another" : "Corvane";
    OutputJob job(Out(), description_, nullptr);
    job.Convert(options);
    if (number == 7) job.Print(Page(), nullptr, kNever);
    job.Finish(number == 7 ? "completed" : "aborted", number == 7 ? "" : "<why>");
    fs::last_write_time(job.Folder(), fs::file_time_type() + std::chrono::hours(number));
  }
  fs::create_directory(Out() / "job-00010");
  fs::create_directory(Out() / "other");
  const std::vector<PrintedJob> jobs = LastJobs(Out(), "Corvane", 20);
  ASSERT_EQ(jobs.size(), 2U);
  EXPECT_EQ(jobs[0].number, 9);
  EXPECT_FALSE(jobs[0].hasThumbnail);
  EXPECT_EQ(jobs[1].sheets, 1);
  EXPECT_TRUE(jobs[1].hasThumbnail);
  EXPECT_EQ(LastJobs(Out(), "Corvane", 1).size(), 1U);
  EXPECT_TRUE(LastJobs(Out() / "missing", "Corvane", 20).empty());

  const std::string html = JobsAsHtml(jobs, "/printed.png?job=");
  EXPECT_THAT(html, testing::HasSubstr("src=\"/printed.png?job=job-00007\""));
  EXPECT_THAT(html, testing::HasSubstr("&lt;script&gt;&amp;"));
  EXPECT_THAT(html, testing::HasSubstr("&lt;why&gt;"));
  EXPECT_THAT(html, testing::Not(testing::HasSubstr("<script>")));
  for (const char* name : {"job-00012", "job-00012-2"}) EXPECT_TRUE(IsJobFolder(name)) << name;
  for (const char* name : {"", "job-", "job-1/../..", "job-1.", "x", "job-%2e"}) {
    EXPECT_FALSE(IsJobFolder(name)) << name;
  }
}

TEST(PrintHead, HasSettingsForEveryWish) {
  for (const PrintHead& head : kPrintHeads) {
    EXPECT_EQ(FindPrintHead(head.name), &head);
    for (const Quality quality : {Quality::Draft, Quality::Normal, Quality::High}) {
      for (const bool monochrome : {false, true}) {
        JobWishes wishes;
        wishes.quality = quality;
        wishes.monochrome = monochrome;
        const PageSettings settings = PageSettingsFrom(OptionsFor(head, wishes));
        EXPECT_EQ((settings.mode->inkSet == InkSet::Black), monochrome);
        EXPECT_EQ(settings.printQuality, 1 + static_cast<int>(quality));
      }
    }
  }
  EXPECT_EQ(FindPrintHead("corvane"), nullptr);
  JobWishes graphics;
  graphics.content = Content::Graphics;
  graphics.media = "glossy";
  const PageSettings settings = PageSettingsFrom(OptionsFor(kPrintHeads[0], graphics));
  EXPECT_EQ(settings.pageIntent, 2);
  EXPECT_EQ(settings.mediaType, 3);
  // Best quality stands for the tables of data without a black plane.
  JobWishes noBlack;
  noBlack.mode = 109;
  EXPECT_EQ(PageSettingsFrom(OptionsFor(kPrintHeads[2], noBlack)).printQuality, 4);
}

TEST(PrintHead, RefusesWhatItCannotPrint) {
  EXPECT_EQ(ModesOf(kPrintHeads[0]), std::vector<int>({5, 6, 7, 8, 14, 41, 48, 79}));
  EXPECT_EQ(ModesOf(kPrintHeads[2]).size(), std::size(kPrintModes));
  for (const auto& [mode, alternateMode] :
       {std::pair(3, 0), {54, 0}, {7, 3}, {7, -1}, {7, 2'000'000'000}}) {
    JobWishes wishes;
    wishes.mode = mode;
    wishes.alternateMode = alternateMode;
    EXPECT_THROW(OptionsFor(kPrintHeads[0], wishes), Failure) << mode << ", " << alternateMode;
  }
  EXPECT_EQ(ModeNumberIn("auto"), 0);
  EXPECT_EQ(ModeNumberIn("54"), 54);
  for (const char* text : {"photo", "54x", "-1", "99999999999"}) {
    EXPECT_THROW(ModeNumberIn(text), Failure) << text;
  }
}

TEST(InkAccount, CountsSinceTheCartridgeWasSet) {
  const ScratchFolder folder;
  const std::string file = folder.File("ink.json");
  {
    InkAccount account(file, 1);
    EXPECT_EQ(account.Level(Ink::C), 100);
    account.Take({{Ink::C, 1, 0, 250'000}, {Ink::K, 1, 0, 5e6}});
    account.Save();
  }
  InkAccount account(file, 1);
  EXPECT_EQ(account.Level(Ink::C), 75);
  EXPECT_EQ(account.Level(Ink::K), 0);
  account.Refill(Ink::K);
  EXPECT_EQ(account.Level(Ink::K), 100);
  std::ofstream(file) << R"({"C": "much"})";
  EXPECT_THROW(InkAccount(file, 1), Failure);
}

}  // namespace
}  // namespace corvane
