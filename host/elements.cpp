// SPDX-License-Identifier: MIT
//
// Messages, pads, elements and factories: everything that carries a virtual table.
#include <atomic>
#include <cstdarg>

#include "host/framework.h"

namespace ZCOM {
namespace {

std::atomic<ErrorMessageHook> errorMessageHook{nullptr};

// Pads and messages are counted in 16 bits.
template <class Pad>
Pad* PadAt(const std::vector<std::shared_ptr<Pad>>& pads, unsigned short index) {
  return index < pads.size() ? pads[index].get() : nullptr;
}

}  // namespace

QObject::~QObject() = default;
unsigned long QObject::IsPassThrough() { return 0; }

SINKPAD::~SINKPAD() = default;
SOURCEPAD::~SOURCEPAD() = default;

EObject::EObject() = default;
EObject::EObject(const EObject&) = default;
EObject& EObject::operator=(const EObject&) = default;
EObject::~EObject() = default;

unsigned long EObject::Initialize() { return 1; }
unsigned long EObject::DataArrived(QObject*, unsigned short) { return 1; }
unsigned long EObject::Run() { return 1; }

unsigned short EObject::GetSinkPadCount() { return static_cast<unsigned short>(sinkPads_.size()); }
SINKPAD* EObject::GetSinkPad(unsigned short index) { return PadAt(sinkPads_, index); }
unsigned short EObject::GetSourcePadCount() {
  return static_cast<unsigned short>(sourcePads_.size());
}
SOURCEPAD* EObject::GetSourcePad(unsigned short index) { return PadAt(sourcePads_, index); }

void EObject::AddSourcePad(SOURCEPAD* pad) { sourcePads_.emplace_back(pad); }
void EObject::AddSinkPad(SINKPAD* pad) { sinkPads_.emplace_back(pad); }

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
