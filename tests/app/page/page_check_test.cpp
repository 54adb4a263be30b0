// SPDX-License-Identifier: MIT
#include "app/page/page_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "app/page/settings.h"
#include "host/property_names.h"
#include "printmode/print_modes.h"
#include "tests/app/commands/run_corvane.h"
#include "tests/harness/paths.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

QStartPage SoundPage(const PrintMode& mode, int alternateMode) {
  return MakeStartPage(DefaultSettings(mode, alternateMode), 100);
}

// Whatever stands in the way of what the page needs is named, and nothing else.
TEST(PageCheck, NamesWhatAPageStartLacksForItsMode) {
  for (const PrintMode& mode : kPrintModes) {
    for (int a = 0; a < kAlternateModes; ++a) {
      SCOPED_TRACE(std::to_string(mode.descriptor) + " alternate " + std::to_string(a));
      EXPECT_THAT(CheckPageStart(SoundPage(mode, a)), IsEmpty());
      for (const PageRequirement& needed : RequirementsOf(mode, a)) {
        QStartPage page = SoundPage(mode, a);
        for (ZCOM::PROPERTIES* bag : {&page.Properties, &page.PageProperties}) {
          bag->SetProperty(needed.name.c_str(), "600", property::kStandardGroup);
        }
        EXPECT_THAT(CheckPageStart(page), ElementsAre(StartsWith(needed.name + " is a text")));
      }
    }
  }
}

TEST(PageCheck, FindsWhatStandsInTheWrongPlace) {
  const PrintMode& mode = *FindPrintMode(CcMmYyK_4800x1200_16Pass);
  const QStartPage sound = SoundPage(mode, 0);
  QStartPage page;
  page.Properties = sound.Properties;
  EXPECT_THAT(CheckPageStart(page), ElementsAre(HasSubstr("is missing, not a print mode")));
  page.PageProperties.SetProperty("CMYKBinaryDescriptor", 83, "Standard");
  page.PageProperties.SetProperty("NumberOfPlanes", 7ul, "Other");
  page.Properties.SetProperty("Slot1HorizontalRes", 4800ul, "Standard");
  EXPECT_THAT(CheckPageStart(page), ElementsAre(HasSubstr("stands in another group"),
                                                HasSubstr("is read from PageProperties")));

  page = sound;
  page.Properties.SetProperty("UseAlternateModes", "2", "Standard");
  page.Properties.SetProperty("PageIntent", "2", "Standard");
  page.Properties.SetProperty("ZRXRasterFormat", 2, "Standard");
  page.PageProperties.SetProperty("ColorPreference", 1, "Standard");
  page.Properties.SetProperty("ColorPreference", 1, "Other");
  EXPECT_THAT(CheckPageStart(page),
              testing::UnorderedElementsAre("UseAlternateModes is a text, which reads as 0",
                                            "PageIntent is a text, which reads as 0",
                                            HasSubstr("is 2: rows of that format")));
}

TEST(PageCheck, ReadsTheHostsDocumentAndItsScripts) {
  std::ifstream file(corvane::harness::SourceDirectory() + "/docs/host.md");
  std::stringstream document;
  document << file.rdbuf();
  EXPECT_THAT(document.str(), HasSubstr(Output({"modes", "--page-start"})));

  const std::string script = testing::TempDir() + "page_check.jsonl";
  std::ofstream(script) << "\n"
                           R"({"kind":2,"pageProperties":{"Standard":{"NumberOfPlanes":7}}})"
                           "\n";
  EXPECT_THAT(Output({"check-page", script}, 1),
              HasSubstr("page 1 (line 2): not as its mode needs it\n  CMYKBinaryDescriptor"));
  std::ofstream(script) << R"({"kind":3})"
                           "\n";
  EXPECT_THAT(Complaint({"check-page", script}), HasSubstr("without a page start"));
}

TEST(Elements, ExplainsEachByItsName) {
  EXPECT_THAT(Output({"elements"}), HasSubstr("EHalftoneModule"));
  EXPECT_THAT(Output({"elements", "EDotManagement"}), HasSubstr("Slot1HorizontalRes"));
  EXPECT_THAT(Output({"elements", "NumberOfPlanes"}), HasSubstr("PageProperties"));
  EXPECT_THAT(Complaint({"elements", "Planes"}), HasSubstr("no element and no property"));
}

}  // namespace
}  // namespace corvane
