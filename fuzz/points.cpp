// SPDX-License-Identifier: MIT
//
// Points files: the chart of one, printed through the whole chain. The first byte chooses the mode.
#include "color/points.h"
#include "app/chain/chain.h"
#include "fuzz/fuzz.h"
#include "plugin/get_factory.h"
#include "printmode/page_shape.h"
#include "printmode/print_modes.h"
#include "tests/harness/element_harness.h"
#include "tests/harness/paths.h"
#include "tests/harness/scratch_folder.h"

namespace {

using namespace corvane;

constexpr std::uint32_t kWidth = 700;

QStartPage PageOf(const PrintMode& mode) {
  QStartPage page;
  const std::pair<const char*, unsigned long> settings[] = {{"ZRXRasterFormat", 1},
                                                            {"PrintableWidth", kWidth},
                                                            {"Points", 1},
                                                            {"VerticalInputResolution", 600},
                                                            {"HorizontalInputResolution", 300}};
  for (const auto& [key, value] : settings) page.Properties.SetProperty(key, value, "Standard");
  page.PageProperties.SetProperty("CMYKBinaryDescriptor", static_cast<int>(mode.descriptor),
                                  "Standard");
  page.PageProperties.SetProperty("NumberOfPlanes", static_cast<int>(NumberOfPlanes(mode, 0)),
                                  "Standard");
  return page;
}

}  // namespace

FUZZ_TARGET(points, input) {
  static const DiagnosticsFolder folder;
  fuzz::Input parts(input);
  const PrintMode& mode = kPrintModes[parts.Choose(kPrintModes.size())];
  folder.Write("points.bin", std::string(fuzz::TextOf(parts.Rest())));
  std::vector<unsigned char> read(kPointsBytes, 1);
  ReadPoints(read.data());
  const std::size_t given = std::min(parts.Rest().size(), kPointsBytes);
  FUZZ_EXPECT(std::equal(read.begin(), read.begin() + static_cast<std::ptrdiff_t>(given),
                         parts.Rest().begin()));
  FUZZ_EXPECT(std::all_of(read.begin() + static_cast<std::ptrdiff_t>(given), read.end(),
                          [](unsigned char byte) { return byte == 0; }));

  char name[] = "EColorInline";
  harness::ElementHarness color(GetFactory()->CreateElement(name));
  const std::string tables = harness::SourceDirectory() + "/fuzz/corpus/table_file/tables";
  color.host.SetProperty("ColorTableFilename", tables.c_str(), "Standard");
  FUZZ_EXPECT(color.Start() == 1);
  QStartPage page = PageOf(mode);
  color.Push(page);
  QRaster row;
  row.RasterFormat = 1;
  row.EndPixel = row.Width = kWidth;
  for (const std::uint32_t y : {0u, 299u, 300u, 4799u, 4800u, 0xFFFFFFFFu}) {
    row.Row = y;
    color.Push(row);
  }
}
