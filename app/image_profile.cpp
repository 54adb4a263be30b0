// SPDX-License-Identifier: MIT
#include "app/image_profile.h"

#include <lcms2.h>

namespace corvane {
namespace {

// Takes the profile over.
std::vector<std::uint8_t> Serialised(cmsHPROFILE profile) {
  std::vector<std::uint8_t> bytes;
  cmsUInt32Number size = 0;
  if (profile != nullptr && cmsSaveProfileToMem(profile, nullptr, &size)) {
    bytes.resize(size);
    if (!cmsSaveProfileToMem(profile, bytes.data(), &size)) bytes.clear();
  }
  if (profile != nullptr) cmsCloseProfile(profile);
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
  cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
  cmsFreeToneCurve(curve);
  return Serialised(profile);
}

std::vector<std::uint8_t> MakeGreyProfile(double gamma) {
  cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
  cmsHPROFILE profile = cmsCreateGrayProfile(cmsD50_xyY(), curve);
  cmsFreeToneCurve(curve);
  return Serialised(profile);
}

}  // namespace corvane
