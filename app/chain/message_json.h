// SPDX-License-Identifier: MIT
//
// Messages as lines of JSON: what a script sends into a chain, and what a chain sent
// (docs/replay.md).
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "app/chain/chain.h"
#include "host/raster.h"

namespace corvane {

// Every line of a script but the first, which may be a `ChainSetup`.
// A raster's `Data` points at the first of `data`'s bytes.
struct ScriptMessage {
  std::unique_ptr<ZCOM::QObject> message;
  std::vector<unsigned char> data;
};

// Reads one line. Throws `Failure` with what is wrong, without the line's number.
std::variant<ChainSetup, ScriptMessage> ParseScriptLine(std::string_view line);

// Append a line to `text`, its newline included. A message without a sender has no "from"; the
// `dataBytes` bytes at a raster's `Data` must be readable.
void AppendSetupLine(const ChainSetup& setup, std::string* text);
void AppendMessageLine(ZCOM::QObject& message, std::string_view from, std::size_t dataBytes,
                       std::string* text);
void AppendResultLine(unsigned long result, std::string* text);

// The message as a raster, or null when its kind is none of a raster.
QRaster* AsRaster(ZCOM::QObject& message);

}  // namespace corvane
