// SPDX-License-Identifier: MIT
#include "app/page/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include "app/page/planes.h"
#include "app/support/failure.h"
#include "host/property_names.h"
#include "printmode/page_shape.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

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

bool HalftonesBlack(const PrintMode& mode) {
  return PlanesAfter(Stage::Halftoned, mode, 0).Holds(Ink::K);
}

}  // namespace

const PageSetting kMediaType = {property::kMediaType, kMediaWords, 1, 6};
const PageSetting kPrintQuality = {property::kPrintQuality, kQualityWords, 1, 4};
const PageSetting kPageIntent = {property::kPageIntent, kIntentWords, 0, 255};
const PageSetting kColorPreference = {property::kColorPreference, kPreferenceWords, 0, 255};
const PageSetting kPaperCharacteristics = {property::kPaperCharacteristics, kPaperWords, 0, 255};

int SettingValue(const PageSetting& setting, const std::string& text) {
  for (const SettingWord& word : setting.words) {
    if (word.word == text) return word.value;
  }
  const std::optional<int> number = WholeNumber(text);
  if (number && *number >= setting.least && *number <= setting.most) return *number;
  throw UsageFailure(fmt::format("{}: is none of {}", text, SettingChoices(setting)));
}

int SettingValueOr(const PageSetting& setting, const std::string& text, int otherwise) {
  return text.empty() ? otherwise : SettingValue(setting, text);
}

std::string SettingText(const PageSetting& setting, int value) {
  const auto word = std::ranges::find(setting.words, value, &SettingWord::value);
  return word == setting.words.end() ? std::to_string(value) : std::string(word->word);
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
    if (text != mode.name) continue;
    if (found == nullptr || (HalftonesBlack(mode) && !HalftonesBlack(*found))) found = &mode;
  }
  if (found == nullptr) {
    throw UsageFailure(text + ": is not a print mode (corvane modes lists them)");
  }
  return *found;
}

int DefaultPrintQuality(const PrintMode& mode, int alternateMode) {
  constexpr int kNormal = 2, kBest = 4;
  if (alternateMode < 0 || alternateMode >= kAlternateModes) {
    throw UsageFailure(
        fmt::format("{}: an alternate mode is 0 to {}", alternateMode, kAlternateModes - 1));
  }
  const bool losesBlack = HalftonesBlack(mode) && !PrintsBlack(mode, alternateMode);
  return losesBlack ? kBest : kNormal;
}

int DefaultPaperCharacteristics(const PrintMode& mode) {
  constexpr int kStandard = 0, kNoBlack = 3;
  return HalftonesBlack(mode) ? kStandard : kNoBlack;
}

PageSettings DefaultSettings(const PrintMode& mode, int alternateMode) {
  PageSettings settings;
  settings.mode = &mode;
  settings.alternateMode = alternateMode;
  settings.printQuality = DefaultPrintQuality(mode, alternateMode);
  settings.paperCharacteristics = DefaultPaperCharacteristics(mode);
  settings.horizontalDpi =
      std::min<std::uint32_t>(kUsualDpi, mode.alternates[alternateMode].halftoneDpi);
  settings.verticalDpi = kUsualDpi;
  return settings;
}

void CheckResolution(const PageSettings& settings) {
  const AlternateMode& page = settings.mode->alternates[settings.alternateMode];
  const auto check = [&](std::uint32_t dpi, bool fits, const std::string& taken) {
    if (fits) return;
    throw UsageFailure(fmt::format("{} dpi: mode {} takes a {}", dpi,
                                   static_cast<int>(settings.mode->descriptor), taken));
  };
  const auto divides = [](std::uint32_t dpi, std::uint32_t printed) {
    return dpi != 0 && dpi <= printed && printed % dpi == 0;
  };
  check(settings.horizontalDpi, divides(settings.horizontalDpi, page.halftoneDpi),
        fmt::format("horizontal resolution that divides {}", page.halftoneDpi));
  if (page.contoneRows != 0) {
    check(settings.verticalDpi, divides(settings.verticalDpi, page.contoneRows),
          fmt::format("vertical resolution that divides {}", page.contoneRows));
  } else {  // the mode repeats no rows
    const std::uint32_t printed = settings.mode->verticalDpi;
    check(settings.verticalDpi, settings.verticalDpi == printed,
          fmt::format("vertical resolution of {}", printed));
  }
}

QStartPage MakeStartPage(const PageSettings& settings, std::uint32_t width) {
  constexpr int kOneTable = 1;
  constexpr int kPhotoAndGraphicTable = 4;
  QStartPage start;
  const auto set = [&](const char* key, int value) {
    start.Properties.SetProperty(key, value, property::kStandardGroup);
  };
  const auto setCount = [&](ZCOM::PROPERTIES& bag, const char* key, unsigned long value) {
    bag.SetProperty(key, value, property::kStandardGroup);
  };
  set(property::kZRXRasterFormat, settings.tagged ? kPhotoAndGraphicTable : kOneTable);
  set(kMediaType.property, settings.mediaType);
  set(kPrintQuality.property, settings.printQuality);
  set(kPageIntent.property, settings.pageIntent);
  set(kColorPreference.property, settings.colorPreference);
  set(kPaperCharacteristics.property, settings.paperCharacteristics);
  setCount(start.Properties, property::kPrintableWidth, width);
  setCount(start.Properties, property::kHorizontalInputResolution, settings.horizontalDpi);
  setCount(start.Properties, property::kVerticalInputResolution, settings.verticalDpi);
  setCount(start.Properties, property::kLeftOverSprayPixels, settings.leftOverspray);
  setCount(start.Properties, property::kRightOverSprayPixels, settings.rightOverspray);
  setCount(start.Properties, property::kUseAlternateModes,
           static_cast<unsigned>(settings.alternateMode));
  setCount(start.Properties, property::kPoints, settings.points ? 1 : 0);

  const PrintMode& mode = *settings.mode;
  start.PageProperties.SetProperty(property::kCMYKBinaryDescriptor,
                                   static_cast<int>(mode.descriptor), property::kStandardGroup);
  setCount(start.PageProperties, property::kNumberOfPlanes,
           NumberOfPlanes(mode, settings.alternateMode));
  setCount(start.PageProperties, property::kSlot1HorizontalRes, mode.horizontalDpi);
  setCount(start.PageProperties, property::kSlot2HorizontalRes, mode.horizontalDpi);
  return start;
}

}  // namespace corvane
