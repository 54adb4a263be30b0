// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

#include "app/page_sink.h"

namespace corvane {

// Counts the drops that a page's binary planes hold.
class DropCounter : public PageSink {
 public:
  using Counts = std::array<std::uint64_t, kInkCount>;

  void StartPage(const PageShape& page) override;
  void WriteRow(const std::uint8_t* row) override;
  void EndPage() override {}

  // Drops in the order of Ink.
  const Counts& Drops() const { return drops_; }

 private:
  PageShape page_;
  Counts drops_ = {};
};

}  // namespace corvane
