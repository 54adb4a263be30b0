// SPDX-License-Identifier: MIT
#include "app/page/page_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "app/page/settings.h"
#include "host/property_names.h"
#include "printmode/page_shape.h"
#include "printmode/print_modes.h"

namespace corvane {
namespace {

using property::Bag;
using property::Property;

// A value that a property must have: one of a range, or what a divisor allows.
struct Rule {
  const char* name;
  std::uint32_t least, most;
  bool divides;  // `most` has to be a multiple of it
  const char* unless;
};

std::vector<Rule> RulesOf(const PrintMode& mode, int alternateMode) {
  constexpr std::uint32_t kLargest = UINT32_MAX;
  constexpr const char* kNoTable = "error 8: no table is found";
  constexpr const char* kBlackLost = "the black of the table's colours is not printed";
  constexpr std::uint32_t kBest = 4;
  const AlternateMode& page = mode.alternates[static_cast<std::size_t>(alternateMode)];
  std::vector<Rule> rules = {
      {property::kZRXRasterFormat, 1, 7, false, "error 28"},
      {property::kMediaType, 1, 6, false, kNoTable},
      {property::kPrintableWidth, 1, kLargest, false, "error 8"},
      {property::kHorizontalInputResolution, 1, page.halftoneDpi, true,
       "error 8, or a row that is narrower than the page"},
  };
  if (DefaultPrintQuality(mode, alternateMode) == static_cast<int>(kBest)) {
    rules.push_back({property::kPrintQuality, kBest, kBest, false, kBlackLost});
  } else {
    rules.push_back({property::kPrintQuality, 1, kBest, false, kNoTable});
  }
  const auto paper = static_cast<std::uint32_t>(DefaultPaperCharacteristics(mode));
  if (paper != 0) {
    rules.push_back({property::kPaperCharacteristics, paper, paper, false, kBlackLost});
  }
  if (page.contoneRows != 0) {
    rules.push_back({property::kVerticalInputResolution, 1, page.contoneRows, true,
                     "error 8, or a page that is shorter than it should be"});
  }
  if (page.placing.PlacesDots()) {
    const std::uint32_t planes = NumberOfPlanes(mode, alternateMode);
    const char* slot = planes == 1 ? property::kSlot2HorizontalRes : property::kSlot1HorizontalRes;
    constexpr const char* kUnplaced = "the dots are not placed: rows leave as halftoned";
    rules.push_back({property::kNumberOfPlanes, planes, planes, false, kUnplaced});
    rules.push_back({slot, mode.horizontalDpi, mode.horizontalDpi, false,
                     "with too little no dot is placed: rows leave as halftoned"});
  }
  return rules;
}

std::string ValueOf(const Rule& rule) {
  if (rule.divides) return fmt::format("a divisor of {}", rule.most);
  if (rule.least == rule.most) return fmt::format("{}", rule.most);
  if (rule.most == UINT32_MAX) return fmt::format("{} or more", rule.least);
  return fmt::format("{} to {}", rule.least, rule.most);
}

bool Fits(const Rule& rule, std::uint32_t value) {
  if (value < rule.least || value > rule.most) return false;
  return !rule.divides || rule.most % value == 0;
}

const Property& PropertyNamed(std::string_view name) {
  for (const Property& candidate : property::kProperties) {
    if (candidate.name == name) return candidate;
  }
  return property::kProperties[0];  // every rule's name is one of them
}

const ZCOM::PROPERTIES::Entry* Find(const ZCOM::PROPERTIES& bag, std::string_view name,
                                    std::string_view group) {
  for (const auto* entry = bag.First(); entry != nullptr; entry = entry->Next()) {
    if (name == entry->Key() && (group.empty() || group == entry->Group())) return entry;
  }
  return nullptr;
}

// What stands where the elements read it.
class PageReader {
 public:
  explicit PageReader(const QStartPage& page) : page_(page) {}

  const ZCOM::PROPERTIES& BagOf(const Property& wanted) const {
    return wanted.bag == Bag::SecondPage ? page_.PageProperties : page_.Properties;
  }

  const ZCOM::PROPERTIES::Entry* EntryOf(const Property& wanted) const {
    return Find(BagOf(wanted), wanted.name, wanted.group);
  }

  // The number that an element reads; 0 for a missing one and for a text.
  std::uint32_t Number(std::string_view name) const {
    const auto* entry = EntryOf(PropertyNamed(name));
    return entry == nullptr || entry->Text() != nullptr ? 0 : entry->Bits();
  }

  // It was set, and reads as 0 all the same: as a text, in another group or in the other bag.
  bool IsLost(const Property& wanted) const {
    const auto* entry = EntryOf(wanted);
    if (entry != nullptr) return entry->Text() != nullptr;
    return Find(page_.Properties, wanted.name, {}) != nullptr ||
           Find(page_.PageProperties, wanted.name, {}) != nullptr;
  }

  // How the entry stands there, for a message: its value, or why it reads as 0.
  std::string Standing(std::string_view name) const {
    const Property& wanted = PropertyNamed(name);
    const auto* entry = EntryOf(wanted);
    if (entry != nullptr && entry->Text() != nullptr) return "is a text, which reads as 0";
    if (entry != nullptr && entry->IsSigned()) {
      return fmt::format("is {}", static_cast<std::int32_t>(entry->Bits()));
    }
    if (entry != nullptr) return fmt::format("is {}", entry->Bits());
    if (Find(BagOf(wanted), name, {}) != nullptr) {
      return fmt::format("stands in another group than \"{}\"", wanted.group);
    }
    const bool second = wanted.bag == Bag::SecondPage;
    const ZCOM::PROPERTIES& other = second ? page_.Properties : page_.PageProperties;
    if (Find(other, name, {}) != nullptr) {
      return second ? "stands in Properties and is read from PageProperties"
                    : "stands in PageProperties and is read from Properties";
    }
    return "is missing";
  }

 private:
  const QStartPage& page_;
};

}  // namespace

std::vector<PageRequirement> RequirementsOf(const PrintMode& mode, int alternateMode) {
  std::vector<PageRequirement> requirements;
  for (const Rule& rule : RulesOf(mode, alternateMode)) {
    requirements.push_back({rule.name, ValueOf(rule), rule.unless});
  }
  return requirements;
}

std::vector<std::string> CheckPageStart(const QStartPage& page) {
  const PageReader reader(page);
  const PrintMode* mode =
      FindPrintMode(static_cast<std::int32_t>(reader.Number(property::kCMYKBinaryDescriptor)));
  if (mode == nullptr) {
    return {fmt::format("{} {}, not a print mode: errors 44 and 8", property::kCMYKBinaryDescriptor,
                        reader.Standing(property::kCMYKBinaryDescriptor))};
  }
  std::vector<std::string> faults;
  // The elements read 16 bits of it.
  const auto alternate = static_cast<std::uint16_t>(reader.Number(property::kUseAlternateModes));
  if (alternate >= kAlternateModes) {
    const bool losesDots = mode->alternates[0].placing.PlacesDots();
    faults.push_back(fmt::format("{} {}, not 0, 1 or 2: the page prints as with 0{}",
                                 property::kUseAlternateModes,
                                 reader.Standing(property::kUseAlternateModes),
                                 losesDots ? ", but its dots are not placed" : ""));
  }
  std::vector<std::string_view> told;
  for (const Rule& rule : RulesOf(*mode, AlternateModeIndex(alternate))) {
    if (Fits(rule, reader.Number(rule.name))) continue;
    told.emplace_back(rule.name);
    faults.push_back(fmt::format("{} {}, not {}: {}", rule.name, reader.Standing(rule.name),
                                 ValueOf(rule), rule.unless));
  }
  const std::uint32_t format = reader.Number(property::kZRXRasterFormat);
  if (format == 2 || (format >= 5 && format <= 7)) {
    faults.push_back(
        fmt::format("{} is {}: rows of that format are not converted, those of 1, 3 "
                    "and 4 are",
                    property::kZRXRasterFormat, format));
  }
  for (const Property& read : property::kProperties) {
    const bool ofPage = read.bag == Bag::Page || read.bag == Bag::SecondPage;
    const bool isTold = std::ranges::find(told, read.name) != told.end();
    if (!ofPage || isTold || !std::string_view(read.users).starts_with("read") ||
        !reader.IsLost(read)) {
      continue;
    }
    const std::string standing = reader.Standing(read.name);
    faults.push_back(fmt::format("{} {}{}", read.name, standing,
                                 standing.starts_with("is") ? "" : ": it reads as 0"));
  }
  return faults;
}

}  // namespace corvane
