// SPDX-License-Identifier: MIT
#include "app/commands/table_profile.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "app/calibration/profile.h"
#include "app/commands/table_inspect.h"
#include "app/page/planes.h"
#include "app/page/settings.h"
#include "app/support/failure.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "color/table/directory.h"
#include "color/table/stored_form.h"

namespace corvane {
namespace {

constexpr std::string_view kProfileEndings[] = {".icc", ".icm"};

constexpr std::uint32_t kBlackOnly = 0;

// The table that `corvane print` takes for a page of these settings.
TableIndices IndicesFrom(const TableProfileOptions& options) {
  const PrintMode& mode = ParsePrintMode(options.mode);
  const bool withoutBlack = DefaultPaperCharacteristics(mode) != 0;
  const std::uint32_t inkSet = InkSetIndexOf(mode.inkSet, withoutBlack);
  if (inkSet == kBlackOnly) {
    throw UsageFailure(options.mode + ": a mode of black ink alone has no colours to profile");
  }
  const int media = SettingValue(kMediaType, options.media);
  const int quality = options.quality.empty() ? DefaultPrintQuality(mode, 0)
                                              : SettingValue(kPrintQuality, options.quality);
  const int intent = SettingValue(kPageIntent, options.intent);
  return {inkSet, static_cast<std::uint32_t>(media - 1), 0, static_cast<std::uint32_t>(quality - 1),
          intent == 2 ? 1u : 0u};
}

// Of modes that lose their black on its way the table without it.
void LeaveOutLostBlack(const PrintMode& mode, std::vector<std::uint8_t>& table) {
  if (PrintsBlack(mode, 0)) return;
  std::fill_n(table.begin() + static_cast<std::ptrdiff_t>(Ink::K) * kCubeBytes, kCubeBytes,
              std::uint8_t{0});
}

// Of a set that does not say on which medium it was measured it is taken for all.
bool IsMeasuredOn(const InkData& inks, int media) {
  const bool says = std::any_of(inks.media.begin(), inks.media.end(),
                                [](const Media& other) { return other.measured; });
  return inks.measured && (!says || inks.media[media].measured);
}

}  // namespace

int RunTableProfile(const TableProfileOptions& options) {
  CheckOutputNames({options.output}, {options.inks, options.table});
  CheckEnding(options.output, kProfileEndings);
  const TableIndices indices = IndicesFrom(options);
  const InkData inks = InksFrom(options.inks);
  TableFile file(options.table);
  std::vector<std::uint8_t> table = ReadDecodedTable(file, indices);
  LeaveOutLostBlack(ParsePrintMode(options.mode), table);
  const int media = static_cast<int>(indices[1]);
  const std::string description = fmt::format("{}, mode {}, {}, {}", inks.name, options.mode,
                                              inks.media[media].name, options.intent);
  const std::string profile = MakePrinterProfile(table, inks, media, description);
  WriteOutput(options.output, profile);
  if (!options.quiet) {
    Tell(fmt::format("{}: {} bytes; {}; {}\n", Printable(options.output), profile.size(),
                     Printable(description),
                     IsMeasuredOn(inks, media) ? "measured colours" : "modelled colours"));
  }
  return 0;
}

}  // namespace corvane
