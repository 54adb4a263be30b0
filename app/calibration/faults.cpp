// SPDX-License-Identifier: MIT
#include "app/calibration/faults.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

#include "app/support/failure.h"

namespace corvane {
namespace {

// CIEDE2000 against a fit. A fit of the right colours leaves a median of 0.2 to 0.7 and, with very
// much ink, single patches of up to 8.
constexpr double kMedian = 2.0;
constexpr double kSwapped = 3.5;  // each of two patches, which fit when they change places
constexpr double kBetter = 0.4;   // the part that is left then
constexpr double kAlone = 12.0;   // a single patch
constexpr double kMany = 5.0, kManyPart = 0.03;
constexpr double kStreak = 1.2;      // of L*, mean of a strip
constexpr double kStreakErrors = 5;  // and in standard errors
constexpr double kWhites = 2.5;      // of patches without ink

struct Judged {
  const ReadPatch* patch;
  Triple expected{}, read{};
  double difference = 0;
};

double MedianOf(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// An ink that was taken for another: each absorbs most in its own band, black alike in all.
bool LooksLike(Ink ink, const Triple& lab, const Triple& paper) {
  constexpr double kLeastOfMost = 0.5;
  Triple density = BandsFromLab(AgainstPaper(lab, paper));
  for (double& band : density) band = -std::log10(std::max(band, 1e-5));
  const double most = *std::max_element(density.begin(), density.end());
  const Dye dye = DyeOf(ink);
  return dye == Dye::Black ? *std::min_element(density.begin(), density.end()) > kLeastOfMost * most
                           : density[static_cast<int>(dye)] > 0.98 * most;
}

void CheckSolid(const ReadPatch& patch, const Triple& paper, const std::string& file) {
  const Contone& levels = patch.measured.levels;
  const auto full = std::find(levels.begin(), levels.end(), 255);
  if (patch.measured.group != PatchGroup::Ramp || full == levels.end()) return;
  const Triple& lab = patch.measured.lab;
  if (DeltaE2000(lab, paper) < 3) {
    throw Failure(fmt::format("{}: {} ({}) looks like paper: the ink does not print", file,
                              patch.name, PatchText(levels)));
  }
  if (!LooksLike(static_cast<Ink>(full - levels.begin()), lab, paper)) {
    throw Failure(fmt::format("{}: {} ({}) does not look like that ink: Lab {:.1f}, {:.1f}, {:.1f}",
                              file, patch.name, PatchText(levels), lab[0], lab[1], lab[2]));
  }
}

class Judge {
 public:
  Judge(const Measurement& measurement, const InkData& fitted, int media, const std::string& file)
      : file_(file) {
    paper_ = fitted.media[media].white;
    const PrintModel model(fitted, media);
    std::vector<double> differences;
    for (const ReadPatch& patch : measurement.patches) {
      Judged judged{&patch, LabFromBands(model.Bands(AmountsOf(patch.measured.levels))),
                    AgainstPaper(patch.measured.lab, paper_), 0};
      judged.difference = DeltaE2000(judged.expected, judged.read);
      differences.push_back(judged.difference);
      judged_.push_back(judged);
    }
    median_ = MedianOf(differences);
  }

  void CheckStrips() const {
    std::map<int, std::vector<const Judged*>> strips, steps;
    for (const Judged& judged : judged_) {
      if (!judged.patch->strip) continue;
      strips[*judged.patch->strip].push_back(&judged);
      steps[*judged.patch->step].push_back(&judged);
    }
    for (const auto& [number, strip] : strips) CheckDirection(number, strip);
    CheckSwappedStrips(strips);
    for (const auto& [number, strip] : strips) CheckStreak("strip " + StripName(number), strip);
    for (const auto& [number, step] : steps) CheckStreak(fmt::format("step {}", number + 1), step);
  }

  void CheckSwappedPatches() const {
    for (const Judged& one : judged_) {
      if (one.difference < std::max(kSwapped, 4 * median_)) continue;
      for (const Judged& other : judged_) {
        if (&other <= &one || other.difference < std::max(kSwapped, 4 * median_)) continue;
        const double before = std::min(one.difference, other.difference);
        const double after =
            std::max(DeltaE2000(one.expected, other.read), DeltaE2000(other.expected, one.read));
        if (after < std::min(kBetter * before, std::max(2.0, 4 * median_))) {
          Fail("{} and {} have each other's colours", one.patch->name, other.patch->name);
        }
      }
    }
  }

  void CheckInks() const {
    for (const Judged& judged : judged_) {
      const MeasuredPatch& measured = judged.patch->measured;
      if (measured.group == PatchGroup::White &&
          judged.difference > std::max(kWhites, 5 * median_)) {
        Fail("{} is paper and differs by {:.1f} from the other paper patches", judged.patch->name,
             judged.difference);
      }
      if (measured.lab[0] > paper_[0] + 4) {
        Fail("{} ({}) is lighter than the paper", judged.patch->name, PatchText(measured.levels));
      }
      CheckSolid(*judged.patch, paper_, file_);
    }
  }

  void CheckSize() const {
    const Judged& worst = *std::max_element(
        judged_.begin(), judged_.end(),
        [](const Judged& a, const Judged& b) { return a.difference < b.difference; });
    const auto many = std::count_if(judged_.begin(), judged_.end(), [&](const Judged& judged) {
      return judged.difference > std::max(kMany, 5 * median_);
    });
    if (median_ > kMedian ||
        static_cast<double>(many) > kManyPart * static_cast<double>(judged_.size())) {
      Fail(
          "the colours are not those of the chart: {} is {:.1f} from what its inks ({}) give, half "
          "of the patches more than {:.1f}",
          worst.patch->name, worst.difference, PatchText(worst.patch->measured.levels), median_);
    }
    if (worst.difference > std::max(kAlone, 12 * median_)) {
      Fail(
          "{} ({}) is {:.1f} from what its inks give: Lab {:.1f}, {:.1f}, {:.1f} against the "
          "paper, "
          "about {:.1f}, {:.1f}, {:.1f} expected",
          worst.patch->name, PatchText(worst.patch->measured.levels), worst.difference,
          worst.read[0], worst.read[1], worst.read[2], worst.expected[0], worst.expected[1],
          worst.expected[2]);
    }
  }

 private:
  template <typename... Arguments>
  [[noreturn]] void Fail(fmt::format_string<Arguments...> text, Arguments&&... arguments) const {
    throw Failure(file_ + ": " + fmt::format(text, std::forward<Arguments>(arguments)...));
  }

  using Strip = std::vector<const Judged*>;

  // How well a strip's readings fit the places of another (or of itself), in the order given.
  static double Fits(const Strip& places, const Strip& readings, bool backwards) {
    double sum = 0;
    for (std::size_t i = 0; i < places.size(); ++i) {
      const std::size_t from = backwards ? places.size() - 1 - i : i;
      sum += std::min(30.0, DeltaE2000(places[i]->expected, readings[from]->read));
    }
    return sum / static_cast<double>(places.size());
  }

  void CheckDirection(int number, const Strip& strip) const {
    if (strip.size() < 4) return;
    const double now = Fits(strip, strip, false);
    if (now > 3.0 && Fits(strip, strip, true) < kBetter * now) {
      Fail("strip {} was read backwards ({} to {})", StripName(number), strip.front()->patch->name,
           strip.back()->patch->name);
    }
  }

  void CheckSwappedStrips(const std::map<int, Strip>& strips) const {
    for (const auto& [number, strip] : strips) {
      const double now = Fits(strip, strip, false);
      if (now < 3.0) continue;
      for (const auto& [otherNumber, other] : strips) {
        if (otherNumber == number || other.size() != strip.size()) continue;
        if (Fits(strip, other, false) < kBetter * now) {
          Fail("strip {} ({} to {}) has the colours of strip {}", StripName(number),
               strip.front()->patch->name, strip.back()->patch->name, StripName(otherNumber));
        }
      }
    }
  }

  // Single patches may be wrong for other reasons: the mean is of the middle of them.
  void CheckStreak(const std::string& name, const Strip& strip) const {
    if (strip.size() < 8) return;
    std::vector<double> lightness;
    for (const Judged* judged : strip) lightness.push_back(judged->read[0] - judged->expected[0]);
    std::sort(lightness.begin(), lightness.end());
    const std::size_t cut = lightness.size() / 8;
    double sum = 0, squares = 0, count = 0;
    for (std::size_t i = cut; i < lightness.size() - cut; ++i) {
      sum += lightness[i];
      squares += lightness[i] * lightness[i];
      ++count;
    }
    const double mean = sum / count;
    const double error = std::sqrt(std::max(squares / count - mean * mean, 0.01) / count);
    if (std::abs(mean) > kStreak && std::abs(mean) > kStreakErrors * error) {
      Fail(
          "{} ({} to {}) is {} by L* {:.1f} than the rest of the chart: a streak, or a reading "
          "that slipped",
          name, strip.front()->patch->name, strip.back()->patch->name,
          mean < 0 ? "darker" : "lighter", std::abs(mean));
    }
  }

  std::string file_;
  Triple paper_{};
  std::vector<Judged> judged_;
  double median_ = 0;
};

// Chromaticities of a paper under D50 lie far from those under D65.
void CheckWhite(const Triple& lab, const std::string& patch, const std::string& file) {
  if (!(lab[0] >= 60 && lab[0] <= 102)) {
    throw Failure(
        fmt::format("{}: {} is paper with L* {:.1f}: not a measurement against a perfect "
                    "white with Y = 100, or the patches are in another order",
                    file, patch, lab[0]));
  }
  if (std::hypot(lab[1], lab[2]) > 15) {
    throw Failure(
        fmt::format("{}: {} is paper with a*, b* {:.1f}, {:.1f}: not under D50, or the patches "
                    "are in another order",
                    file, patch, lab[1], lab[2]));
  }
}

}  // namespace

void CheckPaper(const Measurement& measurement, const std::string& file) {
  std::vector<MeasuredPatch> measured;
  for (const ReadPatch& patch : measurement.patches) measured.push_back(patch.measured);
  const auto white =
      std::find_if(measurement.patches.begin(), measurement.patches.end(),
                   [](const auto& patch) { return patch.measured.group == PatchGroup::White; });
  CheckWhite(PaperOf(measured), white->name, file);
}

void CheckAgainstFit(const Measurement& measurement, const InkData& fitted, int media,
                     const std::string& file) {
  const Judge judge(measurement, fitted, media, file);
  judge.CheckStrips();
  judge.CheckSwappedPatches();
  judge.CheckInks();
  judge.CheckSize();
}

}  // namespace corvane
