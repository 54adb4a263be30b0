// SPDX-License-Identifier: MIT
//
// Every fuzz target over the inputs that are kept for it, as they are and damaged. How many damaged
// ones CORVANE_DAMAGED says, of all targets together; `./dev damaged` asks for many.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <random>

#include "fuzz/fuzz.h"
#include "tests/harness/paths.h"
#include "tests/harness/scratch_folder.h"

namespace corvane::fuzz {

// As the test library finds it.
void PrintTo(const Target& target, std::ostream* stream) { *stream << target.name; }

namespace {

namespace fs = std::filesystem;

constexpr int kDamagedInTests = 1500;

Bytes BytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::vector<std::string> CorpusOf(const Target& target) {
  std::vector<fs::path> files;
  const fs::path folder = fs::path(harness::SourceDirectory()) / "fuzz/corpus" / target.name;
  for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  std::vector<std::string> corpus;
  for (const fs::path& file : files) corpus.push_back(ReadFile(file.string()));
  return corpus;
}

int DamagedOfEach() {
  const char* wanted = std::getenv("CORVANE_DAMAGED");
  const int all = wanted == nullptr ? kDamagedInTests : std::atoi(wanted);
  return (all + static_cast<int>(Targets().size()) - 1) / static_cast<int>(Targets().size());
}

// Cut off, or with a few bits, bytes or numbers changed, or a stretch left out or said twice.
std::string Damaged(std::string text, std::mt19937& random) {
  const auto below = [&](std::size_t bound) { return random() % std::max<std::size_t>(bound, 1); };
  switch (random() % 5) {
    case 0:
      text.resize(below(text.size()));
      return text;
    case 1:
      text.erase(below(text.size()), 1 + below(16));
      return text;
    case 2: {
      const std::string part = text.substr(below(text.size()), 1 + below(64));
      return text.insert(below(text.size()), part);
    }
    default:
      break;
  }
  for (std::size_t i = 0, changes = 1 + below(8); i < changes && !text.empty(); ++i) {
    char& byte = text[below(text.size())];
    const char values[] = {static_cast<char>(byte ^ 1 << below(8)), '\0', '\xFF', '\x7F',
                           static_cast<char>(random())};
    byte = values[below(std::size(values))];
  }
  return text;
}

class Corpus : public testing::TestWithParam<Target> {};

TEST_P(Corpus, IsReadOrRefusedWholeAndDamaged) {
  const Target& target = GetParam();
  const std::vector<std::string> corpus = CorpusOf(target);
  ASSERT_FALSE(corpus.empty());
  const ScratchFolder folder;
  const fs::path here = fs::current_path();
  fs::current_path(folder.File(""));  // where files without a folder would go
  testing::internal::CaptureStdout();
  for (const std::string& text : corpus) target.run(BytesOf(text));
  std::mt19937 random(14);
  for (int i = DamagedOfEach(); i > 0; --i) {
    const std::string text = Damaged(corpus[random() % corpus.size()], random);
    // The one at work, for whoever looks after a crash.
    if (std::getenv("CORVANE_DAMAGED") != nullptr) WriteFile(folder.File("input"), text);
    target.run(BytesOf(text));
  }
  testing::internal::GetCapturedStdout();
  fs::current_path(here);
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Corpus, testing::ValuesIn(Targets()),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace corvane::fuzz
