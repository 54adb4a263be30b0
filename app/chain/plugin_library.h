// SPDX-License-Identifier: MIT
//
// The plug-in as a loaded library.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "host/framework.h"

namespace corvane {

// Where the running program lies.
std::filesystem::path ProgramDirectory();

// The first of `candidates`, taken relative to the program's directory, that exists; empty when
// none does.
std::filesystem::path FindBesideProgram(std::initializer_list<const char*> candidates);

// The plug-in that lies beside the program. Throws Failure when there is none.
std::filesystem::path PluginFile();

class PluginLibrary {
 public:
  // Loads the plug-in that lies beside the program. Throws Failure when it cannot.
  PluginLibrary();
  explicit PluginLibrary(const std::filesystem::path& file);
  ~PluginLibrary();
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;

  // A new element; the library must outlive it. Throws Failure for a name it does not serve.
  std::unique_ptr<ZCOM::EObject> CreateElement(std::string name) const;

  // A new object of the named class, owned by the caller, who knows the class and deletes it
  // through its virtual destructor. Throws Failure for a name it does not serve.
  void* CreateObject(std::string name) const;

 private:
  void* handle_;
  ZCOM::PluginFactory* factory_;
};

}  // namespace corvane
