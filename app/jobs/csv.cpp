// SPDX-License-Identifier: MIT
#include "app/jobs/csv.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "app/support/failure.h"
#include "app/support/lines.h"

namespace corvane {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// What separates the cells of a first line.
char SeparatorOf(std::string_view line) {
  for (const char separator : {',', ';', '\t'}) {
    if (line.find(separator) != std::string_view::npos) return separator;
  }
  return ',';
}

// Takes a table apart, a line at a time.
class RecordParser {
 public:
  RecordParser(char separator, std::vector<std::string>* cells)
      : separator_(separator), cells_(cells) {
    cells_->assign(1, {});
  }

  bool IsInsideQuotes() const { return quoted_; }

  void Take(std::string_view line) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      const char c = line[i];
      std::string& cell = cells_->back();
      if (quoted_ && c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
        cell += line[++i];
      } else if (c == '"' && (quoted_ || cell.empty())) {
        quoted_ = !quoted_;
      } else if (c == separator_ && !quoted_) {
        cells_->emplace_back();
      } else {
        cell += c;
      }
    }
  }

  void TakeLineEnd() { cells_->back() += '\n'; }

 private:
  char separator_;
  std::vector<std::string>* cells_;
  bool quoted_ = false;
};

}  // namespace

CsvReader::CsvReader(std::istream& text, std::string name) : text_(text), name_(std::move(name)) {
  if (!ReadRecord(&columns_)) throw Failure(name_ + ": is empty; its first line names the columns");
  std::set<std::string> names;
  for (const std::string& column : columns_) {
    if (!column.starts_with('#') && !names.insert(column).second) {
      throw Failure(fmt::format("{}: two columns are named \"{}\"", name_, column));
    }
  }
}

bool CsvReader::Next(std::vector<std::string>* cells) {
  if (!ReadRecord(cells)) return false;
  if (cells->size() != columns_.size()) {
    throw Failure(
        fmt::format("{}: {} cells for {} columns", Place(), cells->size(), columns_.size()));
  }
  return true;
}

std::string CsvReader::Place() const { return fmt::format("{}:{}", name_, recordLine_); }

bool CsvReader::ReadRecord(std::vector<std::string>* cells) {
  std::string line;
  do {
    if (!ReadLine(text_, name_, &line)) return false;
    if (++line_ == 1) {
      if (line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
      separator_ = SeparatorOf(line);
    }
  } while (line.empty());
  recordLine_ = line_;
  RecordParser parser(separator_, cells);
  parser.Take(line);
  while (parser.IsInsideQuotes()) {
    if (!ReadLine(text_, name_, &line)) throw Failure(Place() + ": a quote does not end");
    ++line_;
    parser.TakeLineEnd();
    parser.Take(line);
  }
  return true;
}

}  // namespace corvane
