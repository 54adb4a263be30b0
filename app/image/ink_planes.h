// SPDX-License-Identifier: MIT
//
// Files of contone ink planes that are separated already (docs/printing.md): a TIFF file with one
// image of several named inks or with a directory for each, or raw rows that a JSON file describes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/image/row_source.h"

namespace corvane {

// What a file says of its planes, which have one size.
struct InkPlanesInfo {
  std::string path;
  std::vector<std::string> files;  // all that are read
  std::uint32_t width = 0;         // pixels
  std::uint32_t height = 0;        // pixels
  double horizontalDpi = 0;        // 0: the file does not say
  double verticalDpi = 0;
  std::vector<std::string> inks;  // names, in the order of the planes
};

// Reads the planes side by side. Every member throws Failure, naming the file, when the file is
// damaged.
class InkPlanesReader {
 public:
  virtual ~InkPlanesReader() = default;

  const InkPlanesInfo& Info() const { return info_; }

  // The next row from the top: for each plane `width` bytes, 0 for no ink.
  virtual void ReadRow(std::uint8_t* row) = 0;

 protected:
  InkPlanesInfo info_;
};

std::unique_ptr<InkPlanesReader> OpenInkPlanes(const std::string& path);

// An ink of the planes that rows are made of.
struct InkPlane {
  std::string ink;
  bool printed = true;  // else the plane has to be empty
};

// The planes in this order, all of which the file must have, as rows of a byte for each pixel and
// ink. A row holds plane after plane. Throws Failure also for ink that is not printed.
std::unique_ptr<RowSource> MakeInkRows(std::unique_ptr<InkPlanesReader> planes,
                                       const std::vector<InkPlane>& inks);

}  // namespace corvane
