// SPDX-License-Identifier: MIT
#pragma once

#include <lcms2.h>

#include <memory>

namespace corvane {

struct CloseIccProfile {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
};
struct DeleteIccTransform {
  void operator()(void* transform) const { cmsDeleteTransform(transform); }
};

// Handles of Little CMS that close themselves; empty where it could not make one.
using IccProfile = std::unique_ptr<void, CloseIccProfile>;
using IccTransform = std::unique_ptr<void, DeleteIccTransform>;

}  // namespace corvane
