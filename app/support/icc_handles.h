// SPDX-License-Identifier: MIT
#pragma once

#include <lcms2.h>

#include <memory>
#include <new>

namespace corvane {

struct CloseIccProfile {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
};
struct DeleteIccTransform {
  void operator()(void* transform) const { cmsDeleteTransform(transform); }
};
struct FreeIccCurve {
  void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
};

// Handles of Little CMS that close themselves; empty where it could not make one.
using IccProfile = std::unique_ptr<void, CloseIccProfile>;
using IccTransform = std::unique_ptr<void, DeleteIccTransform>;
using IccCurve = std::unique_ptr<cmsToneCurve, FreeIccCurve>;

// The context that all handles are made in. It notes allocations that fail: the library answers
// memory that is short as it answers a profile that is damaged, and no page may be printed without
// its profile for that.
cmsContext IccContext();

// Whether an allocation has failed on this thread since the last call, which forgets it.
bool TakeIccMemoryShort();

// What `make` makes in the context, or std::bad_alloc.
template <typename Make>
auto MadeInIccMemory(const Make& make) {
  TakeIccMemoryShort();
  auto made = make();
  if (TakeIccMemoryShort()) throw std::bad_alloc();
  return made;
}

}  // namespace corvane
