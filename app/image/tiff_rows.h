// SPDX-License-Identifier: MIT
//
// Sources of the rows that a TIFF file stores, in the byte and bit order of the machine, and the
// samples in them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "app/image/tiff_file.h"

namespace corvane {

class StoredRows {
 public:
  virtual ~StoredRows() = default;

  // `TIFFScanlineSize` bytes. Rows are to be read in order, and each once.
  virtual void Read(std::uint32_t y, std::uint8_t* row) = 0;
};

// The rows of plane `sample` of the file's page, or of all samples where they lie together. File
// and path must outlive them.
std::unique_ptr<StoredRows> OpenStoredRows(TIFF* file, const Samples& samples, int sample,
                                           std::uint32_t width, std::uint32_t height,
                                           const std::string& path);

// Sample `index` of a stored row as 16 bits of full scale.
std::uint16_t WideSample(const std::uint8_t* row, std::size_t index, const Samples& samples);

// The unscaled value of a palette sample.
std::size_t PaletteIndex(const std::uint8_t* row, std::size_t index, int bits);

}  // namespace corvane
