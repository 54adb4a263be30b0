// SPDX-License-Identifier: MIT
#include "dotmanagement/raster_filter_base.h"

#include <algorithm>
#include <cstring>
#include <new>

RasterFilterBase::RasterFilterBase(const RasterFilterBase&) = default;
RasterFilterBase& RasterFilterBase::operator=(const RasterFilterBase&) = default;
RasterFilterBase::~RasterFilterBase() = default;

bool RasterFilterBase::Allocate(std::shared_ptr<std::uint8_t[]>& buffer, std::uint64_t size) {
  buffer.reset();
  if (size > UINT32_MAX) return false;
  buffer.reset(new (std::nothrow) std::uint8_t[static_cast<std::size_t>(size)]());
  return buffer != nullptr;
}

RasterFilterBase::RowPlanes RasterFilterBase::BeginRow(const unsigned char* data,
                                                       unsigned long startByte,
                                                       unsigned long endByte,
                                                       unsigned long planeBytes) {
  std::memset(firstBuffer_.get(), 0, BufferSize);
  if (secondBuffer_ != nullptr) std::memset(secondBuffer_.get(), 0, BufferSize);
  const std::size_t step = std::size_t{planeBytes} * StrideFactor;
  const std::size_t start = std::min(startByte, endByte);
  return {data + start, step, 2 * start, 2 * step, static_cast<unsigned short>(endByte - start)};
}

void RasterFilterBase::EndRow(unsigned char** data, unsigned long* startByte,
                              unsigned long* endByte, unsigned long* planeBytes,
                              unsigned long* width) {
  *data = firstBuffer_.get();
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
    firstRowOut_[ink] = firstBuffer_.get() + offset;
    if (secondBuffer_ != nullptr) secondRowOut_[ink] = secondBuffer_.get() + offset;
  }
  EmptyAccumulators();
}

void RasterFilterBase::AimBlackOutput(const RowPlanes& planes, std::uint8_t number) {
  const std::size_t offset = planes.Out(number);
  firstRowOut_[3] = firstBuffer_.get() + offset;
  if (secondBuffer_ != nullptr) secondRowOut_[3] = secondBuffer_.get() + offset;
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
