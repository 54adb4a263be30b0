// SPDX-License-Identifier: MIT
#include "app/image/profile.h"

#include <lcms2.h>

#include "app/support/icc_handles.h"

namespace corvane {
namespace {

std::vector<std::uint8_t> Serialised(const IccProfile& profile) {
  std::vector<std::uint8_t> bytes;
  cmsUInt32Number size = 0;
  if (profile && cmsSaveProfileToMem(profile.get(), nullptr, &size)) {
    bytes.resize(size);
    if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) bytes.clear();
  }
  return bytes;
}

// `makeCurve` makes the curve of all three channels.
template <typename MakeCurve>
std::vector<std::uint8_t> RgbProfileOf(const Chromaticities& points, const MakeCurve& makeCurve) {
  const cmsCIExyY white = {points.whiteX, points.whiteY, 1};
  const cmsCIExyYTRIPLE primaries = {{points.redX, points.redY, 1},
                                     {points.greenX, points.greenY, 1},
                                     {points.blueX, points.blueY, 1}};
  return MadeInIccMemory([&] {
    const IccCurve curve(makeCurve());
    cmsToneCurve* const curves[3] = {curve.get(), curve.get(), curve.get()};
    return Serialised(IccProfile(cmsCreateRGBProfileTHR(IccContext(), &white, &primaries, curves)));
  });
}

}  // namespace

std::vector<std::uint8_t> MakeRgbProfile(const Chromaticities& points, double gamma) {
  return RgbProfileOf(points, [&] { return cmsBuildGamma(IccContext(), gamma); });
}

std::vector<std::uint8_t> MakeSrgbCurveProfile(const Chromaticities& points) {
  // IEC 61966-2-1: a power with a straight line at its foot.
  static constexpr double kCurve[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
  constexpr int kPowerWithLine = 4;
  return RgbProfileOf(
      points, [] { return cmsBuildParametricToneCurve(IccContext(), kPowerWithLine, kCurve); });
}

std::vector<std::uint8_t> MakeGreyProfile(double gamma) {
  return MadeInIccMemory([&] {
    const IccCurve curve(cmsBuildGamma(IccContext(), gamma));
    return Serialised(IccProfile(cmsCreateGrayProfileTHR(IccContext(), cmsD50_xyY(), curve.get())));
  });
}

}  // namespace corvane
