// SPDX-License-Identifier: MIT
#include "app/chain.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "app/failure.h"
#include "app/output_file.h"

namespace corvane {
namespace {

void CopyProperties(const ZCOM::PROPERTIES& from, ZCOM::PROPERTIES& to) {
  for (const auto& [group, entries] : from.Groups()) {
    for (const auto& [key, value] : entries) {
      if (const auto* text = std::get_if<std::string>(&value)) {
        to.SetProperty(key.c_str(), text->c_str(), group.c_str());
      } else if (const auto* number = std::get_if<std::int32_t>(&value)) {
        to.SetProperty(key.c_str(), static_cast<int>(*number), group.c_str());
      } else {
        const unsigned long bits = std::get<std::uint32_t>(value);
        to.SetProperty(key.c_str(), bits, group.c_str());
      }
    }
  }
}

}  // namespace

void UseDiagnosticsFolder(const std::string& folder) {
  if (folder.empty()) return;
  std::error_code ignored;
  if (!std::filesystem::is_directory(folder, ignored)) throw Failure(folder + ": is not a folder");
  const OutputFile trial((std::filesystem::path(folder) / "HTLog.txt").string());
  ZCOM::SetDiagnosticsDirectory(folder.c_str());
}

// Stands behind an element: shows each message to the observer and hands it on. Nothing may be
// thrown through the plug-in, so what an observer throws waits until the chain has returned.
class Chain::Tap final : public ZCOM::EObject {
 public:
  explicit Tap(std::exception_ptr& thrown) : thrown_(thrown), pad_(this, 0) {}

  unsigned long DataArrived(ZCOM::QObject* message, unsigned short) override {
    if (thrown_) return 0;
    if (observer) {
      try {
        observer(*message);
      } catch (...) {
        thrown_ = std::current_exception();
        return 0;
      }
    }
    return next == nullptr ? 1 : next->Owner->DataArrived(message, next->Index);
  }

  ZCOM::SINKPAD* Pad() { return &pad_; }

  Observer observer;
  ZCOM::SINKPAD* next = nullptr;

 private:
  std::exception_ptr& thrown_;
  ZCOM::SINKPAD pad_;
};

Chain::Chain(const PluginLibrary& library, const ChainSetup& setup)
    : names_(setup.elements), hostProperties_(setup.host) {
  if (names_.empty()) throw Failure("a chain needs at least one element");
  for (const std::string& name : names_) {
    std::unique_ptr<ZCOM::EObject> element = library.CreateElement(name);
    element->HostProperties = &hostProperties_;
    if (const auto own = setup.elementProperties.find(name); own != setup.elementProperties.end()) {
      CopyProperties(own->second, element->Properties);
    }
    if (element->Initialize() == 0) throw Failure(name + ": the element could not be initialised");

    auto tap = std::make_unique<Tap>(thrown_);
    element->GetSourcePad(0)->Link(tap->Pad());
    if (!taps_.empty()) taps_.back()->next = element->GetSinkPad(0);
    elements_.push_back(std::move(element));
    taps_.push_back(std::move(tap));
  }
}

Chain::~Chain() = default;

void Chain::Observe(std::size_t index, Observer observer) {
  taps_[index]->observer = std::move(observer);
}

unsigned long Chain::Send(ZCOM::QObject& message) {
  const unsigned long result = elements_.front()->DataArrived(&message, 0);
  if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
  return result;
}

}  // namespace corvane
