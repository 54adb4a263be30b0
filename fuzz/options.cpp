// SPDX-License-Identifier: MIT
//
// Command lines, a word a line: read, and not carried out. The texts that commands read themselves
// are read from the last word.
#include <iterator>

#include "app/commands/command_line.h"
#include "app/commands/print_settings.h"
#include "app/commands/table_inspect.h"
#include "app/page/page_ranges.h"
#include "app/page/paper.h"
#include "app/page/settings.h"
#include "app/preview/sink.h"
#include "fuzz/fuzz.h"

namespace {

using namespace corvane;

std::vector<std::string> WordsOf(std::string_view text) {
  std::vector<std::string> words = {"corvane"};
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find('\n'));
    words.emplace_back(word.substr(0, word.find('\0')));
    text.remove_prefix(std::min(text.size(), word.size() + 1));
  }
  return words;
}

void ReadWord(const std::string& word) {
  fuzz::Succeeds([&] { ParsePrintMode(word); });
  fuzz::Succeeds([&] { ParsePaperSize(word); });
  fuzz::Succeeds([&] { ParseZoom(word); });
  fuzz::Succeeds([&] {
    for (const int page : PagesIn(word, 9)) FUZZ_EXPECT(page >= 0 && page < 9);
  });
  fuzz::Succeeds([&] { ParseInkList(word); });
  fuzz::Succeeds([&] { ParseTableIndices(word); });
  fuzz::Succeeds([&] { SettingValue(kMediaType, word); });
  for (const char* option : {"scale", "uam", "overspray", "resolution", "landscape", "fit"}) {
    fuzz::Succeeds([&] { PrintOptionsFrom({{option, word}}); });
  }
}

}  // namespace

FUZZ_TARGET(options, input) {
  std::vector<std::string> words = WordsOf(fuzz::TextOf(input));
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  fuzz::Succeeds([&] { ReadCommandLine(static_cast<int>(arguments.size()), arguments.data()); });
  ReadWord(words.back());
}
