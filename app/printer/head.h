// SPDX-License-Identifier: MIT
//
// The printheads that the printer application knows, and which print mode a job's wishes lead to.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/commands/print.h"
#include "printmode/print_mode.h"

namespace corvane {

enum class Quality { Draft, Normal, High };
enum class Content { Auto, Photo, Graphics };

// A set of inks and the modes that it is driven in, by the quality that is asked for.
struct PrintHead {
  std::string_view name;
  std::string_view description;
  std::array<int, 3> colourModes;
  std::array<int, 3> monochromeModes;
};

inline constexpr PrintHead kPrintHeads[] = {
    {"corvane-4", "Corvane with four inks", {7, 7, 7}, {5, 8, 48}},
    {"corvane-7", "Corvane with seven inks", {7, 12, 54}, {5, 8, 48}},
    {"corvane-9", "Corvane with nine inks", {104, 111, 108}, {5, 8, 48}},
};

// Null when there is none of that name.
const PrintHead* FindPrintHead(std::string_view name);

// The inks that the head has in any of its modes.
std::vector<Ink> InksOf(const PrintHead& head);
// The print modes of inks that it has, by their numbers.
std::vector<int> ModesOf(const PrintHead& head);

// A print mode's number as an option has it, 0 for "auto" and an empty text. Throws Failure for a
// text that is neither.
int ModeNumberIn(std::string_view text);

// A medium's keyword in the Internet Printing Protocol, and the word of `corvane print` for it.
struct MediaWord {
  const char* keyword;
  const char* word;
};
inline constexpr MediaWord kMediaTypes[] = {
    {"stationery", "plain"},           {"stationery-coated", "coated"},
    {"photographic-glossy", "glossy"}, {"photographic-satin", "satin"},
    {"photographic-film", "film"},     {"stationery-fine-art", "fine-art"},
};

// The word for what is a keyword or the word itself, in any letter case; empty for anything else.
std::string_view MediaWordOf(std::string_view name);

// What a job asks for that decides how its pages are converted.
struct JobWishes {
  Quality quality = Quality::Normal;
  Content content = Content::Auto;
  bool monochrome = false;
  std::string media = "plain";  // by the words of `corvane print`
  int mode = 0;                 // 0: the one that suits the rest
  int alternateMode = 0;        // printed as 0 where the mode has no such
};

// The same as options of `corvane print`: it prints these bytes, too. Throws Failure for a mode
// that is none or of inks that the head does not have, and for an alternate mode that is none.
PrintOptions OptionsFor(const PrintHead& head, const JobWishes& wishes);

}  // namespace corvane
