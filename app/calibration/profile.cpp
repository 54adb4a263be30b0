// SPDX-License-Identifier: MIT
#include "app/calibration/profile.h"

#include <lcms2.h>

#include <Eigen/Dense>
#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "app/calibration/colour_weight.h"
#include "app/support/failure.h"
#include "app/support/icc_handles.h"
#include "app/support/utf8.h"
#include "app/tables/check.h"

namespace corvane {
namespace {

constexpr unsigned kForwardGrid = 33, kBackwardGrid = 33, kStarts = 17;
constexpr double kPrinted = 2.0;  // colours that come nearer than this can be printed

struct DeletePipeline {
  void operator()(cmsPipeline* pipeline) const { cmsPipelineFree(pipeline); }
};
using Pipeline = std::unique_ptr<cmsPipeline, DeletePipeline>;

// Curves that change nothing, the grid, and such curves again: the form that a profile holds.
Pipeline MakePipeline(unsigned grid, unsigned channels, const std::vector<cmsUInt16Number>& nodes) {
  Pipeline pipeline(cmsPipelineAlloc(nullptr, 3, channels));
  const auto add = [&](cmsStage* stage) {
    if (!pipeline || stage == nullptr ||
        cmsPipelineInsertStage(pipeline.get(), cmsAT_END, stage) == 0) {
      throw Failure("the grid of a profile cannot be made");
    }
  };
  add(cmsStageAllocToneCurves(nullptr, 3, nullptr));
  add(cmsStageAllocCLut16bit(nullptr, grid, 3, channels, nodes.data()));
  add(cmsStageAllocToneCurves(nullptr, channels, nullptr));
  return pipeline;
}

cmsUInt16Number Word(double part) {
  return static_cast<cmsUInt16Number>(std::lround(std::clamp(part, 0.0, 1.0) * 65535.0));
}

// Lab as a profile of version 4 encodes it.
Triple EncodedLab(const Triple& lab) {
  return {lab[0] / 100.0, (lab[1] + 128.0) / 255.0, (lab[2] + 128.0) / 255.0};
}
Triple LabOfCode(const Triple& code) {
  return {code[0] * 100.0, code[1] * 255.0 - 128.0, code[2] * 255.0 - 128.0};
}

// The values of a function at the nodes of a grid, the last input fastest.
template <typename Function>
std::vector<cmsUInt16Number> Sampled(unsigned grid, Function function) {
  std::vector<cmsUInt16Number> nodes;
  const double last = grid - 1;
  for (unsigned i = 0; i < grid; ++i) {
    for (unsigned j = 0; j < grid; ++j) {
      for (unsigned k = 0; k < grid; ++k) {
        for (const double value : function(Triple{i / last, j / last, k / last})) {
          nodes.push_back(Word(value));
        }
      }
    }
  }
  return nodes;
}

// From a colour to the page colour that prints it.
class Inverse {
 public:
  explicit Inverse(const PrintedTable& printed) : printed_(printed) {
    const double last = kStarts - 1;
    for (unsigned i = 0; i < kStarts; ++i) {
      for (unsigned j = 0; j < kStarts; ++j) {
        for (unsigned k = 0; k < kStarts; ++k) {
          const Triple srgb = {i / last, j / last, k / last};
          starts_.push_back({srgb, printed.Lab(srgb)});
        }
      }
    }
  }

  struct Found {
    Triple srgb{};
    double distance = 0;  // as it is seen, about CIE94
  };

  Found Nearest(const Triple& lab) const {
    const Eigen::Matrix3d seen = SeenBy(lab);
    const Start* start = nullptr;
    double least = 0;
    for (const Start& other : starts_) {
      const double distance = (seen * (ToVector(other.lab) - ToVector(lab))).squaredNorm();
      if (start == nullptr || distance < least) {
        start = &other;
        least = distance;
      }
    }
    Found found{start->srgb, std::sqrt(least)};
    for (int step = 0; step < kSteps && found.distance > 0.02; ++step) {
      if (!Improve(lab, seen, found)) break;
    }
    return found;
  }

 private:
  static constexpr int kSteps = 12;
  struct Start {
    Triple srgb, lab;
  };

  // A damped Gauss-Newton step inside the cube; false when none is shorter.
  bool Improve(const Triple& lab, const Eigen::Matrix3d& seen, Found& found) const {
    constexpr double kStep = 1.0 / 128;
    const Eigen::Vector3d off = seen * (ToVector(printed_.Lab(found.srgb)) - ToVector(lab));
    Eigen::Matrix3d slopes;
    for (int axis = 0; axis < 3; ++axis) {
      Triple moved = found.srgb;
      const auto i = static_cast<std::size_t>(axis);
      const double step = moved[i] + kStep <= 1.0 ? kStep : -kStep;
      moved[i] += step;
      slopes.col(axis) = (seen * (ToVector(printed_.Lab(moved)) - ToVector(lab)) - off) / step;
    }
    for (double damping = 1e-3; damping < 1e6; damping *= 10.0) {
      const Eigen::Matrix3d form =
          slopes.transpose() * slopes + damping * Eigen::Matrix3d::Identity();
      const Eigen::Vector3d step = -form.ldlt().solve(slopes.transpose() * off);
      Found next = found;
      for (int axis = 0; axis < 3; ++axis) {
        double& value = next.srgb[static_cast<std::size_t>(axis)];
        value = std::clamp(value + step[axis], 0.0, 1.0);
      }
      next.distance = (seen * (ToVector(printed_.Lab(next.srgb)) - ToVector(lab))).norm();
      if (next.distance < found.distance - 1e-4) {
        found = next;
        return true;
      }
    }
    return false;
  }

  const PrintedTable& printed_;
  std::vector<Start> starts_;
};

class ProfileWriter {
 public:
  ProfileWriter() : profile_(cmsCreateProfilePlaceholder(nullptr)) {
    if (!profile_) throw Failure("no profile can be made");
    cmsSetProfileVersion(profile_.get(), 4.3);
    cmsSetDeviceClass(profile_.get(), cmsSigOutputClass);
    cmsSetColorSpace(profile_.get(), cmsSigRgbData);
    cmsSetPCS(profile_.get(), cmsSigLabData);
  }

  void Text(cmsTagSignature tag, const std::string& text) {
    // The library writes a wide character as 16 bits, whatever its size.
    const std::u16string units = Utf16FromUtf8(text);
    const std::wstring wide(units.begin(), units.end());
    cmsMLU* const words = cmsMLUalloc(nullptr, 1);
    const bool made = words != nullptr && cmsMLUsetWide(words, "en", "US", wide.c_str()) != 0 &&
                      cmsWriteTag(profile_.get(), tag, words) != 0;
    cmsMLUfree(words);
    if (!made) Fail();
  }
  void Write(cmsTagSignature tag, const void* data) {
    if (cmsWriteTag(profile_.get(), tag, data) == 0) Fail();
  }
  void Link(cmsTagSignature tag, cmsTagSignature to) {
    if (cmsLinkTag(profile_.get(), tag, to) == 0) Fail();
  }

  std::string Bytes() {
    cmsUInt32Number size = 0;
    if (cmsMD5computeID(profile_.get()) == 0) Fail();
    if (cmsSaveProfileToMem(profile_.get(), nullptr, &size) == 0) Fail();
    std::string bytes(size, '\0');
    if (cmsSaveProfileToMem(profile_.get(), bytes.data(), &size) == 0) Fail();
    return bytes;
  }

 private:
  [[noreturn]] static void Fail() { throw Failure("the profile cannot be written"); }

  IccProfile profile_;
};

}  // namespace

std::string MakePrinterProfile(std::span<const std::uint8_t> table, const InkData& inks, int media,
                               const std::string& description) {
  const PrintModel model(inks, media);
  const InkResponseTable response(model);
  const PrintedTable printed(table, response);
  const Inverse inverse(printed);

  ProfileWriter writer;
  writer.Text(cmsSigProfileDescriptionTag, description);
  writer.Text(cmsSigCopyrightTag, "No copyright, use freely");
  const Triple paper = XyzFromBands(model.PaperBands());
  const cmsCIEXYZ white = {paper[0], paper[1], paper[2]};
  writer.Write(cmsSigMediaWhitePointTag, &white);

  const Pipeline forward = MakePipeline(
      kForwardGrid, 3,
      Sampled(kForwardGrid, [&](const Triple& srgb) { return EncodedLab(printed.Lab(srgb)); }));
  writer.Write(cmsSigAToB0Tag, forward.get());
  writer.Link(cmsSigAToB1Tag, cmsSigAToB0Tag);
  writer.Link(cmsSigAToB2Tag, cmsSigAToB0Tag);

  const Pipeline asItIs =
      MakePipeline(kBackwardGrid, 3, Sampled(kBackwardGrid, [](const Triple& code) {
                     return SrgbFromLinear(LinearSrgbFromBands(BandsFromLab(LabOfCode(code))));
                   }));
  writer.Write(cmsSigBToA0Tag, asItIs.get());
  std::vector<cmsUInt16Number> outside;
  const Pipeline nearest =
      MakePipeline(kBackwardGrid, 3, Sampled(kBackwardGrid, [&](const Triple& code) {
                     const Inverse::Found found = inverse.Nearest(LabOfCode(code));
                     outside.push_back(found.distance > kPrinted ? 65535 : 0);
                     return found.srgb;
                   }));
  writer.Write(cmsSigBToA1Tag, nearest.get());
  writer.Link(cmsSigBToA2Tag, cmsSigBToA1Tag);
  const Pipeline gamut = MakePipeline(kBackwardGrid, 1, outside);
  writer.Write(cmsSigGamutTag, gamut.get());
  return writer.Bytes();
}

}  // namespace corvane
