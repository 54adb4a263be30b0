// SPDX-License-Identifier: MIT
#include "app/printer/filter.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <sstream>

#include "app/page/settings.h"
#include "app/support/failure.h"
#include "app/support/lines.h"

namespace corvane {
namespace {

constexpr std::string_view kModelKeyword = "*cupsModelNumber:";
constexpr int kUsualModel = 7;
constexpr int kMostCopies = 9999;

// The qualities by the numbers that the protocol and raster headers have for them.
constexpr int kDraft = 3, kNormal = 4, kHigh = 5;

// An option by any of its names, that of the PPD file first; empty when it is not given.
std::string_view OptionOf(const FilterCall& call, std::initializer_list<const char*> names) {
  for (const char* name : names) {
    const auto option = call.options.find(name);
    if (option != call.options.end()) return option->second;
  }
  return {};
}

// 0 for a text that is no number, such as "Auto".
int NumberIn(std::string_view text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

int QualityNumber(std::string_view word) {
  if (word == "Draft") return kDraft;
  if (word == "Normal") return kNormal;
  if (word == "High") return kHigh;
  return NumberIn(word);
}

void TakeQuality(int number, JobWishes& wishes) {
  if (number == kDraft) wishes.quality = Quality::Draft;
  if (number == kNormal) wishes.quality = Quality::Normal;
  if (number == kHigh) wishes.quality = Quality::High;
}

void TakeContent(std::string_view word, JobWishes& wishes) {
  if (word == "Auto" || word == "auto") wishes.content = Content::Auto;
  if (word == "Photo" || word == "photo") wishes.content = Content::Photo;
  for (const char* graphics : {"Graphics", "graphic", "text", "text-and-graphic"}) {
    if (word == graphics) wishes.content = Content::Graphics;
  }
}

void TakeMedia(std::string_view name, int number, JobWishes& wishes) {
  const std::string_view word = MediaWordOf(name);
  if (!word.empty()) {
    wishes.media = word;
  } else if (number >= kMediaType.least && number <= kMediaType.most) {
    wishes.media = SettingText(kMediaType, number);
  }
}

void TakeMode(int mode, int alternateMode, JobWishes& wishes) {
  if (mode != 0) wishes.mode = static_cast<int>(ParsePrintMode(std::to_string(mode)).descriptor);
  if (alternateMode > 0) wishes.alternateMode = std::min(alternateMode, kAlternateModes - 1);
}

}  // namespace

const PrintHead& HeadOfPpd(const std::filesystem::path& ppd) {
  int model = kUsualModel;
  if (!ppd.empty()) {
    std::istringstream lines(ReadText(ppd));
    model = 0;
    for (std::string line; std::getline(lines, line);) {
      if (!line.starts_with(kModelKeyword)) continue;
      const std::size_t at = line.find_first_not_of(' ', kModelKeyword.size());
      if (at != std::string::npos) model = NumberIn(std::string_view(line).substr(at));
    }
  }
  const PrintHead* head = FindPrintHead(fmt::format("corvane-{}", model));
  if (head == nullptr) {
    throw Failure(fmt::format("{}: {} names no print head", ppd.string(), kModelKeyword));
  }
  return *head;
}

JobWishes WishesOf(const FilterCall& call) {
  JobWishes wishes;
  TakeQuality(QualityNumber(OptionOf(call, {"cupsPrintQuality", "print-quality"})), wishes);
  TakeContent(OptionOf(call, {"CorvaneContent", "print-content-optimize"}), wishes);
  TakeMedia(OptionOf(call, {"MediaType", "media-type"}), 0, wishes);
  TakeMode(ModeNumberIn(OptionOf(call, {"CorvanePrintMode", "corvane-print-mode"})),
           NumberIn(OptionOf(call, {"CorvaneAlternateMode", "corvane-alternate-mode"})), wishes);
  const std::string_view colour = OptionOf(call, {"ColorModel", "print-color-mode"});
  wishes.monochrome = colour == "Gray" || colour == "monochrome" || colour == "auto-monochrome";
  return wishes;
}

JobWishes WithTicket(JobWishes wishes, const StreamedPage& page) {
  const PageTicket& ticket = page.ticket;
  TakeQuality(ticket.quality, wishes);
  TakeContent(ticket.content, wishes);
  TakeMedia(ticket.mediaType, ticket.mediaNumber, wishes);
  TakeMode(ticket.mode, ticket.alternateMode, wishes);
  // Grey raster is what a monochrome print is asked for with.
  if (page.image.form.colour == PixelForm::Colour::Grey) wishes.monochrome = true;
  return wishes;
}

int CopiesOf(const FilterCall& call, const StreamedPage& page) {
  const bool makesCopies = !call.file.empty() && call.copies > 1;
  return std::clamp(makesCopies ? call.copies : page.copies, 1, kMostCopies);
}

}  // namespace corvane
