// SPDX-License-Identifier: MIT
//
// The settings of a page, by the words that a person types, and the page start that carries them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "host/raster.h"
#include "printmode/print_mode.h"

namespace corvane {

// A property's value and the word for it.
struct SettingWord {
  std::string_view word;
  int value;
};

// A setting of the page start.
struct PageSetting {
  const char* property;
  std::span<const SettingWord> words;
  int least, most;  // numbers that may be given instead of a word
};

extern const PageSetting kMediaType;
extern const PageSetting kPrintQuality;
extern const PageSetting kPageIntent;
extern const PageSetting kColorPreference;
extern const PageSetting kPaperCharacteristics;

// The value of a word or number. Throws UsageFailure, naming what may be given.
int SettingValue(const PageSetting& setting, const std::string& text);
// The same, or `otherwise` for an empty text.
int SettingValueOr(const PageSetting& setting, const std::string& text, int otherwise);
// The word for a value, or its number where there is none.
std::string SettingText(const PageSetting& setting, int value);
// The words with their values, for a help text.
std::string SettingChoices(const PageSetting& setting);

// A mode by its number or print-mode name. Where modes share a name the first with black counts.
// Throws UsageFailure for a text that is neither.
const PrintMode& ParsePrintMode(const std::string& text);

struct PageSettings {
  const PrintMode* mode = nullptr;
  int alternateMode = 0;
  int mediaType = 1;
  int printQuality = 2;
  int pageIntent = 1;
  int colorPreference = 3;
  int paperCharacteristics = 0;
  std::uint32_t leftOverspray = 0, rightOverspray = 0;  // input pixels
  std::uint32_t horizontalDpi = 0, verticalDpi = 0;     // of the input
  bool tagged = false;                                  // with a tag per pixel
  bool points = false;                                  // the points chart instead of the page
};

// What suits a mode unless something else is asked for. Modes that print no black ink take tables
// without it: seven inks through the paper characteristics, nine-ink modes whose data lose their
// black plane through the best quality. They, and what is made of them, throw UsageFailure for an
// alternate mode that is none.
int DefaultPrintQuality(const PrintMode& mode, int alternateMode);
int DefaultPaperCharacteristics(const PrintMode& mode);

// Those of a page of which nothing but the mode is said. The input has 600 dpi, or less across
// where the mode prints less.
PageSettings DefaultSettings(const PrintMode& mode, int alternateMode);

// Throws UsageFailure for an input resolution that the mode cannot multiply to its own.
void CheckResolution(const PageSettings& settings);

// The page start of a page of `width` input pixels, without the overspray.
QStartPage MakeStartPage(const PageSettings& settings, std::uint32_t width);

}  // namespace corvane
