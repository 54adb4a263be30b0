// SPDX-License-Identifier: MIT
//
// What the inks of a medium can print at all, whatever a table makes of them.
#pragma once

#include "app/inks/ink_response.h"

namespace corvane {

// The inks that a search may use, and how much of them in all.
struct InkChoice {
  bool nineInks = false;
  bool blackInk = true;
  double inkLimit = 3;  // 1 = one ink at full strength
};

// Searches all amounts of all inks for a colour. It knows nothing of how tables are made, so that
// it can judge them.
class BestInks {
 public:
  // `model` must outlive the search.
  BestInks(const PrintModel& model, const InkChoice& choice);

  struct Found {
    InkAmounts amounts{};
    Triple lab{};
    double distance = 0;  // Euclidean, in Lab
  };
  // The nearest colour to a Lab colour against the paper.
  Found Nearest(const Triple& lab) const;

  bool CanPrint(const Triple& lab) const;

  // The largest chroma that can be printed at a lightness and Lab hue (radians), up to `most`.
  double LargestChroma(double lightness, double hue, double most = 130) const;
  // And at any lightness.
  double LargestChroma(double hue) const;

  // Lightness of the darkest neutral.
  double Black() const { return black_; }

 private:
  Found SearchFrom(const Triple& lab, InkAmounts start) const;
  void Confine(InkAmounts& amounts) const;

  InkChoice choice_;
  InkResponseTable response_;
  double black_ = 0;
};

}  // namespace corvane
