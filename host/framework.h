// SPDX-License-Identifier: MIT
//
// The host's pipeline framework as an element sees it: elements and their pads, messages, property
// bags, the colour-table file, factories, and wrappers of the standard functions.
//
// Ownership: a host owns the elements and objects that a factory gives it and deletes them through
// their virtual destructors. A registered pad belongs to its element and to that element's copies.
// Threads: objects take no locks, so one thread at a time may use one chain; different chains may
// run in different threads. Nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "host/export.h"

namespace ZCOM {

class EObject;

// ---------------------------------------------------------------------------------------------
// Property bag: entries named by a key within a group ("Standard" for the pipeline's settings, an
// element's own name for its diagnostic switches).
//
// Numbers are kept in 32 bits with the type they were set with, and wrap into the type that they
// are asked for: 65538 read as `unsigned short` is 2. A string asked for as a number, or a number
// asked for as a string, counts as missing.
class CORVANE_HOST_API PROPERTIES {
 public:
  using Value = std::variant<std::int32_t, std::uint32_t, std::string>;
  using Group = std::map<std::string, Value, std::less<>>;

  // Stores the entry's value, or `defaultValue` when it is missing. Returns 1 when it was found.
  unsigned short GetProperty(const char* key, int* value, int defaultValue,
                             const char* group) const;
  unsigned short GetProperty(const char* key, unsigned short* value, unsigned short defaultValue,
                             const char* group) const;
  unsigned short GetProperty(const char* key, unsigned long* value, unsigned long defaultValue,
                             const char* group) const;

  // Copies the string, cut to `size` - 1 bytes, and a terminating zero into `buffer`. A missing
  // entry copies `defaultValue`, or leaves the buffer alone when that is null, and returns 0.
  unsigned short GetProperty(const char* key, char* buffer, unsigned short size,
                             const char* defaultValue, const char* group) const;

  // Adds an entry or replaces it. A null string is stored as the empty one.
  void SetProperty(const char* key, const char* value, const char* group);
  void SetProperty(const char* key, int value, const char* group);
  void SetProperty(const char* key, unsigned long value, const char* group);

  // Every entry, ordered by group and key, for a host that lists or records a bag.
  const std::map<std::string, Group, std::less<>>& Groups() const { return groups_; }

 private:
  const Value* Find(const char* key, const char* group) const;
  void Store(const char* key, Value value, const char* group);

  std::map<std::string, Group, std::less<>> groups_;
};

// ---------------------------------------------------------------------------------------------
// Base of every message.
class CORVANE_HOST_API QObject {
 public:
  explicit QObject(unsigned short kind = 0) : MessageKind(kind) {}
  QObject(const QObject&) = default;
  QObject& operator=(const QObject&) = default;
  virtual ~QObject();

  // Nonzero makes every element pass the message on untouched.
  virtual unsigned long IsPassThrough();

  PROPERTIES Properties;
  std::uint16_t MessageKind;
};

// ---------------------------------------------------------------------------------------------
// Pads. The element makes its pads and registers them; the host links a source pad to the sink pad
// of the element that follows.
class CORVANE_HOST_API SINKPAD {
 public:
  SINKPAD(EObject* owner, unsigned short index) : Owner(owner), Index(index) {}
  virtual ~SINKPAD();

  EObject* Owner;
  unsigned short Index;
};

class CORVANE_HOST_API SOURCEPAD {
 public:
  explicit SOURCEPAD(EObject* owner) : Owner(owner) {}
  virtual ~SOURCEPAD();

  void Link(SINKPAD* sink) { LinkedSinkPad = sink; }

  EObject* Owner;
  SINKPAD* LinkedSinkPad = nullptr;
};

// ---------------------------------------------------------------------------------------------
// Base of every element.
class CORVANE_HOST_API EObject {
 public:
  EObject();
  EObject(const EObject&);
  EObject& operator=(const EObject&);
  virtual ~EObject();

  // Makes the element ready: 1 when it is, 0 otherwise.
  virtual unsigned long Initialize();
  // Takes a message: nonzero when it was handled and the chain behind the element accepted it.
  virtual unsigned long DataArrived(QObject* message, unsigned short sinkPad);
  virtual unsigned long Run();

  virtual unsigned short GetSinkPadCount();
  virtual SINKPAD* GetSinkPad(unsigned short index);  // null beyond the last
  virtual unsigned short GetSourcePadCount();
  virtual SOURCEPAD* GetSourcePad(unsigned short index);  // null beyond the last

  // Registers a pad and takes it over; it lives as long as the element or a copy of it.
  void AddSourcePad(SOURCEPAD* pad);
  void AddSinkPad(SINKPAD* pad);

  // Reports a formatted text for the element through the hook of `SetErrorMessageHook`.
  void ErrorMessage(const char* format, ...) CORVANE_PRINTF_LIKE(2, 3);

  PROPERTIES Properties;
  PROPERTIES* HostProperties = nullptr;  // the host's own bag, which it shares with its elements

 private:
  std::vector<std::shared_ptr<SOURCEPAD>> sourcePads_;
  std::vector<std::shared_ptr<SINKPAD>> sinkPads_;
};

// Takes the texts of `EObject::ErrorMessage`, on the thread that reports. Null puts back the
// standard error stream. To be set before chains run.
using ErrorMessageHook = void (*)(EObject* element, const char* text);
CORVANE_HOST_API void SetErrorMessageHook(ErrorMessageHook hook);

// ---------------------------------------------------------------------------------------------
// The colour-table file. Bytes 0 to 3 hold the size of the directory in bytes, little-endian; the
// directory follows, then the tables. The file is opened for each call, so an object holds nothing
// but the name and may be copied. Buffers come from `GetData` and go back through `DeleteData`.
class CORVANE_HOST_API MFColorTable {
 public:
  // Nonzero when the file can be opened.
  unsigned long SetFilename(const char* filename);

  // Stores the directory's size (0: the file has none) and returns 1. A file that cannot be read,
  // or a directory that does not lie in it, stores 0 and returns 0.
  unsigned long GetHeaderSize(unsigned long* size);

  // A buffer of `size` bytes read at file offset `offset`. With (0, 0) the single table of a file
  // without a directory: what follows byte 3, in at least 44217 bytes, zero behind the table's end.
  // A range outside the file gives null and 0, and so does a buffer that cannot be allocated.
  unsigned long GetData(long offset, long size, unsigned char** out);

  // A buffer of `bufferSize` bytes whose last `size` bytes were read at `offset`; 0 in front.
  unsigned long GetData(long offset, long size, long bufferSize, unsigned char** out);

  static void DeleteData(unsigned char* data);

 private:
  std::string filename_;
};

// ---------------------------------------------------------------------------------------------
// Factories. They are static objects and are never deleted through these types.
class CORVANE_HOST_API Factory {
 public:
  virtual EObject* CreateElement(char* name) = 0;
  virtual QObject* CreateQObject(char* name) = 0;
  virtual void* CreateObject(char* name) = 0;

 protected:
  ~Factory() = default;
};

// Serves no name: every operation gives null.
class CORVANE_HOST_API LibraryFactory : public Factory {
 public:
  EObject* CreateElement(char* name) override;
  QObject* CreateQObject(char* name) override;
  void* CreateObject(char* name) override;

 protected:
  ~LibraryFactory() = default;
};

// Hands a request to the factories of a null-terminated list, in order, until one creates.
class CORVANE_HOST_API PluginFactory final : public Factory {
 public:
  constexpr explicit PluginFactory(Factory** list) : list_(list) {}

  EObject* CreateElement(char* name) override;
  QObject* CreateQObject(char* name) override;
  void* CreateObject(char* name) override;

 private:
  Factory** list_;
};

// ---------------------------------------------------------------------------------------------
// Wrappers that behave as the standard functions their names end in. A null handle makes a write or
// a close a no-op with the result 0.
using FILEHANDLE = std::FILE*;

CORVANE_HOST_API FILEHANDLE fwfopen(const char* path, const char* mode);
CORVANE_HOST_API int fwfclose(FILEHANDLE file);
CORVANE_HOST_API std::size_t fwfread(void* data, std::size_t size, std::size_t count,
                                     FILEHANDLE file);
CORVANE_HOST_API std::size_t fwfwrite(const void* data, std::size_t size, std::size_t count,
                                      FILEHANDLE file);
CORVANE_HOST_API int fwfprintf(FILEHANDLE file, const char* format, ...) CORVANE_PRINTF_LIKE(2, 3);
CORVANE_HOST_API int fwsprintf(char* buffer, const char* format, ...) CORVANE_PRINTF_LIKE(2, 3);
CORVANE_HOST_API void* fwmemset(void* data, int value, std::size_t size);
CORVANE_HOST_API void* fwmemcpy(void* target, const void* source, std::size_t size);
CORVANE_HOST_API int fwstrcmp(const char* a, const char* b);

// Where the plug-in's diagnostic files lie. Their fixed names are full paths of a Windows drive;
// with a directory named here `fwfopen` puts such a file into it under its last name
// ("C:\\HTLog.txt" becomes HTLog.txt), otherwise the name is used as it stands. Null or empty takes
// the directory back. To be set before chains run.
CORVANE_HOST_API void SetDiagnosticsDirectory(const char* directory);

}  // namespace ZCOM
