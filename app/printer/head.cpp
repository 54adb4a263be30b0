// SPDX-License-Identifier: MIT
#include "app/printer/head.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <iterator>

#include "app/page/planes.h"
#include "app/page/settings.h"
#include "app/support/failure.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

constexpr std::string_view kTableQualities[] = {"draft", "normal", "high"};

}  // namespace

const PrintHead* FindPrintHead(std::string_view name) {
  const auto found = std::find_if(std::begin(kPrintHeads), std::end(kPrintHeads),
                                  [&](const PrintHead& head) { return head.name == name; });
  return found == std::end(kPrintHeads) ? nullptr : found;
}

std::vector<Ink> InksOf(const PrintHead& head) {
  std::vector<Ink> inks;
  for (const auto& modes : {head.colourModes, head.monochromeModes}) {
    for (const int number : modes) {
      for (const Ink ink : PrintedInks(*FindPrintMode(number))) {
        if (std::ranges::find(inks, ink) == inks.end()) inks.push_back(ink);
      }
    }
  }
  std::ranges::sort(inks);
  return inks;
}

std::vector<int> ModesOf(const PrintHead& head) {
  const std::vector<Ink> inks = InksOf(head);
  std::vector<int> modes;
  for (const PrintMode& mode : kPrintModes) {
    const bool hasAll = std::ranges::all_of(
        PrintedInks(mode), [&](Ink ink) { return std::ranges::find(inks, ink) != inks.end(); });
    if (hasAll) modes.push_back(static_cast<int>(mode.descriptor));
  }
  return modes;
}

int ModeNumberIn(std::string_view text) {
  if (text.empty() || text == "auto" || text == "Auto") return 0;
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0) {
    throw Failure(std::string(text) + ": is not the number of a print mode");
  }
  return number;
}

std::string_view MediaWordOf(std::string_view name) {
  const std::string text(name);
  for (const MediaWord& media : kMediaTypes) {
    for (const char* known : {media.keyword, media.word}) {
      if (strcasecmp(text.c_str(), known) == 0) return media.word;
    }
  }
  return {};
}

PrintOptions OptionsFor(const PrintHead& head, const JobWishes& wishes) {
  const auto quality = static_cast<std::size_t>(wishes.quality);
  const auto& modes = wishes.monochrome ? head.monochromeModes : head.colourModes;
  const std::vector<int> known = ModesOf(head);
  if (wishes.mode != 0 && std::ranges::find(known, wishes.mode) == known.end()) {
    ParsePrintMode(std::to_string(wishes.mode));
    throw Failure(
        fmt::format("print mode {} takes inks that {} does not have", wishes.mode, head.name));
  }
  PrintOptions options;
  options.mode = std::to_string(wishes.mode != 0 ? wishes.mode : modes[quality]);
  options.alternateMode = wishes.alternateMode;
  options.media = wishes.media;
  options.intent = wishes.content == Content::Graphics ? "graphic" : "photo";
  // Modes that print no black want the tables that are made for them, whatever the quality.
  constexpr int kNormalTable = 2;
  const PrintMode& mode = ParsePrintMode(options.mode);
  if (DefaultPrintQuality(mode, wishes.alternateMode) == kNormalTable) {
    options.quality = kTableQualities[quality];
  }
  return options;
}

}  // namespace corvane
