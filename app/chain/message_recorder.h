// SPDX-License-Identifier: MIT
//
// Messages written down as lines of JSON (docs/replay.md): a script of what goes into a chain, and
// a record of what leaves its elements.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "app/chain/chain.h"
#include "app/support/output_stage.h"
#include "host/raster.h"

namespace corvane {

// Of files with such lines, for CheckEnding.
inline constexpr std::string_view kMessageEndings[] = {".jsonl", ".json"};

// Writes the script that sends a chain's messages again.
class ScriptRecorder {
 public:
  // `setup` is what the chain was made from; it becomes the first line.
  ScriptRecorder(StagedFile& file, const ChainSetup& setup);

  // To be called before the message is sent, for the chain adds properties to a page start.
  void Record(ZCOM::QObject& message);

 private:
  StagedFile& file_;
  std::string text_;
};

// Watches a chain and hands on a line for every message that leaves one of its elements, before the
// next element handles it. It must outlive the chain's last `Send`.
class OutputRecorder {
 public:
  using LineSink = std::function<void(std::string_view line)>;

  OutputRecorder(Chain& chain, LineSink sink);
  OutputRecorder(const OutputRecorder&) = delete;
  OutputRecorder& operator=(const OutputRecorder&) = delete;

  // Hands the message to the chain's first element and returns its result.
  unsigned long Send(ZCOM::QObject& message);

 private:
  struct Page {
    bool secondExpansion = false;
    std::uint8_t planes = 0;
  };

  void Leave(std::size_t element, ZCOM::QObject& message);
  void NotePage(const QStartPage& page);
  std::size_t DataBytes(std::size_t element, ZCOM::QObject& message) const;

  Chain& chain_;
  LineSink sink_;
  std::vector<const ZCOM::QObject*> arriving_;  // at each element, the message it is handling
  Page placedPage_;                             // of the page start that last passed dot management
  std::string text_;
};

}  // namespace corvane
