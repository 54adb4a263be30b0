// SPDX-License-Identifier: MIT
#include "host/raster.h"

QStartPage::QStartPage() : ZCOM::QObject(kStartPageMessage) {}
QStartPage::QStartPage(const QStartPage&) = default;
QStartPage& QStartPage::operator=(const QStartPage&) = default;
QStartPage::~QStartPage() = default;

QRaster::QRaster() : QRaster(kRgbRasterMessage) {}
QRaster::QRaster(unsigned short kind) : ZCOM::QObject(kind) {}
QRaster::QRaster(const QRaster&) = default;
QRaster& QRaster::operator=(const QRaster&) = default;
QRaster::~QRaster() = default;

QContoneRaster::QContoneRaster() : QRaster(kContoneRasterMessage) {}
QContoneRaster::QContoneRaster(const QContoneRaster&) = default;
QContoneRaster& QContoneRaster::operator=(const QContoneRaster&) = default;
QContoneRaster::~QContoneRaster() = default;

QCMYKContoneRaster::QCMYKContoneRaster() = default;
QCMYKContoneRaster::QCMYKContoneRaster(const QCMYKContoneRaster&) = default;
QCMYKContoneRaster& QCMYKContoneRaster::operator=(const QCMYKContoneRaster&) = default;
QCMYKContoneRaster::~QCMYKContoneRaster() = default;

QBinaryRaster::QBinaryRaster() : QRaster(kBinaryRasterMessage) {}
QBinaryRaster::QBinaryRaster(const QBinaryRaster&) = default;
QBinaryRaster& QBinaryRaster::operator=(const QBinaryRaster&) = default;
QBinaryRaster::~QBinaryRaster() = default;

QCMYKBinaryRaster::QCMYKBinaryRaster() = default;
QCMYKBinaryRaster::QCMYKBinaryRaster(const QCMYKBinaryRaster&) = default;
QCMYKBinaryRaster& QCMYKBinaryRaster::operator=(const QCMYKBinaryRaster&) = default;
QCMYKBinaryRaster::~QCMYKBinaryRaster() = default;

QError::QError() : ZCOM::QObject(kErrorMessage) {}
QError::QError(const QError&) = default;
QError& QError::operator=(const QError&) = default;
QError::~QError() = default;
