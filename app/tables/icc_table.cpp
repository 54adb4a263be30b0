// SPDX-License-Identifier: MIT
#include "app/tables/icc_table.h"

#include <fmt/format.h>
#include <lcms2.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>

#include "app/support/failure.h"
#include "app/support/icc_handles.h"

namespace corvane {
namespace {

constexpr int kMostChannels = kInkCount;

// Offset printing, which CMYK profiles describe, darkens a tint of 50 % by this much.
constexpr double kToneValueIncrease = 0.14;

// The density that a printed tint of an ink has where its solid has density `solid`.
double TintDensity(double toneValue, double solid) {
  const double area = toneValue + 4.0 * kToneValueIncrease * toneValue * (1.0 - toneValue);
  return -std::log10(1.0 - area * (1.0 - std::pow(10.0, -solid)));
}

}  // namespace

struct IccSeparation::Transforms {
  IccTransform perceptual, colorimetric;
};

IccSeparation::IccSeparation(const std::filesystem::path& file) : transforms_(new Transforms) {
  const std::string name = file.string();
  if (!std::ifstream(file)) FailOfSystem(name, errno);
  const IccProfile printer = MadeInIccMemory(
      [&] { return IccProfile(cmsOpenProfileFromFileTHR(IccContext(), name.c_str(), "r")); });
  if (!printer) throw Failure(fmt::format("{}: is not a colour profile", name));
  // Not kept in a variable of its type: a damaged profile names spaces that the type does not hold.
  channels_ = static_cast<int>(cmsChannelsOf(cmsGetColorSpace(printer.get())));
  const bool usable =
      cmsGetColorSpace(printer.get()) == cmsSigCmykData || channels_ == 7 || channels_ == 9;
  if (cmsGetDeviceClass(printer.get()) != cmsSigOutputClass || !usable) {
    throw Failure(fmt::format("{}: is not a printer profile for CMYK, 7 or 9 colours", name));
  }

  const IccProfile srgb =
      MadeInIccMemory([] { return IccProfile(cmsCreate_sRGBProfileTHR(IccContext())); });
  const cmsUInt32Number format = static_cast<cmsUInt32Number>(
      COLORSPACE_SH(PT_ANY) | CHANNELS_SH(static_cast<cmsUInt32Number>(channels_)) | BYTES_SH(2));
  const auto make = [&](cmsUInt32Number intent, cmsUInt32Number flags) {
    return MadeInIccMemory([&] {
      return IccTransform(cmsCreateTransformTHR(IccContext(), srgb.get(), TYPE_RGB_16,
                                                printer.get(), format, intent,
                                                flags | cmsFLAGS_NOCACHE | cmsFLAGS_NOOPTIMIZE));
    });
  };
  transforms_->perceptual = make(INTENT_PERCEPTUAL, 0);
  transforms_->colorimetric = make(INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_BLACKPOINTCOMPENSATION);
  if (!transforms_->perceptual || !transforms_->colorimetric) {
    throw Failure(fmt::format("{}: has no separation from colours to inks", name));
  }
}

IccSeparation::~IccSeparation() = default;

bool IccSeparation::Serves(int planes, bool blackInk) const {
  return planes > 1 && (channels_ == kDyeCount || (channels_ == planes && blackInk));
}

InkAmounts IccSeparation::Separate(const Triple& srgb, bool colorimetric,
                                   const Separator& separator) const {
  std::array<cmsUInt16Number, 3> in;
  for (int i = 0; i < 3; ++i) in[i] = static_cast<cmsUInt16Number>(std::lround(srgb[i] * 65535.0));
  std::array<cmsUInt16Number, kMostChannels> out{};
  cmsDoTransform(colorimetric ? transforms_->colorimetric.get() : transforms_->perceptual.get(),
                 in.data(), out.data(), 1);

  std::array<double, kMostChannels> values{};
  for (int i = 0; i < channels_; ++i) values[i] = out[i] / 65535.0;
  if (channels_ != kDyeCount) return separator.WithinLimit(values);

  std::array<double, kDyeCount> dyes;
  for (int i = 0; i < kDyeCount; ++i) {
    const Dye dye = static_cast<Dye>(i);
    dyes[i] = separator.DyeAmount(dye, TintDensity(values[i], separator.SolidDensity(dye)));
  }
  return separator.AmountsOf(dyes);
}

}  // namespace corvane
