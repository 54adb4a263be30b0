// SPDX-License-Identifier: MIT
#include "halftone/halftone_module.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "halftone/engine.h"
#include "halftone/routine_table.h"
#include "halftone/threshold_tables.h"
#include "plugin/cpu.h"
#include "plugin/element_frame.h"

using corvane::ForwardMessage;
using corvane::Ink;
using corvane::KernelName;
using corvane::kInkCount;
using corvane::kStandardGroup;
using corvane::PageNumber;
using corvane::PageNumber16;
using corvane::SendError;

namespace {

constexpr const char* kOwnGroup = "EHalftoneModule";
constexpr const char* kLogFile = "C:\\HTLog.txt";

constexpr int kUnsupportedModeError = 27;
constexpr const char* kUnsupportedModeText = "This print mode is not supported yet.";
constexpr int kBufferError = 8;
constexpr const char* kBufferText = "Can not create Halftone Buffer.";

constexpr std::uint64_t kLargest32 = std::numeric_limits<std::uint32_t>::max();

// Zeroed memory for `count` elements; null when there is none or its bytes do not fit 32 bits.
template <typename T>
T* AllocateZeroed(std::uint64_t count) {
  if (count > kLargest32 / sizeof(T)) return nullptr;
  return static_cast<T*>(std::calloc(static_cast<std::size_t>(count), sizeof(T)));
}

// The contone planes up to the last one that the kernel reads.
std::uint32_t ContonePlanesOf(const corvane::Kernel& kernel) {
  std::uint32_t planes = 0;
  for (int i = 0; i < kernel.inkCount; ++i) {
    const corvane::KernelInk& ink = kernel.inks[i];
    planes = std::max(planes, ink.contonePlane + 1u);
    if (ink.foldedPlane != corvane::kNoPlane) planes = std::max(planes, ink.foldedPlane + 1u);
  }
  return planes;
}

}  // namespace

// What a page holds until its end.
struct EHalftoneModule::PageBuffers {
  ~PageBuffers() {
    corvane::DeleteFastPage(fastPage);
    std::free(outputRow);
    for (std::int16_t* line : errorLines) std::free(line);
  }

  unsigned char* outputRow = nullptr;
  std::int16_t* errorLines[kInkCount] = {};
  corvane::FastPage* fastPage = nullptr;  // null: the plain engine runs
};

// ---- Life

EHalftoneModule::EHalftoneModule() {
  Properties.SetProperty("EObjectType", "EHalftoneModule", kStandardGroup);
  Properties.SetProperty("EObjectName", "EHalftoneModule", kStandardGroup);
  ErrorObject.Properties.SetProperty("EObjectName", "EHalftoneError", kStandardGroup);
}

EHalftoneModule::EHalftoneModule(const EHalftoneModule&) = default;
EHalftoneModule& EHalftoneModule::operator=(const EHalftoneModule&) = default;
EHalftoneModule::~EHalftoneModule() = default;

unsigned long EHalftoneModule::Initialize() {
  unsigned long writeToFile = 0;
  Properties.GetProperty("WriteToFile", &writeToFile, 0ul, kOwnGroup);
  WriteToFile = static_cast<std::uint32_t>(writeToFile);
  return corvane::MakePads(*this, &sourcePad_, &sinkPad_);
}

// ---- Messages

unsigned long EHalftoneModule::DataArrived(ZCOM::QObject* message, unsigned short) {
  if (message == nullptr) return 1;
  if (message->IsPassThrough() != 0) return ForwardMessage(*this, message);

  switch (message->MessageKind) {
    case kStartPageMessage:
      return StartPage(static_cast<QStartPage*>(message));
    case kEndPageMessage:
      return EndPage(message);
    case kContoneRasterMessage:
      return ConvertRow(static_cast<QRaster*>(message));
    default:
      return corvane::PassOn(*this, message);
  }
}

// ---- Page start

unsigned long EHalftoneModule::StartPage(QStartPage* page) {
  HalftoneDeAllocateMemory();
  logFile_.reset();
  std::fill_n(CarriedError, kInkCount, std::int16_t{0});

  const std::uint64_t width = corvane::PageWidthWithOverspray(page->Properties);
  // A width beyond 32 bits stays too large for every buffer.
  width_ = static_cast<std::uint32_t>(std::min(width, kLargest32));
  inputResolution_ = PageNumber(page->Properties, "HorizontalInputResolution");
  const std::uint16_t alternateMode = PageNumber16(page->Properties, "UseAlternateModes");
  descriptor_ = static_cast<tagBinaryCMYKDescriptor>(
      corvane::PageInt(page->PageProperties, "CMYKBinaryDescriptor"));

  if (WriteToFile != 0) logFile_ = {ZCOM::fwfopen(kLogFile, "w"), &ZCOM::fwfclose};

  if (HalftoneGetRoutine(alternateMode) == 0) {
    SendError(*this, ErrorObject, kUnsupportedModeError, kUnsupportedModeText);
    ForwardMessage(*this, page);
    return 0;
  }
  if (HalftoneAllocateMemory(alternateMode) == 0) {
    SendError(*this, ErrorObject, kBufferError, kBufferText);
    ForwardMessage(*this, page);
    return 0;
  }
  pageIsReady_ = true;
  return ForwardMessage(*this, page);
}

unsigned long EHalftoneModule::HalftoneGetRoutine(unsigned short alternateMode) {
  const corvane::HalftoneRoutine* routine =
      corvane::FindHalftoneRoutine(descriptor_, alternateMode);
  if (routine == nullptr) return 0;

  kernel_ = OperationOf(routine->kernel);
  kernelData_ = &corvane::KernelOf(routine->kernel);
  // Without an input resolution there is no NumPix; the buffers are refused then.
  NumPix = inputResolution_ == 0 ? 0 : routine->baseResolution / inputResolution_;
  BothDirections = routine->BothDirections ? 1 : 0;
  if (routine->ShiftCMY >= 0) ShiftCMY = static_cast<std::uint16_t>(routine->ShiftCMY);
  if (routine->Shiftcmy >= 0) Shiftcmy = static_cast<std::uint16_t>(routine->Shiftcmy);
  if (routine->ShiftK >= 0) ShiftK = static_cast<std::uint16_t>(routine->ShiftK);
  outputRaster_.RasterFormat = routine->layout;
  if (WriteToFile != 0) LogRoutine(routine->loggedModes);
  return 1;
}

unsigned long EHalftoneModule::HalftoneAllocateMemory(unsigned short alternateMode) {
  const corvane::HalftoneBuffers* buffers =
      corvane::FindHalftoneBuffers(descriptor_, alternateMode);
  if (buffers == nullptr) return 0;

  const std::uint64_t binaryWidth = std::uint64_t{NumPix} * width_;
  if (binaryWidth == 0) return 0;
  const std::uint64_t planeBytes = (binaryWidth - 1) / 8 + 1;
  buffers_ = std::make_shared<PageBuffers>();
  buffers_->outputRow = AllocateZeroed<unsigned char>(planeBytes * buffers->planes);
  outputRaster_.Data = buffers_->outputRow;
  if (outputRaster_.Data == nullptr) return 0;

  for (const Ink ink : buffers->errorLines) {
    const std::uint64_t scale = ink == Ink::K ? 1 : buffers->colourLineScale;
    const int index = static_cast<int>(ink);
    buffers_->errorLines[index] = AllocateZeroed<std::int16_t>(scale * (binaryWidth + 2));
    ErrorRows[index] = buffers_->errorLines[index];
    if (ErrorRows[index] == nullptr) return 0;
  }
  buffers_->fastPage = corvane::NewFastPage(*kernelData_, PageState(), corvane::SelectedCpuLevel());
  return 1;
}

// ---- Rows

unsigned long EHalftoneModule::ConvertRow(QRaster* contone) {
  if (!CanConvert(*contone)) return ForwardMessage(*this, contone);

  outputRaster_.PassThroughValue = contone->PassThroughValue;
  outputRaster_.Row = contone->Row;
  outputRaster_.FirstPixel = NumPix * contone->FirstPixel;
  outputRaster_.EndPixel = NumPix * contone->EndPixel;
  outputRaster_.Width = NumPix * width_;

  contoneStride_ = StrideOf(*contone);
  // What lies beyond the contone planes is room of the overspray margins, without ink.
  const std::uint32_t limit = std::min(contoneStride_, width_);
  HalftoneConvert(contone->Data, contone->Row, std::min(contone->FirstPixel, limit),
                  std::min(contone->EndPixel, limit));
  return ForwardMessage(*this, &outputRaster_);
}

std::uint32_t EHalftoneModule::StrideOf(const QRaster& contone) const {
  return contone.Width != 0 ? contone.Width : width_;
}

// A row whose RowBytes are 0 does not say what it holds and is trusted.
bool EHalftoneModule::CanConvert(const QRaster& contone) const {
  if (!pageIsReady_ || contone.Data == nullptr) return false;
  const std::uint64_t bytes = std::uint64_t{ContonePlanesOf(*kernelData_)} * StrideOf(contone);
  return contone.RowBytes == 0 || contone.RowBytes >= bytes;
}

unsigned char EHalftoneModule::HalftoneConvert(unsigned char* data, unsigned long row,
                                               unsigned long first, unsigned long end) {
  RowPhase = static_cast<std::uint32_t>(corvane::kModulation[row % corvane::kModulationLength] %
                                        corvane::kModulationLength);
  return (this->*kernel_)(data, row, first, end);
}

corvane::RowState EHalftoneModule::PageState() {
  corvane::RowState state{};
  state.ShiftCMY = ShiftCMY;
  state.Shiftcmy = Shiftcmy;
  state.ShiftK = ShiftK;
  state.BothDirections = BothDirections != 0;
  state.NumPix = NumPix;
  state.width = width_;
  state.ErrorRows = ErrorRows;
  state.CarriedError = CarriedError;
  state.DotCount = DotCount;
  state.RowPhase = &RowPhase;
  state.output = outputRaster_.Data;
  return state;
}

unsigned char EHalftoneModule::RunKernel(KernelName name, unsigned char* data, unsigned long row,
                                         unsigned long first, unsigned long end) {
  corvane::RowState state = PageState();
  state.outputWidth = outputRaster_.Width;
  state.fastPage = buffers_->fastPage;
  state.data = data;
  state.stride = contoneStride_;
  state.row = static_cast<std::uint32_t>(row);
  state.first = static_cast<std::uint32_t>(first);
  state.end = static_cast<std::uint32_t>(end);
  outputRaster_.RowBytes = corvane::RunKernel(corvane::KernelOf(name), state);
  return 1;
}

// ---- Kernels

#define CORVANE_DEFINE_KERNEL(name, ...)                                                           \
  unsigned char EHalftoneModule::name(unsigned char* data, unsigned long row, unsigned long first, \
                                      unsigned long end) {                                         \
    return RunKernel(KernelName::name, data, row, first, end);                                     \
  }
CORVANE_HALFTONE_KERNELS(CORVANE_DEFINE_KERNEL)
#undef CORVANE_DEFINE_KERNEL

EHalftoneModule::KernelOperation EHalftoneModule::OperationOf(KernelName name) {
  static constexpr KernelOperation kOperations[] = {
#define CORVANE_KERNEL_OPERATION(name, ...) &EHalftoneModule::name,
      CORVANE_HALFTONE_KERNELS(CORVANE_KERNEL_OPERATION)
#undef CORVANE_KERNEL_OPERATION
  };
  return kOperations[static_cast<int>(name)];
}

// ---- Page end

unsigned long EHalftoneModule::EndPage(ZCOM::QObject* message) {
  HalftoneDeAllocateMemory();
  const unsigned long result = ForwardMessage(*this, message);
  if (WriteToFile != 0) {
    LogCounts();
    logFile_.reset();
  }
  return result;
}

unsigned long EHalftoneModule::HalftoneDeAllocateMemory() {
  pageIsReady_ = false;
  buffers_.reset();
  outputRaster_.Data = nullptr;
  std::fill_n(ErrorRows, kInkCount, nullptr);
  return 1;
}

// ---- Log

void EHalftoneModule::LogRoutine(const char* const (&modes)[2]) {
  for (const char* mode : modes) {
    if (mode != nullptr) ZCOM::fwfprintf(logFile_.get(), "BinaryDescriptor = %s\n", mode);
  }
  ZCOM::fwfprintf(logFile_.get(), "NumPix   = %d\n", static_cast<int>(NumPix));
  ZCOM::fwfprintf(logFile_.get(), "ShiftCMY = %d\n", static_cast<int>(ShiftCMY));
  ZCOM::fwfprintf(logFile_.get(), "Shiftcmy = %d\n", static_cast<int>(Shiftcmy));
  ZCOM::fwfprintf(logFile_.get(), "ShiftK   = %d\n", static_cast<int>(ShiftK));
}

void EHalftoneModule::LogCounts() {
  for (int ink = 0; ink < kInkCount; ++ink) {
    ZCOM::fwfprintf(logFile_.get(), "%scount=%d\n", corvane::kInkNames[ink],
                    static_cast<std::int32_t>(DotCount[ink]));
  }
}
