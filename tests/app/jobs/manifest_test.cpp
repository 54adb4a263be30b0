// SPDX-License-Identifier: MIT
#include "app/jobs/manifest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/jobs/digest.h"
#include "app/jobs/record.h"
#include "app/support/failure.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::HasSubstr;

JobPage SomePage() {
  JobPage page;
  page.input = "queue/\"a\" \xC3\xA4.png";
  page.inputSha256 = std::string(64, 'a');
  page.inputBytes = 5'000'000'000;
  page.inputPage = 3;
  page.settings = {{"mode", "54"}, {"tags", "mask.png"}};
  page.tagsSha256 = std::string(64, 'b');
  page.colorTableSha256 = std::string(64, 'c');
  page.output = "day/000001.tif";
  page.program = "1.2.3";
  page.cost = 0.1;
  return page;
}

class ManifestTest : public testing::Test {
 protected:
  void Write(int pages) {
    OutputStage stage;
    ManifestWriter writer(stage.Create(path_));
    for (int i = 0; i < pages; ++i) writer.Add(SomePage());
    writer.Finish();
    stage.Commit();
  }

  // What reading to the end complains of.
  std::string Complaint(const std::string& text) {
    folder_.Write("day.job", text);
    return FailureOf([&] {
      ManifestReader reader(path_);
      for (JobPage page; reader.Next(&page);) {
      }
    });
  }

  ScratchFolder folder_;
  std::string path_ = folder_.File("day.job");
};

TEST_F(ManifestTest, ReadsWhatItWrote) {
  Write(2);
  ManifestReader reader(path_);
  EXPECT_EQ(reader.Totals().pages, 2u);
  EXPECT_DOUBLE_EQ(reader.Totals().cost, 0.2);
  JobPage page;
  ASSERT_TRUE(reader.Next(&page));
  const JobPage wrote = SomePage();
  EXPECT_EQ(page.number, 1u);
  EXPECT_EQ(page.input, wrote.input);
  EXPECT_EQ(page.inputBytes, wrote.inputBytes);
  EXPECT_EQ(page.settings, wrote.settings);
  EXPECT_EQ(page.output, wrote.output);
  EXPECT_EQ(page.cost, wrote.cost);
  EXPECT_EQ(KeyOf(page), KeyOf(wrote));
  EXPECT_TRUE(reader.Next(&page));
  EXPECT_FALSE(reader.Next(&page));
}

TEST_F(ManifestTest, RefusesWhatIsDamaged) {
  Write(2);
  const std::string good = folder_.Read("day.job");
  const std::size_t second = good.find('\n') + 1, last = good.rfind("{\"pages\"");
  EXPECT_THAT(Complaint(good.substr(0, last)), HasSubstr("its last line is missing"));
  EXPECT_THAT(Complaint(good.substr(0, good.size() - 1)), HasSubstr("its last line is missing"));
  EXPECT_THAT(Complaint(""), HasSubstr("is no job"));
  EXPECT_THAT(Complaint(good.substr(second)), HasSubstr("day.job:1: holds page 2"));
  EXPECT_THAT(Complaint("{\"pages\":1,\"cost\":1}\n"), HasSubstr("day.job:1: is no page"));
  EXPECT_THAT(FailureOf([&] { ManifestReader(folder_.File("none")); }), HasSubstr("No such file"));
  JobPage page = SomePage();
  page.input = "\xFF.png";
  OutputStage stage;
  ManifestWriter writer(stage.Create(path_));
  EXPECT_THAT(FailureOf([&] { writer.Add(page); }), HasSubstr("is no UTF-8 text"));
}

// Equal keys stand for equal bytes: everything that the bytes depend on changes the key, and
// where files lie does not.
TEST(PageKey, FollowsWhatTheBytesDependOn) {
  const std::string key = KeyOf(SomePage());
  const std::function<void(JobPage&)> kChanging[] = {
      [](JobPage& page) { page.inputSha256[0] = '0'; },
      [](JobPage& page) { page.inputPage = 4; },
      [](JobPage& page) { page.settings["mode"] = "53"; },
      [](JobPage& page) { page.settings["landscape"] = "true"; },
      [](JobPage& page) { page.tagsSha256[0] = '0'; },
      [](JobPage& page) { page.colorTableSha256[0] = '0'; },
      [](JobPage& page) { page.program = "1.2.4"; },
  };
  for (const auto& change : kChanging) {
    JobPage page = SomePage();
    change(page);
    EXPECT_NE(KeyOf(page), key);
  }
  JobPage moved = SomePage();
  moved.number = 9;
  moved.input = "elsewhere.png";
  moved.output = "night/000009.tif";
  moved.settings["tags"] = "moved.png";
  EXPECT_EQ(KeyOf(moved), key);

  // Forms are alike whatever the input's and the tags' bytes are, but not with and without tags.
  const std::string formKey = FormKeyOf(SomePage());
  moved.inputSha256[0] = moved.tagsSha256[0] = '0';
  moved.inputPage = 4;
  EXPECT_EQ(FormKeyOf(moved), formKey);
  moved.settings.erase("tags");
  EXPECT_NE(FormKeyOf(moved), formKey);
  moved = SomePage();
  moved.settings["mode"] = "53";
  EXPECT_NE(FormKeyOf(moved), formKey);
}

TEST(JobPaths, AreRelativeInsideTheJobsFolder) {
  EXPECT_EQ(PathForManifest("/jobs/day.job", "/jobs/queue/a.png"), "queue/a.png");
  EXPECT_EQ(PathForManifest("/jobs/day.job", "/jobs2/a.png"), "/jobs2/a.png");
  EXPECT_EQ(PathForManifest("/jobs/day.job", "/jobs/../a.png"), "/a.png");
  EXPECT_EQ(PathForManifest("/jobs/day.job", "/jobs/-"), "./-");  // not the standard input
  const ScratchFolder folder;
  std::filesystem::create_directories(folder.File("far/away"));
  std::filesystem::create_directory_symlink(folder.File("far/away"), folder.File("link"));
  EXPECT_EQ(PathForManifest(folder.File("day.job"), folder.File("link/../a.png")), "far/a.png");
  EXPECT_EQ(ResolvePath("/moved/day.job", "queue/a.png"), "/moved/queue/a.png");
  EXPECT_EQ(ResolvePath("/moved/day.job", "/jobs2/a.png"), "/jobs2/a.png");
}

TEST(Record, SurvivesItsFile) {
  PageRecord record;
  record.page = 7;
  record.key = "k";
  record.files = {{"000007.tif", 10, "ab"}, {"000007-contone.tif", 20, "cd"}};
  record.inks = {{"C", 5, 0.5}};
  record.seconds = 1.5;
  record.host = "n1";
  record.reusedRows = 1200;
  record.fromCache = true;
  const std::optional<PageRecord> read = RecordFromJson(ToJson(record));
  ASSERT_TRUE(read);
  EXPECT_EQ(ToJson(*read), ToJson(record));
  PageRecord failed;
  failed.failure = "bad \xFF name";
  EXPECT_TRUE(RecordFromJson(ToJson(failed)));
  EXPECT_FALSE(RecordFromJson("{\"page\": 7}"));
  EXPECT_FALSE(RecordFromJson(ToJson(record).substr(0, 40)));
}

TEST(Digest, IsSha256AndFollowsAFileThatChanges) {
  EXPECT_EQ(Sha256OfText("abc"),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  ScratchFolder folder;
  folder.Write("a", "abc");
  DigestCache digests;
  EXPECT_EQ(digests.Of(folder.File("a")).sha256, Sha256OfText("abc"));
  folder.Write("a", "abcd");
  EXPECT_EQ(digests.Of(folder.File("a")).sha256, Sha256OfText("abcd"));
  EXPECT_EQ(digests.Of(folder.File("a")).bytes, 4u);
  // A file that is gone is gone; one whose folder is away may come back.
  EXPECT_THROW(digests.Of(folder.File("none/b")), TransientFailure);
  try {
    digests.Of(folder.File("b"));
    ADD_FAILURE();
  } catch (const TransientFailure&) {
    ADD_FAILURE();
  } catch (const Failure&) {
  }
}

}  // namespace
}  // namespace corvane
