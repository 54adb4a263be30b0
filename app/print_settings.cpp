// SPDX-License-Identifier: MIT
#include "app/print_settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include "app/failure.h"
#include "app/print_planes.h"

namespace corvane {
namespace {

constexpr const char* kGroup = "Standard";
constexpr std::uint32_t kUsualDpi = 600;

constexpr SettingWord kMediaWords[] = {{"plain", 1}, {"coated", 2}, {"glossy", 3},
                                       {"satin", 4}, {"film", 5},   {"fine-art", 6}};
constexpr SettingWord kQualityWords[] = {{"draft", 1}, {"normal", 2}, {"high", 3}, {"best", 4}};
constexpr SettingWord kIntentWords[] = {{"photo", 1}, {"graphic", 2}};
constexpr SettingWord kPreferenceWords[] = {{"vivid", 1}, {"natural", 2}, {"automatic", 3}};
constexpr SettingWord kPaperWords[] = {{"standard", 0}, {"no-black", 3}};

std::optional<int> WholeNumber(const std::string& text) {
  int value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace

const PageSetting kMediaType = {"MediaType", kMediaWords, 1, 6};
const PageSetting kPrintQuality = {"PrintQuality", kQualityWords, 1, 4};
const PageSetting kPageIntent = {"PageIntent", kIntentWords, 0, 255};
const PageSetting kColorPreference = {"ColorPreference", kPreferenceWords, 0, 255};
const PageSetting kPaperCharacteristics = {"PaperCharacteristics", kPaperWords, 0, 255};

int SettingValue(const PageSetting& setting, const std::string& text) {
  for (const SettingWord& word : setting.words) {
    if (word.word == text) return word.value;
  }
  const std::optional<int> number = WholeNumber(text);
  if (number && *number >= setting.least && *number <= setting.most) return *number;
  throw UsageFailure(fmt::format("{}: is none of {}", text, SettingChoices(setting)));
}

std::string SettingChoices(const PageSetting& setting) {
  std::string choices;
  for (const SettingWord& word : setting.words) {
    choices += fmt::format("{}{} ({})", choices.empty() ? "" : ", ", word.word, word.value);
  }
  return choices;
}

const PrintMode& ParsePrintMode(const std::string& text) {
  if (const std::optional<int> number = WholeNumber(text)) {
    if (const PrintMode* mode = FindPrintMode(*number)) return *mode;
  }
  const PrintMode* found = nullptr;
  for (const PrintMode& mode : kPrintModes) {
    const bool withBlack = std::string_view(mode.printedInks).find('K') != std::string_view::npos;
    if (text == mode.name && (found == nullptr || withBlack)) {
      if (found == nullptr ||
          std::string_view(found->printedInks).find('K') == std::string_view::npos) {
        found = &mode;
      }
    }
  }
  if (found == nullptr) {
    throw UsageFailure(text + ": is not a print mode (corvane modes lists them)");
  }
  return *found;
}

int DefaultPrintQuality(const PrintMode& mode, int alternateMode) {
  constexpr int kNormal = 2, kBest = 4;
  const bool losesBlack = mode.descriptor == CcMmYycmK_4800x1200_16Pass && alternateMode != 2;
  return losesBlack ? kBest : kNormal;
}

int DefaultPaperCharacteristics(const PrintMode& mode) {
  constexpr int kStandard = 0, kNoBlack = 3;
  const bool printsBlack = std::string_view(mode.printedInks).find('K') != std::string_view::npos;
  return printsBlack ? kStandard : kNoBlack;
}

std::uint32_t DefaultHorizontalDpi(const PrintMode& mode, int alternateMode) {
  return std::min(kUsualDpi, GeometryOf(mode, alternateMode).halftoneDpi);
}

std::uint32_t DefaultVerticalDpi(const PrintMode&, int) { return kUsualDpi; }

void CheckResolution(const PageSettings& settings) {
  const ModeGeometry geometry = GeometryOf(*settings.mode, settings.alternateMode);
  const auto check = [&](std::uint32_t dpi, std::uint32_t printed, const char* direction) {
    if (dpi == 0 || dpi > printed || printed % dpi != 0) {
      throw UsageFailure(fmt::format("{} dpi: mode {} takes a {} resolution that divides {}", dpi,
                                     static_cast<int>(settings.mode->descriptor), direction,
                                     printed));
    }
  };
  check(settings.horizontalDpi, geometry.halftoneDpi, "horizontal");
  check(settings.verticalDpi,
        geometry.rowsPerInch != 0 ? geometry.rowsPerInch : settings.mode->verticalDpi, "vertical");
}

QStartPage MakeStartPage(const PageSettings& settings, std::uint32_t width) {
  constexpr int kOneTable = 1;
  constexpr int kPhotoAndGraphicTable = 4;
  QStartPage start;
  const auto set = [&](const char* key, int value) {
    start.Properties.SetProperty(key, value, kGroup);
  };
  const auto setCount = [&](ZCOM::PROPERTIES& bag, const char* key, unsigned long value) {
    bag.SetProperty(key, value, kGroup);
  };
  set("ZRXRasterFormat", settings.tagged ? kPhotoAndGraphicTable : kOneTable);
  set(kMediaType.property, settings.mediaType);
  set(kPrintQuality.property, settings.printQuality);
  set(kPageIntent.property, settings.pageIntent);
  set(kColorPreference.property, settings.colorPreference);
  set(kPaperCharacteristics.property, settings.paperCharacteristics);
  setCount(start.Properties, "PrintableWidth", width);
  setCount(start.Properties, "HorizontalInputResolution", settings.horizontalDpi);
  setCount(start.Properties, "VerticalInputResolution", settings.verticalDpi);
  setCount(start.Properties, "LeftOverSprayPixels", settings.leftOverspray);
  setCount(start.Properties, "RightOverSprayPixels", settings.rightOverspray);
  setCount(start.Properties, "UseAlternateModes", static_cast<unsigned>(settings.alternateMode));
  setCount(start.Properties, "Points", settings.points ? 1 : 0);

  const PrintMode& mode = *settings.mode;
  start.PageProperties.SetProperty("CMYKBinaryDescriptor", static_cast<int>(mode.descriptor),
                                   kGroup);
  setCount(start.PageProperties, "NumberOfPlanes", NumberOfPlanes(mode, settings.alternateMode));
  setCount(start.PageProperties, "Slot1HorizontalRes", mode.horizontalDpi);
  setCount(start.PageProperties, "Slot2HorizontalRes", mode.horizontalDpi);
  return start;
}

}  // namespace corvane
