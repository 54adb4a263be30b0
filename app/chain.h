// SPDX-License-Identifier: MIT
//
// A chain of the plug-in's elements, linked as a host links them.
#pragma once

#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/plugin_library.h"
#include "host/raster.h"

namespace corvane {

// The three elements by the names that the factory serves, in the order of the chain.
inline const std::vector<std::string> kWholeChain = {"EColorInline", "EHalftoneModule",
                                                     "EDotManagement"};

struct ChainSetup {
  std::vector<std::string> elements = kWholeChain;
  ZCOM::PROPERTIES host;                                      // the bag the elements share
  std::map<std::string, ZCOM::PROPERTIES> elementProperties;  // own entries, set before Initialize
};

// Puts the plug-in's diagnostic files into a folder; nothing when it is empty. The elements keep
// silent about a log that they cannot open, so it is tried here. Throws Failure.
void UseDiagnosticsFolder(const std::string& folder);

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

  // Hands the message to the first element and returns its result.
  unsigned long Send(ZCOM::QObject& message);

 private:
  class Tap;

  std::vector<std::string> names_;
  ZCOM::PROPERTIES hostProperties_;
  std::vector<std::unique_ptr<ZCOM::EObject>> elements_;
  std::vector<std::unique_ptr<Tap>> taps_;  // taps_[i] stands behind elements_[i]
  std::exception_ptr thrown_;
};

}  // namespace corvane
