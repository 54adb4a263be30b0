// SPDX-License-Identifier: MIT
//
// A chain of the plug-in's elements, linked as a host links them.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/chain/plugin_library.h"
#include "host/carried_state.h"
#include "host/raster.h"

namespace corvane {

// The three elements by the names that the factory serves, in the order of the chain.
inline const std::vector<std::string> kWholeChain = {"EColorInline", "EHalftoneModule",
                                                     "EDotManagement"};

// Those that pages of separated inks go through.
inline const std::vector<std::string> kChainOfInks = {"EHalftoneModule", "EDotManagement"};

struct ChainSetup {
  std::vector<std::string> elements = kWholeChain;
  ZCOM::PROPERTIES host;                                      // the bag the elements share
  std::map<std::string, ZCOM::PROPERTIES> elementProperties;  // own entries, set before Initialize
};

// What the elements of a chain keep from row to row of a page, one after the other.
using ChainState = std::vector<std::uint8_t>;

// Puts the plug-in's diagnostic files into a folder; nothing when it is empty. The elements keep
// silent about a log that they cannot open, so it is tried here. Throws Failure.
void UseDiagnosticsFolder(const std::string& folder);

// The files that they write there.
std::vector<std::filesystem::path> DiagnosticFilesIn(const std::string& folder, bool savesRgb);

// Behind the end of a page: throws Failure when something of the files in the folder is missing.
void CheckDiagnostics(const std::string& folder);

// Throws Failure unless the chart that a page with "Points" prints is there, whole.
void CheckPoints(const std::string& folder);

// One thread at a time may use a chain; several chains may run side by side.
class Chain {
 public:
  // Sees every message that leaves an element, before the next element handles it. It may throw:
  // the message then counts as not accepted and `Send` throws once the elements have returned.
  using Observer = std::function<void(ZCOM::QObject& message)>;

  // Creates, prepares and links the elements. Throws Failure for an unknown element and for one
  // that is not ready. The library must outlive the chain.
  Chain(const PluginLibrary& library, const ChainSetup& setup);
  ~Chain();
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;

  // Watches what leaves the element at `index`, in chain order.
  void Observe(std::size_t index, Observer observer);
  // Watches what leaves the last element: the host's next stage, which accepts everything.
  void ObserveOutput(Observer observer) { Observe(elements_.size() - 1, std::move(observer)); }

  const std::vector<std::string>& ElementNames() const { return names_; }

  // Hands the message to the first element and returns its result. Throws std::bad_alloc for one
  // whose properties found no memory, and what an observer throws.
  unsigned long Send(ZCOM::QObject& message);

  // Whether every element tells what it keeps, so that the state is all that the rows to come
  // depend on, besides themselves.
  bool TellsState() const;
  // Between two rows of a page. The second takes a state of a page with the same settings.
  ChainState State() const;
  void SetState(const ChainState& state);

 private:
  class Tap;

  std::vector<std::string> names_;
  ZCOM::PROPERTIES hostProperties_;
  std::vector<std::unique_ptr<ZCOM::EObject>> elements_;
  std::vector<CarriedState*> states_;       // of elements_; null for one that tells nothing
  std::vector<std::unique_ptr<Tap>> taps_;  // taps_[i] stands behind elements_[i]
  std::exception_ptr thrown_;
};

}  // namespace corvane
