// SPDX-License-Identifier: MIT
#include "app/calibration/profile.h"

#include <gtest/gtest.h>
#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "app/commands/table_inspect.h"
#include "app/support/icc_handles.h"
#include "app/tables/check.h"
#include "app/tables/lookup.h"
#include "app/tables/page_tables.h"
#include "tests/app/commands/run_corvane.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

constexpr int kMedia = 2;
constexpr char kDescription[] = "Tinte für 紙";

class PrinterProfile : public testing::Test {
 protected:
  PrinterProfile() {
    TableFile file(FindColorTable(""));
    table_ = ReadDecodedTable(file, {2, kMedia, 0, 1, 1});
    Open(MakePrinterProfile(table_, DefaultInkData(), kMedia, kDescription));
    lab_ = IccProfile(cmsCreateLab4Profile(nullptr));
  }

  void Open(const std::string& bytes) {
    profile_ =
        IccProfile(cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
  }

  IccTransform Transform(bool forward, cmsUInt32Number intent) const {
    const auto flags = cmsFLAGS_NOCACHE | cmsFLAGS_NOOPTIMIZE;
    return IccTransform(forward ? cmsCreateTransform(profile_.get(), TYPE_RGB_DBL, lab_.get(),
                                                     TYPE_Lab_DBL, intent, flags)
                                : cmsCreateTransform(lab_.get(), TYPE_Lab_DBL, profile_.get(),
                                                     TYPE_RGB_DBL, intent, flags));
  }

  static Triple Apply(const IccTransform& transform, const Triple& in) {
    Triple out;
    cmsDoTransform(transform.get(), in.data(), out.data(), 1);
    return out;
  }

  std::vector<std::uint8_t> table_;
  IccProfile profile_, lab_;
};

TEST_F(PrinterProfile, SaysWhatTheTablePrintsAndFindsItBack) {
  ASSERT_TRUE(profile_);
  EXPECT_EQ(cmsGetDeviceClass(profile_.get()), cmsSigOutputClass);
  wchar_t description[40] = {};
  cmsGetProfileInfo(profile_.get(), cmsInfoDescription, "en", "US", description,
                    sizeof description);
  EXPECT_EQ(std::wstring(description), L"Tinte für 紙");
  const PrintModel model(DefaultInkData(), kMedia);
  const InkResponseTable response(model);
  const PrintedTable printed(table_, response);
  const IccTransform forward = Transform(true, INTENT_RELATIVE_COLORIMETRIC);
  const IccTransform back = Transform(false, INTENT_RELATIVE_COLORIMETRIC);
  ASSERT_TRUE(forward && back);
  double said = 0, found = 0, most = 0;
  int count = 0;
  std::uint32_t state = 1;
  const auto part = [&] { return (state = state * 1664525u + 1013904223u) / 4294967296.0; };
  for (; count < 800; ++count) {
    const double values[3] = {part(), part(), part()};
    const Triple rgb = {values[0], values[1], values[2]};
    const Triple lab = printed.Lab(rgb);
    const double difference = DeltaE2000(Apply(forward, rgb), lab);
    said += difference;
    most = std::max(most, difference);
    found += DeltaE2000(printed.Lab(Apply(back, lab)), lab);
  }
  EXPECT_LT(said / count, 0.3);
  EXPECT_LT(most, 3.0);
  EXPECT_LT(found / count, 0.9);

  const Triple white = Apply(forward, {1, 1, 1});
  EXPECT_LT(DeltaE2000(white, {100, 0, 0}), 0.1);
  const Triple paper = Apply(Transform(true, INTENT_ABSOLUTE_COLORIMETRIC), {1, 1, 1});
  EXPECT_LT(DeltaE2000(paper, DefaultInkData().media[kMedia].white), 0.3);
}

TEST_F(PrinterProfile, LeavesOutTheBlackThatAPageLoses) {
  const ScratchFolder folder;
  const std::string output = folder.File("draft.icc");
  ASSERT_EQ(
      RunCorvane({"table", "profile", "-q", "-o", output, "--mode", "109", "--quality", "normal"}),
      0);
  Open(ReadFile(output));
  ASSERT_TRUE(profile_);
  TableFile file(FindColorTable(""));
  const std::vector<std::uint8_t> table = ReadDecodedTable(file, {3, kMedia, 0, 1, 0});
  InkAmounts printed = AmountsOf(LookUp(table, {0, 0, 0}));
  ASSERT_GT(std::exchange(printed[static_cast<int>(Ink::K)], 0.0), 0.0);
  const Triple lab = LabFromBands(PrintModel(DefaultInkData(), kMedia).Bands(printed));
  const IccTransform forward = Transform(true, INTENT_RELATIVE_COLORIMETRIC);
  EXPECT_LT(DeltaE2000(Apply(forward, {0, 0, 0}), lab), 0.5);
}

TEST_F(PrinterProfile, MarksWhatCannotBePrinted) {
  const IccProfile srgb(cmsCreate_sRGBProfile());
  cmsUInt16Number alarm[cmsMAXCHANNELS] = {};
  alarm[0] = alarm[1] = alarm[2] = 0x7777;
  cmsSetAlarmCodes(alarm);
  const IccTransform proof(
      cmsCreateProofingTransform(lab_.get(), TYPE_Lab_DBL, srgb.get(), TYPE_RGB_16, profile_.get(),
                                 INTENT_RELATIVE_COLORIMETRIC, INTENT_RELATIVE_COLORIMETRIC,
                                 cmsFLAGS_SOFTPROOFING | cmsFLAGS_GAMUTCHECK));
  ASSERT_TRUE(proof);
  const auto marked = [&](const Triple& lab) {
    cmsUInt16Number rgb[3];
    cmsDoTransform(proof.get(), lab.data(), rgb, 1);
    return rgb[0] == 0x7777 && rgb[1] == 0x7777 && rgb[2] == 0x7777;
  };
  EXPECT_FALSE(marked({60, 10, 10}));
  EXPECT_TRUE(marked({50, -110, 90}));
}

}  // namespace
}  // namespace corvane
