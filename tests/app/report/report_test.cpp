// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libdeflate.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "app/drawing/drawing.h"
#include "app/report/packed.h"
#include "app/report/press_check.h"
#include "app/report/report_page.h"
#include "app/support/base64.h"
#include "tests/app/commands/run_corvane.h"
#include "tests/app/commands/standard_input_from.h"
#include "tests/app/report/test_prints.h"

namespace corvane {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

std::string TextOf(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// The data that the script of a page reads.
json DataOf(const std::string& page) {
  const std::string open = "<script type=\"application/json\" id=\"data\">";
  const std::size_t start = page.find(open) + open.size();
  return json::parse(page.substr(start, page.find("</script>", start) - start));
}

std::vector<std::uint8_t> Unpacked(const std::string& text, std::size_t size) {
  std::vector<unsigned char> packed;
  EXPECT_TRUE(DecodeBase64(text, &packed));
  std::vector<std::uint8_t> bytes(size);
  libdeflate_decompressor* const decompressor = libdeflate_alloc_decompressor();
  std::size_t length = 0;
  EXPECT_EQ(libdeflate_zlib_decompress(decompressor, packed.data(), packed.size(), bytes.data(),
                                       size, &length),
            LIBDEFLATE_SUCCESS);
  libdeflate_free_decompressor(decompressor);
  EXPECT_EQ(length, size);
  return bytes;
}

// As page.js reads them.
std::vector<std::uint32_t> Numbers(const std::string& text, std::size_t count,
                                   std::size_t columns) {
  const std::vector<std::uint8_t> bytes = Unpacked(text, 2 * count);
  std::vector<std::uint32_t> numbers(count);
  for (std::size_t i = 0; i < count; ++i) {
    const int folded = bytes[i] | bytes[count + i] << 8;
    const int difference = folded & 1 ? -((folded + 1) >> 1) : folded >> 1;
    const std::uint32_t left = i % columns > 0 ? numbers[i - 1] : 0;
    const std::uint32_t above = i >= columns ? numbers[i - columns] : 0;
    numbers[i] = (static_cast<std::uint32_t>(difference) + (left + above) / 2) & 0xFFFF;
  }
  return numbers;
}

bool Texture(std::size_t plane, std::uint32_t x, std::uint32_t y) {
  return Strewn(plane, x, y, 4 + y / 100);
}

// Every drop of the print stands in the plane's sum, in one cell, and in the places that are shown;
// widths that end within a byte, planes of two widths, inks of two planes.
TEST(Report, NumbersAreThoseOfThePlanes) {
  struct Form {
    int mode, alternateMode;
    std::uint32_t width, height;
  };
  for (const Form& form : {Form{54, 0, 203, 301}, Form{54, 2, 203, 131}, Form{109, 0, 203, 131},
                           Form{34, 0, 203, 131}, Form{7, 0, 103, 131}}) {
    SCOPED_TRACE(testing::Message() << form.mode << ' ' << form.alternateMode);
    const std::string print = Temporary("numbers.tif"), page = Temporary("numbers.html");
    const PageShape shape =
        WritePrint(print, form.mode, form.alternateMode, form.width, form.height, Texture);
    const json summary = json::parse(
        Output({"report", print, "-o", page, "--json", "--zoom-areas", "2.11,1.3,3.3,2.7"}));
    const json data = DataOf(TextOf(page));
    EXPECT_EQ(data["summary"], summary);

    std::array<std::uint64_t, kInkCount> drops{};
    std::uint64_t all = 0;
    for (std::size_t plane = 0; plane < shape.planes.size(); ++plane) {
      std::uint64_t count = 0;
      for (std::uint32_t y = 0; y < shape.rows; ++y) {
        for (std::uint32_t x = 0; x < shape.planes[plane].width; ++x) count += Texture(plane, x, y);
      }
      count <<= shape.planes[plane].bit;
      EXPECT_EQ(summary["planes"][plane]["drops"], count);
      drops[static_cast<std::size_t>(shape.planes[plane].ink)] += count;
      all += count;
    }
    EXPECT_EQ(summary["all"]["drops"], all);

    const std::size_t columns = data["grid"]["columns"], rows = data["grid"]["rows"];
    for (std::size_t ink = 0; ink < data["inks"].size(); ++ink) {
      std::uint64_t sum = 0;
      for (const std::uint32_t cell :
           Numbers(data["prints"][0]["drops"][ink], columns * rows, columns)) {
        sum += cell;
      }
      EXPECT_EQ(sum, drops[data["inks"][ink]["place"].get<std::size_t>()]);
    }

    const json& area = data["prints"][0]["areas"][0];
    ASSERT_GT(area["rows"], 0);
    for (std::size_t plane = 0; plane < shape.planes.size(); ++plane) {
      const json& shown = area["planes"][plane];
      const std::uint32_t pixels = shown["pixels"], first = shown["first"], top = area["firstRow"],
                          height = area["rows"];
      const std::size_t stride = (pixels + 7) / 8;
      const auto bits = Unpacked(shown["bits"], stride * height);
      ASSERT_GT(pixels, 0u);
      for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < 8 * stride; ++x) {
          ASSERT_EQ((bits[y * stride + x / 8] & 0x80 >> x % 8) != 0,
                    x < pixels && Texture(plane, first + x, top + y))
              << plane << ' ' << x << ' ' << y;
        }
      }
    }
  }
}

TEST(Report, TextAndJsonTellTheSame) {
  const std::string print = Temporary("text.tif"), prices = Temporary("prices.json");
  WritePrint(print, 12, 0, 90, 4200, Texture);
  std::ofstream(prices) << R"({"currency": "EUR", "perLitre": {"C": 100000000, "K": 80}})";
  const std::vector<std::string> command = {"report", print, "--prices", prices};
  auto with = [&](const char* option) {
    auto arguments = command;
    arguments.emplace_back(option);
    return Output(arguments);
  };
  const json told = json::parse(with("--json"));
  const std::string text = with("--text");
  for (const json& plane : told["planes"]) {
    EXPECT_THAT(text, HasSubstr(std::to_string(plane["drops"].get<std::uint64_t>()) + " drops"));
  }
  const double nanolitres = told["planes"][0]["nanolitres"];
  EXPECT_NEAR(told["planes"][0]["cost"].get<double>(), nanolitres / 10, 1e-9);
  EXPECT_EQ(told["planes"][1]["cost"], 0);
  EXPECT_EQ(told["currency"], "EUR");
  for (const json& area : told["areas"]) {
    EXPECT_THAT(text, HasSubstr(area["name"].get<std::string>()));
  }
  EXPECT_THAT(text, HasSubstr(std::to_string(told["feed"]["swaths"].get<int>()) + " swaths"));
  for (const json& warning : told["warnings"]) {
    EXPECT_THAT(text, HasSubstr(warning.get<std::string>()));
  }
  EXPECT_FALSE(std::ifstream(Temporary("text.html")));
}

// Solid ink of all seven planes on a part of the page, bare paper on the rest.
TEST(Report, FindsWhatIsAboveTheInkLimit) {
  const std::string print = Temporary("limit.tif");
  WritePrint(print, 12, 0, 600, 600,
             [](std::size_t, std::uint32_t x, std::uint32_t y) { return x < 120 && y >= 480; });
  const json told = json::parse(Output({"report", print, "--json"}));
  const json& load = told["inkLoad"];
  EXPECT_EQ(load["cellsAbove"], 100);  // 0.2 by 0.2 inch at 50 cells per inch
  EXPECT_GT(load["most"], load["limit"]);
  EXPECT_NEAR(load["mostAt"][1].get<double>(), 20.32, 5.1);
  EXPECT_THAT(told["warnings"].dump(), HasSubstr("100 places"));
  ASSERT_EQ(told["areas"].size(), 1u);
  EXPECT_EQ(told["areas"][0]["drops"]["C"], 120 * 120);
}

// A grey field with a quarter of a colour beyond the inks of plain paper, printed by the program.
TEST(Report, TellsFaultsFromColoursThatTheInksLack) {
  const std::string image = Temporary("wanted.png"), print = Temporary("wanted.tif");
  Drawing drawing(80, 80);
  drawing.Rect({0, 0, 80, 80}, {150, 150, 150});
  drawing.Rect({0, 0, 40, 40}, {0, 0, 255});
  std::ofstream(image, std::ios::binary) << ToPng(drawing, 4);
  RunCorvane({"print", image, "-o", print, "--paper", "30x30mm", "-q", "--media", "plain"});
  const json told =
      json::parse(Output({"report", print, "--json", "--against", image, "--media", "plain"}));
  const json& page = told["against"]["page"];
  EXPECT_GT(page["clipped"], page["cells"].get<int>() / 6);
  EXPECT_LT(page["faults"], page["cells"].get<int>() / 10);
  EXPECT_EQ(told["against"]["regions"].size(), 12u);
  EXPECT_GT(told["against"]["regions"][0]["clipped"], 0);
  EXPECT_EQ(told["against"]["regions"][11]["clipped"], 0);
  EXPECT_EQ(told["areas"][0]["name"], "worst difference");

  // The same image on an empty sheet is a fault wherever the inks have the colour.
  WritePrint(print, 12, 0, 709, 709,
             [](std::size_t, std::uint32_t, std::uint32_t) { return false; });
  const json empty = json::parse(Output({"report", print, "--json", "--against", image}));
  EXPECT_GT(empty["against"]["page"]["faults"], empty["against"]["page"]["cells"].get<int>() / 2);
}

TEST(Report, OpensForEveryModeAndAlternateMode) {
  const std::string print = Temporary("modes.tif"), page = Temporary("modes.html");
  for (const PrintMode& mode : kPrintModes) {
    for (int alternate = 0; alternate < kAlternateModes; ++alternate) {
      const auto same = [&](int other) {
        const AlternateMode &a = mode.Alternate(static_cast<std::uint32_t>(alternate)),
                            &b = mode.Alternate(static_cast<std::uint32_t>(other));
        return a.layout == b.layout && a.halftoneDpi == b.halftoneDpi &&
               a.placing.rows == b.placing.rows &&
               a.placing.secondExpansion == b.placing.secondExpansion;
      };
      if (alternate > 0 && same(alternate - 1)) continue;
      SCOPED_TRACE(testing::Message() << mode.descriptor << ' ' << alternate);
      const PageShape shape = WritePrint(print, mode.descriptor, alternate, 41, 40, Texture);
      RunCorvane({"report", print, "-o", page});
      const json data = DataOf(TextOf(page));
      EXPECT_EQ(data["planes"].size(), shape.planes.size());
      EXPECT_EQ(data["summary"]["useAlternateModes"], alternate);
      // Seen on paper, a drop is a spot of some size and colour.
      for (const json& plane : data["planes"]) EXPECT_GT(plane["radius"], 0);
      for (const json& ink : data["inks"]) EXPECT_GT(ink["fullArea"], 0);
    }
  }
}

TEST(Report, ComesWithAPrint) {
  const std::string image = Temporary("image.png"), page = Temporary("page.html");
  Drawing drawing(80, 80);
  drawing.Rect({0, 0, 80, 80}, {120, 160, 60});
  std::ofstream(image, std::ios::binary) << ToPng(drawing, 1);
  const std::vector<std::string> command = {
      "print", image, "-o", Temporary("page.tif"), "-q", "--paper", "30x30mm", "--report", page};
  RunCorvane(command);
  const json told = DataOf(TextOf(page))["summary"];
  EXPECT_EQ(told["against"]["image"], image);
  EXPECT_LT(told["against"]["page"]["mean"], 4);
  EXPECT_EQ(told["facts"]["its SHA-256"].get<std::string>().size(), 64u);
  EXPECT_EQ(told["facts"]["image profile"], "none");
  EXPECT_EQ(told["facts"]["quality"], "normal");
  EXPECT_EQ(told["facts"]["paper"], "30 x 30 mm");
  EXPECT_THAT(told["warnings"].dump(), HasSubstr("is enlarged: 68 of its pixels"));
  auto stored = command;
  stored[1] = "-";
  const StandardInputFrom input(image);
  RunCorvane(stored);
  const json fromInput = DataOf(TextOf(page))["summary"];
  EXPECT_EQ(fromInput["against"]["image"], "stdin");
  EXPECT_EQ(fromInput["against"]["page"], told["against"]["page"]);
  auto raw = command;
  raw.insert(raw.end(), {"--format", "raw"});
  EXPECT_THAT(Complaint(raw), HasSubstr("--report"));
}

TEST(Report, PutsNothingFromOutsideIntoItsMarkup) {
  const std::string print = Temporary("<b>&.tif"), page = Temporary("markup.html");
  WritePrint(print, 54, 1, 61, 40, Texture);
  RunCorvane({"report", print, "-o", page});
  const std::string text = TextOf(page);
  EXPECT_THAT(text, Not(HasSubstr("<b>")));
  EXPECT_THAT(text, HasSubstr("&lt;b&gt;&amp;.tif</h1>"));
  EXPECT_THAT(text, Not(HasSubstr("{{")));
  EXPECT_THAT(text, Not(HasSubstr("http")));
}

TEST(Report, RefusesWhatItCannotCarryOut) {
  const std::string print = Temporary("a.tif");
  WritePrint(print, 12, 0, 300, 300, Texture);
  EXPECT_THAT(Complaint({"report", print, "-o", print}), HasSubstr("a.tif"));
  EXPECT_THAT(Complaint({"report", print, "-o", Temporary("a.png")}), HasSubstr(".html"));
  EXPECT_THAT(Complaint({"report", print, print, "-o", Temporary("a.html")}), HasSubstr("folder"));
  EXPECT_THAT(Complaint({"report", print, "--text", "--zoom-areas", "1,2,3"}), HasSubstr("1,2,3"));
  EXPECT_THAT(Complaint({"report", print, "--text", "--zoom-areas", "100,2,3,4"}),
              HasSubstr("outside"));
  EXPECT_THAT(Complaint({"report", Temporary("none.tif")}), HasSubstr("No such file"));
}

}  // namespace
}  // namespace corvane
