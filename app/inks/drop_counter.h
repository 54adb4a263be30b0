// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "app/page/page_sink.h"

namespace corvane {

// Counts the drops that a page's binary planes hold.
class DropCounter : public PageSink {
 public:
  using Counts = std::array<std::uint64_t, kInkCount>;

  void StartPage(const PageShape& page) override;
  void WriteRow(const std::uint8_t* row) override;
  void EndPage() override {}

  bool KeepRows() override;
  void CopyRows(const KeptRows& rows, std::uint32_t end) override;
  std::shared_ptr<const KeptRows> Kept() override { return kept_; }

  // Drops in the order of Ink.
  const Counts& Drops() const { return drops_; }

 private:
  // The drops of all rows before each row, and before the end.
  struct Sums : KeptRows {
    std::size_t Bytes() const override { return before.size() * sizeof(Counts); }

    std::vector<Counts> before = {{}};
  };

  PageShape page_;
  Counts drops_ = {};
  std::shared_ptr<Sums> kept_;
};

}  // namespace corvane
