// SPDX-License-Identifier: MIT
#include "app/chain/chain.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "app/support/failure.h"
#include "app/support/message.h"
#include "app/support/output_stage.h"
#include "host/property_names.h"

namespace corvane {
namespace {

// A bag that lost an entry for want of memory says something else than was meant.
void Require(const ZCOM::PROPERTIES& bag) {
  if (!bag.IsComplete()) throw std::bad_alloc();
}

void CopyProperties(const ZCOM::PROPERTIES& from, ZCOM::PROPERTIES& to) {
  Require(from);
  for (const auto* entry = from.First(); entry != nullptr; entry = entry->Next()) {
    if (entry->Text() != nullptr) {
      to.SetProperty(entry->Key(), entry->Text(), entry->Group());
    } else if (entry->IsSigned()) {
      to.SetProperty(entry->Key(), static_cast<int>(entry->Bits()), entry->Group());
    } else {
      to.SetProperty(entry->Key(), static_cast<unsigned long>(entry->Bits()), entry->Group());
    }
  }
  Require(to);
}

// An element shows the name of a table that it cannot open as it stands; a name that may not reach
// a terminal so is refused here.
void CheckTableName(const ZCOM::PROPERTIES& host) {
  char name[256] = "";
  host.GetProperty(property::kColorTableFilename, name, sizeof name, nullptr,
                   property::kStandardGroup);
  if (Printable(name) == name || ZCOM::MFColorTable().SetFilename(name) != 0) return;
  throw Failure(fmt::format("{}: cannot open", name));
}

}  // namespace

std::vector<std::filesystem::path> DiagnosticFilesIn(const std::string& folder, bool savesRgb) {
  if (folder.empty()) return {};
  const std::filesystem::path place(folder);
  if (savesRgb) return {place / "HTLog.txt", place / "rgb.raw"};
  return {place / "HTLog.txt"};
}

void UseDiagnosticsFolder(const std::string& folder) {
  if (folder.empty()) return;
  std::error_code ignored;
  if (!std::filesystem::is_directory(folder, ignored)) throw Failure(folder + ": is not a folder");
  // Shows whether it can be.
  for (const auto& file : DiagnosticFilesIn(folder, false)) OutputStage().Create(file);
  if (ZCOM::SetDiagnosticsDirectory(folder.c_str()) == 0) {
    throw Failure(folder + ": the name is too long for a folder of diagnostic files");
  }
}

void CheckDiagnostics(const std::string& folder) {
  if (folder.empty()) return;
  const int problem = ZCOM::DiagnosticsProblem();
  if (problem == 0) return;
  throw OutputFailure(
      fmt::format("{}: the diagnostic files are not whole: {}", folder, std::strerror(problem)));
}

void CheckPoints(const std::string& folder) {
  constexpr std::uintmax_t kPatches = 256, kInks = 9;
  const std::filesystem::path file = std::filesystem::path(folder) / "points.bin";
  std::error_code problem;
  const std::uintmax_t bytes = std::filesystem::file_size(file, problem);
  if (problem) throw Failure(fmt::format("{}: {}", file.string(), problem.message()));
  if (bytes >= kPatches * kInks) return;
  throw Failure(fmt::format("{}: has {} bytes; a chart has {}, nine for each of {} patches",
                            file.string(), bytes, kPatches * kInks, kPatches));
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
  CheckTableName(hostProperties_);
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
    states_.push_back(dynamic_cast<CarriedState*>(element.get()));
    elements_.push_back(std::move(element));
    taps_.push_back(std::move(tap));
  }
}

Chain::~Chain() = default;

void Chain::Observe(std::size_t index, Observer observer) {
  taps_[index]->observer = std::move(observer);
}

bool Chain::TellsState() const {
  for (const CarriedState* element : states_) {
    if (element == nullptr) return false;
  }
  return true;
}

ChainState Chain::State() const {
  ChainState state;
  for (const CarriedState* element : states_) {
    const std::size_t before = state.size();
    state.resize(before + element->StateBytes());
    element->SaveState(state.data() + before);
  }
  return state;
}

void Chain::SetState(const ChainState& state) {
  const std::uint8_t* from = state.data();
  for (CarriedState* element : states_) {
    element->RestoreState(from);
    from += element->StateBytes();
  }
}

unsigned long Chain::Send(ZCOM::QObject& message) {
  Require(message.Properties);
  if (message.MessageKind == kStartPageMessage) {
    Require(static_cast<QStartPage&>(message).PageProperties);
  }
  const unsigned long result = elements_.front()->DataArrived(&message, 0);
  if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
  return result;
}

}  // namespace corvane
