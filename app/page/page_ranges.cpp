// SPDX-License-Identifier: MIT
#include "app/page/page_ranges.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <numeric>
#include <set>
#include <sstream>
#include <string_view>

#include "app/support/failure.h"

namespace corvane {
namespace {

struct PageRange {
  int first, last;
};

PageRange ParseRange(std::string_view text, int count) {
  const auto fail = [&]() -> PageRange {
    throw UsageFailure(fmt::format("{}: is no page or range of pages (as in 1-3,7,12-)", text));
  };
  const auto number = [&](std::string_view digits) {
    int value = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    if (error != std::errc() || stop != end || value < 1) fail();
    return value;
  };
  const std::size_t dash = text.find('-', 1);
  const int first = number(text.substr(0, dash));
  int last = first;
  if (dash != std::string_view::npos) {
    last = dash + 1 == text.size() ? std::max(first, count) : number(text.substr(dash + 1));
  }
  if (last < first) fail();
  return {first, last};
}

}  // namespace

std::vector<int> PagesIn(const std::string& ranges, int count) {
  if (ranges.empty()) {
    std::vector<int> all(static_cast<std::size_t>(count));
    std::iota(all.begin(), all.end(), 0);
    return all;
  }
  std::set<int> pages;
  std::istringstream texts(ranges);
  for (std::string text; std::getline(texts, text, ',');) {
    const PageRange range = ParseRange(text, count);
    if (range.last > count) {
      throw NoSuchPage(fmt::format("{}: there {} {} page{}", text, count == 1 ? "is" : "are", count,
                                   count == 1 ? "" : "s"));
    }
    for (int page = range.first; page <= range.last; ++page) pages.insert(page - 1);
  }
  return {pages.begin(), pages.end()};
}

}  // namespace corvane
