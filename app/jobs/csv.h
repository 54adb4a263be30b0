// SPDX-License-Identifier: MIT
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace corvane {

// Reads a table of comma-separated values record by record, as RFC 4180 writes them: cells may be
// quoted, and then hold commas, line ends and doubled quotes. A first line without a comma may be
// separated by semicolons or tabs; the others then are, too. A byte-order mark is skipped, and so
// are empty lines.
class CsvReader {
 public:
  // `name` is the file's, for messages. Reads the first record: the columns' names. Throws
  // Failure when there is none, and when two columns have one name that does not begin
  // with #.
  CsvReader(std::istream& text, std::string name);

  const std::vector<std::string>& Columns() const { return columns_; }

  // The next record, a cell for each column; false at the end. Throws Failure, naming the line,
  // for a record with another number of cells and for a quote that does not end.
  bool Next(std::vector<std::string>* cells);

  // Where the last record began, for messages: "queue.csv:12".
  std::string Place() const;

 private:
  bool ReadRecord(std::vector<std::string>* cells);

  std::istream& text_;
  std::string name_;
  char separator_ = ',';
  std::size_t line_ = 0, recordLine_ = 0;
  std::vector<std::string> columns_;
};

}  // namespace corvane
