// SPDX-License-Identifier: MIT
//
// `corvane print` and `corvane modes` from the command line to the files.
#include "app/commands/print.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "app/commands/print_page.h"
#include "app/image/reader.h"
#include "app/page/planes.h"
#include "app/support/failure.h"
#include "app/tables/default_table.h"
#include "printmode/print_modes.h"
#include "tests/app/commands/run_corvane.h"
#include "tests/app/image/test_images.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class PrintTest : public testing::Test {
 protected:
  PrintTest() : photo_(folder_.File("photo.png")), out_(folder_.File("out/")) {
    WritePng(photo_,
             MakeImage(90, 120, 3, 8,
                       [](int x, int y, int c) { return 250 - (x * (c + 1) + y * (3 - c)) / 2; }),
             {.colourType = 2});
  }

  std::vector<std::string> Arguments(const std::vector<std::string>& more) const {
    std::vector<std::string> arguments = {"print", photo_, "-o", out_, "-q", "--paper", "12x17mm"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  bool NothingWritten() const { return !std::filesystem::exists(out_); }

  ScratchFolder folder_;
  std::string photo_, out_;
};

std::uint64_t DropsIn(const std::string& path, const std::string& plane) {
  std::uint64_t drops = 0;
  TIFF* tiff = TIFFOpen(path.c_str(), "r");
  do {
    char* name = nullptr;
    TIFFGetField(tiff, TIFFTAG_PAGENAME, &name);
    std::uint32_t height = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(TIFFScanlineSize(tiff)));
    for (std::uint32_t y = 0; y < height && plane == name; ++y) {
      TIFFReadScanline(tiff, row.data(), y);
      for (const std::uint8_t byte : row) drops += static_cast<unsigned>(__builtin_popcount(byte));
    }
  } while (TIFFReadDirectory(tiff));
  TIFFClose(tiff);
  return drops;
}

// Whether a picture shows anything but bare paper, which its corner is.
bool ShowsInk(const std::string& path) {
  const std::unique_ptr<ImageReader> image = OpenImage(path);
  std::vector<std::uint8_t> row(image->Info().RowBytes());
  std::array<std::uint8_t, 3> paper{};
  for (std::uint32_t y = 0; y < image->Info().height; ++y) {
    image->ReadRow(row.data());
    if (y == 0) std::copy_n(row.begin(), paper.size(), paper.begin());
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (row[i] + 40 < paper[i % paper.size()]) return true;
    }
  }
  return false;
}

// Every mode and alternate mode: the chain sends rows of the shape that is expected, the planes
// have the size of the sheet, the files hold the drops that are reported, and what holds drops
// takes ink and shows in the preview.
TEST_F(PrintTest, PrintsEveryMode) {
  for (const PrintMode& mode : kPrintModes) {
    for (int alternate = 0; alternate < kAlternateModes; ++alternate) {
      SCOPED_TRACE(testing::Message() << mode.name << ", alternate mode " << alternate);
      const auto report = nlohmann::json::parse(Output(Arguments(
          {"--json", "--mode", std::to_string(mode.descriptor), "--uam", std::to_string(alternate),
           "--overspray", "3,5", "--preview", folder_.File("preview.png")})));
      const auto& page = report["pages"][0];
      EXPECT_FALSE(page["planes"].empty());
      EXPECT_TRUE(ShowsInk(folder_.File("preview.png")));
      const double inchesHigh = page["rows"].get<double>() / page["verticalDpi"].get<double>();
      EXPECT_NEAR(inchesHigh, 17 / 25.4, 0.005);
      EXPECT_EQ(page["verticalDpi"], mode.verticalDpi);
      std::map<std::string, std::uint64_t> counted;
      for (const auto& plane : page["planes"]) {
        const double inches = plane["width"].get<double>() / plane["horizontalDpi"].get<double>();
        EXPECT_NEAR(inches, 12 / 25.4 + 8.0 / std::min<int>(600, mode.horizontalDpi), 0.005);
        const std::string name = plane["name"];
        const std::string ink = name.substr(0, name.find(' '));
        const std::uint64_t weight = name.ends_with("bit 1") ? 2 : 1;
        counted[ink] += weight * DropsIn(out_ + "photo.tif", name);
      }
      for (const auto& [ink, drops] : counted) {
        EXPECT_EQ(page["drops"][ink], drops) << ink;
        EXPECT_EQ(page["inks"][ink]["nanolitres"].get<double>() > 0, drops > 0) << ink;
      }
      const std::string dark = mode.inkSet == InkSet::Black ? "K" : "C";
      EXPECT_GT(counted[dark], 0u);
    }
  }
}

// Planes by their place in the row, from what the elements send and not from the code under test.
TEST(PrintPlanes, FollowDotManagement) {
  const std::string six = "C c M m Y y ", bits = "cd0 cd1 md0 md1 K0 K1 ";
  const struct {
    int mode, alternate;
    std::size_t rowBytes;  // of 80 input pixels at 600 dpi
    std::uint32_t rowsPerInch;
    std::string planes;
    double dpi, lightDpi;  // of cd and md
    std::uint32_t pagePlanes, spannedPlanes;
  } kCases[] = {
      {83, 0, 7 * 40, 1200, six + "K ", 2400, 0, 7, 7},
      {109, 0, 12 * 40, 1200, six + "cd md ", 2400, 4800, 9, 12},
      {109, 1, 12 * 40, 1200, six + "cd md ", 2400, 4800, 9, 12},
      {54, 2, 7 * 20, 1200, six + "K ", 1200, 0, 7, 7},
      {111, 0, 12 * 10, 600, six + bits, 600, 600, 12, 12},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(testing::Message() << test.mode << ", " << test.alternate);
    const PrintMode& mode = *FindPrintMode(test.mode);
    const PageShape shape = BinaryPageShape(mode, test.alternate, 80, 600, 600, 600);
    EXPECT_EQ(shape.rowBytes, test.rowBytes);
    EXPECT_EQ(shape.rows, test.rowsPerInch);
    std::string planes;
    for (const PlaneShape& plane : shape.planes) {
      const auto bit = plane.name.find(" bit ");
      planes += plane.name.substr(0, bit) + (bit < 9 ? plane.name.substr(bit + 5) : "") + " ";
      const bool light = plane.ink == Ink::cd || plane.ink == Ink::md;
      EXPECT_EQ(plane.horizontalDpi, light ? test.lightDpi : test.dpi) << plane.name;
    }
    EXPECT_EQ(planes, test.planes);
    EXPECT_EQ(shape.announcedBytes, test.rowBytes / test.spannedPlanes * test.pagePlanes);
  }
}

TEST_F(PrintTest, WritesTheSameFilesSeriallyAndInParallel) {
  WriteTiff(folder_.File("pages.tif"),
            MakeImage(50, 60, 1, 8, [](int x, int y, int) { return x * y; }), {});
  WriteTiff(folder_.File("pages.tif"),
            MakeImage(60, 50, 1, 8, [](int x, int y, int) { return x + y; }), {.append = true});
  const auto print = [&](const std::string& out, const std::string& jobs) {
    RunCorvane({"print", photo_, folder_.File("pages.tif"), photo_, "-q", "-o", folder_.File(out),
                "-m", "12", "--contone", "--paper", "20x20mm", "--jobs", jobs});
  };
  print("serial/", "1");
  print("parallel/", "4");
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder_.File("serial"))) {
    const std::string name = entry.path().filename().string();
    EXPECT_TRUE(ReadFile(entry.path().string()) ==
                ReadFile(folder_.File(std::string("parallel/").append(name))))
        << name;
    ++files;
  }
  EXPECT_EQ(files, 8);
  EXPECT_TRUE(std::filesystem::exists(folder_.File("serial/photo-002-contone.tif")));
  EXPECT_TRUE(std::filesystem::exists(folder_.File("serial/pages-002.tif")));
}

// Tags choose between the photo and the graphic table: a mask of one kind prints like a page of
// that intent.
TEST_F(PrintTest, TagsChooseTheTable) {
  const auto mask = [&](int value) {
    const std::string path = folder_.File("mask.png");
    WritePng(path, MakeImage(90, 120, 1, 8, [=](int, int, int) { return value; }),
             {.colourType = 0});
    return path;
  };
  const auto contone = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments = Arguments({"-m", "53", "--contone", "--scale", "200"});
    arguments.insert(arguments.end(), more.begin(), more.end());
    RunCorvane(arguments);
    return ReadFile(out_ + "photo-contone.tif");
  };
  const std::string photo = contone({"--intent", "photo"});
  const std::string graphic = contone({"--intent", "graphic"});
  ASSERT_NE(photo, graphic);
  EXPECT_TRUE(contone({"--tags", mask(1)}) == graphic);
  EXPECT_TRUE(contone({"--tags", mask(2)}) == photo);
  EXPECT_TRUE(contone({"--tags", mask(255)}) == photo);
}

// Pages with tags of their own, at their size and resampled.
TEST_F(PrintTest, TakesTheTagsOfAPage) {
  constexpr int kWidth = 283, kHeight = 401;  // the sheet
  const auto contone = [&](char tag, const std::vector<std::string>& more, int page = 0) {
    std::string pixels;
    for (int i = 0; i < kWidth * kHeight; ++i) {
      pixels += tag;
      for (int c = 0; c < 3; ++c) pixels += static_cast<char>(40 + (i * (c + 2)) % 90);
    }
    photo_ = folder_.File("page.pam");
    const std::string header =
        "P7 WIDTH 283 HEIGHT 401 MAXVAL 255 DEPTH 4 TUPLTYPE RGB_TAG ENDHDR\n";
    std::ofstream file(photo_, std::ios::binary);
    for (int i = 0; i < page; ++i) file << header << std::string(pixels.size(), '\1');
    file << header << pixels;
    file.close();
    std::vector<std::string> arguments = Arguments({"-m", "53", "--contone"});
    arguments.insert(arguments.end(), more.begin(), more.end());
    RunCorvane(arguments);
    return ReadFile(out_ + (page > 0 ? "page-002-contone.tif" : "page-contone.tif"));
  };
  constexpr char kText = 1, kImage = 2, kLines = 4;
  for (const char* scale : {"100", "130"}) {
    const std::string photo = contone(0, {"--tags", "none", "--scale", scale});
    const std::string graphic =
        contone(0, {"--tags", "none", "--intent", "graphic", "--scale", scale});
    ASSERT_NE(photo, graphic);
    EXPECT_TRUE(contone(kText, {"--scale", scale}) == graphic);
    EXPECT_TRUE(contone(kLines, {"--scale", scale}) == graphic);
    EXPECT_TRUE(contone(kImage, {"--scale", scale}) == photo);
  }
  // A page reads the same whoever prints the one before it.
  EXPECT_TRUE(contone(kImage, {"--jobs", "2"}, 1) == contone(kImage, {}, 1));
}

// A turned page has the dots of an image that was stored so, and its tags lie under it.
TEST_F(PrintTest, TurnsImagesAndTheirTags) {
  const auto level = [](int x, int y, int c) { return 250 - (x * (c + 1) + y * (3 - c)) / 2; };
  const auto tag = [](int x, int y, int) { return x < 40 && y < 70 ? 0 : 2; };
  const std::string mask = folder_.File("mask.png"), turnedMask = folder_.File("turned.png");
  WritePng(mask, MakeImage(90, 120, 1, 8, tag), {.colourType = 0});
  WritePng(turnedMask,
           MakeImage(120, 90, 1, 8, [&](int x, int y, int) { return tag(y, 119 - x, 0); }),
           {.colourType = 0});
  const std::string upright = photo_;
  const auto printed = [&](const std::vector<std::string>& more) {
    std::vector<std::string> arguments = Arguments({"-m", "53", "--resolution", "300,600"});
    arguments.insert(arguments.end(), more.begin(), more.end());
    RunCorvane(arguments);
    return ReadFile(out_ + "photo.tif");
  };
  const std::string plain = printed({});
  const std::string turned = printed({"--rotate", "90", "--margins", "1,0.5,2,3", "--tags", mask});
  EXPECT_TRUE(printed({"--rotate", "auto"}) == plain);
  EXPECT_TRUE(printed({"--margins", "head", "--borderless"}) == plain);
  const std::string head = printed({"--margins", "head"});
  EXPECT_FALSE(head == plain);
  EXPECT_TRUE(printed({"--margins", "3,3,3,5"}) == head);
  WritePng(photo_,
           MakeImage(120, 90, 3, 8, [&](int x, int y, int c) { return level(y, 119 - x, c); }),
           {.colourType = 2});
  EXPECT_TRUE(printed({"--margins", "1,0.5,2,3", "--tags", turnedMask}) == turned);
  EXPECT_TRUE(printed({"--rotate", "auto", "--position", "top"}) ==
              printed({"--rotate", "90", "--position", "top"}));
}

// Pages that share a sheet have the dots of one image that was put together of them.
TEST_F(PrintTest, PutsPagesOnASheet) {
  const auto level = [](int x, int y, int c) { return 250 - (x * (c + 1) + y * (3 - c)) / 2; };
  constexpr int kWidth = 567, kHeight = 401, kLeft[] = {96, 380}, kTop = 140;
  const std::string whole = folder_.File("whole.png");
  WritePng(whole,
           MakeImage(kWidth, kHeight, 3, 8,
                     [&](int x, int y, int c) {
                       for (const int left : kLeft) {
                         if (x >= left && x < left + 90 && y >= kTop && y < kTop + 120) {
                           return level(x - left, y - kTop, c);
                         }
                       }
                       return 255;
                     }),
           {.colourType = 2});
  const auto printed = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"print", "--json", "-q", "-m", "53", "--scale", "100",
                                         "--paper", "24x17mm", "-o"});
    return nlohmann::json::parse(Output(arguments));
  };
  const std::string one = folder_.File("one.tif"), shared = folder_.File("shared.tif");
  printed({one, whole});
  const auto report = printed({shared, photo_, photo_, "--nup", "2"});
  EXPECT_EQ(report["pages"][0]["cells"].size(), 2u);
  EXPECT_EQ(RunCorvane({"compare", one, shared, "-q"}), 0);
  const auto sheets = printed({out_, photo_, photo_, photo_, "--nup", "2x1", "--copies", "2"});
  ASSERT_EQ(sheets["pages"].size(), 4u);
  EXPECT_EQ(sheets["pages"][1]["cells"].size(), 1u);
  EXPECT_EQ(RunCorvane({"compare", one, out_ + "photo-003.tif", "-q"}), 0);
}

// Beside a page that says what its pixels show, one that does not is what the settings say.
TEST_F(PrintTest, PutsTaggedPagesBesideOthers) {
  const auto contone = [&](char tag, const std::vector<std::string>& more) {
    std::ofstream file(folder_.File("page.pam"), std::ios::binary);
    file << "P7 WIDTH 90 HEIGHT 120 MAXVAL 255 DEPTH 4 TUPLTYPE RGB_TAG ENDHDR\n";
    for (int i = 0; i < 90 * 120; ++i) file << tag << std::string(3, static_cast<char>(i % 90));
    file.close();
    std::vector<std::string> arguments = Arguments({"-m", "53", "--contone", "--nup", "2"});
    arguments.insert(arguments.begin() + 1, folder_.File("page.pam"));
    arguments.insert(arguments.end(), more.begin(), more.end());
    RunCorvane(arguments);
    return ReadFile(out_ + "page-contone.tif");
  };
  constexpr char kText = 1, kImage = 2;
  const std::string photo = contone(kText, {"--tags", "none"});
  const std::string graphic = contone(kText, {"--tags", "none", "--intent", "graphic"});
  EXPECT_TRUE(contone(kImage, {}) == photo);
  EXPECT_TRUE(contone(kText, {"--intent", "graphic"}) == graphic);
  const std::string mixed = contone(kText, {});
  EXPECT_TRUE(mixed != photo && mixed != graphic);
}

TEST_F(PrintTest, TakesTheFilesOfAFolder) {
  const std::string good = ReadFile(photo_), queue = folder_.File("queue");
  std::filesystem::create_directories(queue + "/below");
  for (const char* name : {"10.png", "9.png", "b.png", ".hidden.png", "below/c.png"}) {
    WriteFile(queue + "/" + name, good);
  }
  WriteFile(queue + "/notes.txt", "no image");
  const auto report = nlohmann::json::parse(
      Output({"print", queue, "-o", out_, "-m", "8", "--paper", "12x17mm", "--json", "-q"}));
  std::vector<std::string> images;
  for (const auto& page : report["pages"]) images.push_back(page["image"]);
  EXPECT_EQ(images, (std::vector{queue + "/9.png", queue + "/10.png", queue + "/b.png"}));
  EXPECT_THAT(Output({"job", "make", folder_.File("day.job"), queue}), HasSubstr("3 pages"));

  // What was printed there is no picture; what is named as one and is none fails, named.
  RunCorvane({"print", photo_, "-o", queue + "/9.tif", "-m", "8", "--paper", "12x17mm", "-q"});
  EXPECT_THAT(Output({"job", "make", folder_.File("evening.job"), queue}), HasSubstr("3 pages"));
  WriteFile(queue + "/11.PNG", "");
  EXPECT_THAT(Complaint({"print", queue, "-o", out_, "-m", "8", "-q", "--all-or-nothing"}),
              HasSubstr("11.PNG: the file is empty"));
  std::filesystem::create_directory(folder_.File("none"));
  EXPECT_THAT(Complaint({"print", photo_, folder_.File("none"), "-o", out_}),
              HasSubstr("none: holds no picture or document"));
}

// Numbers pass over the names of other inputs.
TEST_F(PrintTest, GivesEachPageAName) {
  const std::string good = ReadFile(photo_), queue = folder_.File("queue/");
  std::filesystem::create_directories(queue);
  for (const char* name : {"a-001.png", "a.img", "a.png"}) WriteFile(queue + name, good);
  const auto report = nlohmann::json::parse(
      Output({"print", queue, "-o", out_, "-m", "8", "--paper", "12x17mm", "--json", "-q"}));
  std::string names;
  for (const auto& page : report["pages"]) names += page["files"].dump();
  for (const char* name : {"a-001.tif", "a-002.tif", "a-003.tif"}) {
    EXPECT_THAT(names, HasSubstr(name));
  }
}

TEST_F(PrintTest, RecordsWhatReplaySends) {
  RunCorvane(Arguments({"-m", "8", "--format", "raw", "--record", folder_.File("page.jsonl")}));
  const auto sidecar = nlohmann::json::parse(ReadFile(out_ + "photo.json"));
  EXPECT_EQ(ReadFile(out_ + "photo.raw").size(),
            sidecar["rows"].get<std::size_t>() * sidecar["rowBytes"].get<std::size_t>());
  const std::string script = folder_.Read("page.jsonl");
  EXPECT_EQ(std::count(script.begin(), script.end(), '\n'), 1 + 1 + 401 + 1);
  EXPECT_THAT(script, HasSubstr("\"kind\":2"));
}

TEST_F(PrintTest, WritesDiagnosticsWhereItIsTold) {
  RunCorvane(Arguments({"-m", "53", "--diagnostics", folder_.File(""), "--save-rgb"}));
  EXPECT_THAT(folder_.Read("HTLog.txt"),
              StartsWith("BinaryDescriptor = CcMmYyK_1200x1200_4Pass\n"));
  EXPECT_EQ(folder_.Read("rgb.raw").size(), 401u * 14400);
  ZCOM::SetDiagnosticsDirectory(nullptr);
}

// A page that fails leaves the others alone, wherever it fails, and their names as well.
TEST_F(PrintTest, KeepsThePagesThatAreDone) {
  const std::string good = ReadFile(photo_);
  const std::string cut = folder_.Write("cut.png", good.substr(0, good.size() / 2));
  std::filesystem::create_directory(folder_.File("other"));
  const std::string none = folder_.Write("other/photo.png", "no image");
  for (const std::string jobs : {"1", "3"}) {
    SCOPED_TRACE(jobs);
    std::filesystem::remove_all(out_);
    testing::internal::CaptureStderr();
    const auto report = nlohmann::json::parse(Output(
        {"print", none, cut, photo_, "--json", "-o", out_, "--paper", "12x17mm", "-j", jobs}, 1));
    const std::string complaint = testing::internal::GetCapturedStderr();
    EXPECT_THAT(complaint, HasSubstr(cut + ": the PNG image is cut short"));
    EXPECT_THAT(complaint, HasSubstr("2 of 3 pages not printed: "));
    ASSERT_EQ(report["pages"].size(), 1u);
    EXPECT_EQ(report["pages"][0]["image"], photo_);
    EXPECT_EQ(report["failures"].size(), 2u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(out_), {}), 1);
    EXPECT_TRUE(std::filesystem::exists(out_ + "photo-002.tif"));
  }
  std::filesystem::remove_all(out_);
  EXPECT_THAT(Complaint({"print", photo_, cut, "-q", "-o", out_, "--all-or-nothing"}),
              HasSubstr("cut short"));
  EXPECT_TRUE(NothingWritten());
  // A single page that fails is the command that fails.
  EXPECT_THAT(Complaint({"print", cut, "-q", "-o", out_}), HasSubstr("cut short"));
  EXPECT_TRUE(NothingWritten());
}

TEST_F(PrintTest, ComplainsInOneLineAndLeavesNothing) {
  const std::string table = ReadFile(DefaultColorTable());
  WriteFile(folder_.File("cut.cvt"), table.substr(0, 3000));
  WriteFile(folder_.File("empty.cvt"), "");
  WriteFile(folder_.File("zero.cvt"), std::string(5000, 0));
  std::string damaged = table;
  for (std::size_t i = damaged.size() / 20; i < damaged.size(); i += 50) damaged[i] ^= 0x11;
  WriteFile(folder_.File("damaged.cvt"), damaged);
  const std::string good = ReadFile(photo_);
  WriteFile(folder_.File("cut.png"), good.substr(0, good.size() / 2));
  WritePng(folder_.File("small.png"), MakeImage(9, 9, 1, 8, [](int, int, int) { return 0; }),
           {.colourType = 0});
  const struct {
    std::vector<std::string> arguments;
    std::string complaint;
  } kCases[] = {
      {{folder_.File("cut.png")}, folder_.File("cut.png") + ": the PNG image is cut short"},
      {{folder_.File("none.png")}, folder_.File("none.png") + ": No such file or directory"},
      {{"--color-table", folder_.File("cut.cvt")}, folder_.File("cut.cvt") + ": "},
      {{"--color-table", folder_.File("empty.cvt")}, folder_.File("empty.cvt") + ": "},
      {{"--color-table", photo_}, photo_ + ": "},
      {{"--color-table", folder_.File("zero.cvt")}, folder_.File("zero.cvt") + ": no colour table"},
      {{"--color-table", folder_.File("damaged.cvt")},
       folder_.File("damaged.cvt") + ": the colour table at offset"},
      {{"--color-table", folder_.File("none.cvt")},
       folder_.File("none.cvt") + ": No such file or directory"},
      {{"--mode", "99"}, "99: is not a print mode"},
      {{"--mode", "K_900"}, "K_900: is not a print mode"},
      {{"--uam", "3"}, "--uam: "},
      {{"--media", "velvet"}, "velvet: is none of plain (1)"},
      {{"--resolution", "500"}, "500 dpi: mode 53 takes a horizontal resolution that divides 1200"},
      {{"--mode", "7", "--resolution", "300"},
       "300 dpi: mode 7 takes a vertical resolution of 600"},
      {{"--mode", "108", "--paper-characteristics", "no-black"},
       "no-black: mode 108 has no tables without black ink but those of --quality best"},
      {{"--tags", folder_.File("small.png")},
       folder_.File("small.png") + ": 9 x 9 tags do not fit 90 x 120 pixels"},
      {{"--tags", photo_}, photo_ + ": the tags must be a grey image"},
      {{"--format", "pdf"}, "--format: "},
      {{"--diagnostics", folder_.File("none")}, folder_.File("none") + ": is not a folder"},
      {{"--jobs", "0"}, "0: pages at a time"},
      {{"--fit", "--scale", "50"}, "--fit excludes --scale"},
      {{"--margins", "6"}, photo_ + ": --margins and --position leave nothing"},
      {{"--rotate", "45"}, "--rotate: "},
      {{"--nup", "5"}, "5: no number of pages on a sheet"},
      {{"--nup", "2", "--tags", photo_}, "--tags belong to one input"},
      {{"--mode", "8", "--mode", "12"}, "--mode: can be given only once"},
      {{"--preview-zoom", "1,1,5,5"}, "--preview-dpi, --preview-zoom and --preview-only need"},
      {{"--preview-dpi", "99"}, "--preview-dpi, --preview-zoom and --preview-only need"},
      {{"--preview", folder_.File("x.jpg")},
       folder_.File("x.jpg") + ": what is written there is no .jpg file; end its name in .png"},
      {{"--record", folder_.File("x.png")},
       folder_.File("x.png") + ": what is written there is no"},
      {{"--points", "--diagnostics", folder_.File("")},
       folder_.File("points.bin") + ": No such file"},
  };
  for (const auto& test : kCases) {
    std::vector<std::string> arguments = Arguments({"--all-or-nothing"});
    if (std::find(test.arguments.begin(), test.arguments.end(), "--mode") == test.arguments.end()) {
      arguments.insert(arguments.end(), {"--mode", "53"});
    }
    arguments.insert(arguments.end(), test.arguments.begin(), test.arguments.end());
    const std::string complaint = Complaint(arguments);
    EXPECT_THAT(complaint, StartsWith(test.complaint));
    EXPECT_THAT(complaint, testing::Not(HasSubstr("\n")));
    EXPECT_TRUE(NothingWritten()) << test.complaint;
  }
  const std::string json = folder_.File("page.json");
  const std::vector<std::vector<std::string>> kOverwriting = {
      {photo_, "-o", photo_},
      {photo_, "-o", out_, "--preview", photo_},
      {photo_, "-o", out_, "--record", folder_.File("./photo.png")},
      {photo_, "-o", json, "--format", "raw"},
      {photo_, "-o", out_, "--preview", json, "--ink-map", json},
  };
  for (std::vector<std::string> arguments : kOverwriting) {
    arguments.insert(arguments.begin(), "print");
    EXPECT_THAT(Complaint(arguments), HasSubstr("would be written"));
    EXPECT_TRUE(NothingWritten()) << arguments.back();
  }
  EXPECT_EQ(ReadFile(photo_), good);
  const std::string alike = folder_.Write("photo-contone.png", good);
  EXPECT_THAT(Complaint({"print", photo_, alike, "--contone", "-o", out_}),
              HasSubstr("two files would be written there"));
  EXPECT_THAT(Complaint({"print", photo_, "-o", out_, "--paper", "A44"}), StartsWith("A44: "));
  EXPECT_THAT(Complaint({"print", photo_, "-o", folder_.File("d.PNG"), "-m", "8"}),
              HasSubstr("d.PNG: what is written there is no .png file"));
  EXPECT_THAT(
      Complaint({"print", photo_, "-o", folder_.File("d.tif"), "-m", "8", "--format", "raw"}),
      HasSubstr("end its name in .raw"));
  EXPECT_THAT(Complaint({"print", photo_, "-o", "/dev/full", "-m", "8"}),
              HasSubstr("/dev/full: cannot write: No space left"));
  EXPECT_THAT(Complaint({"print", photo_, "-o", folder_.File("none/x.tif"), "-m", "8"}),
              HasSubstr("cannot write: No such file"));
}

TEST_F(PrintTest, KeepsOlderFilesWhenAsked) {
  RunCorvane(Arguments({"-m", "8"}));
  WriteFile(out_ + "photo.tif", "mine");
  EXPECT_THAT(Complaint(Arguments({"-m", "8", "--no-clobber"})),
              HasSubstr("photo.tif: is there already"));
  EXPECT_EQ(ReadFile(out_ + "photo.tif"), "mine");
  const std::string report = folder_.Write("report.html", "mine");
  EXPECT_THAT(Complaint({"print", photo_, "-o", folder_.File("new.tif"), "-m", "8", "--no-clobber",
                         "--report", report}),
              HasSubstr("report.html: is there already"));
  RunCorvane(Arguments({"-m", "8"}));
  EXPECT_NE(ReadFile(out_ + "photo.tif"), "mine");
}

TEST_F(PrintTest, TellsOfDiagnosticFilesThatAreNotWhole) {
  std::filesystem::create_symlink("/dev/full", folder_.File("rgb.raw"));
  EXPECT_THAT(Complaint(Arguments({"-m", "53", "--diagnostics", folder_.File(""), "--save-rgb"})),
              HasSubstr("the diagnostic files are not whole: No space left on device"));
  EXPECT_TRUE(NothingWritten());
  ZCOM::SetDiagnosticsDirectory(nullptr);
}

TEST(Modes, ListsEveryModeOnce) {
  const auto modes = nlohmann::json::parse(Output({"modes", "--json"}));
  ASSERT_EQ(modes.size(), kPrintModes.size());
  const std::string table = Output({"modes"});
  for (const auto& mode : modes) {
    EXPECT_THAT(table, HasSubstr(mode["name"].get<std::string>()));
    ASSERT_EQ(mode["alternateModes"].size(), 3u);
  }
  EXPECT_THAT(table, HasSubstr("no black plane"));
}

}  // namespace
}  // namespace corvane
