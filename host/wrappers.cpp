// SPDX-License-Identifier: MIT
#include <cstdarg>
#include <cstring>
#include <mutex>

#include "host/framework.h"

namespace ZCOM {
namespace {

std::mutex diagnosticsMutex;
std::string& DiagnosticsDirectory() {
  static std::string directory;
  return directory;
}

bool IsDrivePath(const char* path) {
  const char letter = path[0];
  const bool isLetter = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
  return isLetter && path[1] == ':' && path[2] == '\\';
}

// Where a file is really opened: a diagnostic file moves into the named directory.
std::string Located(const char* path) {
  const std::lock_guard<std::mutex> lock(diagnosticsMutex);
  const std::string& directory = DiagnosticsDirectory();
  if (directory.empty() || !IsDrivePath(path)) return path;
  return directory + "/" + (std::strrchr(path, '\\') + 1);
}

}  // namespace

void SetDiagnosticsDirectory(const char* directory) {
  const std::lock_guard<std::mutex> lock(diagnosticsMutex);
  DiagnosticsDirectory() = directory == nullptr ? "" : directory;
}

FILEHANDLE fwfopen(const char* path, const char* mode) {
  return std::fopen(Located(path).c_str(), mode);
}

int fwfclose(FILEHANDLE file) { return file == nullptr ? 0 : std::fclose(file); }

std::size_t fwfread(void* data, std::size_t size, std::size_t count, FILEHANDLE file) {
  return file == nullptr ? 0 : std::fread(data, size, count, file);
}

std::size_t fwfwrite(const void* data, std::size_t size, std::size_t count, FILEHANDLE file) {
  return file == nullptr ? 0 : std::fwrite(data, size, count, file);
}

int fwfprintf(FILEHANDLE file, const char* format, ...) {
  if (file == nullptr) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const int written = std::vfprintf(file, format, arguments);
  va_end(arguments);
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
