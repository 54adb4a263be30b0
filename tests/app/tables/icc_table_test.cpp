// SPDX-License-Identifier: MIT
#include "app/tables/icc_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lcms2.h>

#include <memory>
#include <string>
#include <vector>

#include "app/support/failure.h"
#include "app/tables/builder.h"
#include "app/tables/lookup.h"
#include "tests/app/support/failure_of.h"
#include "tests/harness/scratch_folder.h"

namespace corvane {
namespace {

using Sampler = cmsInt32Number (*)(const cmsUInt16Number in[], cmsUInt16Number out[], void*);

// A printer profile whose table from Lab to `channels` inks `sample` fills; the way back is a ramp
// of lightness, which black point detection reads.
std::string PrinterProfile(cmsColorSpaceSignature space, cmsUInt32Number channels, Sampler sample) {
  const std::unique_ptr<void, cmsBool (*)(cmsHPROFILE)> profile(
      cmsCreateProfilePlaceholder(nullptr), cmsCloseProfile);
  cmsSetProfileVersion(profile.get(), 2.1);
  cmsSetDeviceClass(profile.get(), cmsSigOutputClass);
  cmsSetColorSpace(profile.get(), space);
  cmsSetPCS(profile.get(), cmsSigLabData);
  const auto write = [&](cmsTagSignature tag, cmsUInt32Number in, cmsUInt32Number out,
                         Sampler fill) {
    cmsPipeline* pipeline = cmsPipelineAlloc(nullptr, in, out);
    cmsStage* grid = cmsStageAllocCLut16bit(nullptr, in > 4 ? 2 : 9, in, out, nullptr);
    cmsStageSampleCLut16bit(grid, fill, nullptr, 0);
    cmsPipelineInsertStage(pipeline, cmsAT_BEGIN, grid);
    cmsWriteTag(profile.get(), tag, pipeline);
    cmsPipelineFree(pipeline);
  };
  const Sampler back = [](const cmsUInt16Number in[], cmsUInt16Number out[], void*) {
    out[0] = static_cast<cmsUInt16Number>(0xFFFF - in[0]);
    out[1] = out[2] = 0x8080;
    return 1;
  };
  write(cmsSigBToA0Tag, 3, channels, sample);
  write(cmsSigBToA1Tag, 3, channels, sample);
  write(cmsSigAToB0Tag, channels, 3, back);
  write(cmsSigAToB1Tag, channels, 3, back);
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(profile.get(), nullptr, &size);
  std::string bytes(size, '\0');
  cmsSaveProfileToMem(profile.get(), bytes.data(), &size);
  return bytes;
}

TableBuilder BuilderFor(const ScratchText& profile) {
  TableSettings settings;
  settings.iccProfile = profile.Path();
  return TableBuilder(DefaultInkData(), settings);
}

// The darkness of the colour goes into the fourth channel, half of it into the first.
cmsInt32Number BlackAndHalfCyan(const cmsUInt16Number in[], cmsUInt16Number out[], void*) {
  out[3] = static_cast<cmsUInt16Number>(0xFFFF - in[0]);
  out[0] = static_cast<cmsUInt16Number>(out[3] / 2);
  out[1] = out[2] = 0;
  return 1;
}

TEST(IccTable, SplitsTheTonesOfACmykProfileOverDarkAndLightInks) {
  const ScratchText file("cmyk.icc", PrinterProfile(cmsSigCmykData, 4, BlackAndHalfCyan));
  const TableBuilder builder = BuilderFor(file);
  for (const int inkClass : {2, 3}) {
    const TableKey key = {.inkClass = inkClass, .media = 2, .quality = 1};
    const std::vector<std::uint8_t> table = builder.Build(key);
    const Contone light = LookUp(table, {230, 230, 230}), dark = LookUp(table, {0, 0, 0});
    EXPECT_GT(light[static_cast<std::size_t>(Ink::c)], 5);
    EXPECT_EQ(light[static_cast<std::size_t>(Ink::M)], 0);
    EXPECT_GT(dark[static_cast<std::size_t>(Ink::K)], 200);
    EXPECT_GT(dark[static_cast<std::size_t>(Ink::K)], light[static_cast<std::size_t>(Ink::K)]);
  }
  // No black ink: the grey that it would give comes from the three others.
  const Contone composed =
      LookUp(builder.Build({.inkClass = 1, .media = 2, .quality = 1}), {0, 0, 0});
  EXPECT_EQ(composed[static_cast<std::size_t>(Ink::K)], 0);
  EXPECT_GT(composed[static_cast<std::size_t>(Ink::M)], 150);
}

// Channel i holds i tenths of the darkness.
cmsInt32Number SevenSteps(const cmsUInt16Number in[], cmsUInt16Number out[], void*) {
  for (int i = 0; i < 7; ++i) out[i] = static_cast<cmsUInt16Number>((0xFFFF - in[0]) / 10 * i);
  return 1;
}

TEST(IccTable, TakesTheChannelsOfASevenColourProfileAsThePlanes) {
  const ScratchText file("seven.icc", PrinterProfile(cmsSig7colorData, 7, SevenSteps));
  const TableBuilder builder = BuilderFor(file);
  const Contone black = LookUp(builder.Build({.inkClass = 2, .media = 2, .quality = 1}), {0, 0, 0});
  for (std::size_t i = 1; i < 7; ++i) EXPECT_NEAR(black[i], 25.5 * static_cast<double>(i), 3.0);

  // Neither nine inks nor seven without black are the profile's: the ink model serves them.
  const TableBuilder model(DefaultInkData());
  for (const int inkClass : {1, 3}) {
    const TableKey key = {.inkClass = inkClass, .media = 2, .quality = 1};
    EXPECT_EQ(builder.Build(key), model.Build(key)) << inkClass;
  }
}

TEST(IccTable, RefusesOtherFiles) {
  const auto errorOf = [](const ScratchText& file) -> std::string {
    try {
      BuilderFor(file);
    } catch (const Failure& failure) {
      return failure.what();
    }
    return "no error";
  };
  const std::string cmyk = PrinterProfile(cmsSigCmykData, 4, BlackAndHalfCyan);
  EXPECT_THAT(errorOf(ScratchText("text.icc", "not a profile")),
              testing::HasSubstr("text.icc: is not a colour profile"));
  EXPECT_THAT(FailureOf([] { IccSeparation separation("/nonexistent/p.icc"); }),
              testing::HasSubstr("/nonexistent/p.icc: No such file"));
  EXPECT_THAT(errorOf(ScratchText("cut.icc", cmyk.substr(0, 100))),
              testing::HasSubstr("cut.icc: is not a colour profile"));
  const std::string rgb = [] {
    const std::unique_ptr<void, cmsBool (*)(cmsHPROFILE)> profile(cmsCreate_sRGBProfile(),
                                                                  cmsCloseProfile);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile.get(), nullptr, &size);
    std::string bytes(size, '\0');
    cmsSaveProfileToMem(profile.get(), bytes.data(), &size);
    return bytes;
  }();
  EXPECT_THAT(errorOf(ScratchText("screen.icc", rgb)),
              testing::HasSubstr("is not a printer profile for CMYK, 7 or 9 colours"));
}

}  // namespace
}  // namespace corvane
