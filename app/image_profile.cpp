// SPDX-License-Identifier: MIT
#include "app/image_profile.h"

#include <lcms2.h>

#include "app/icc_handles.h"

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

}  // namespace

std::vector<std::uint8_t> MakeRgbProfile(const Chromaticities& points, double gamma) {
  const cmsCIExyY white = {points.whiteX, points.whiteY, 1};
  const cmsCIExyYTRIPLE primaries = {{points.redX, points.redY, 1},
                                     {points.greenX, points.greenY, 1},
                                     {points.blueX, points.blueY, 1}};
  cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
  cmsToneCurve* curves[3] = {curve, curve, curve};
  const IccProfile profile(cmsCreateRGBProfile(&white, &primaries, curves));
  cmsFreeToneCurve(curve);
  return Serialised(profile);
}

std::vector<std::uint8_t> MakeGreyProfile(double gamma) {
  cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
  const IccProfile profile(cmsCreateGrayProfile(cmsD50_xyY(), curve));
  cmsFreeToneCurve(curve);
  return Serialised(profile);
}

}  // namespace corvane
