// SPDX-License-Identifier: MIT
//
// ICC profiles: one that an image embeds, and a printer's that separates colours. The first byte
// chooses the image's kind of pixel.
#include <memory>
#include <utility>

#include "app/image/reader.h"
#include "app/image/srgb.h"
#include "app/tables/icc_table.h"
#include "fuzz/fuzz.h"

namespace {

using namespace corvane;

class RampImage final : public ImageReader {
 public:
  RampImage(PixelForm form, fuzz::Bytes profile) {
    info_.path = "ramp";
    info_.width = 16;
    info_.height = 2;
    info_.form = form;
    info_.profile.assign(profile.begin(), profile.end());
  }

  void ReadRow(std::uint8_t* row) override {
    for (std::size_t i = 0; i < info_.RowBytes(); ++i) row[i] = static_cast<std::uint8_t>(37 * i);
  }
};

void ReadThrough(PixelForm form, fuzz::Bytes profile) {
  const std::unique_ptr<RowSource> rows = MakeSrgbRows(std::make_unique<RampImage>(form, profile));
  std::vector<std::uint8_t> row(rows->RowBytes());
  for (std::uint32_t y = 0; y < rows->Height(); ++y) rows->ReadRow(row.data());
}

}  // namespace

FUZZ_TARGET(icc_profile, input) {
  fuzz::Input parts(input);
  const unsigned kind = parts.Take<std::uint8_t>();
  const PixelForm form{static_cast<PixelForm::Colour>(kind & 3), kind & 4 ? 16 : 8,
                       (kind & 8) != 0};
  fuzz::Succeeds([&] { ReadThrough(form, parts.Rest()); });
  fuzz::Succeeds([&] {
    const IccSeparation separation(fuzz::FileOf(parts.Rest()));
    FUZZ_EXPECT(!separation.Serves(1, true));
  });
}
