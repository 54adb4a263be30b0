// SPDX-License-Identifier: MIT
//
// Colour-table files: as the program lists and checks them, and as the colour element opens them
// for pages of every ink set.
#include "app/commands/table.h"
#include "app/tables/file.h"
#include "app/tables/page_tables.h"
#include "color/color_inline.h"
#include "fuzz/fuzz.h"
#include "host/raster.h"

namespace {

using namespace corvane;

constexpr const char* kGroup = "Standard";

// A page of a single row; the tables behind the element are checked as the program does.
void PrintRow(const std::string& path, int mode, int rasterFormat) {
  ZCOM::PROPERTIES host;
  host.SetProperty("ColorTableFilename", path.c_str(), kGroup);
  EColorInline element;
  element.HostProperties = &host;
  FUZZ_EXPECT(element.Initialize() == 1);
  QStartPage start;
  const std::pair<const char*, int> settings[] = {{"ZRXRasterFormat", rasterFormat},
                                                  {"MediaType", 1},
                                                  {"PrintQuality", 1},
                                                  {"PrintableWidth", 8},
                                                  {"ColorPreference", 1},
                                                  {"PageIntent", 1},
                                                  {"VerticalInputResolution", 600},
                                                  {"PaperCharacteristics", 0}};
  for (const auto& [key, value] : settings) start.Properties.SetProperty(key, value, kGroup);
  start.PageProperties.SetProperty("CMYKBinaryDescriptor", mode, kGroup);
  element.DataArrived(&start, 0);
  fuzz::Succeeds([&] { CheckTablesOf(start, path); });
  std::vector<unsigned char> row(32, 100);
  QRaster raster;
  raster.RasterFormat = static_cast<std::uint32_t>(rasterFormat);
  raster.EndPixel = raster.Width = 8;
  raster.RowBytes = static_cast<std::uint32_t>(row.size());
  raster.Data = row.data();
  element.DataArrived(&raster, 0);
}

}  // namespace

FUZZ_TARGET(table_file, input) {
  ZCOM::SetErrorMessageHook([](ZCOM::EObject*, const char*) {});  // of pads that lead nowhere
  const std::string path = fuzz::FileOf(input);
  const bool json = input.size() % 4 < 2;  // one at a time: the list takes most of a trial
  fuzz::Succeeds([&] { RunTableShow({path, json}); });
  fuzz::Succeeds([&] { RunTableVerify({path, json}); });
  PrintRow(path, 5, 1);
  PrintRow(path, 12, 4);
  PrintRow(path, 108, 1);
}
