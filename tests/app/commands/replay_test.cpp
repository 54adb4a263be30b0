// SPDX-License-Identifier: MIT
#include "app/commands/replay.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "app/chain/message_json.h"
#include "app/chain/message_recorder.h"
#include "app/support/failure.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using testing::ElementsAre;

// A chain that needs no colour table.
constexpr const char* kShortChain = R"({"chain":["EHalftoneModule","EDotManagement"]})";

class Replay : public testing::Test {
 protected:
  std::vector<std::string> Run(const std::string& script) {
    RunReplay({folder_.Write("script.jsonl", script), folder_.File("out.jsonl"), ""});
    std::ifstream stream(folder_.File("out.jsonl"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }

  ScratchFolder folder_;
};

TEST_F(Replay, WritesEachMessageAsItLeavesEachElement) {
  const auto lines = Run(std::string(kShortChain) + R"(

{"kind":1,"properties":{"Standard":{"Text":"a\"\u00e9","Low":-5,"High":4294967295,"None":null}}}
{"kind":300,"from":"EColorInline"}
{"kind":2,"passThrough":1}
)");
  const std::string bag =
      R"("properties":{"Standard":{"High":4294967295,"Low":-5,"Text":"a\"é"}}})";
  const std::string page = R"("kind":2,"passThrough":1,"properties":{},"pageProperties":{}})";
  EXPECT_THAT(lines, ElementsAre(R"({"from":"EHalftoneModule","kind":1,)" + bag,
                                 R"({"from":"EDotManagement","kind":1,)" + bag, R"({"result":1})",
                                 R"({"from":"EHalftoneModule","kind":300})",
                                 R"({"from":"EDotManagement","kind":300})", R"({"result":1})",
                                 R"({"from":"EHalftoneModule",)" + page,
                                 R"({"from":"EDotManagement",)" + page, R"({"result":1})"));
}

TEST_F(Replay, RowsAreFilledUpWithZeros) {
  const auto lines = Run(R"({"chain":["EDotManagement"]}
{"kind":5,"raster":{"RasterFormat":2,"Row":7,"Width":4294967295,"RowBytes":5},"data":"AQID"}
{"kind":7,"passThrough":1,"raster":{"RowBytes":2,"EndPixel":null},"data":"AQID"}
{"kind":6}
)");
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[0],
            R"({"from":"EDotManagement","kind":5,"raster":{"RasterFormat":2,"PassThroughValue":0,)"
            R"("Row":7,"FirstPixel":0,"EndPixel":0,"Width":4294967295,"RowBytes":5},)"
            R"("data":"AQIDAAA="})");
  EXPECT_THAT(lines[2], testing::EndsWith(R"("RowBytes":2},"data":"AQI="})"));
  EXPECT_THAT(lines[4], testing::EndsWith(R"("RowBytes":0},"data":""})"));
}

TEST_F(Replay, RefusesWhatItCannotSend) {
  const std::pair<const char*, const char*> cases[] = {
      {"{", "not JSON at byte 2"},
      {"[1]", "the line is not an object"},
      {"{}", "the message has no \"kind\""},
      {R"({"kind":65536})", "\"kind\" is outside 0 to 65535"},
      {R"({"kind":"2"})", "\"kind\" is not an integer"},
      {R"({"kind":1,"pasThrough":1})", "the message has an unknown key \"pasThrough\""},
      {R"({"kind":2,"properties":{"A":{"B":4294967296}}})", "\"B\" does not fit 32 bits"},
      {R"({"kind":2,"properties":{"A":{"B":-2147483649}}})", "\"B\" does not fit 32 bits"},
      {R"({"kind":2,"properties":{"A":{"B":1.0}}})", "\"B\" is neither an integer nor a string"},
      {R"({"kind":2,"properties":{"A":{"B":"\u0000"}}})", "\"B\" holds a zero character"},
      {R"({"kind":2,"properties":{"A":1}})", "\"properties\": group \"A\" is not an object"},
      {R"({"kind":3,"pageProperties":{}})", "only kind 2 has \"pageProperties\""},
      {R"({"kind":3,"raster":{}})", "only kinds 5, 6 and 7 have a \"raster\" and \"data\""},
      {R"({"kind":5,"raster":{"Rows":1}})", "\"raster\" has an unknown key \"Rows\""},
      {R"({"kind":5,"raster":{"Row":-1}})", "\"Row\" is outside 0 to 4294967295"},
      {R"({"kind":5,"data":"AQI"})", "\"data\" is not base64 text"},
      {R"({"kind":7,"raster":{"RowBytes":4294967295}})",
       "the raster stands for 4294967295 bytes; at most 1073741824 are supported"},
      {R"({"kind":2,"properties":{"Standard":{"PrintableWidth":100,"HorizontalInputResolution":600}},)"
       R"("pageProperties":{"Standard":{"CMYKBinaryDescriptor":83,"Slot1HorizontalRes":4294967295}}})",
       "the page has rows of 100 pixels, 7158278 times as fine in print; at most 1073741824 dots "
       "of all planes are supported"},
      {R"({"host":{}})", "the host line must be the first"},
      {R"({"chain":["EColor"]})", "\"chain\" names no element with \"EColor\""},
      {R"({"chain":[]})", "\"chain\" is not a list of element names"},
      {R"({"elements":{"EColor":{}}})", "\"elements\" has an unknown key \"EColor\""},
  };
  for (const auto& [line, problem] : cases) {
    const std::string script = fmt::format("{}\n\n{}\n", kShortChain, line);
    EXPECT_EQ(FailureOf([&] { Run(script); }),
              fmt::format("{}: line 3: {}", folder_.File("script.jsonl"), problem));
    EXPECT_FALSE(std::filesystem::exists(folder_.File("out.jsonl"))) << line;
  }
}

TEST_F(Replay, AnElementThatIsNotReadyEndsIt) {
  testing::internal::CaptureStderr();
  EXPECT_THROW(Run(R"({"host":{"Standard":{"ColorTableFilename":"/no/such.cvt"}}})"), Failure);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "EColorInline::Initialize: Could not open colortable: /no/such.cvt\n");
  EXPECT_FALSE(std::filesystem::exists(folder_.File("out.jsonl")));
}

// A short form of output lines: who sent what, errors with their number and text.
std::string Digest(const std::vector<std::string>& lines) {
  std::string digest;
  for (const std::string& text : lines) {
    const auto line = nlohmann::json::parse(text);
    if (line.contains("result")) {
      digest += fmt::format("={} ", line["result"].get<int>());
      continue;
    }
    digest += fmt::format("{}{}", line["from"].get<std::string>()[1], line["kind"].get<int>());
    if (line["kind"] == 8) {
      const auto& error = line["properties"]["Standard"];
      digest += fmt::format("({}{})", error["ErrorID"].get<int>(),
                            error.contains("m_eAlgorithmType") ? " with type" : "");
    }
    digest += ' ';
  }
  return digest;
}

std::string PageStart(const std::string& properties, const std::string& pageProperties) {
  return R"({"kind":2,"properties":{"Standard":{)" + properties +
         R"(}},"pageProperties":{"Standard":{)" + pageProperties + "}}}\n";
}

// C, H and D stand for the three elements, = for the result.
TEST_F(Replay, ErrorsTravelDownTheChain) {
  const std::string whole =
      R"("PrintableWidth":8,"MediaType":1,"PrintQuality":1,"VerticalInputResolution":600,)"
      R"("HorizontalInputResolution":600,"ZRXRasterFormat":)";
  const std::string seven = R"("CMYKBinaryDescriptor":53)";
  const std::string row = R"({"kind":5,"raster":{"RasterFormat":1,"EndPixel":8}})"
                          "\n";
  const std::string end = R"({"kind":3})";
  const struct {
    const char* name;
    std::string script;
    const char* digest;
  } cases[] = {
      {"a page", PageStart(whole + "1", seven) + row + end,
       "C2 H2 D2 =1 C6 H7 D7 C6 H7 D7 =1 C3 H3 D3 =1 "},
      {"no format", PageStart("", seven), "C8(28) H8(28) D8(28) =0 "},
      {"an unknown format", PageStart(whole + "8", seven) + row + end,
       "C8(28) H8(28) D8(28) =0 =0 C3 H3 D3 =1 "},
      {"no print mode", PageStart(whole + "1", R"("CMYKBinaryDescriptor":9)"),
       "C8(44 with type) H8(44 with type) D8(44 with type) "
       "C8(8 with type) H8(8 with type) D8(8 with type) =0 "},
      {"an index outside its range",
       PageStart(R"("MediaType":7,"PrintQuality":1,"ZRXRasterFormat":1)", seven),
       "C8(8) H8(8) D8(8) =0 "},
      {"no horizontal resolution",
       PageStart(whole + R"(1,"HorizontalInputResolution":0)", seven) + row,
       "C2 H8(8) D8(8) H2 D2 =0 C6 H6 D6 C6 H6 D6 =1 "},
      {"a row without a page", row, "=0 "},
      {"a message that is not looked at", R"({"kind":2,"passThrough":1})", "C2 H2 D2 =1 "},
  };
  for (const auto& [name, script, digest] : cases) {
    EXPECT_EQ(Digest(Run(script)), digest) << name;
  }
}

// In mode 109 a row leaves dot management with 12 planes, of which RowBytes counts as many as the
// page has. One that it passes on unchanged has RowBytes.
TEST_F(Replay, WritesAllPlanesOfADoubledRow) {
  const struct {
    const char* name;
    int planes, alternateMode, rowBytes, endPixel, rowBytesOut;
    std::size_t dataBytes;
  } cases[] = {
      {"second expansion alone", 9, 0, 72, 64, 72, 96},
      {"both expansions", 9, 1, 36, 32, 72, 96},
      {"planes of the page in excess", 265, 0, 72, 64, 72, 96},
      {"more planes than the row spans", 14, 0, 112, 64, 112, 112},
      {"no filter", 9, 2, 72, 64, 72, 72},
      {"end beyond its plane", 9, 0, 72, 65, 72, 72},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto lines = Run(fmt::format(
        R"({{"chain":["EDotManagement"]}}
{{"kind":2,"properties":{{"Standard":{{"PrintableWidth":16,"HorizontalInputResolution":600,"UseAlternateModes":{}}}}},"pageProperties":{{"Standard":{{"CMYKBinaryDescriptor":109,"NumberOfPlanes":{},"Slot1HorizontalRes":4800}}}}}}
{{"kind":7,"raster":{{"RasterFormat":23,"EndPixel":{},"RowBytes":{}}},"data":"{}"}}
{{"kind":3}}
)",
        c.alternateMode, c.planes, c.endPixel, c.rowBytes, "/////w=="));
    ASSERT_EQ(lines.size(), 6u);
    auto row = std::get<ScriptMessage>(ParseScriptLine(lines[2]));
    EXPECT_EQ(AsRaster(*row.message)->RowBytes, c.rowBytesOut);
    EXPECT_EQ(row.data.size(), c.dataBytes);
  }
}

// The place of the data decides how a line is read, not what it says.
TEST(MessageJson, DataMayStandAnywhere) {
  for (
      const char* text : {
          R"({"kind":5,"raster":{"Row":1},"data":"AQID"})",
          R"({"kind":5,"raster":{"Row":1},"data":"AQID"} )",
          R"({"kind":5,"raster":{"Row":1}, "data" : "AQID"})",
          R"({"data":"AQID","kind":5,"raster":{"Row":1}})",
          R"({"kind":5,"data":"AQID","raster":{"Row":1}})",
          R"({"kind":5,"raster":{"Row":1},"data":"AQ\u0049D"})",
          R"({"kind":5,"raster":{"Row":1},"data":"AQID","from":"a"})",
          R"({"kind":5,"raster":{"Row":1},"properties":{"S":{"a":",\"data\":\"b"}},"data":"AQID"})",
      }) {
    auto line = std::get<ScriptMessage>(ParseScriptLine(text));
    EXPECT_EQ(AsRaster(*line.message)->Row, 1u) << text;
    EXPECT_THAT(line.data, ElementsAre(1, 2, 3)) << text;
  }
  for (const char* text :
       {R"({"kind":5,"raster":{"Row":1,"data":"AQID"})", R"({"kind":3,"data":"AQID"})",
        R"({"host":{},"data":"AQID"})", R"({"kind":5,"data":"AQID)",
        R"({"kind":5,"from":",\"data\":\"AQID"}})"}) {
    EXPECT_THROW(ParseScriptLine(text), Failure) << text;
  }
}

TEST(MessageJson, IntegersTakeTheNarrowestType) {
  auto line = ParseScriptLine(
      R"({"kind":2,"pageProperties":{"G":{"a":2147483647,"b":2147483648,"c":-2147483648,"d":"5"}}})");
  auto& page = static_cast<QStartPage&>(*std::get<ScriptMessage>(line).message);
  const auto* entry = page.PageProperties.First();
  for (const auto& [key, isSigned, bits] :
       {std::tuple{"a", true, 2147483647u}, {"b", false, 2147483648u}, {"c", true, 2147483648u}}) {
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(entry->Key(), key);
    EXPECT_EQ(entry->IsSigned(), isSigned);
    EXPECT_EQ(entry->Bits(), bits);
    entry = entry->Next();
  }
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(entry->Text(), "5");
}

TEST(ScriptRecorder, WhatItWritesIsAScript) {
  const ScratchFolder folder;
  const auto file = folder.File("page.jsonl");
  ChainSetup setup;
  setup.elements = {"EColorInline"};
  setup.host.SetProperty("ColorTableFilename", "t.cvt", "Standard");
  setup.elementProperties["EColorInline"].SetProperty("SaveRgb", 1, "EColorInline");
  QStartPage page;
  page.PageProperties.SetProperty("CMYKBinaryDescriptor", 83, "Standard");
  QCMYKContoneRaster row;
  unsigned char bytes[] = {1, 2, 3};
  row.Row = 4;
  row.RowBytes = 3;
  row.Data = bytes;
  {
    OutputStage stage;
    ScriptRecorder recorder(stage.CreateStream(file), setup);
    recorder.Record(page);
    recorder.Record(row);
    EXPECT_FALSE(std::filesystem::exists(file));
    stage.Commit();
  }

  EXPECT_EQ(ReadFile(file), R"({"host":{"Standard":{"ColorTableFilename":"t.cvt"}},)"
                            R"("elements":{"EColorInline":{"EColorInline":{"SaveRgb":1}}},)"
                            R"("chain":["EColorInline"]}
{"kind":2,"properties":{},"pageProperties":{"Standard":{"CMYKBinaryDescriptor":83}}}
{"kind":6,"raster":{"RasterFormat":0,"PassThroughValue":0,"Row":4,"FirstPixel":0,"EndPixel":0,)"
                            R"("Width":0,"RowBytes":3},"data":"AQID"}
)");
}

}  // namespace
}  // namespace corvane
