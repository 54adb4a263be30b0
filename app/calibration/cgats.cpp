// SPDX-License-Identifier: MIT
#include "app/calibration/cgats.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "app/support/failure.h"

namespace corvane {
namespace {

constexpr std::size_t kMostFields = 4096;  // each is compared with all others

struct Token {
  std::string text;
  std::size_t line = 0;
  bool quoted = false;
  bool first = false;  // of its line
};

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

class Tokens {
 public:
  Tokens(std::string_view text, const std::string& name) : text_(text), name_(name) {}

  // None at the end.
  std::optional<Token> Next() {
    if (held_) return std::exchange(held_, std::nullopt);
    SkipBlank();
    if (at_ == text_.size()) return std::nullopt;
    Token token{{}, line_, text_[at_] == '"', std::exchange(lineStarts_, false)};
    if (token.quoted) {
      ReadQuoted(token);
    } else {
      const std::size_t begin = at_;
      while (at_ < text_.size() && !IsSpace(text_[at_])) ++at_;
      token.text = text_.substr(begin, at_ - begin);
    }
    return token;
  }
  void Unread(Token token) { held_ = std::move(token); }

  // The next one, where the text must go on.
  Token Need(const char* what) {
    std::optional<Token> token = Next();
    if (!token) throw Failure(fmt::format("{}: ends in line {}, before {}", name_, line_, what));
    return std::move(*token);
  }
  [[noreturn]] void Fail(const Token& token, const std::string& what) const {
    throw Failure(fmt::format("{}: line {}: {}", name_, token.line, what));
  }

 private:
  void SkipBlank() {
    while (at_ < text_.size() && (IsSpace(text_[at_]) || text_[at_] == '#')) {
      if (text_[at_] == '#') {
        while (at_ < text_.size() && text_[at_] != '\n' && text_[at_] != '\r') ++at_;
        continue;
      }
      const bool alone = text_[at_] == '\r' && !text_.substr(at_ + 1).starts_with('\n');
      if (text_[at_] == '\n' || alone) {
        ++line_;
        lineStarts_ = true;
      }
      ++at_;
    }
  }

  void ReadQuoted(Token& token) {
    const std::size_t end = text_.find_first_of("\"\r\n", at_ + 1);
    if (end == std::string_view::npos || text_[end] != '"') {
      Fail(token, "a quotation mark is missing");
    }
    token.text = text_.substr(at_ + 1, end - at_ - 1);
    at_ = end + 1;
  }

  std::string_view text_;
  const std::string& name_;
  std::size_t at_ = 0, line_ = 1;
  bool lineStarts_ = true;
  std::optional<Token> held_;
};

std::size_t CountOf(Tokens& tokens, const Token& keyword) {
  const Token token = tokens.Need(keyword.text.c_str());
  std::size_t count = 0;
  const char* const end = token.text.data() + token.text.size();
  const auto [stop, error] = std::from_chars(token.text.data(), end, count);
  if (error != std::errc() || stop != end) {
    tokens.Fail(token, fmt::format("{} is no number of {}", token.text, keyword.text));
  }
  return count;
}

void ReadFields(Tokens& tokens, CgatsTable& table) {
  for (Token token = tokens.Need("END_DATA_FORMAT"); token.text != "END_DATA_FORMAT";
       token = tokens.Need("END_DATA_FORMAT")) {
    if (table.Field(token.text))
      tokens.Fail(token, fmt::format("{} stands there twice", token.text));
    if (table.fields.size() == kMostFields) {
      tokens.Fail(token, fmt::format("has more than {} fields", kMostFields));
    }
    table.fields.push_back(std::move(token.text));
  }
}

void ReadRows(Tokens& tokens, CgatsTable& table) {
  CgatsRow row;
  for (Token token = tokens.Need("END_DATA");; token = tokens.Need("END_DATA")) {
    const bool end = !token.quoted && token.text == "END_DATA";
    if (!row.values.empty() && (end || token.first)) {
      tokens.Fail(token, fmt::format("the row before has {} values for {} fields",
                                     row.values.size(), table.fields.size()));
    }
    if (end) return;
    if (row.values.empty()) {
      if (!token.first) tokens.Fail(token, "has more values than there are fields");
      row.line = token.line;
    }
    row.values.push_back(std::move(token.text));
    if (row.values.size() == table.fields.size()) table.rows.push_back(std::exchange(row, {}));
  }
}

// False at the end of the text.
bool ReadTable(Tokens& tokens, const std::string& kind, CgatsTable& table) {
  std::optional<std::size_t> fields, rows;
  bool begun = false;
  while (std::optional<Token> token = tokens.Next()) {
    if (token->text == kind && !begun) continue;  // each table may begin with it
    begun = true;
    if (token->text == "NUMBER_OF_FIELDS") {
      fields = CountOf(tokens, *token);
    } else if (token->text == "NUMBER_OF_SETS") {
      rows = CountOf(tokens, *token);
    } else if (token->text == "BEGIN_DATA_FORMAT") {
      ReadFields(tokens, table);
    } else if (token->text == "BEGIN_DATA") {
      if (table.fields.empty()) tokens.Fail(*token, "BEGIN_DATA without fields");
      if (fields && *fields != table.fields.size()) {
        tokens.Fail(*token, fmt::format("{} fields are announced, {} stand there", *fields,
                                        table.fields.size()));
      }
      ReadRows(tokens, table);
      if (rows && *rows != table.rows.size()) {
        tokens.Fail(*token,
                    fmt::format("{} rows are announced, {} stand there", *rows, table.rows.size()));
      }
      return true;
    } else {
      std::string value;
      if (std::optional<Token> next = tokens.Next()) {
        // A keyword may stand alone on its line.
        if (next->first && !next->quoted) {
          tokens.Unread(std::move(*next));
        } else {
          value = std::move(next->text);
        }
      }
      table.keywords.emplace_back(std::move(token->text), std::move(value));
    }
  }
  if (begun) {
    const Token end = tokens.Need("BEGIN_DATA");
    tokens.Fail(end, "");
  }
  return false;
}

}  // namespace

std::optional<std::string> CgatsTable::Keyword(std::string_view name) const {
  for (const auto& [key, value] : keywords) {
    if (key == name) return value;
  }
  return std::nullopt;
}

std::optional<std::size_t> CgatsTable::Field(std::string_view name) const {
  const auto found = std::find(fields.begin(), fields.end(), name);
  if (found == fields.end()) return std::nullopt;
  return static_cast<std::size_t>(found - fields.begin());
}

Cgats ParseCgats(std::string_view text, const std::string& name) {
  if (text.find('\0') != std::string_view::npos) throw Failure(name + ": is no CGATS text");
  Tokens tokens(text, name);
  Cgats cgats;
  cgats.kind = tokens.Need("its kind").text;
  CgatsTable table;
  while (ReadTable(tokens, cgats.kind, table)) cgats.tables.push_back(std::exchange(table, {}));
  if (cgats.tables.empty()) throw Failure(name + ": holds no table of patches");
  return cgats;
}

std::string CgatsText(const Cgats& cgats) {
  std::string text;
  for (const CgatsTable& table : cgats.tables) {
    text += fmt::format("{}\n\n", cgats.kind);
    for (const auto& [key, value] : table.keywords) text += fmt::format("{} \"{}\"\n", key, value);
    text += fmt::format("\nNUMBER_OF_FIELDS {}\nBEGIN_DATA_FORMAT\n{}\nEND_DATA_FORMAT\n",
                        table.fields.size(), fmt::join(table.fields, " "));
    text += fmt::format("\nNUMBER_OF_SETS {}\nBEGIN_DATA\n", table.rows.size());
    for (const CgatsRow& row : table.rows) text += fmt::format("{}\n", fmt::join(row.values, " "));
    text += "END_DATA\n\n";
  }
  return text;
}

}  // namespace corvane
