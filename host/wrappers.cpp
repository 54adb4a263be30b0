// SPDX-License-Identifier: MIT
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <mutex>

#include "host/framework.h"

namespace ZCOM {
namespace {

// The fixed names of the plug-in's diagnostic files, and what they are called in a directory.
struct DiagnosticFile {
  const char* path;
  const char* name;
};
constexpr DiagnosticFile kDiagnosticFiles[] = {
    {"c:\\rgb.raw", "rgb.raw"},
    {"c:\\points.bin", "points.bin"},
    {"C:\\HTLog.txt", "HTLog.txt"},
};

constexpr std::size_t kLongestDirectory = 4000;
constexpr std::size_t kLongestPath = kLongestDirectory + 16;

std::mutex diagnosticsMutex;
char diagnosticsDirectory[kLongestDirectory + 1];
std::atomic<int> diagnosticsProblem = 0;

void NoteProblem() {
  int none = 0;
  diagnosticsProblem.compare_exchange_strong(none, errno);
}

bool IsDiagnosticFile(const char* path) {
  for (const DiagnosticFile& file : kDiagnosticFiles) {
    if (std::strcmp(path, file.path) == 0) return true;
  }
  return false;
}

// Where a file is really opened: `path` itself, or `moved`, which is filled, for a diagnostic file
// while a directory is named.
const char* Located(const char* path, char (&moved)[kLongestPath]) {
  for (const DiagnosticFile& file : kDiagnosticFiles) {
    if (std::strcmp(path, file.path) != 0) continue;
    const std::lock_guard<std::mutex> lock(diagnosticsMutex);
    if (diagnosticsDirectory[0] == 0) return path;
    std::snprintf(moved, sizeof moved, "%s/%s", diagnosticsDirectory, file.name);
    return moved;
  }
  return path;
}

}  // namespace

unsigned long SetDiagnosticsDirectory(const char* directory) {
  const char* const name = directory == nullptr ? "" : directory;
  const std::size_t bytes = std::strlen(name) + 1;
  if (bytes > sizeof diagnosticsDirectory) return 0;
  const std::lock_guard<std::mutex> lock(diagnosticsMutex);
  std::memcpy(diagnosticsDirectory, name, bytes);
  diagnosticsProblem = 0;
  return 1;
}

int DiagnosticsProblem() { return diagnosticsProblem; }

FILEHANDLE fwfopen(const char* path, const char* mode) {
  char moved[kLongestPath];
  const FILEHANDLE file = std::fopen(Located(path, moved), mode);
  // A chart that is not there is no problem: the page prints as with an empty one.
  const bool isNoChart = mode[0] == 'r' && errno == ENOENT;
  if (file == nullptr && !isNoChart && IsDiagnosticFile(path)) NoteProblem();
  return file;
}

int fwfclose(FILEHANDLE file) {
  if (file == nullptr) return 0;
  const int result = std::fclose(file);
  if (result != 0) NoteProblem();
  return result;
}

std::size_t fwfread(void* data, std::size_t size, std::size_t count, FILEHANDLE file) {
  if (file == nullptr) return 0;
  const std::size_t read = std::fread(data, size, count, file);
  if (read < count && std::ferror(file) != 0) NoteProblem();
  return read;
}

std::size_t fwfwrite(const void* data, std::size_t size, std::size_t count, FILEHANDLE file) {
  if (file == nullptr) return 0;
  const std::size_t written = std::fwrite(data, size, count, file);
  if (written < count && size != 0) NoteProblem();
  return written;
}

int fwfprintf(FILEHANDLE file, const char* format, ...) {
  if (file == nullptr) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const int written = std::vfprintf(file, format, arguments);
  va_end(arguments);
  if (written < 0) NoteProblem();
  return written;
}

int fwsprintf(char* buffer, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int written = std::vsprintf(buffer, format, arguments);
  va_end(arguments);
  return written;
}

void* fwmemset(void* data, int value, std::size_t size) { return std::memset(data, value, size); }
void* fwmemcpy(void* target, const void* source, std::size_t size) {
  return std::memcpy(target, source, size);
}
int fwstrcmp(const char* a, const char* b) { return std::strcmp(a, b); }

}  // namespace ZCOM
