// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "app/output_staged.h"
#include "app/page_sink.h"

namespace corvane {

class StripEncoder;

// Writes a page as a TIFF file with a directory per plane (docs/output-formats.md). The planes of a
// row arrive together, while each directory needs its own strips: the strips of all planes go into
// the file as they fill, and the directories, which say where each strip lies, follow at the end.
class TiffSink : public PageSink {
 public:
  // Strips are compressed by `threads` threads; the file does not depend on their number.
  TiffSink(StagedFile& file, int threads);
  ~TiffSink() override;

  void StartPage(const PageShape& page) override;
  void WriteRow(const std::uint8_t* row) override;
  void EndPage() override;

 private:
  struct Plane {
    std::size_t rowBytes = 0;  // in the file: without the padding of the chain's planes
    std::uint32_t rowsPerStrip = 1;
    std::uint32_t rowsHeld = 0;
    std::vector<std::uint8_t> strip;
    std::vector<std::uint64_t> offsets, sizes;
  };

  void SubmitStrip(std::size_t plane);
  void WriteDirectories();

  StagedFile& file_;
  int threads_;
  PageShape page_;
  std::vector<Plane> planes_;
  std::unique_ptr<StripEncoder> encoder_;
};

}  // namespace corvane
