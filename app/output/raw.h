// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "app/page/page_sink.h"
#include "app/support/output_stage.h"

namespace corvane {

// Writes the rows of a page as they left the chain, one after the other, and a JSON file that says
// what lies where (docs/output-formats.md). Without such a file the rows go to somebody who reads
// them already, and each is written at once.
class RawSink : public PageSink {
 public:
  RawSink(StagedFile& rows, StagedFile* sidecar) : file_(rows), sidecar_(sidecar) {}

  void StartPage(const PageShape& page) override;
  void WriteRow(const std::uint8_t* row) override;
  void EndPage() override;

 private:
  StagedFile& file_;
  StagedFile* sidecar_;
  PageShape page_;
  std::vector<std::uint8_t> held_;
};

}  // namespace corvane
