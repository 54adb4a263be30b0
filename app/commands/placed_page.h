// SPDX-License-Identifier: MIT
//
// The rows of a page's sheet, from wherever its image is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "app/commands/print_page.h"
#include "app/image/page_stream.h"
#include "app/image/row_source.h"
#include "app/page/place.h"

namespace corvane {

class PlacedPage {
 public:
  // Reads from `stream`, which must be at the page and outlive this, or opens the image when that
  // is null. Throws Failure, naming the image.
  PlacedPage(const PageJob& job, PageStream* stream, const Sheet& sheet);

  // Whether the last of four bytes a pixel is a tag.
  bool Tagged() const { return tagged_; }
  // Of inks a byte each, plane after plane in a row.
  std::size_t BytesPerPixel() const { return tags_ ? 4 : image_->BytesPerPixel(); }

  // Delivers every row of the sheet, from the top. Once; throws what the image and the receiver
  // throw.
  void Read(const std::function<void(const std::uint8_t* row)>& receiver);

 private:
  void OpenSheet(const PageJob& job);
  void OpenColours(const PageJob& job, PageStream* stream);
  void OpenTags(const PageJob& job, int degrees);
  void TakeTags(std::unique_ptr<RowSource> tags);
  const std::uint8_t* WithTags(const std::uint8_t* row);

  Sheet sheet_;
  Placement placement_;
  std::unique_ptr<RowSource> image_;
  std::unique_ptr<PlacedTags> tags_;  // where they do not come with the pixels
  bool tagged_ = false;
  std::vector<std::uint8_t> tagRow_, taggedRow_;
};

}  // namespace corvane
