// SPDX-License-Identifier: MIT
//
// What ink on paper looks like: from ink amounts, or from drops, to a colour.
//
// Each ink is a dye at some strength: the light inks carry the dyes of the dark ones, thinner. A
// drop wets a round spot of paper with a layer of dye; where spots overlap the layers add, and each
// layer multiplies the light that passes. Light that enters the paper at one point leaves it at
// another, so what is averaged is not the reflectance but its n-th root (Yule-Nielsen).
// docs/colour.md has the formulas.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "app/inks/color_math.h"
#include "app/inks/tint_curve.h"
#include "printmode/print_mode.h"

namespace corvane {

enum class Dye : std::uint8_t { Cyan, Magenta, Yellow, Black };
inline constexpr int kDyeCount = 4;

constexpr Dye DyeOf(Ink ink) {
  switch (ink) {
    case Ink::C:
    case Ink::c:
    case Ink::cd:
      return Dye::Cyan;
    case Ink::M:
    case Ink::m:
    case Ink::md:
      return Dye::Magenta;
    case Ink::Y:
    case Ink::y:
      return Dye::Yellow;
    case Ink::K:
      break;
  }
  return Dye::Black;
}

// Ink amounts in the order of Ink; 1 is the full strength that a contone value of 255 gives.
using InkAmounts = std::array<double, kInkCount>;

inline constexpr int kMediaCount = 6;

struct Media {
  std::string name;
  Triple white = {100, 0, 0};  // the paper, Lab
  double density = 1;          // how dense the solids are, against those of the ink set
  double dotGain = 0;          // how much larger a spot is, as a part of its area
  double inkLimit = 3;         // total ink that it takes, 1 = one ink at full strength
  bool measured = false;       // what the colours of a measured set were measured on
};

// An even tint of one ink as it was measured.
struct InkTint {
  double amount = 0;  // above 0, at most 1
  Triple lab{};       // against the paper
};

// What inks on top of one another add to the sum of their densities: `density` by the product of
// dye amounts and of inks' own amounts, each to its power.
struct OverprintTerm {
  std::array<int, kDyeCount> dyes{};
  std::array<int, kInkCount> inks{};
  Triple density{};
};
inline constexpr int kMostPower = 4;  // of an amount in a term

// One ink set on its media.
struct InkData {
  std::string name;
  bool measured = false;                   // the colours come from a measurement, not from a model
  double yuleNielsen = 1;                  // n
  double clustering = 0;                   // 0: drops as even as can be; large: strewn by chance
  double fullLoad = 0;                     // nanolitres per square inch at full strength
  double spotArea = 0;                     // square micrometres that a picolitre wets
  std::array<Triple, kDyeCount> solids{};  // dark inks at full strength, Lab against the paper
  // Two and three solids on top of one another, Lab against the paper; without them, densities add.
  std::optional<Triple> cyanMagenta, cyanYellow, magentaYellow, cyanMagentaYellow;
  std::array<double, kInkCount> strength{};  // dye against the dark ink of the same dye
  // Measured tints in the order of their amounts, up to 1; an ink without them follows the model.
  std::array<std::vector<InkTint>, kInkCount> tints;
  std::vector<OverprintTerm> overprints;  // beyond those of the solids on top of one another
  std::array<double, kInkCount> inkLimit = {1, 1, 1, 1, 1, 1, 1, 1, 1};  // most of each ink, 0 to 1
  std::array<Media, kMediaCount> media{};
};

// The set that tables are made for when no other is named: a model, not a measurement.
const InkData& DefaultInkData();

// Reads `inks.json`. Throws Failure that names the file and the entry.
InkData ReadInkData(const std::filesystem::path& file);

// The set of the file that was named, or the built-in one without a name. Throws as ReadInkData.
InkData InksFrom(const std::string& file);

// The text of an ink file that holds the set.
std::string InkDataText(const InkData& inks);

// One linearisation curve per ink: the contone value to print for each that is wanted.
struct InkCurves {
  InkCurves();  // each value as it is
  bool IsIdentity() const;
  std::array<std::array<std::uint8_t, 256>, kInkCount> values;
};

// Reads curves, {"C": [[in, out], ...], ...}, points joined by straight lines; an ink left out
// keeps its values. Throws Failure that names the file and the entry.
InkCurves ReadInkCurves(const std::filesystem::path& file);

// The density of `layers` layers on average, each of `layerDensity`, as drops lay them: n of
// Yule-Nielsen and the clustering of the drops as in InkData.
double LayeredDensity(double layers, double layerDensity, double n, double clustering);

// The inks of a set on one medium. Colours are bands (app/inks/color_math.h) relative to the paper.
class PrintModel {
 public:
  // `media` is 0..5.
  PrintModel(const InkData& inks, int media);

  // The colour of an even tint.
  Triple Bands(const InkAmounts& amounts) const;

  // What an ink alone adds to the paper's density (decadic), per band.
  Triple InkDensity(Ink ink, double amount) const;

  // What inks at these amounts add to the sum of their densities, per band. With `slopes`, adds the
  // slope of that by each ink's amount to theirs.
  Triple OverprintDensity(const InkAmounts& amounts,
                          std::array<Triple, kInkCount>* slopes = nullptr) const;
  bool HasOverprints() const { return hasOverprints_ || !terms_.empty(); }
  // The factors of CM, CY, MY and CMY in that, and the largest amount that counts in it.
  const std::array<Triple, 4>& Overprints() const { return overprint_; }
  static constexpr double kMostOverprint = 1.5;

  // What measured tints and overprints know beyond layers of dye, which is what drops are drawn as:
  // the density that an ink's tint has more, per band, and that of `overprints`.
  bool IsBeyondLayers() const;
  Triple TintBeyondLayers(Ink ink, double amount) const;
  Triple OverprintBeyondLayers(const InkAmounts& amounts) const;

  // The density of the dye of a solid, spread evenly, per band.
  const Triple& DyeDensity(Dye dye) const { return dyeDensity_[static_cast<int>(dye)]; }

  // One layer of an ink: its density per band, and its part of the dye of a solid.
  Triple LayerDensity(Ink ink) const;
  double LayerDye(Ink ink) const { return strength_[static_cast<int>(ink)] / layersAtFull_; }

  // Mean layers of an ink at full strength; the spots' area per area of paper.
  double LayersAtFull() const { return layersAtFull_; }
  double YuleNielsen() const { return n_; }
  double SpotArea(double picolitres) const { return picolitres * spotArea_; }  // um2
  double Strength(Ink ink) const { return strength_[static_cast<int>(ink)]; }
  double InkLimit(Ink ink) const { return mostOfInk_[static_cast<int>(ink)]; }
  const Triple& PaperBands() const { return paper_; }
  double InkLimit() const { return inkLimit_; }

 private:
  Triple LayersDensity(Ink ink, double amount) const;
  std::array<double, kDyeCount> DyesOf(const InkAmounts& amounts) const;

  using DyeSlopes = std::array<Triple, kDyeCount>;

  Triple SolidsOverprint(const std::array<double, kDyeCount>& dyes, DyeSlopes* slopes) const;
  Triple TermsOverprint(const std::array<double, kDyeCount>& dyes, const InkAmounts& amounts,
                        DyeSlopes* dyeSlopes, std::array<Triple, kInkCount>* inkSlopes) const;

  double n_;
  double clustering_;
  double gain_;     // of the medium
  double density_;  // of the medium
  double layersAtFull_;
  double spotArea_;
  double inkLimit_;
  bool hasOverprints_ = false;
  Triple paper_;
  std::array<double, kInkCount> strength_;
  std::array<Triple, kDyeCount> dyeDensity_;  // of the dye of a solid, spread evenly
  std::array<Triple, 4> overprint_{};         // CM, CY, MY, CMY beyond the sums of their parts
  std::array<std::optional<TintCurve>, kInkCount> tints_;
  std::vector<OverprintTerm> terms_;
  InkAmounts mostOfInk_;
};

// --- Drops ---------------------------------------------------------------------------------------

// Drops of an ink that a print mode lays per square inch at full strength.
double DropsPerSquareInch(const PrintMode& mode, Ink ink);

// The head fires drops of the size that gives every mode the same ink per area, so one table serves
// them all.
double DropPicolitres(const InkData& inks, const PrintMode& mode, Ink ink);

}  // namespace corvane
