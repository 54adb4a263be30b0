// SPDX-License-Identifier: MIT
//
// What the program takes at most. Behind each limit stands memory or time that an input of a few
// bytes could ask for; SECURITY.md lists them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::limits {

// Images. A longer side is taken for a damaged header.
inline constexpr std::uint32_t kImageSide = 1'000'000;  // pixels
inline constexpr int kTiffSamples = 16;                 // of a pixel
// What is decoded at a time: a row of tiles, and a strip that libtiff converts to RGB itself.
inline constexpr std::size_t kTiffTileRowBytes = std::size_t{1} << 30;
inline constexpr std::uint64_t kTiffBandPixels = std::uint64_t{1} << 28;
// Of a progressive page, whose coefficients are held in memory.
inline constexpr std::uint64_t kJpegCoefficientBytes = std::uint64_t{512} << 20;

// Sheets and pictures.
inline constexpr double kShortestSheetMm = 10, kLongestSheetMm = 5000;
inline constexpr double kShortestDrawingMm = 0.1;  // of a document's page on a sheet that is named
inline constexpr int kDrawingSide = 20000;         // pixels
inline constexpr double kPreviewSide = 30000.0;    // pixels
inline constexpr double kPreviewDpi = 4800.0;

inline constexpr std::uint32_t kCellsAlongSide = 20;  // of a sheet

// Texts and scripts.
inline constexpr int kJsonLevels = 64;  // what reads a value goes down as deep as it is nested
inline constexpr std::uint64_t kRasterBytes = std::uint64_t{1} << 30;  // that a row stands for
inline constexpr std::size_t kColorTablePath = 255;  // bytes that the colour element reads

// Pages of an input with their copies, which a header of a few bytes asks for.
inline constexpr std::size_t kPages = 100'000;

// At a time.
inline constexpr int kPagesAtATime = 64;    // of a command
inline constexpr int kTasksAtATime = 1024;  // of a job, or tables

}  // namespace corvane::limits
