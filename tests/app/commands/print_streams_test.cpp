// SPDX-License-Identifier: MIT
//
// `corvane print` from the standard input and to the standard output.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "tests/app/commands/run_corvane.h"
#include "tests/app/commands/standard_input_from.h"
#include "tests/app/image/test_images.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::HasSubstr;

class PrintStreamsTest : public testing::Test {
 protected:
  PrintStreamsTest() : photo_(folder_.File("photo.png")) {
    const TestImage image =
        MakeImage(280, 400, 3, 8, [](int x, int y, int c) { return (x * (c + 1) + y) / 4; });
    WritePng(photo_, image, {.colourType = 2});
    std::string ppm = "P6 280 400 255\n";
    for (const std::uint16_t sample : image.samples) ppm += static_cast<char>(sample);
    folder_.Write("photo.ppm", ppm);
    folder_.Write("pages.ppm", ppm + ppm);
  }

  std::vector<std::string> Arguments(const std::string& input, const std::string& output,
                                     const std::string& format) const {
    return {"print",   input,      "-q",   "-m", "12",  "--paper",
            "12x17mm", "--format", format, "-o", output};
  }

  std::string FromStream(const std::string& file, const std::string& format) const {
    const StandardInputFrom input(folder_.File(file));
    return Output(Arguments("-", "-", format));
  }

  ScratchFolder folder_;
  std::string photo_;
};

TEST_F(PrintStreamsTest, GiveTheBytesOfFiles) {
  RunCorvane(Arguments(photo_, folder_.File("photo.raw"), "raw"));
  const std::string rows = folder_.Read("photo.raw");
  ASSERT_FALSE(rows.empty());
  for (const char* file : {"photo.png", "photo.ppm"}) {
    EXPECT_TRUE(FromStream(file, "raw") == rows) << file;
  }
  // The name of the document is the one difference.
  const std::string tiff = FromStream("photo.ppm", "tiff");
  EXPECT_TRUE(FromStream("photo.png", "tiff") == tiff);
  EXPECT_THAT(tiff, testing::StartsWith("II*"));
  EXPECT_THAT(tiff, HasSubstr(std::string("stdin\0", 6)));
}

// Into a named pipe goes what would be in the file, and nothing appears beside it.
TEST_F(PrintStreamsTest, GoIntoNamedPipes) {
  const std::string pipe = folder_.File("pipe"), drawn = folder_.File("drawn");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(drawn.c_str(), 0600), 0);
  for (const std::string format : {"raw", "tiff"}) {
    SCOPED_TRACE(format);
    const std::string file = folder_.File("page." + format), picture = folder_.File("picture.png");
    const auto print = [&](const std::string& output, const std::string& preview) {
      std::vector<std::string> arguments = Arguments(photo_, output, format);
      arguments.insert(arguments.end(), {"--preview", preview});
      RunCorvane(arguments);
    };
    print(file, picture);
    std::string page, preview;
    std::thread reader([&] { page = ReadFile(pipe); });
    std::thread viewer([&] { preview = ReadFile(drawn); });
    print(pipe, drawn);
    reader.join();
    viewer.join();
    EXPECT_TRUE(page == ReadFile(file));
    EXPECT_TRUE(preview == ReadFile(picture));
  }
  EXPECT_FALSE(std::filesystem::exists(folder_.File("pipe.json")));
  EXPECT_THAT(Complaint(Arguments(photo_, "/dev/full", "raw")),
              HasSubstr("/dev/full: cannot write: No space left"));
  EXPECT_THAT(Complaint({"print", photo_, photo_, "-o", pipe}), HasSubstr("takes a single page"));
}

TEST_F(PrintStreamsTest, NameTheirPagesInAFolder) {
  const StandardInputFrom input(folder_.File("pages.ppm"));
  RunCorvane(Arguments("-", folder_.File("out/"), "raw"));
  const std::string first = folder_.Read("out/stdin-001.raw");
  EXPECT_FALSE(first.empty());
  EXPECT_TRUE(folder_.Read("out/stdin-002.raw") == first);
}

// An input that lacks a page leaves the others alone.
TEST_F(PrintStreamsTest, NeedNotHaveTheSamePages) {
  const auto print = [&](const char* pages) -> std::vector<std::string> {
    return {"print",   photo_, folder_.File("pages.ppm"), "-q",      "-m",
            "8",       "-o",   folder_.File("out/"),      "--paper", "12x17mm",
            "--pages", pages};
  };
  EXPECT_EQ(RunCorvane(print("2")), 1);
  EXPECT_FALSE(folder_.Read("out/pages.tif").empty());
  EXPECT_THAT(Complaint(print("2-x")), HasSubstr("is no page or range of pages"));
}

TEST_F(PrintStreamsTest, ComplainInOneLineAndLeaveNothing) {
  const auto complaint = [&](const std::string& file, const std::string& output,
                             const std::vector<std::string>& more = {}) {
    const StandardInputFrom input(folder_.File(file));
    std::vector<std::string> arguments = Arguments("-", output, "raw");
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Complaint(arguments);
  };
  const std::string png = ReadFile(photo_), ppm = folder_.Read("photo.ppm");
  folder_.Write("cut.png", png.substr(0, png.size() / 2));
  folder_.Write("cut.ppm", ppm.substr(0, ppm.size() / 2));
  folder_.Write("empty", "");
  folder_.Write("text", "Dear reader, this is no page.");
  const std::string out = folder_.File("page.raw");
  EXPECT_EQ(complaint("cut.png", out), "stdin: the PNG image is cut short");
  EXPECT_THAT(complaint("cut.ppm", out), testing::StartsWith("stdin, page 1: ends before"));
  EXPECT_EQ(complaint("empty", out), "stdin: is empty");
  EXPECT_THAT(complaint("text", out), testing::StartsWith("stdin: "));
  EXPECT_EQ(complaint("pages.ppm", out),
            "stdin: has more than one page, for which -o has to name a folder");
  EXPECT_THAT(complaint("photo.ppm", "-", {"--contone"}), HasSubstr("without --contone"));
  EXPECT_THAT(Complaint({"print", "-", "-", "-o", folder_.File("out/")}), HasSubstr("read once"));
  EXPECT_THAT(Complaint({"print", photo_, photo_, "-o", "-"}), HasSubstr("takes a single page"));
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_FALSE(std::filesystem::exists(folder_.File("page.json")));
}

}  // namespace
}  // namespace corvane
