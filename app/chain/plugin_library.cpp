// SPDX-License-Identifier: MIT
#include "app/chain/plugin_library.h"

#include <cstdio>
#include <new>

#include "app/support/failure.h"
#include "app/support/message.h"
#include "app/support/platform.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace corvane {
namespace {

#if defined(_WIN32)
constexpr const char* kPluginFile = "corvane.dll";

void* Open(const std::filesystem::path& file) { return LoadLibraryW(file.c_str()); }
void Close(void* handle) { FreeLibrary(static_cast<HMODULE>(handle)); }
void* Symbol(void* handle, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle), name));
}
std::string LastProblem() { return "error " + std::to_string(GetLastError()); }
#else
constexpr const char* kPluginFile = "corvane.so";

void* Open(const std::filesystem::path& file) { return dlopen(file.c_str(), RTLD_NOW); }
void Close(void* handle) { dlclose(handle); }
void* Symbol(void* handle, const char* name) { return dlsym(handle, name); }
std::string LastProblem() {
  const char* problem = dlerror();
  return problem == nullptr ? "unknown error" : problem;
}
#endif

// What an element reports may hold a file's name.
void ShowReport(ZCOM::EObject*, const char* text) {
  try {
    std::fputs(PrintableLines(text).c_str(), stderr);
  } catch (const std::bad_alloc&) {
    std::fputs("corvane: out of memory\n", stderr);
  }
}

}  // namespace

std::filesystem::path ProgramDirectory() { return ProgramFile().parent_path(); }

std::filesystem::path FindBesideProgram(std::initializer_list<const char*> candidates) {
  const std::filesystem::path directory = ProgramDirectory();
  for (const char* candidate : candidates) {
    std::filesystem::path file = (directory / candidate).lexically_normal();
    std::error_code ignored;
    if (std::filesystem::exists(file, ignored)) return file;
  }
  return {};
}

std::filesystem::path PluginFile() {
  const std::string built = std::string("../lib/") + kPluginFile;
  const std::string installed = std::string(CORVANE_PLUGIN_DIR "/") + kPluginFile;
  std::filesystem::path found = FindBesideProgram({kPluginFile, built.c_str(), installed.c_str()});
  if (found.empty()) throw Failure(std::string(kPluginFile) + ": not found beside the program");
  return found;
}

PluginLibrary::PluginLibrary() : PluginLibrary(PluginFile()) {}

PluginLibrary::PluginLibrary(const std::filesystem::path& file) : handle_(Open(file)) {
  if (handle_ == nullptr) {
    throw Failure(file.string() + ": cannot load the plug-in: " + LastProblem());
  }
  using GetFactoryFunction = ZCOM::PluginFactory* (*)();
  const auto getFactory = reinterpret_cast<GetFactoryFunction>(Symbol(handle_, "GetFactory"));
  if (getFactory == nullptr) {
    Close(handle_);
    throw Failure(file.string() + ": is no plug-in: it has no GetFactory");
  }
  factory_ = getFactory();
  ZCOM::SetErrorMessageHook(&ShowReport);
}

PluginLibrary::~PluginLibrary() { Close(handle_); }

std::unique_ptr<ZCOM::EObject> PluginLibrary::CreateElement(std::string name) const {
  std::unique_ptr<ZCOM::EObject> element(factory_->CreateElement(name.data()));
  if (!element) throw Failure("the plug-in has no element \"" + name + "\"");
  return element;
}

void* PluginLibrary::CreateObject(std::string name) const {
  void* object = factory_->CreateObject(name.data());
  if (object == nullptr) throw Failure("the plug-in has no object \"" + name + "\"");
  return object;
}

}  // namespace corvane
