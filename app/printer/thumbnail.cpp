// SPDX-License-Identifier: MIT
#include "app/printer/thumbnail.h"

#include <algorithm>
#include <cstring>

#include "app/inks/color_math.h"
#include "app/inks/ink_model.h"

namespace corvane {
namespace {

constexpr double kPixelsPerInch = 30;
constexpr std::size_t kMostPixels = 200'000;
constexpr std::size_t kRoomBehindRows = 8;  // that counting wants

}  // namespace

void Thumbnail::StartPage(const PageShape& page) {
  grid_ = MakeCellGrid(page, kPixelsPerInch, kMostPixels);
  inks_ = InksOf(page);
  colours_.emplace(DefaultInkData(), page.mediaType - 1, *page.mode);
  counter_.emplace(page, grid_,
                   [this](std::uint32_t cellRow, const auto& drops) { Draw(cellRow, drops); });
  png_ = std::make_unique<PngWriter>(file_, grid_.columns, grid_.rows, grid_.perInch,
                                     "a model of the print, not a proof");
  row_.assign(page.rowBytes + kRoomBehindRows, 0);
  pixels_.resize(std::size_t{3} * grid_.columns);
}

void Thumbnail::WriteRow(const std::uint8_t* row) {
  std::memcpy(row_.data(), row, row_.size() - kRoomBehindRows);
  counter_->AddRow(row_.data());
}

void Thumbnail::EndPage() {
  counter_->Finish();
  png_->Finish();
}

void Thumbnail::Draw(std::uint32_t cellRow, const std::vector<std::uint32_t>& drops) {
  const Triple& paper = colours_->Model().PaperBands();
  for (std::uint32_t column = 0; column < grid_.columns; ++column) {
    const double area = grid_.Width(column) * grid_.Height(cellRow);
    InkAmounts amounts{};
    for (std::size_t i = 0; i < inks_.size(); ++i) {
      amounts[static_cast<std::size_t>(inks_[i])] =
          colours_->Amount(inks_[i], drops[i * grid_.columns + column], area);
    }
    Triple bands = colours_->Bands(amounts);
    for (std::size_t i = 0; i < 3; ++i) bands[i] *= paper[i];
    const Triple linear = LinearSrgbFromBands(bands);
    std::ranges::transform(linear, pixels_.begin() + std::ptrdiff_t{3} * column, SrgbByte);
  }
  png_->WriteRow(pixels_.data());
}

}  // namespace corvane
