// SPDX-License-Identifier: MIT
#include "app/printer/head.h"

#include <strings.h>

#include <algorithm>
#include <iterator>

#include "app/page/settings.h"
#include "printmode/print_mode.h"

namespace corvane {
namespace {

constexpr std::string_view kTableQualities[] = {"draft", "normal", "high"};

}  // namespace

const PrintHead* FindPrintHead(std::string_view name) {
  const auto found = std::find_if(std::begin(kPrintHeads), std::end(kPrintHeads),
                                  [&](const PrintHead& head) { return head.name == name; });
  return found == std::end(kPrintHeads) ? nullptr : found;
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
