// SPDX-License-Identifier: MIT
#include "halftone/halftone_module.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "halftone/engine.h"
#include "halftone/routine_table.h"
#include "halftone/threshold_tables.h"
#include "plugin/frame/element_frame.h"
#include "printmode/print_modes.h"
#include "simd/level.h"

using corvane::ForwardMessage;
using corvane::Ink;
using corvane::KernelName;
using corvane::kInkCount;
using corvane::kStandardGroup;
using corvane::PageNumber;
using corvane::PageNumber16;
using corvane::SendError;
namespace property = corvane::property;

namespace {

constexpr const char* kLogFile = "C:\\HTLog.txt";

constexpr int kUnsupportedModeError = 27;
constexpr const char* kUnsupportedModeText = "This print mode is not supported yet.";
constexpr int kBufferError = 8;
constexpr const char* kBufferText = "Can not create Halftone Buffer.";

constexpr std::uint64_t kLargest32 = std::numeric_limits<std::uint32_t>::max();

// False when memory is short or the bytes do not fit 32 bits.
template <typename T>
bool Allocate(corvane::Buffer<T>& buffer, std::uint64_t count) {
  return count <= kLargest32 / sizeof(T) && buffer.Allocate(static_cast<std::size_t>(count));
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

// ---- Life

EHalftoneModule::EHalftoneModule() {
  Properties.SetProperty(property::kEObjectType, "EHalftoneModule", kStandardGroup);
  Properties.SetProperty(property::kEObjectName, "EHalftoneModule", kStandardGroup);
  ErrorObject.Properties.SetProperty(property::kEObjectName, "EHalftoneError", kStandardGroup);
  corvane::ReserveError(ErrorObject, kUnsupportedModeText);
}

EHalftoneModule::EHalftoneModule(const EHalftoneModule& other) : EHalftoneModule() {
  *this = other;
}

EHalftoneModule& EHalftoneModule::operator=(const EHalftoneModule& other) {
  if (this == &other) return *this;
  ZCOM::EObject::operator=(other);
  HalftoneDeAllocateMemory();
  logFile_.Close();
  WriteToFile = other.WriteToFile;
  descriptor_ = other.descriptor_;
  RowPhase = other.RowPhase;
  BothDirections = other.BothDirections;
  ShiftCMY = other.ShiftCMY;
  Shiftcmy = other.Shiftcmy;
  ShiftK = other.ShiftK;
  NumPix = other.NumPix;
  width_ = other.width_;
  inputResolution_ = other.inputResolution_;
  outputRaster_ = other.outputRaster_;
  ErrorObject = other.ErrorObject;
  std::copy_n(other.CarriedError, kInkCount, CarriedError);
  std::copy_n(other.DotCount, kInkCount, DotCount);
  kernel_ = other.kernel_;
  kernelData_ = other.kernelData_;
  contoneStride_ = other.contoneStride_;
  if (other.pageIsReady_) CopyPage(other);
  return *this;
}

EHalftoneModule::~EHalftoneModule() = default;

bool EHalftoneModule::IsComplete() const {
  return Properties.IsComplete() && ErrorObject.Properties.IsComplete();
}

void EHalftoneModule::CopyPage(const EHalftoneModule& other) {
  other.BringErrorRowsUpToDate();
  outputRow_ = other.outputRow_;
  pageIsReady_ = bool{outputRow_};
  for (int ink = 0; ink < kInkCount; ++ink) {
    ErrorRows[ink] = other.ErrorRows[ink];
    pageIsReady_ = pageIsReady_ && ErrorRows[ink].Size() == other.ErrorRows[ink].Size();
  }
  if (!pageIsReady_) {
    HalftoneDeAllocateMemory();
    return;
  }
  fastPage_.reset(corvane::NewFastPage(*kernelData_, PageState(), corvane::SelectedCpuLevel()));
}

// What the fast engine holds back moves between two places that mean the same, so a constant
// element stays as it is.
void EHalftoneModule::BringErrorRowsUpToDate() const {
  corvane::SyncErrorRows(const_cast<EHalftoneModule*>(this)->PageState());
}

// ---- State between rows

std::size_t EHalftoneModule::StateBytes() const {
  if (!pageIsReady_) return 0;
  std::size_t bytes = sizeof CarriedError;
  for (const auto& line : ErrorRows) bytes += line.Size() * sizeof(std::int16_t);
  return bytes;
}

void EHalftoneModule::SaveState(unsigned char* state) const {
  if (!pageIsReady_) return;
  BringErrorRowsUpToDate();
  for (const auto& line : ErrorRows) {
    if (!line) continue;
    std::memcpy(state, line.Data(), line.Size() * sizeof(std::int16_t));
    state += line.Size() * sizeof(std::int16_t);
  }
  std::memcpy(state, CarriedError, sizeof CarriedError);
}

void EHalftoneModule::RestoreState(const unsigned char* state) {
  if (!pageIsReady_) return;
  BringErrorRowsUpToDate();  // nothing is held back that would overwrite them
  for (auto& line : ErrorRows) {
    if (!line) continue;
    std::memcpy(line.Data(), state, line.Size() * sizeof(std::int16_t));
    state += line.Size() * sizeof(std::int16_t);
  }
  std::memcpy(CarriedError, state, sizeof CarriedError);
}

// ----

unsigned long EHalftoneModule::Initialize() {
  unsigned long writeToFile = 0;
  Properties.GetProperty(property::kWriteToFile, &writeToFile, 0ul, property::kHalftoneGroup);
  WriteToFile = static_cast<std::uint32_t>(writeToFile);
  return corvane::MakePads(*this);
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
  logFile_.Close();
  std::fill_n(CarriedError, kInkCount, std::int16_t{0});

  const std::uint64_t width = corvane::PageWidthWithOverspray(page->Properties);
  // A width beyond 32 bits stays too large for every buffer.
  width_ = static_cast<std::uint32_t>(std::min(width, kLargest32));
  inputResolution_ = PageNumber(page->Properties, property::kHorizontalInputResolution);
  const std::uint16_t alternateMode = PageNumber16(page->Properties, property::kUseAlternateModes);
  descriptor_ = static_cast<tagBinaryCMYKDescriptor>(
      corvane::PageInt(page->PageProperties, property::kCMYKBinaryDescriptor));

  if (WriteToFile != 0) logFile_.Open(kLogFile, "w");

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
  const corvane::PrintMode* mode = corvane::FindPrintMode(descriptor_);
  if (routine == nullptr || mode == nullptr) return 0;

  const corvane::AlternateMode& page = mode->Alternate(alternateMode);
  kernel_ = OperationOf(routine->kernel);
  kernelData_ = &corvane::KernelOf(routine->kernel);
  // Without an input resolution there is no NumPix; the buffers are refused then.
  NumPix = inputResolution_ == 0 ? 0 : page.halftoneDpi / inputResolution_;
  BothDirections = routine->BothDirections ? 1 : 0;
  if (routine->ShiftCMY >= 0) ShiftCMY = static_cast<std::uint16_t>(routine->ShiftCMY);
  if (routine->Shiftcmy >= 0) Shiftcmy = static_cast<std::uint16_t>(routine->Shiftcmy);
  if (routine->ShiftK >= 0) ShiftK = static_cast<std::uint16_t>(routine->ShiftK);
  outputRaster_.RasterFormat = page.layout;
  if (WriteToFile != 0) LogRoutine(routine->loggedModes);
  return 1;
}

unsigned long EHalftoneModule::HalftoneAllocateMemory(unsigned short alternateMode) {
  const corvane::HalftoneRoutine* routine =
      corvane::FindHalftoneRoutine(descriptor_, alternateMode);
  if (routine == nullptr) return 0;

  const std::uint64_t binaryWidth = std::uint64_t{NumPix} * width_;
  if (binaryWidth == 0) return 0;
  const std::uint64_t planeBytes = (binaryWidth - 1) / 8 + 1;
  if (!Allocate(outputRow_, planeBytes * routine->rowPlanes)) return 0;

  for (const Ink ink : routine->errorLines) {
    const std::uint64_t scale = ink == Ink::K ? 1 : routine->colourLineScale;
    if (!Allocate(ErrorRows[static_cast<int>(ink)], scale * (binaryWidth + 2))) return 0;
  }
  fastPage_.reset(corvane::NewFastPage(*kernelData_, PageState(), corvane::SelectedCpuLevel()));
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
  outputRaster_.Data = outputRow_.Data();

  contoneStride_ = StrideOf(*contone);
  const std::uint32_t limit = PixelLimit(*contone);
  HalftoneConvert(contone->Data, contone->Row, std::min(contone->FirstPixel, limit),
                  std::min(contone->EndPixel, limit));
  return ForwardMessage(*this, &outputRaster_);
}

std::uint32_t EHalftoneModule::StrideOf(const QRaster& contone) const {
  return contone.Width != 0 ? contone.Width : width_;
}

// What lies beyond the contone planes is room of the overspray margins, without ink.
std::uint32_t EHalftoneModule::PixelLimit(const QRaster& contone) const {
  return std::min(StrideOf(contone), width_);
}

// A row whose RowBytes are 0 does not say what it holds and is trusted.
bool EHalftoneModule::CanConvert(const QRaster& contone) const {
  if (!pageIsReady_) return false;
  // A row without pixels needs no planes: what its margins hold carries no ink.
  const bool hasPixels = std::min(contone.FirstPixel, PixelLimit(contone)) <
                         std::min(contone.EndPixel, PixelLimit(contone));
  if (!hasPixels) return true;
  if (contone.Data == nullptr) return false;
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
  for (int ink = 0; ink < kInkCount; ++ink) state.ErrorRows[ink] = ErrorRows[ink].Data();
  state.CarriedError = CarriedError;
  state.DotCount = DotCount;
  state.RowPhase = &RowPhase;
  state.output = outputRow_.Data();
  state.fastPage = fastPage_.get();
  return state;
}

unsigned char EHalftoneModule::RunKernel(KernelName name, unsigned char* data, unsigned long row,
                                         unsigned long first, unsigned long end) {
  corvane::RowState state = PageState();
  state.outputWidth = outputRaster_.Width;
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
    logFile_.Close();
  }
  return result;
}

unsigned long EHalftoneModule::HalftoneDeAllocateMemory() {
  pageIsReady_ = false;
  fastPage_.reset();
  outputRow_.Release();
  for (corvane::Buffer<std::int16_t>& line : ErrorRows) line.Release();
  return 1;
}

// ---- Log

void EHalftoneModule::LogRoutine(const char* const (&modes)[2]) {
  for (const char* mode : modes) {
    if (mode != nullptr) ZCOM::fwfprintf(logFile_.Handle(), "BinaryDescriptor = %s\n", mode);
  }
  ZCOM::fwfprintf(logFile_.Handle(), "NumPix   = %d\n", static_cast<int>(NumPix));
  ZCOM::fwfprintf(logFile_.Handle(), "ShiftCMY = %d\n", static_cast<int>(ShiftCMY));
  ZCOM::fwfprintf(logFile_.Handle(), "Shiftcmy = %d\n", static_cast<int>(Shiftcmy));
  ZCOM::fwfprintf(logFile_.Handle(), "ShiftK   = %d\n", static_cast<int>(ShiftK));
}

void EHalftoneModule::LogCounts() {
  for (int ink = 0; ink < kInkCount; ++ink) {
    ZCOM::fwfprintf(logFile_.Handle(), "%scount=%d\n", corvane::kInkNames[ink],
                    static_cast<std::int32_t>(DotCount[ink]));
  }
}
