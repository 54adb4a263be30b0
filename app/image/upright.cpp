// SPDX-License-Identifier: MIT
//
// Turning an image as its orientation says. The rows go to a scratch file in square tiles, so that
// rows and columns alike come back in a few large reads, and memory holds one line of tiles.
#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "app/image/srgb.h"
#include "app/support/scratch_file.h"

namespace corvane {
namespace {

constexpr std::uint32_t kTile = 32;  // pixels along a side

// Orientation as a turn of the stored image: an optional exchange of rows and columns, then flips.
struct Turn {
  bool swap;            // stored columns become rows
  bool flipHorizontal;  // of the upright image
  bool flipVertical;
};

Turn TurnOf(int orientation) {
  switch (orientation) {
    case 2:
      return {false, true, false};
    case 3:
      return {false, true, true};
    case 4:
      return {false, false, true};
    case 5:
      return {true, false, false};
    case 6:
      return {true, true, false};
    case 7:
      return {true, true, true};
    case 8:
      return {true, false, true};
    default:
      return {false, false, false};
  }
}

void ReversePixels(std::uint8_t* row, std::size_t pixels, std::size_t bytesPerPixel) {
  if (pixels == 0) return;
  std::uint8_t* left = row;
  std::uint8_t* right = row + (pixels - 1) * bytesPerPixel;
  for (; left < right; left += bytesPerPixel, right -= bytesPerPixel) {
    std::swap_ranges(left, left + bytesPerPixel, right);
  }
}

// Pixels that lie `step` bytes apart, side by side.
void CopyColumn(const std::uint8_t* from, std::size_t step, std::size_t pixel, std::uint32_t count,
                std::uint8_t* to) {
  if (pixel == 3) {
    for (; count > 0; --count, from += step, to += 3) std::memcpy(to, from, 3);
  } else {
    for (; count > 0; --count, from += step, to += pixel) std::memcpy(to, from, pixel);
  }
}

class MirroredRows : public RowSource {
 public:
  explicit MirroredRows(std::unique_ptr<RowSource> rows)
      : RowSource(rows->Width(), rows->Height(), rows->BytesPerPixel()), rows_(std::move(rows)) {}

  void ReadRow(std::uint8_t* row) override {
    rows_->ReadRow(row);
    ReversePixels(row, Width(), BytesPerPixel());
  }

 private:
  std::unique_ptr<RowSource> rows_;
};

class TurnedRows : public RowSource {
 public:
  TurnedRows(std::unique_ptr<RowSource> rows, Turn turn)
      : RowSource(turn.swap ? rows->Height() : rows->Width(),
                  turn.swap ? rows->Width() : rows->Height(), rows->BytesPerPixel()),
        turn_(turn),
        storedWidth_(rows->Width()),
        storedHeight_(rows->Height()),
        tilesAcross_((storedWidth_ + kTile - 1) / kTile),
        tilesDown_((storedHeight_ + kTile - 1) / kTile),
        tileBytes_(kTile * kTile * rows->BytesPerPixel()) {
    rows_ = std::move(rows);
    line_.resize(tileBytes_ * (turn.swap ? tilesDown_ : tilesAcross_));
  }

  void ReadRow(std::uint8_t* row) override {
    if (rows_) Store(*std::exchange(rows_, nullptr));
    const std::uint32_t y = turn_.flipVertical ? Height() - 1 - next_ : next_;
    ++next_;
    if (y / kTile != loaded_) Load(y / kTile);
    const std::size_t pixel = BytesPerPixel();
    // Within a tile, pixels along an upright row lie `step` bytes apart.
    const std::size_t step = turn_.swap ? kTile * pixel : pixel;
    const std::size_t start = y % kTile * (turn_.swap ? pixel : kTile * pixel);
    const std::uint8_t* from = line_.data() + start;
    std::uint8_t* to = row;
    for (std::uint32_t left = Width(); left > 0; from += tileBytes_) {
      const std::uint32_t count = std::min(left, kTile);
      if (!turn_.swap) {
        std::memcpy(to, from, count * pixel);
      } else {
        CopyColumn(from, step, pixel, count, to);
      }
      to += count * pixel;
      left -= count;
    }
    if (turn_.flipHorizontal) ReversePixels(row, Width(), pixel);
  }

 private:
  // Tile rows of the stored image, each a run of whole tiles.
  void Store(RowSource& rows) {
    std::vector<std::uint8_t> row(rows.RowBytes());
    std::vector<std::uint8_t> band(tileBytes_ * tilesAcross_);
    const std::size_t tileRow = kTile * BytesPerPixel();
    for (std::uint32_t y = 0; y < storedHeight_; ++y) {
      rows.ReadRow(row.data());
      for (std::size_t at = 0, tile = 0; at < row.size(); at += tileRow, ++tile) {
        std::memcpy(band.data() + tile * tileBytes_ + y % kTile * tileRow, row.data() + at,
                    std::min(tileRow, row.size() - at));
      }
      if (y % kTile == kTile - 1 || y + 1 == storedHeight_) {
        scratch_.Write(std::uint64_t{y / kTile} * band.size(), band.data(), band.size());
      }
    }
  }

  // The tiles under an upright tile row.
  void Load(std::uint32_t tileRow) {
    loaded_ = tileRow;
    const std::uint64_t bandBytes = std::uint64_t{tileBytes_} * tilesAcross_;
    if (!turn_.swap) {
      scratch_.Read(tileRow * bandBytes, line_.data(), line_.size());
      return;
    }
    for (std::uint32_t tile = 0; tile < tilesDown_; ++tile) {
      scratch_.Read(tile * bandBytes + std::uint64_t{tileRow} * tileBytes_,
                    line_.data() + tile * tileBytes_, tileBytes_);
    }
  }

  std::unique_ptr<RowSource> rows_;  // until they are stored
  Turn turn_;
  std::uint32_t storedWidth_, storedHeight_;
  std::uint32_t tilesAcross_, tilesDown_;
  std::size_t tileBytes_;
  ScratchFile scratch_;
  std::vector<std::uint8_t> line_;  // the tiles under the current upright tile row
  std::uint32_t loaded_ = ~std::uint32_t{0};
  std::uint32_t next_ = 0;
};

}  // namespace

std::unique_ptr<RowSource> MakeUprightRows(std::unique_ptr<RowSource> rows, int orientation) {
  const Turn turn = TurnOf(orientation);
  if (!turn.swap && !turn.flipVertical) {
    if (!turn.flipHorizontal) return rows;
    return std::make_unique<MirroredRows>(std::move(rows));
  }
  return std::make_unique<TurnedRows>(std::move(rows), turn);
}

int TurnedOrientation(int orientation, int degrees) {
  constexpr int kTurnedOnce[] = {6, 7, 8, 5, 2, 3, 4, 1};
  for (; degrees > 0; degrees -= 90) orientation = kTurnedOnce[orientation - 1];
  return orientation;
}

bool SwapsSides(int orientation) { return TurnOf(orientation).swap; }

}  // namespace corvane
