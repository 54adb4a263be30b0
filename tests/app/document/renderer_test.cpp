// SPDX-License-Identifier: MIT
#include "app/document/renderer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>

#include "app/child/child.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

bool HasInterpreter() { return access("/usr/bin/gs", X_OK) == 0; }

// A PDF of these page dictionaries, each with this content.
std::string Pdf(const std::vector<std::string>& pages, const std::string& content) {
  std::vector<std::string> objects = {
      "<< /Type /Catalog /Pages 2 0 R >>", "",
      "<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "\nendstream",
      "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"};
  std::string kids;
  for (const std::string& page : pages) {
    objects.push_back(
        "<< /Type /Page /Parent 2 0 R /Contents 3 0 R /Resources << /Font << /F 4 0 "
        "R >> >> " +
        page + " >>");
    kids += std::to_string(objects.size()) + " 0 R ";
  }
  objects[1] =
      "<< /Type /Pages /Count " + std::to_string(pages.size()) + " /Kids [" + kids + "] >>";
  std::string file = "%PDF-1.7\n", table;
  for (std::size_t i = 0; i < objects.size(); ++i) {
    char entry[32];
    std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", file.size());
    table += entry;
    file += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
  }
  const std::string size = std::to_string(objects.size() + 1);
  return file + "xref\n0 " + size + "\n0000000000 65535 f \n" + table + "trailer\n<< /Size " +
         size + " /Root 1 0 R >>\nstartxref\n" + std::to_string(file.size()) + "\n%%EOF\n";
}

class RendererTest : public testing::Test {
 protected:
  std::string Written(const std::string& name, const std::string& text) {
    std::ofstream(folder_.File(name), std::ios::binary) << text;
    return folder_.File(name);
  }

  // A script in the place of the interpreter.
  RendererSettings Player(const std::string& script) {
    RendererSettings settings;
    settings.program = Written("player", "#!/bin/sh\n" + script);
    std::filesystem::permissions(settings.program, std::filesystem::perms::owner_all);
    settings.pageSeconds = pageSeconds_;
    return settings;
  }

  // A stream of two pages from such a script.
  std::unique_ptr<PageStream> Played(const std::string& script,
                                     const std::string& document = "%!PS\n") {
    document_ = Written("paper", document);
    return Document(document_, Player(script))
        .Render({.pages = {{4, {18, 36}}, {7, {18, 36}}},
                 .horizontalDpi = 72,
                 .verticalDpi = 72,
                 .ahead = true});
  }

  static void ReadPage(PageStream& stream) {
    std::vector<std::uint8_t> row(stream.Page().image.RowBytes());
    for (std::uint32_t y = 0; y < stream.Page().image.height; ++y) stream.ReadRow(row.data());
  }

  // What the stream complains of when both of its pages are read.
  std::string FailureIn(const std::string& script) {
    const auto stream = Played(script);
    return FailureOf([&] {
      while (stream->Next()) ReadPage(*stream);
    });
  }

  ScratchFolder folder_;
  std::string document_;
  double pageSeconds_ = 0.2;
};

constexpr const char* kPage =
    "page() { echo P7 WIDTH 18 HEIGHT $1 MAXVAL 255 DEPTH 4 TUPLTYPE RGB_TAG ENDHDR; "
    "head -c $((72 * $2)) /dev/zero; }\n";

TEST_F(RendererTest, GivesThePagesOfTheDocument) {
  const auto stream = Played(std::string(kPage) + "page 36 36; echo odd >&2; page 36 36");
  for (const int number : {4, 7}) {
    ASSERT_TRUE(stream->Next());
    EXPECT_EQ(stream->Page().number, number);
    EXPECT_EQ(stream->Page().image.path, document_ + ", page " + std::to_string(number + 1));
    ReadPage(*stream);
  }
  EXPECT_FALSE(stream->Next());
  EXPECT_EQ(stream->TakeRemarks(), document_ + ": Ghostscript: odd");
}

// Of a PDF a second child makes the second page while the first one is read.
TEST_F(RendererTest, MakesTheNextPageAhead) {
  const std::string script =
      std::string(kPage) + "case \"$*\" in *'5 1 5 {'*) while [ ! -e " + folder_.File("second") +
      " ]; do sleep 0.01; done; page 36 36;; *'8 1 8 {'*) : > " + folder_.File("second") +
      "; page 36 36; echo odd >&2;; esac; echo corvane-page-end >&2";
  pageSeconds_ = 30;
  const auto stream = Played(script, "%PDF-1.4\n");
  for (const int number : {4, 7}) {
    ASSERT_TRUE(stream->Next());
    EXPECT_EQ(stream->Page().number, number);
    ReadPage(*stream);
    EXPECT_EQ(stream->TakeRemarks(), number == 4 ? "" : document_ + ": Ghostscript: odd");
  }
  EXPECT_FALSE(stream->Next());
}

// What was begun before the pages were known is gone on with where it is what is asked for, and
// makes no difference where it is not.
TEST_F(RendererTest, GoesOnWithWhatItHasBegun) {
  if (!HasInterpreter()) GTEST_SKIP() << "no interpreter here";
  const std::string path = Written(
      "three.pdf", Pdf({"/MediaBox [0 0 90 70]", "/MediaBox [0 0 50 80]", "/MediaBox [0 0 60 60]"},
                       "BT /F 30 Tf 9 9 Td (page) Tj ET"));
  const auto render = [&](double expectedDpi, const std::vector<std::size_t>& numbers, bool ahead) {
    Document document(path, {});
    if (expectedDpi > 0) document.Expect(expectedDpi, expectedDpi);
    const std::vector<DocumentPage> sizes = document.Pages();
    Rendering rendering = {.horizontalDpi = 144, .verticalDpi = 144, .scale = 0.5, .ahead = ahead};
    for (const std::size_t i : numbers) rendering.pages.push_back({static_cast<int>(i), sizes[i]});
    const auto stream = document.Render(rendering);
    std::vector<std::uint8_t> bytes;
    while (stream->Next()) {
      const ImageInfo& image = stream->Page().image;
      const std::size_t before = bytes.size();
      bytes.resize(before + image.RowBytes() * image.height);
      for (std::uint32_t y = 0; y < image.height; ++y) {
        stream->ReadRow(bytes.data() + before + y * image.RowBytes());
      }
    }
    return bytes;
  };
  for (const std::vector<std::size_t>& numbers :
       std::vector<std::vector<std::size_t>>{{0, 1, 2}, {0, 1}, {0}, {1, 2}}) {
    const auto plain = render(0, numbers, false);
    EXPECT_GT(plain.size(), 4 * 60 * 60U);
    for (const double expectedDpi : {72, 144}) {
      for (const bool ahead : {false, true}) {
        EXPECT_EQ(render(expectedDpi, numbers, ahead), plain)
            << numbers.size() << " pages from " << numbers[0] << ", expected at " << expectedDpi;
      }
    }
  }
}

// A page of which a part is missing fails and says so; what was mended is a remark.
TEST_F(RendererTest, NoticesWhatIsNotDrawn) {
  if (!HasInterpreter()) GTEST_SKIP() << "no interpreter here";
  const std::string text = "BT /F 9 Tf 5 50 Td (text) Tj ET";
  const std::string square = "0 g 5 5 20 20 re f ", picture = "q 30 0 0 30 10 40 cm BI /W 2 /H 9 ";
  const auto damaged = [](std::string pdf, const char* what, const char* by) {
    return pdf.replace(pdf.rfind(what), std::strlen(what), by);
  };
  const std::vector<std::string> two = {"/MediaBox [0 0 80 80]", "/MediaBox [0 0 80 80]"};
  const std::string whole = Pdf(two, square);
  const struct {
    std::string pdf, failure, remark;
  } cases[] = {
      {whole, "", ""},
      {Pdf(two, square + "Q Q"), "", ""},
      {Pdf(two, square + "/F 9 Tf unknown"), "", ""},
      {damaged(whole, "startxref", "startxxxx"), "", "PDF file was repaired"},
      {damaged(whole, "Helvetica", "FooBarSan"), "", ""},
      {damaged(Pdf(two, text), "Helvetica", "FooBarSan"), "", "font FooBarSan comes from "},
      {Pdf(two, text), "", ""},
      {Pdf(two, square + "(a) 2 3 4 re f"), "page 1: Ghostscript has not drawn all of it: ", ""},
      {Pdf(two, square + "/Missing Do"), "page 1: Ghostscript has not drawn all of it: ", ""},
      {Pdf(two, picture + "/CS /RGB /BPC 8 ID abcxyz EI Q"),
       "page 1: Ghostscript has not drawn all of it: ", ""},
      {damaged(whole, "/Contents 3 0 R", "/Contents 9 0 R"), "page 2: Ghostscript has not ", ""},
      {damaged(whole, "/Type /Page /P", "/Nope /Page /P"), "page 2: Ghostscript ended with ", ""},
      {whole.substr(0, whole.find("re f")), "page 1: Ghostscript ", ""},
  };
  for (const auto& page : cases) {
    SCOPED_TRACE(page.pdf);
    Document document(Written("a.pdf", page.pdf), {});
    const std::string said = FailureOf([&] {
      Rendering rendering = {.horizontalDpi = 72, .verticalDpi = 72, .ahead = false};
      for (const DocumentPage& size : document.Pages()) {
        rendering.pages.push_back({static_cast<int>(rendering.pages.size()), size});
      }
      const auto stream = document.Render(rendering);
      while (stream->Next()) stream->Finish();
      const std::string remarks = stream->TakeRemarks();
      EXPECT_THAT(remarks, HasSubstr(page.remark));
      EXPECT_EQ(remarks.empty(), page.remark.empty());
    });
    EXPECT_THAT(said, HasSubstr(page.failure.empty() ? "no failure" : page.failure));
  }
}

// A document may take longer than a page, but nobody waits for ever.
TEST_F(RendererTest, ListsPagesThatTakeTheirTime) {
  const std::string page = std::string(kPage) + "page 36 36; ";
  pageSeconds_ = 1;
  document_ = Written("paper", "%!PS\n");
  const auto list = [&](const std::string& script) {
    return Document(document_, Player(script)).Pages().size();
  };
  EXPECT_EQ(list(page + "sleep 0.6; page 36 36; sleep 0.6; page 36 36"), 3u);
  document_ = Written("other", "%!PS\n");
  EXPECT_EQ(FailureOf([&] { list(page + "sleep 60"); }),
            document_ + ": Ghostscript did not go on for 1 s");
}

// Whatever a child does, its page fails in a line that says which and why.
TEST_F(RendererTest, NamesThePageThatFails) {
  const struct {
    std::string script, complaint;
  } cases[] = {
      {"echo Error: /undefined in x >&2; exit 1", "5: Ghostscript ended with status 1: Error: "},
      {"exit 0", "5: Ghostscript has not made the page"},
      {"page 36 36", "8: Ghostscript has not made the page"},
      {"page 36 36; page 36 20; echo broken >&2; exit 9",
       "8: Ghostscript ended with status 9: broken"},
      {"page 36 20; exit 0", "5: Ghostscript stopped in the middle of the page"},
      {"page 36 36; page 36 20; kill -9 $$", "8: Ghostscript was ended by signal 9"},
      {"page 36 20; sleep 60", "5: Ghostscript did not go on for 1 s"},
      {"echo broken >&2; page 36 20; exec >&-; sleep 60",
       "5: Ghostscript stopped in the middle of the page: broken"},
      {"sleep 60", "5: Ghostscript did not go on for 1 s"},
      {"page 99 99", "5: Ghostscript made 18 x 99 pixels of 18.0 x 36.0 points"},
      {"page 36 36; page 36 37", "8: Ghostscript sends more than it has announced"},
      {"page 36 37; page 36 36", "8: Ghostscript stopped in the middle"},
      {"echo P6 18 36 255; head -c 3000 /dev/zero", "5: Ghostscript made 18 x 36 pixels"},
      {"while :; do :; done", "5: Ghostscript "},
  };
  for (const auto& [script, complaint] : cases) {
    SCOPED_TRACE(script);
    const auto start = std::chrono::steady_clock::now();
    const std::string failure = FailureIn(kPage + script);
    EXPECT_THAT(failure, StartsWith(document_ + ", page " + complaint));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
  }
}

// A job asks for the pages with each one that it prints.
TEST_F(RendererTest, ListsADocumentOnce) {
  const std::string runs = folder_.File("runs");
  RendererSettings settings;
  settings.program = Written(
      "lister", "#!/bin/sh\nprintf . >> " + runs + "\necho corvane-page 0 0 18 36 - - - - 0 0\n");
  std::filesystem::permissions(settings.program, std::filesystem::perms::owner_all);
  std::string document = Written("a.pdf", "%PDF-1.4\n");
  const auto list = [&] { return Document(document, settings).Pages().size(); };
  EXPECT_EQ(list() + list(), 2u);
  EXPECT_EQ(folder_.Read("runs"), ".");
  settings.password = "another";
  EXPECT_EQ(list(), 1u);
  EXPECT_EQ(folder_.Read("runs"), "..");
  document = Written("a.pdf", "%PDF-1.4\n% longer\n");
  EXPECT_EQ(list(), 1u);
  EXPECT_EQ(folder_.Read("runs"), "...");
}

// A system that has no memory left kills who takes most: the page is not to blame.
TEST_F(RendererTest, TellsAKilledInterpreterFromADamagedPage) {
  for (const auto& [end, passes] : {std::pair("kill -9 $$", true), {"kill -11 $$", false}}) {
    const auto stream = Played(kPage + std::string("page 36 20; ") + end);
    bool passed = false;
    try {
      while (stream->Next()) ReadPage(*stream);
    } catch (const TransientFailure&) {
      passed = true;
    } catch (const Failure&) {
    }
    EXPECT_EQ(passed, passes) << end;
  }
}

TEST_F(RendererTest, KnowsHowLargePagesAre) {
  if (!HasInterpreter()) GTEST_SKIP() << "no interpreter here";
  const auto sizes = [](const std::string& path) {
    std::vector<std::pair<double, double>> found;
    for (const DocumentPage& page : Document(path, {}).Pages()) {
      found.emplace_back(std::round(page.widthPoints * 4) / 4,
                         std::round(page.heightPoints * 4) / 4);
    }
    return found;
  };
  using Sizes = std::vector<std::pair<double, double>>;
  EXPECT_EQ(
      sizes(Written("a.pdf", Pdf({"/MediaBox [0 0 100 200]", "/MediaBox [200 100 0 0] /Rotate 90",
                                  "/MediaBox [0 0 100 200] /Rotate -90",
                                  "/MediaBox [0 0 100 200] /CropBox [10 10 60 400]",
                                  "/MediaBox [0 0 100.25 60.5] /Rotate 180"},
                                 ""))),
      (Sizes{{100, 200}, {100, 200}, {200, 100}, {50, 190}, {100.25, 60.5}}));
  EXPECT_EQ(sizes(Written("a.ps",
                          "%!PS\n<</PageSize [100.25 60]>> setpagedevice (noise) = showpage "
                          "<</PageSize [50 80]>> setpagedevice showpage")),
            (Sizes{{100.25, 60}, {50, 80}}));
  // Of an illustration its box counts and one page, whether it shows itself or not.
  const std::string first = "%!PS-Adobe-3.0 EPSF-3.0\n", box = "%%BoundingBox: 10 20 40 80\n";
  const std::string drawing = "%%EndComments\n25 20 90 90 rectfill ";
  const std::string later = drawing + "\n%%BoundingBox: 0 0 9 9\n%%Trailer\n" + box + "%%EOF\n";
  const std::string program = first + box + drawing;
  const std::string withPicture = std::string("\xc5\xd0\xd3\xc6\x1e\0\0\0", 8) +
                                  static_cast<char>(program.size()) + std::string(21, '\0') +
                                  program + "%%BoundingBox: 0 0 5 5\n";
  for (const std::string& illustration :
       {program, program + "showpage", "\r\n \x04" + program, withPicture,
        first + "%%BoundingBox: (atend)\n" + later,
        first + "%%BoundingBox: 9 9 50 90\n%%HiResBoundingBox: 10 20 40.0 80\n" + drawing}) {
    SCOPED_TRACE(illustration);
    const std::string file = Written("a.eps", illustration);
    EXPECT_EQ(sizes(file), (Sizes{{30, 60}}));
    const auto stream = Document(file, {}).Render(
        {.pages = {{0, {30, 60}}}, .horizontalDpi = 72, .verticalDpi = 72});
    ASSERT_TRUE(stream->Next());
    std::vector<std::uint8_t> row(stream->Page().image.RowBytes());
    stream->ReadRow(row.data());
    const std::size_t pixel = row.size() / 30;
    EXPECT_GT(row[14 * pixel], 250);  // the rectangle begins in the middle of the box
    EXPECT_LT(row[15 * pixel], 5);
  }
  EXPECT_THAT(FailureOf([&] { sizes(Written("b.ps", "%!PS\nnonsense")); }),
              StartsWith(folder_.File("b.ps") + ": Ghostscript ended with status 1"));
  EXPECT_THAT(FailureOf([&] { sizes(Written("b.pdf", "%PDF-1.4\nnonsense")); }),
              StartsWith(folder_.File("b.pdf") + ": "));
}

// What is drawn in the boxes and turns that were listed: each page has the size that Render wants.
// Text of black ink is black and graphics, beside a photograph that is tagged as one.
TEST_F(RendererTest, TellsWhatPixelsShow) {
  if (!HasInterpreter()) GTEST_SKIP() << "no interpreter here";
  const std::string content =
      "0 0 0 1 k BT /F 20 Tf 10 10 Td (XXXX) Tj ET\n"
      "q 30 0 0 30 10 40 cm BI /W 2 /H 1 /CS /RGB /BPC 8 ID abcxyz EI Q";
  Document document(
      Written("a.pdf",
              Pdf({"/MediaBox [0 0 80 80]", "/MediaBox [0 0 80 100] /Rotate 90"}, content)),
      {});
  const std::vector<DocumentPage> sizes = document.Pages();
  Rendering rendering = {.horizontalDpi = 144, .verticalDpi = 288, .scale = 0.5};
  for (int i = 0; i < 2; ++i) rendering.pages.push_back({i, sizes[static_cast<std::size_t>(i)]});
  const auto stream = document.Render(rendering);
  ASSERT_TRUE(stream->Next());
  EXPECT_EQ(stream->Page().image.horizontalDpi, 144);
  EXPECT_EQ(stream->Page().image.width, 80u);
  EXPECT_EQ(stream->Page().image.height, 160u);
  int photo = 0, black = 0, otherText = 0;
  std::vector<std::uint8_t> row(stream->Page().image.RowBytes());
  for (int y = 0; y < 160; ++y) {
    stream->ReadRow(row.data());
    for (std::size_t i = 0; i < row.size(); i += 4) {
      const std::uint32_t sum = row[i] + row[i + 1] + row[i + 2];
      photo += row[i + 3] == kPhotoTag;
      black += row[i + 3] == kGraphicsTag && sum == 0;
      otherText += row[i + 3] == kGraphicsTag && sum != 0 && sum != 3 * 255;
    }
  }
  EXPECT_EQ(photo, 30 * 60);
  EXPECT_GT(black, 200);
  EXPECT_EQ(otherText, 0);
  ASSERT_TRUE(stream->Next());
  EXPECT_EQ(stream->Page().image.width, 100u);
}

// Documents that are locked open with their password, whatever it is made of.
TEST_F(RendererTest, OpensLockedDocuments) {
  if (!HasInterpreter()) GTEST_SKIP() << "no interpreter here";
  const std::string password = "a \"b\\ c#";
  const std::string open = Written("open.ps", "%!PS\n<</PageSize [60 60]>> setpagedevice showpage");
  const std::string locked = folder_.File("locked.pdf");
  ChildCommand command = {.program = "gs", .package = "ghostscript"};
  const Descriptor input(::open(open.c_str(), O_RDONLY | O_CLOEXEC));
  command.files = {&input};
  command.arguments = {"-q",
                       "-dBATCH",
                       "-dNOPAUSE",
                       "-sDEVICE=pdfwrite",
                       "-sOwnerPassword=" + password,
                       "-sUserPassword=" + password,
                       "-dEncryptionR=3",
                       "-dKeyLength=128",
                       "-sOutputFile=%stdout",
                       ChildCommand::NameOfFile(0)};
  Child child(command);
  InputStream output(child.TakeOutput(), "gs");
  std::string bytes(100'000, '\0');
  bytes.resize(output.Read(bytes.data(), bytes.size()));
  ASSERT_EQ(child.End(Child::kInTime), "");
  Written("locked.pdf", bytes);
  RendererSettings settings;
  EXPECT_THAT(FailureOf([&] { Document(locked, settings).Pages(); }), HasSubstr("assword"));
  settings.password = password;
  Document document(locked, settings);
  ASSERT_EQ(document.Pages().size(), 1u);
  const auto stream = document.Render({.pages = {{0, {60, 60}}}});
  EXPECT_TRUE(stream->Next());
}

}  // namespace
}  // namespace corvane
