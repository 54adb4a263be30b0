// SPDX-License-Identifier: MIT
//
// Messages, pads, elements and factories: everything that carries a virtual table.
#include <atomic>
#include <cstdarg>
#include <limits>
#include <new>

#include "host/framework.h"

namespace ZCOM {
namespace {

std::atomic<ErrorMessageHook> errorMessageHook{nullptr};

// The pads of one kind, which it owns.
template <class Pad>
struct PadArray {
  Pad** pads = nullptr;
  unsigned short count = 0;

  PadArray() = default;
  PadArray(const PadArray&) = delete;
  PadArray& operator=(const PadArray&) = delete;
  ~PadArray() {
    for (unsigned short i = 0; i < count; ++i) delete pads[i];
    delete[] pads;
  }

  Pad* At(unsigned short index) const { return index < count ? pads[index] : nullptr; }

  bool Add(Pad* pad) {
    if (count == std::numeric_limits<unsigned short>::max()) return false;
    // Elements have one pad of a kind, so there is no point in room to spare.
    auto** const larger = new (std::nothrow) Pad*[count + 1u];
    if (larger == nullptr) return false;
    for (unsigned short i = 0; i < count; ++i) larger[i] = pads[i];
    delete[] pads;
    pads = larger;
    pads[count++] = pad;
    return true;
  }
};

}  // namespace

QObject::~QObject() = default;
unsigned long QObject::IsPassThrough() { return 0; }

SINKPAD::~SINKPAD() = default;
SOURCEPAD::~SOURCEPAD() = default;

struct EObject::PadTable {
  PadArray<SOURCEPAD> sources;
  PadArray<SINKPAD> sinks;
};

EObject::EObject() = default;

EObject::EObject(const EObject& other)
    : Properties(other.Properties), HostProperties(other.HostProperties) {
  MakePadsLike(other);
}

EObject& EObject::operator=(const EObject& other) {
  Properties = other.Properties;
  HostProperties = other.HostProperties;
  if (pads_ == nullptr) MakePadsLike(other);
  return *this;
}

// Pads that find no memory are left out.
void EObject::MakePadsLike(const EObject& other) {
  if (other.pads_ == nullptr) return;
  const PadArray<SOURCEPAD>& sources = other.pads_->sources;
  for (unsigned short i = 0; i < sources.count; ++i) {
    auto* const pad = new (std::nothrow) SOURCEPAD(this);
    if (pad == nullptr) return;
    pad->Link(sources.pads[i]->LinkedSinkPad);
    if (AddSourcePad(pad) == 0) delete pad;
  }
  const PadArray<SINKPAD>& sinks = other.pads_->sinks;
  for (unsigned short i = 0; i < sinks.count; ++i) {
    auto* const pad = new (std::nothrow) SINKPAD(this, sinks.pads[i]->Index);
    if (pad != nullptr && AddSinkPad(pad) == 0) delete pad;
  }
}

EObject::~EObject() { delete pads_; }

unsigned long EObject::Initialize() { return 1; }
unsigned long EObject::DataArrived(QObject*, unsigned short) { return 1; }
unsigned long EObject::Run() { return 1; }

unsigned short EObject::GetSinkPadCount() { return pads_ == nullptr ? 0 : pads_->sinks.count; }
SINKPAD* EObject::GetSinkPad(unsigned short index) {
  return pads_ == nullptr ? nullptr : pads_->sinks.At(index);
}
unsigned short EObject::GetSourcePadCount() { return pads_ == nullptr ? 0 : pads_->sources.count; }
SOURCEPAD* EObject::GetSourcePad(unsigned short index) {
  return pads_ == nullptr ? nullptr : pads_->sources.At(index);
}

unsigned long EObject::AddSourcePad(SOURCEPAD* pad) {
  if (pads_ == nullptr) pads_ = new (std::nothrow) PadTable;
  return pads_ != nullptr && pads_->sources.Add(pad);
}

unsigned long EObject::AddSinkPad(SINKPAD* pad) {
  if (pads_ == nullptr) pads_ = new (std::nothrow) PadTable;
  return pads_ != nullptr && pads_->sinks.Add(pad);
}

void EObject::ErrorMessage(const char* format, ...) {
  char text[1024];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (const ErrorMessageHook hook = errorMessageHook.load()) {
    hook(this, text);
  } else {
    std::fputs(text, stderr);
  }
}

void SetErrorMessageHook(ErrorMessageHook hook) { errorMessageHook.store(hook); }

EObject* LibraryFactory::CreateElement(char*) { return nullptr; }
QObject* LibraryFactory::CreateQObject(char*) { return nullptr; }
void* LibraryFactory::CreateObject(char*) { return nullptr; }

namespace {

// The first object that a factory of the list creates for the name.
template <class Result>
Result* FirstCreated(Factory** list, Result* (Factory::*create)(char*), char* name) {
  for (Factory** factory = list; *factory != nullptr; ++factory) {
    if (Result* created = ((*factory)->*create)(name)) return created;
  }
  return nullptr;
}

}  // namespace

EObject* PluginFactory::CreateElement(char* name) {
  return FirstCreated(list_, &Factory::CreateElement, name);
}
QObject* PluginFactory::CreateQObject(char* name) {
  return FirstCreated(list_, &Factory::CreateQObject, name);
}
void* PluginFactory::CreateObject(char* name) {
  return FirstCreated(list_, &Factory::CreateObject, name);
}

}  // namespace ZCOM
