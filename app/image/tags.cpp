// SPDX-License-Identifier: MIT
#include "app/image/tags.h"

#include <algorithm>
#include <deque>
#include <utility>
#include <vector>

namespace corvane {
namespace {

void TakeColours(const std::uint8_t* pixel, std::uint32_t count, std::uint8_t* colours) {
  for (std::uint32_t x = 0; x < count; ++x, pixel += 4, colours += 3) {
    colours[0] = pixel[0];
    colours[1] = pixel[1];
    colours[2] = pixel[2];
  }
}

void TakeTags(const std::uint8_t* pixel, std::uint32_t count, std::uint8_t* tags) {
  for (std::uint32_t x = 0; x < count; ++x) tags[x] = pixel[4 * std::size_t{x} + 3];
}

class UntaggedRows : public RowSource {
 public:
  explicit UntaggedRows(std::unique_ptr<RowSource> tagged)
      : RowSource(tagged->Width(), tagged->Height(), 3),
        tagged_(std::move(tagged)),
        pixels_(tagged_->RowBytes()) {}

  void ReadRow(std::uint8_t* row) override {
    tagged_->ReadRow(pixels_.data());
    TakeColours(pixels_.data(), Width(), row);
  }

 private:
  std::unique_ptr<RowSource> tagged_;
  std::vector<std::uint8_t> pixels_;
};

using Row = std::vector<std::uint8_t>;

// What both halves of a split share.
struct Split {
  std::unique_ptr<RowSource> tagged;
  Row pixels;
  std::deque<Row> colours, tags;  // not taken yet

  void Read() {
    const std::uint32_t width = tagged->Width();
    tagged->ReadRow(pixels.data());
    TakeColours(pixels.data(), width, colours.emplace_back(3 * std::size_t{width}).data());
    TakeTags(pixels.data(), width, tags.emplace_back(width).data());
  }
};

class SplitRows : public RowSource {
 public:
  SplitRows(std::shared_ptr<Split> split, std::deque<Row> Split::*waiting, int bytesPerPixel)
      : RowSource(split->tagged->Width(), split->tagged->Height(),
                  static_cast<std::size_t>(bytesPerPixel)),
        split_(std::move(split)),
        waiting_((*split_).*waiting) {}

  void ReadRow(std::uint8_t* row) override {
    if (waiting_.empty()) split_->Read();
    std::copy(waiting_.front().begin(), waiting_.front().end(), row);
    waiting_.pop_front();
  }

 private:
  std::shared_ptr<Split> split_;
  std::deque<Row>& waiting_;
};

}  // namespace

std::unique_ptr<RowSource> DropTags(std::unique_ptr<RowSource> tagged) {
  return std::make_unique<UntaggedRows>(std::move(tagged));
}

ColoursAndTags SplitTags(std::unique_ptr<RowSource> tagged) {
  auto split = std::make_shared<Split>();
  split->pixels.resize(tagged->RowBytes());
  split->tagged = std::move(tagged);
  return {std::make_unique<SplitRows>(split, &Split::colours, 3),
          std::make_unique<SplitRows>(split, &Split::tags, 1)};
}

}  // namespace corvane
