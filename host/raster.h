// SPDX-License-Identifier: MIT
//
// The messages of a page: its start, its rows at each stage, and errors.
//
// An element embeds the rasters and errors that it sends and refills them; a receiver must not keep
// a message, nor a raster's data, after its `DataArrived` returns.
#pragma once

#include <cstdint>

#include "host/framework.h"

// `MessageKind` values.
enum MessageKinds : std::uint16_t {
  kControlMessage = 1,
  kStartPageMessage = 2,
  kEndPageMessage = 3,
  kEndJobMessage = 4,
  kRgbRasterMessage = 5,
  kContoneRasterMessage = 6,
  kBinaryRasterMessage = 7,
  kErrorMessage = 8,
};

// Start of a page: the print settings in its own bag, the print mode, the plane count and the slot
// resolutions in the second one.
class CORVANE_HOST_API QStartPage : public ZCOM::QObject {
 public:
  QStartPage();
  QStartPage(const QStartPage&);
  QStartPage& operator=(const QStartPage&);
  ~QStartPage() override;

  ZCOM::PROPERTIES PageProperties;
};

// One row of pixels.
class CORVANE_HOST_API QRaster : public ZCOM::QObject {
 public:
  QRaster();
  QRaster(const QRaster&);
  QRaster& operator=(const QRaster&);
  ~QRaster() override;

  std::uint32_t Reserved = 0;          // the raster library's own
  std::uint32_t RasterFormat = 0;      // layout code of the pixels
  std::uint32_t PassThroughValue = 0;  // copied from raster to raster along the chain
  std::uint32_t Row = 0;               // in rows of the sending element's output
  std::uint32_t FirstPixel = 0;        // first pixel that carries data
  std::uint32_t EndPixel = 0;          // one past the last pixel that carries data
  std::uint32_t Width = 0;             // pixels
  std::uint32_t RowBytes = 0;          // bytes of the row, all planes together
  unsigned char* Data = nullptr;       // the sender's memory

 protected:
  explicit QRaster(unsigned short kind);
};

// One byte per pixel and plane, planes one after the other.
class CORVANE_HOST_API QContoneRaster : public QRaster {
 public:
  QContoneRaster();
  QContoneRaster(const QContoneRaster&);
  QContoneRaster& operator=(const QContoneRaster&);
  ~QContoneRaster() override;
};

class CORVANE_HOST_API QCMYKContoneRaster : public QContoneRaster {
 public:
  QCMYKContoneRaster();
  QCMYKContoneRaster(const QCMYKContoneRaster&);
  QCMYKContoneRaster& operator=(const QCMYKContoneRaster&);
  ~QCMYKContoneRaster() override;
};

// One bit per pixel and plane, the first pixel in the most significant bit, planes one after the
// other.
class CORVANE_HOST_API QBinaryRaster : public QRaster {
 public:
  QBinaryRaster();
  QBinaryRaster(const QBinaryRaster&);
  QBinaryRaster& operator=(const QBinaryRaster&);
  ~QBinaryRaster() override;
};

class CORVANE_HOST_API QCMYKBinaryRaster : public QBinaryRaster {
 public:
  QCMYKBinaryRaster();
  QCMYKBinaryRaster(const QCMYKBinaryRaster&);
  QCMYKBinaryRaster& operator=(const QCMYKBinaryRaster&);
  ~QCMYKBinaryRaster() override;
};

// An error that travels down the chain: "EObjectName", "ErrorID", "ErrorString" and, from the
// colour element, "Name" and "m_eAlgorithmType", in group "Standard".
class CORVANE_HOST_API QError : public ZCOM::QObject {
 public:
  QError();
  QError(const QError&);
  QError& operator=(const QError&);
  ~QError() override;
};
