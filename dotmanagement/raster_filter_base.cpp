// SPDX-License-Identifier: MIT
#include "dotmanagement/raster_filter_base.h"

#include <algorithm>
#include <cstring>

RasterFilterBase::RasterFilterBase(const RasterFilterBase& other) { *this = other; }

// The cursors are aimed anew for every pass, and what they point at is the other filter's.
RasterFilterBase& RasterFilterBase::operator=(const RasterFilterBase& other) {
  StrideFactor = other.StrideFactor;
  PlaneCount = other.PlaneCount;
  BufferSize = other.BufferSize;
  firstBuffer_ = other.firstBuffer_;
  secondBuffer_ = other.secondBuffer_;
  oddState_ = other.oddState_;
  evenState_ = other.evenState_;
  kernels_ = other.kernels_;
  ready_ = other.ready_ && firstBuffer_ && (secondBuffer_ || !other.secondBuffer_);
  return *this;
}
RasterFilterBase::~RasterFilterBase() = default;

bool RasterFilterBase::Allocate(corvane::Buffer<std::uint8_t>& buffer, std::uint64_t size) {
  buffer.Release();
  return size <= UINT32_MAX && buffer.Allocate(static_cast<std::size_t>(size));
}

RasterFilterBase::RowPlanes RasterFilterBase::BeginRow(const unsigned char* data,
                                                       unsigned long startByte,
                                                       unsigned long endByte,
                                                       unsigned long planeBytes) {
  std::memset(firstBuffer_.Data(), 0, BufferSize);
  if (secondBuffer_) std::memset(secondBuffer_.Data(), 0, BufferSize);
  const std::size_t step = std::size_t{planeBytes} * StrideFactor;
  const std::size_t start = std::min(startByte, endByte);
  // Of a row without bytes there need be no data.
  const unsigned char* const in = data == nullptr ? firstBuffer_.Data() : data + start;
  return {in, step, 2 * start, 2 * step, static_cast<unsigned short>(endByte - start)};
}

void RasterFilterBase::EndRow(unsigned char** data, unsigned long* startByte,
                              unsigned long* endByte, unsigned long* planeBytes,
                              unsigned long* width) {
  *data = firstBuffer_.Data();
  for (unsigned long* count : {startByte, endByte, planeBytes, width}) {
    *count = static_cast<std::uint32_t>(2 * *count);
  }
}

void RasterFilterBase::EmptyAccumulators() {
  firstRowBytes_ = {};
  secondRowBytes_ = {};
  firstRowPixels_ = 0;
  secondRowPixels_ = 0;
}

void RasterFilterBase::AimColorOutputs(const RowPlanes& planes, const PlaneNumbers& numbers) {
  for (std::size_t ink = 0; ink < numbers.size(); ++ink) {
    const std::size_t offset = planes.Out(numbers[ink]);
    firstRowOut_[ink] = firstBuffer_.Data() + offset;
    if (secondBuffer_) secondRowOut_[ink] = secondBuffer_.Data() + offset;
  }
  EmptyAccumulators();
}

void RasterFilterBase::AimBlackOutput(const RowPlanes& planes, std::uint8_t number) {
  const std::size_t offset = planes.Out(number);
  firstRowOut_[3] = firstBuffer_.Data() + offset;
  if (secondBuffer_) secondRowOut_[3] = secondBuffer_.Data() + offset;
  EmptyAccumulators();
}

void RasterFilterBase::RunColorPass(const RowPlanes& planes, const PlaneNumbers& numbers,
                                    const Node* ring) {
  for (std::size_t ink = 0; ink < numbers.size(); ++ink) colorIn_[ink] = planes.In(numbers[ink]);
  AimColorOutputs(planes, numbers);
  ringCursor_ = ring;
  FilterColorPlanes(planes.byteCount);
}

void RasterFilterBase::RunBlackPass(const RowPlanes& planes, std::uint8_t number,
                                    const Node* ring) {
  blackIn_ = planes.In(number);
  AimBlackOutput(planes, number);
  ringCursor_ = ring;
  FilterBlackPlane(planes.byteCount);
}
