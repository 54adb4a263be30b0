// SPDX-License-Identifier: MIT
//
// `corvane print` from documents to planes, through the interpreter of this machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/app/commands/run_corvane.h"
#include "tests/harness/paths.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::HasSubstr;

class PrintDocumentTest : public testing::Test {
 protected:
  void SetUp() override {
    if (access("/usr/bin/gs", X_OK) != 0) GTEST_SKIP() << "no interpreter here";
  }

  // The twenty pages, an eighth as large as they are made to be.
  std::string TwentyPages() {
    std::ofstream(folder_.File("paper.ps"))
        << "%!PS\n/Unit 0.125 def\n"
        << ReadFile(harness::SourceDirectory() + "/tests/app/document/twenty_pages.ps");
    return folder_.File("paper.ps");
  }

  nlohmann::json Printed(const std::string& document, const std::vector<std::string>& more,
                         int status = 0) {
    std::vector<std::string> arguments = {"print", document, "-q", "--json"};
    if (std::find(more.begin(), more.end(), "-o") == more.end()) {
      arguments.insert(arguments.end(), {"-o", out_});
    }
    arguments.insert(arguments.end(), more.begin(), more.end());
    return nlohmann::json::parse(Output(arguments, status));
  }

  static double InchesWide(const nlohmann::json& page) {
    const auto& plane = page["planes"][0];
    return plane["width"].get<double>() / plane["horizontalDpi"].get<double>();
  }

  ScratchFolder folder_;
  std::string out_ = folder_.File("out/");
};

// Each page has a sheet of its own size, in modes of every resolution.
TEST_F(PrintDocumentTest, PrintsEveryPageOnItsSheet) {
  const std::string paper = TwentyPages();
  for (const char* mode : {"8", "12", "54", "109"}) {
    SCOPED_TRACE(mode);
    const auto report = Printed(paper, {"-m", mode, "--pages", "4-7"});
    ASSERT_EQ(report["pages"].size(), 4u);
    EXPECT_TRUE(report["renderer"].contains("sandboxed"));
    const double points[] = {595.276, 841.89, 595.276, 612};
    for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(report["pages"][i]["page"], i + 4);
      EXPECT_NEAR(InchesWide(report["pages"][i]), points[i] / 8 / 72, 0.008);
    }
  }
}

// A page is the same whoever prints it, alone or among others, and on a larger sheet.
TEST_F(PrintDocumentTest, PrintsAPageAlikeInEveryRun) {
  const std::string paper = TwentyPages();
  Printed(paper, {"--pages", "2-4", "--jobs", "2"});
  const std::string among = ReadFile(out_ + "paper-002.tif");
  Printed(paper, {"--pages", "3", "-o", folder_.File("alone.tif")});
  EXPECT_TRUE(ReadFile(folder_.File("alone.tif")) == among);
  const auto fitted = Printed(paper, {"--paper", "40x50mm", "--pages", "3,5"});
  for (const auto& page : fitted["pages"]) EXPECT_NEAR(InchesWide(page), 40 / 25.4, 0.002);
}

// Text on a page with a photograph takes black ink alone, as a page of text does; with the tags off
// it takes the photograph's mixture.
// A sheet turns with its page, and a page on a sheet that is named where that makes it larger.
TEST_F(PrintDocumentTest, TurnsPages) {
  const std::string paper = TwentyPages();
  const auto turned = Printed(paper, {"--pages", "4,5", "--rotate", "270"});
  EXPECT_NEAR(InchesWide(turned["pages"][0]), 841.89 / 8 / 72, 0.008);
  EXPECT_NEAR(InchesWide(turned["pages"][1]), 595.276 / 8 / 72, 0.008);
  const auto printed = [&](const char* pages, const char* turn, const std::string& output) {
    Printed(paper, {"--pages", pages, "--paper", "40x30mm", "--resolution", "300,600", "--rotate",
                    turn, "-o", output});
  };
  printed("4,5", "auto", out_);
  printed("4", "90", folder_.File("turned.tif"));
  EXPECT_TRUE(ReadFile(folder_.File("turned.tif")) == ReadFile(out_ + "paper-001.tif"));
}

TEST_F(PrintDocumentTest, KeepsTheBlackOfText) {
  const std::string paper = folder_.File("text.ps");
  const auto drops = [&](const std::string& photo, const std::vector<std::string>& more) {
    std::ofstream(paper) << "%!PS\n<</PageSize [100 60]>> setpagedevice 0 0 0 1 setcmykcolor "
                            "/Helvetica-Bold findfont 20 scalefont setfont 5 5 moveto (XXXXX) show "
                         << photo << " showpage";
    return Printed(paper, more)["pages"][0]["drops"];
  };
  const std::string white =
      "gsave 40 30 translate 20 20 scale 1 1 8 [1 0 0 1 0 0] {<ffffff>} false 3 "
      "colorimage grestore";
  const auto text = drops("", {}), beside = drops(white, {}),
             untagged = drops(white, {"--tags", "none"});
  EXPECT_GT(text["K"], 0);
  EXPECT_EQ(text["C"], 0);
  EXPECT_EQ(beside, text);
  EXPECT_NE(untagged, text);
}

// What is remarked on a page stands in its report alone.
TEST_F(PrintDocumentTest, ReportsOnEachPage) {
  std::ofstream(folder_.File("fonts.pdf"))
      << "\n%PDF-1.4\n1 0 obj\n<</Type/Catalog/Pages 2 0 R>>\nendobj\n"
         "2 0 obj\n<</Type/Pages/Count 2/Kids[3 0 R 4 0 R]/MediaBox[0 0 40 40]>>\nendobj\n"
         "3 0 obj\n<</Type/Page/Parent 2 0 R/Contents 5 0 R/Resources<</Font<</F 6 0 R>>>>>>\n"
         "endobj\n4 0 obj\n<</Type/Page/Parent 2 0 R>>\nendobj\n"
         "5 0 obj\n<</Length 28>>\nstream\nBT /F 9 Tf 5 5 Td (ab) Tj ET\nendstream\nendobj\n"
         "6 0 obj\n<</Type/Font/Subtype/TrueType/BaseFont/FooBarSans>>\nendobj\n"
         "trailer\n<</Root 1 0 R>>\n";
  const auto report = Printed(folder_.File("fonts.pdf"), {"--report", folder_.File("r.html")});
  EXPECT_THAT(report["remarks"].dump(), HasSubstr("FooBarSans"));
  EXPECT_THAT(report["pages"][1]["files"].dump(), HasSubstr("r-002.html"));
  EXPECT_THAT(ReadFile(folder_.File("r-001.html")), HasSubstr("FooBarSans"));
  EXPECT_THAT(ReadFile(folder_.File("r-002.html")), testing::Not(HasSubstr("FooBarSans")));
}

// A drawing has the size that it says, its text is text, and what it names of elsewhere stays out.
TEST_F(PrintDocumentTest, PrintsDrawings) {
  const std::string drawing = folder_.File("drawing");
  std::ofstream(drawing)
      << "\xef\xbb\xbf<?xml version='1.0'?>\n<!-- a long remark: " << std::string(200, 'x')
      << " -->\n<svg xmlns='http://www.w3.org/2000/svg' width='60mm' height='40mm'>"
         "<text y='20'>Text</text><rect y='50' width='9' height='9' fill='blue'/></svg>";
  if (access("/usr/bin/rsvg-convert", X_OK) != 0) {
    EXPECT_EQ(Complaint({"print", drawing, "-o", out_, "-q"}),
              "rsvg-convert is not installed (Debian package librsvg2-bin)");
    return;
  }
  const auto page = Printed(drawing, {})["pages"][0];
  EXPECT_NEAR(InchesWide(page), 60 / 25.4, 0.01);
  EXPECT_GT(page["drops"]["K"], 0);
  EXPECT_GT(page["drops"]["C"], 0);
  std::ofstream(drawing) << "<svg xmlns='http://www.w3.org/2000/svg'><g></svg>";
  EXPECT_THAT(Complaint({"print", drawing, "-o", out_, "-q"}),
              HasSubstr("drawing: rsvg-convert ended with status 1: "));
}

TEST_F(PrintDocumentTest, SaysWhatIsWrong) {
  const std::string broken = folder_.File("broken.ps");
  std::ofstream(broken) << "%!PS\n<</PageSize [40 40]>> setpagedevice showpage showpage nonsense";
  // The pages before the error are there, and the one that it has stopped fails.
  const auto report = Printed(broken, {}, 1);
  EXPECT_EQ(report["pages"].size(), 2u);
  ASSERT_EQ(report["failures"].size(), 1u);
  EXPECT_EQ(report["failures"][0]["page"], 3);
  EXPECT_THAT(report["failures"].dump(), HasSubstr("/undefined in nonsense"));
  const std::string paper = TwentyPages();
  const auto complaint = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {"print", paper, "-o", out_, "-q"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Complaint(arguments);
  };
  EXPECT_THAT(complaint({"--pages", "3-21"}), HasSubstr("--pages 3-21: there are 20 pages"));
  EXPECT_THAT(complaint({"--pages", "3-x"}), HasSubstr("3-x: is no page or range of pages"));
  EXPECT_THAT(complaint({"--landscape"}),
              HasSubstr("--landscape turns a sheet that --paper names"));
  EXPECT_THAT(complaint({"--password-file", folder_.File("none")}), HasSubstr("No such file"));
  std::ofstream(folder_.File("wide.ps")) << "%!PS\n<</PageSize [20 200]>> setpagedevice showpage";
  EXPECT_THAT(Complaint({"print", folder_.File("wide.ps"), "-o", out_, "-q"}),
              HasSubstr("a sheet's sides are 10 to 5000 mm long"));
  Printed(folder_.File("wide.ps"), {"--paper", "20x20mm"});
}

}  // namespace
}  // namespace corvane
