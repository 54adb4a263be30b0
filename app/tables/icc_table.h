// SPDX-License-Identifier: MIT
//
// Separation through a printer profile in place of the ink model.
#pragma once

#include <filesystem>
#include <memory>

#include "app/tables/builder_separation.h"

namespace corvane {

class IccSeparation {
 public:
  // Opens an output profile for CMYK or for 7 or 9 colours. Throws Failure that names the file for
  // anything else.
  explicit IccSeparation(const std::filesystem::path& profile);
  ~IccSeparation();

  // Whether tables of this many planes come from the profile: those of a CMYK profile all do but
  // the black curve, the others only where the number of channels is the profile's, whose black ink
  // nothing could replace in tables without it.
  bool Serves(int planes, bool blackInk) const;

  // The ink amounts of an sRGB colour: relative colorimetric with black point compensation, or
  // perceptual. Channels of a 7- or 9-colour profile are the planes in their order. The tone values
  // of a CMYK profile become the dye amounts that look like them, split over dark and light inks.
  // Several threads may separate at a time.
  InkAmounts Separate(const Triple& srgb, bool colorimetric, const Separator& separator) const;

 private:
  struct Transforms;
  std::unique_ptr<Transforms> transforms_;
  int channels_;
};

}  // namespace corvane
