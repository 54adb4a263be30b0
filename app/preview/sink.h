// SPDX-License-Identifier: MIT
//
// A picture of a page made from its drops: a model of the print, not a proof of it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/inks/ink_model.h"
#include "app/page/page_sink.h"
#include "app/preview/dots.h"
#include "app/preview/png.h"
#include "app/support/output_stage.h"

namespace corvane {

// Drops never lie quite evenly: a place may hold this much more than its share of the ink limit.
inline constexpr double kUnevenness = 1.15;

struct PreviewSettings {
  InkData inks = DefaultInkData();
  int media = 0;                   // 0..5
  double dpi = 0;                  // of the picture; 0: what suits it
  std::optional<PageWindow> zoom;  // the part that is shown; none: the whole page
  std::vector<Ink> only;           // the inks that are shown; empty: all
};

// Part of the page in millimetres as "X,Y,W,H". Throws UsageFailure.
PageWindow ParseZoom(const std::string& text);
// "C,c,K". Throws UsageFailure.
std::vector<Ink> ParseInkList(const std::string& text);

// What a preview says of itself.
std::string PreviewNote(const PreviewSettings& settings);

class PreviewSink : public PageSink {
 public:
  // `picture` gets the page as it would look, `inkMap` the ink per area, white to yellow at the
  // medium's limit and red above; either may be null. The settings must outlive the sink.
  PreviewSink(const PreviewSettings& settings, StagedFile* picture, StagedFile* inkMap);
  ~PreviewSink() override;

  void StartPage(const PageShape& page) override;
  void WriteRow(const std::uint8_t* row) override;
  void EndPage() override;

 private:
  void WritePixels(const RenderedRow& row);
  void WriteInk(const RenderedRow& row);

  const PreviewSettings& settings_;
  PrintModel model_;
  StagedFile *picture_, *inkMap_;
  std::unique_ptr<DotRenderer> renderer_;
  std::unique_ptr<PngWriter> pictureWriter_, inkMapWriter_;
  std::vector<std::uint8_t> pixels_;
};

}  // namespace corvane
