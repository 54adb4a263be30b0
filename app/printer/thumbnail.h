// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "app/page/page_sink.h"
#include "app/preview/png.h"
#include "app/report/cells.h"
#include "app/support/output_stage.h"

namespace corvane {

// A small picture of a page, drawn while it is printed: each pixel has the colour of an even tint
// of the drops that lie in it, which costs little more than counting them.
class Thumbnail : public PageSink {
 public:
  // Writes PNG. The file must outlive the sink.
  explicit Thumbnail(StagedFile& file) : file_(file) {}

  void StartPage(const PageShape& page) override;
  void WriteRow(const std::uint8_t* row) override;
  void EndPage() override;

 private:
  void Draw(std::uint32_t cellRow, const std::vector<std::uint32_t>& drops);

  StagedFile& file_;
  CellGrid grid_;
  std::vector<Ink> inks_;
  std::optional<CellColours> colours_;
  std::optional<CellRowCounter> counter_;
  std::unique_ptr<PngWriter> png_;
  std::vector<std::uint8_t> row_, pixels_;
};

}  // namespace corvane
