// SPDX-License-Identifier: MIT
//
// What the built plug-in shows to the outside, and what is left when it is unloaded.
#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <regex>
#include <string>
#include <typeinfo>
#include <vector>

#include "host/framework.h"
#include "tests/harness/paths.h"

#if defined(_WIN32)
#include <windows.h>
// The tool help functions need the types of windows.h.
#include <tlhelp32.h>
#else
#include <dlfcn.h>

#include <cstdio>
#include <filesystem>
#endif

namespace {

using corvane::harness::PluginFile;

#if defined(_WIN32)

class LoadedPlugin {
 public:
  LoadedPlugin() : module_(LoadLibraryA(PluginFile().c_str())) {}
  ~LoadedPlugin() { FreeLibrary(module_); }

  explicit operator bool() const { return module_ != nullptr; }
  void* Symbol(const char* name) const {
    return reinterpret_cast<void*>(GetProcAddress(module_, name));
  }
  const unsigned char* Base() const { return reinterpret_cast<const unsigned char*>(module_); }

 private:
  HMODULE module_;
};

template <class Table>
const Table* DirectoryOf(const LoadedPlugin& plugin, int index) {
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(plugin.Base());
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(plugin.Base() + dos->e_lfanew);
  const DWORD offset = headers->OptionalHeader.DataDirectory[index].VirtualAddress;
  return reinterpret_cast<const Table*>(plugin.Base() + offset);
}

std::vector<std::string> ExportedNames() {
  const LoadedPlugin plugin;
  const auto* exports = DirectoryOf<IMAGE_EXPORT_DIRECTORY>(plugin, IMAGE_DIRECTORY_ENTRY_EXPORT);
  const auto* names = reinterpret_cast<const DWORD*>(plugin.Base() + exports->AddressOfNames);
  std::vector<std::string> result;
  for (DWORD i = 0; i < exports->NumberOfNames; ++i) {
    result.emplace_back(reinterpret_cast<const char*>(plugin.Base() + names[i]));
  }
  return result;
}

std::vector<std::string> NeededLibraries() {
  const LoadedPlugin plugin;
  std::vector<std::string> result;
  for (const auto* import =
           DirectoryOf<IMAGE_IMPORT_DESCRIPTOR>(plugin, IMAGE_DIRECTORY_ENTRY_IMPORT);
       import->Name != 0; ++import) {
    result.emplace_back(reinterpret_cast<const char*>(plugin.Base() + import->Name));
  }
  return result;
}

constexpr const char* kAllowedLibraries = "libcorvane_host\\.dll|KERNEL32\\.dll|msvcrt\\.dll";

int OpenHandles() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return static_cast<int>(count);
}

int RunningThreads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  int count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    count += entry.th32OwnerProcessID == GetCurrentProcessId();
  }
  CloseHandle(snapshot);
  return count;
}

#else

class LoadedPlugin {
 public:
  LoadedPlugin() : handle_(dlopen(PluginFile().c_str(), RTLD_NOW)) {}
  ~LoadedPlugin() { dlclose(handle_); }

  explicit operator bool() const { return handle_ != nullptr; }
  void* Symbol(const char* name) const { return dlsym(handle_, name); }

 private:
  void* handle_;
};

// The first group of every line of the command's output that matches.
std::vector<std::string> Matches(const std::string& command, const char* pattern) {
  const std::regex expression(pattern);
  std::vector<std::string> result;
  std::FILE* pipe = popen(command.c_str(), "r");
  char line[4096];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    std::cmatch match;
    if (std::regex_search(line, match, expression)) result.push_back(match[1]);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return result;
}

std::vector<std::string> ExportedNames() {
  return Matches("nm -D --defined-only " + PluginFile(), "[A-Za-z] (\\S+)\\s*$");
}

std::vector<std::string> NeededLibraries() {
  return Matches("readelf -d " + PluginFile(), "\\(NEEDED\\).*\\[(.*)\\]");
}

constexpr const char* kAllowedLibraries =
    "libcorvane_host\\.so\\.\\d+\\.\\d+|lib(stdc\\+\\+|gcc_s|m|c|asan|ubsan|tsan)\\.so\\.\\d+|ld-."
    "*";

int EntriesOf(const char* directory) {
  const auto entries = std::filesystem::directory_iterator(directory);
  return static_cast<int>(std::distance(begin(entries), end(entries)));
}

int OpenHandles() { return EntriesOf("/proc/self/fd"); }
int RunningThreads() { return EntriesOf("/proc/self/task"); }

#endif

std::string Demangled(const std::string& symbol) {
  int status = 0;
  char* text = abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status);
  const std::string result = text == nullptr ? symbol : text;
  std::free(text);
  return result;
}

TEST(PluginFile, ExportsGetFactoryAndItsNamedClassesAlone) {
  const std::regex allowed(
      "(vtable for |typeinfo for |typeinfo name for |non-virtual thunk to )?"
      "(FACTORY::\\w+|EColorInline|EHalftoneModule|ECorvaneDotManagement|Movement|CorvaneMovement|"
      "RasterFilter\\w+)(::.*)?");
  int plainExports = 0;
  for (const std::string& symbol : ExportedNames()) {
    const bool isEntry = symbol == "GetFactory";
    plainExports += isEntry;
    EXPECT_TRUE(isEntry || std::regex_match(Demangled(symbol), allowed)) << Demangled(symbol);
  }
  EXPECT_EQ(plainExports, 1);
}

TEST(PluginFile, NeedsTheHostLayerAndTheStandardLibraryAlone) {
  const std::vector<std::string> libraries = NeededLibraries();
  EXPECT_FALSE(libraries.empty());
  for (const std::string& library : libraries) {
    EXPECT_TRUE(std::regex_match(library, std::regex(kAllowedLibraries))) << library;
  }
}

// A host that was compiled with type information may use it on what it is given.
TEST(PluginFile, TellsTheTypesOfItsElements) {
  const LoadedPlugin plugin;
  const auto getFactory = reinterpret_cast<ZCOM::PluginFactory* (*)()>(plugin.Symbol("GetFactory"));
  ASSERT_NE(getFactory, nullptr);
  for (const std::string name : {"EColorInline", "EHalftoneModule", "EDotManagement"}) {
    std::string asked = name;
    const std::unique_ptr<ZCOM::EObject> element(getFactory()->CreateElement(asked.data()));
    ASSERT_NE(element, nullptr) << name;
    ZCOM::EObject& object = *element;
    EXPECT_NE(typeid(object), typeid(ZCOM::EObject)) << name;
    EXPECT_EQ(dynamic_cast<void*>(element.get()), element.get()) << name;
  }
}

TEST(PluginFile, LeavesNoThreadOrHandleBehind) {
  ASSERT_TRUE(LoadedPlugin());
  const int handles = OpenHandles();
  const int threads = RunningThreads();
  for (int i = 0; i < 200; ++i) ASSERT_TRUE(LoadedPlugin());
  EXPECT_EQ(OpenHandles(), handles);
  EXPECT_EQ(RunningThreads(), threads);
}

}  // namespace

#if defined(_WIN32)

// The library entry under a name of its own, with its one system call watched.
namespace entry {
int silencedLibraries = 0;
BOOL Silence(HMODULE) {
  ++silencedLibraries;
  return TRUE;
}
}  // namespace entry
#define DllMain WatchedLibraryEntry
#define DisableThreadLibraryCalls entry::Silence
#include "plugin/library_entry.cpp"
#undef DllMain
#undef DisableThreadLibraryCalls

TEST(LibraryEntry, SilencesThreadNoticesOnAttachAndAlwaysSucceeds) {
  for (DWORD reason :
       {DLL_PROCESS_ATTACH, DLL_THREAD_ATTACH, DLL_THREAD_DETACH, DLL_PROCESS_DETACH, 77}) {
    entry::silencedLibraries = 0;
    EXPECT_EQ(WatchedLibraryEntry(nullptr, reason, nullptr), TRUE) << reason;
    EXPECT_EQ(entry::silencedLibraries, reason == DLL_PROCESS_ATTACH ? 1 : 0) << reason;
  }
}

#endif
