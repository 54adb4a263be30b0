// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "app/page/page_sink.h"
#include "app/support/output_stage.h"

namespace corvane {

class StripEncoder;

enum class TiffForm {
  Directories,  // a directory for each plane, as planes of several widths need it
  Separated,    // one image of as many inks as there are planes, which have one width; of a single
                // ink, its directory
};

// Writes a page as a TIFF file (docs/output-formats.md). The planes of a row arrive together, while
// each needs its own strips: the strips of all planes go into the file as they fill, and the
// directories, which say where each strip lies, follow at the end.
class TiffSink : public PageSink {
 public:
  // Strips are compressed by `threads` threads; the file does not depend on their number.
  TiffSink(StagedFile& file, int threads, TiffForm form = TiffForm::Directories);
  ~TiffSink() override;

  void StartPage(const PageShape& page) override;
  void WriteRow(const std::uint8_t* row) override;
  void EndPage() override;

  // Strips that lie in the copied rows as a whole are not compressed again.
  bool KeepRows() override;
  void CopyRows(const KeptRows& rows, std::uint32_t end) override;
  std::shared_ptr<const KeptRows> Kept() override;

 private:
  using Compressed = std::shared_ptr<const std::vector<std::uint8_t>>;
  struct KeptStrips;

  struct Plane {
    std::size_t rowBytes = 0;  // in the file: without the padding of the chain's planes
    std::uint32_t rowsPerStrip = 1;
    std::uint32_t rowsHeld = 0;
    std::vector<std::uint8_t> strip;
    Compressed copied;          // the strip that is being filled, if it is another page's
    std::size_t submitted = 0;  // strips
    std::vector<std::uint64_t> offsets, sizes;
    std::vector<Compressed> kept;  // every strip, if they are to be kept; null before it is there
  };

  void SubmitStrip(std::size_t plane);
  void WriteStrip(std::size_t plane, const std::uint8_t* data, std::size_t size);
  // Rows of the page that lie before the end of the strip that is being filled.
  std::uint32_t EndOfStrip(const Plane& plane) const;
  void CopyToStrip(std::size_t plane, const KeptStrips& from, std::uint32_t rows);
  void WriteDirectories();

  StagedFile& file_;
  int threads_;
  TiffForm form_;
  PageShape page_;
  bool keeps_ = false;
  std::uint32_t row_ = 0;  // that comes next
  std::vector<Plane> planes_;
  std::vector<std::uint8_t> opened_;  // a kept strip, decompressed
  std::unique_ptr<StripEncoder> encoder_;
};

}  // namespace corvane
