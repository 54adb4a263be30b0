// SPDX-License-Identifier: MIT
//
// The second element of the chain: contone rows become binary planes.
//
// Own properties (group "EHalftoneModule", read by `Initialize`): "WriteToFile", nonzero to log
// each page's settings and drop counts to C:\HTLog.txt. Page properties (group "Standard", 0 when
// missing): "PrintableWidth", "HorizontalInputResolution", "LeftOverSprayPixels",
// "RightOverSprayPixels", "UseAlternateModes"; from the page's second bag "CMYKBinaryDescriptor".
// Errors: 27 for a print mode without a kernel, 8 for a page whose buffers cannot be made. The page
// start follows the error, and rows then pass unchanged.
#pragma once

#include <cstdint>
#include <memory>

#include "halftone/engine.h"
#include "halftone/kernel_table.h"
#include "host/carried_state.h"
#include "host/framework.h"
#include "host/raster.h"
#include "plugin/frame/buffer.h"
#include "plugin/frame/diagnostic_file.h"
#include "plugin/frame/export.h"
#include "printmode/print_mode.h"

// A copy is in the state of the element it was made from, in the middle of a page too, with pads
// and buffers of its own; until its next page start it writes no log. A copy that finds no memory
// for the page has none.
class CORVANE_API EHalftoneModule final : public ZCOM::EObject, public corvane::CarriedState {
 public:
  EHalftoneModule();
  EHalftoneModule(const EHalftoneModule&);
  EHalftoneModule& operator=(const EHalftoneModule&);
  ~EHalftoneModule() override;

  // False when memory was too short to make the element whole; it is then good for nothing.
  bool IsComplete() const;

  unsigned long Initialize() override;
  unsigned long DataArrived(ZCOM::QObject* message, unsigned short sinkPad) override;

  // Error lines and carried errors.
  std::size_t StateBytes() const override;
  void SaveState(unsigned char* state) const override;
  void RestoreState(const unsigned char* state) override;

 private:
  using KernelOperation = unsigned char (EHalftoneModule::*)(unsigned char* data, unsigned long row,
                                                             unsigned long first,
                                                             unsigned long end);
  struct DeleteFast {
    void operator()(corvane::FastPage* page) const { corvane::DeleteFastPage(page); }
  };

  unsigned long StartPage(QStartPage* page);
  unsigned long EndPage(ZCOM::QObject* message);
  unsigned long ConvertRow(QRaster* contone);
  bool CanConvert(const QRaster& contone) const;
  // Bytes from plane to plane: the row's own width, or the page's for a row that has none.
  std::uint32_t StrideOf(const QRaster& contone) const;
  std::uint32_t PixelLimit(const QRaster& contone) const;

  // Chooses kernel, shifts, NumPix and layout of the page's print mode: 1, or 0 when it is none.
  unsigned long HalftoneGetRoutine(unsigned short alternateMode);
  // Makes the page's buffers, all zero: 1, or 0 when one cannot be made.
  unsigned long HalftoneAllocateMemory(unsigned short alternateMode);
  unsigned long HalftoneDeAllocateMemory();
  // Halftones contone pixels first..end - 1 of `data` into the output row; gives what the kernel
  // gives.
  unsigned char HalftoneConvert(unsigned char* data, unsigned long row, unsigned long first,
                                unsigned long end);

  // The kernels, each with the operation's arguments; they give 1.
#define CORVANE_DECLARE_KERNEL(name, ...)                                         \
  unsigned char name(unsigned char* data, unsigned long row, unsigned long first, \
                     unsigned long end);
  CORVANE_HALFTONE_KERNELS(CORVANE_DECLARE_KERNEL)
#undef CORVANE_DECLARE_KERNEL

  void CopyPage(const EHalftoneModule& other);
  void BringErrorRowsUpToDate() const;

  // The page's part of what a kernel works on.
  corvane::RowState PageState();
  static KernelOperation OperationOf(corvane::KernelName name);
  unsigned char RunKernel(corvane::KernelName name, unsigned char* data, unsigned long row,
                          unsigned long first, unsigned long end);

  void LogRoutine(const char* const (&modes)[2]);
  void LogCounts();

  std::uint32_t WriteToFile = 0;
  tagBinaryCMYKDescriptor descriptor_{};
  std::uint32_t RowPhase = 0;  // place in the threshold modulation, 0..1023
  std::uint16_t BothDirections = 0;
  std::uint16_t ShiftCMY = 0;  // left shifts of the levels, 0..5
  std::uint16_t Shiftcmy = 0;
  std::uint16_t ShiftK = 0;
  std::uint32_t NumPix = 0;  // binary pixels per contone pixel
  std::uint32_t width_ = 0;  // contone pixels, both overspray margins included
  std::uint32_t inputResolution_ = 0;
  QCMYKBinaryRaster outputRaster_;
  QError ErrorObject;
  corvane::DiagnosticFile logFile_;  // open while a page is logged
  corvane::Buffer<unsigned char> outputRow_;
  corvane::Buffer<std::int16_t> ErrorRows[corvane::kInkCount];  // empty without the ink
  std::int16_t CarriedError[corvane::kInkCount] = {};
  std::uint32_t DotCount[corvane::kInkCount] = {};  // since the element was made
  KernelOperation kernel_ = nullptr;

  std::unique_ptr<corvane::FastPage, DeleteFast> fastPage_;  // null: the plain engine runs
  bool pageIsReady_ = false;  // the page has its kernel and all its buffers
  const corvane::Kernel* kernelData_ = nullptr;
  std::uint32_t contoneStride_ = 0;  // bytes from plane to plane of the row being halftoned
};
