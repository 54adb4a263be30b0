// SPDX-License-Identifier: MIT
//
// What the raster filters share: the interface that the element drives, the cursors into planes and
// row buffers, and the packers that write the codes of doubled pixels.
//
// Binary planes hold eight pixels a byte, the leftmost in the most significant bit, and lie one
// after another. Every filter turns a pixel into two sub-dots side by side, so an output plane has
// twice the bytes: four pixels a byte, two bits each, the higher one the left half.
//
// A copy has rings and buffers of its own; where memory is too short for them it is not ready.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "dotmanagement/dot_kernels.h"
#include "dotmanagement/pattern_ring.h"
#include "plugin/frame/buffer.h"
#include "plugin/frame/export.h"
#include "printmode/print_mode.h"

class CORVANE_API RasterFilterBase {
 public:
  virtual ~RasterFilterBase();

  // Makes rings and buffers for rows of at most `bufferSize` output bytes; `IsReady` says whether
  // memory sufficed. Once, before any row.
  virtual void Initialize(unsigned long bufferSize) = 0;

  // Filters one row: `*data` points to its planes of `*planeBytes` bytes, of which the bytes from
  // `*startByte` to `*endByte` are filtered. On return `*data` points to the filter's own buffer,
  // valid until the next row, and the four counts are doubled. `row` counts input rows.
  // A start beyond the end filters no bytes. The caller sees to it that planes and bytes lie inside
  // the data, and the results inside the buffer.
  virtual void FilterCurrentRaster(unsigned char** data, unsigned long row,
                                   unsigned long* startByte, unsigned long* endByte,
                                   unsigned long* planeBytes, unsigned long* width,
                                   tagBinaryCMYKDescriptor descriptor) = 0;

  // Doubles two planes (6 and 7) once more; counts stay as they are.
  virtual void RasterSecondExpansion(unsigned char** data, unsigned long row,
                                     unsigned long* startByte, unsigned long* endByte,
                                     unsigned long* planeBytes, unsigned long* width,
                                     tagBinaryCMYKDescriptor descriptor) = 0;

  // One pass over `byteCount` bytes of three inks, or of black, at the cursors, which move on.
  // Starts with empty accumulators and ends so.
  virtual void FilterColorPlanes(unsigned short byteCount) = 0;
  virtual void FilterBlackPlane(unsigned short byteCount) = 0;

  // The second output row of the last row filtered; null where a filter makes one row.
  virtual unsigned char* GetSecondCurrentRaster() = 0;

  // Packs the codes of the three colour positions (bits 5-4, 3-2, 1-0) into the first row and
  // stores bit 7 as the new state; without a state packs into the second row.
  void StoreTwoBitsEachCMY(unsigned char code, unsigned char* state) {
    if (state != nullptr) *state = code & kStateBit;
    StoreCodes<0, 3, 4>(code, state != nullptr);
  }

  // Packs the code in bits 5-4 into the black plane in the same way; the state becomes 0.
  void StoreTwoKBits(unsigned char code, unsigned char* state) {
    if (state != nullptr) *state = 0;
    StoreCodes<3, 1, 4>(code, state != nullptr);
  }

  bool IsReady() const { return ready_; }

 protected:
  using Node = corvane::PatternNode<std::uint8_t>;
  using CellNode = corvane::PatternNode<std::uint16_t>;
  static constexpr unsigned char kStateBit = 0x80;

  explicit RasterFilterBase(corvane::CpuLevel level) : kernels_(corvane::DotKernelsFor(level)) {}
  RasterFilterBase(const RasterFilterBase&);
  RasterFilterBase& operator=(const RasterFilterBase&);

  // The planes of the row being filtered, from the first byte to filter on.
  struct RowPlanes {
    const std::uint8_t* in;
    std::size_t inStep;     // bytes from one input plane to the next
    std::size_t outOffset;  // of output plane 0 in a row buffer
    std::size_t outStep;    // bytes from one output plane to the next
    unsigned short byteCount;

    const std::uint8_t* In(std::size_t plane) const { return in + plane * inStep; }
    std::size_t Out(std::size_t plane) const { return outOffset + plane * outStep; }
  };
  using PlaneNumbers = std::array<std::uint8_t, 3>;  // of the cyan, magenta, yellow positions

  // Clears the row buffers.
  RowPlanes BeginRow(const unsigned char* data, unsigned long startByte, unsigned long endByte,
                     unsigned long planeBytes);
  void EndRow(unsigned char** data, unsigned long* startByte, unsigned long* endByte,
              unsigned long* planeBytes, unsigned long* width);

  // Set the cursors for a pass and run it: inputs and outputs have the same plane numbers.
  void RunColorPass(const RowPlanes& planes, const PlaneNumbers& numbers, const Node* ring);
  void RunBlackPass(const RowPlanes& planes, std::uint8_t number, const Node* ring);

  void AimColorOutputs(const RowPlanes& planes, const PlaneNumbers& numbers);
  void AimBlackOutput(const RowPlanes& planes, std::uint8_t number);
  void EmptyAccumulators();

  // The pass that the cursors describe, which move on behind it. `index` is the table entry where
  // every ink prints on its default side, `kNodes` the number of the ring's nodes.
  template <std::size_t kInks, unsigned kNodes>
  corvane::SidePass<kInks> TakeSidePass(unsigned short byteCount, unsigned index);
  template <unsigned kNodes>
  corvane::FixedPass TakeBlackPass(unsigned short byteCount, unsigned index);

  // Puts `kCount` codes, the first one `kShift` bits up, into the accumulators from `kPosition` on.
  template <unsigned kPosition, unsigned kCount, unsigned kShift>
  void StoreCodes(unsigned char code, bool firstRow);

  static bool Allocate(corvane::Buffer<std::uint8_t>& buffer, std::uint64_t size);

 public:
  std::uint16_t StrideFactor = 1;  // multiplies plane bytes between planes
  std::uint8_t PlaneCount = 0;     // of the page

 protected:
  corvane::Buffer<std::uint8_t> firstBuffer_;       // of the first output row
  corvane::Buffer<std::uint8_t> secondBuffer_;      // of the second, where a filter makes one
  std::array<const std::uint8_t*, 3> colorIn_{};    // cyan, magenta, yellow positions
  std::array<const std::uint8_t*, 6> furtherIn_{};  // first planes of these, then second planes
  const std::uint8_t* blackIn_ = nullptr;
  std::array<std::uint8_t*, 4> firstRowOut_{};  // C, M, Y, K
  std::array<std::uint8_t*, 4> secondRowOut_{};
  std::array<std::uint8_t, 4> firstRowBytes_{};  // being packed
  std::array<std::uint8_t, 4> secondRowBytes_{};

 public:
  std::uint32_t BufferSize = 0;  // of each row buffer

 protected:
  const Node* ringCursor_ = nullptr;
  const CellNode* cellRingCursor_ = nullptr;
  std::uint8_t firstRowPixels_ = 0;  // packed into the accumulators, 0 to 3
  std::uint8_t secondRowPixels_ = 0;
  std::uint8_t oddState_ = 0;  // 0 or 0x80
  std::uint8_t evenState_ = 0;

  bool ready_ = false;
  const corvane::DotKernels* kernels_;  // null: the plain passes
};

template <unsigned kPosition, unsigned kCount, unsigned kShift>
void RasterFilterBase::StoreCodes(unsigned char code, bool firstRow) {
  std::array<std::uint8_t, 4>& bytes = firstRow ? firstRowBytes_ : secondRowBytes_;
  std::uint8_t& pixels = firstRow ? firstRowPixels_ : secondRowPixels_;
  const unsigned place = 6 - 2u * pixels;
  for (unsigned i = 0; i < kCount; ++i) {
    const unsigned twoBits = code >> (kShift - 2 * i) & 3;
    bytes[kPosition + i] |= static_cast<std::uint8_t>(twoBits << place);
  }
  if (pixels < 3) {
    ++pixels;
    return;
  }
  std::array<std::uint8_t*, 4>& out = firstRow ? firstRowOut_ : secondRowOut_;
  for (unsigned i = kPosition; i < kPosition + kCount; ++i) *out[i]++ = bytes[i];
  for (unsigned i = kPosition; i < kPosition + kCount; ++i) bytes[i] = 0;
  pixels = 0;
}

template <std::size_t kInks, unsigned kNodes>
corvane::SidePass<kInks> RasterFilterBase::TakeSidePass(unsigned short byteCount, unsigned index) {
  corvane::SidePass<kInks> pass;
  pass.byteCount = byteCount;
  for (unsigned ink = 0; ink < kInks; ++ink) {
    const unsigned leftBit = 2 * (kInks - ink) - 1;
    pass.in[ink] = colorIn_[ink];
    pass.out[ink] = firstRowOut_[ink];
    pass.left[ink] = corvane::RingMask<kNodes>(ringCursor_, index, leftBit);
    colorIn_[ink] += byteCount;
    firstRowOut_[ink] += 2 * byteCount;
  }
  return pass;
}

template <unsigned kNodes>
corvane::FixedPass RasterFilterBase::TakeBlackPass(unsigned short byteCount, unsigned index) {
  const corvane::FixedPass pass = {blackIn_, firstRowOut_[3], byteCount,
                                   corvane::RingMask<kNodes>(ringCursor_, index, 5),
                                   corvane::RingMask<kNodes>(ringCursor_, index, 4)};
  blackIn_ += byteCount;
  firstRowOut_[3] += 2 * byteCount;
  return pass;
}
