// SPDX-License-Identifier: MIT
//
// The host's pipeline framework as an element sees it: elements and their pads, messages, property
// bags, the colour-table file, factories, and wrappers of the standard functions.
//
// Ownership: a host owns the elements and objects that a factory gives it and deletes them through
// their virtual destructors. A registered pad belongs to its element.
// Binary interface: that of the compilers with the Itanium C++ ABI (GCC and Clang, those of
// MinGW-w64 too). Other compilers lay the classes out otherwise and build these sources themselves;
// see docs/abi.md for the order of all virtual operations. Threads: objects take no locks, so one
// thread at a time may use one chain; different chains may run in different threads. Nothing here
// throws: what finds no memory says so in its result. No type of the standard library crosses this
// interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

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
  // One entry of a bag, for a host that lists or records it. It lives until the bag changes.
  class CORVANE_HOST_API Entry {
   public:
    const char* Group() const { return group_; }
    const char* Key() const { return key_; }
    // The text, or null when the entry is a number.
    const char* Text() const { return text_; }
    // A number's 32 bits, and whether it was set as an `int`. 0 for a text.
    std::uint32_t Bits() const { return bits_; }
    bool IsSigned() const { return isSigned_; }
    // The entry that follows in the order of groups and keys, or null.
    const Entry* Next() const { return next_; }

   private:
    friend class PROPERTIES;
    Entry* next_ = nullptr;
    const char* group_ = nullptr;
    const char* key_ = nullptr;
    char* text_ = nullptr;
    std::size_t textCapacity_ = 0;
    std::uint32_t bits_ = 0;
    bool isSigned_ = false;
  };

  PROPERTIES() = default;
  PROPERTIES(const PROPERTIES& other);
  PROPERTIES& operator=(const PROPERTIES& other);
  ~PROPERTIES();

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

  // Adds an entry or replaces it, and returns 1. Short of memory the bag stays as it is, the result
  // is 0; replacing a number by a number, or a text by one that is no longer than any that the
  // entry has held, takes no memory, in a copy neither. A null string is stored as the empty one.
  unsigned short SetProperty(const char* key, const char* value, const char* group);
  unsigned short SetProperty(const char* key, int value, const char* group);
  unsigned short SetProperty(const char* key, unsigned long value, const char* group);

  // The first entry in the order of groups and keys, or null.
  const Entry* First() const { return first_; }

  // False once an entry could not be kept for want of memory, by a setter or in copying a bag.
  bool IsComplete() const { return isComplete_; }

 private:
  const Entry* Find(const char* key, const char* group) const;
  Entry* FindOrAdd(const char* key, const char* group);
  unsigned short SetText(const char* key, const char* text, std::size_t capacity,
                         const char* group);
  unsigned short SetNumber(const char* key, std::uint32_t bits, bool isSigned, const char* group);
  void Append(const PROPERTIES& other);
  void Clear();

  Entry* first_ = nullptr;
  bool isComplete_ = true;
  [[maybe_unused]] void* reserved_[4] = {};  // room to grow within the class's size
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
// Base of every element. A copy has pads of its own, linked as those of the element it was made
// from; an element with pads keeps them when another is assigned to it.
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

  // Registers a pad, takes it over and returns 1. Short of memory, or with 65535 pads registered,
  // the pad stays the caller's and the result is 0.
  unsigned long AddSourcePad(SOURCEPAD* pad);
  unsigned long AddSinkPad(SINKPAD* pad);

  // Reports a formatted text for the element through the hook of `SetErrorMessageHook`.
  void ErrorMessage(const char* format, ...) CORVANE_PRINTF_LIKE(2, 3);

  PROPERTIES Properties;
  PROPERTIES* HostProperties = nullptr;  // the host's own bag, which it shares with its elements

 private:
  void MakePadsLike(const EObject& other);

  struct PadTable;
  PadTable* pads_ = nullptr;
  [[maybe_unused]] void* reserved_[5] = {};
};

// Takes the texts of `EObject::ErrorMessage`, on the thread that reports. Null puts back the
// standard error stream. To be set before chains run.
using ErrorMessageHook = void (*)(EObject* element, const char* text);
CORVANE_HOST_API void SetErrorMessageHook(ErrorMessageHook hook);

// ---------------------------------------------------------------------------------------------
// The colour-table file. Bytes 0 to 3 hold the size of the directory in bytes, little-endian; the
// directory follows, then the tables. Buffers come from `GetData` and go back through `DeleteData`.
//
// Between `Open` and `Close` all calls read one open file, so that a file that is replaced
// meanwhile mixes nothing; otherwise each call opens the file. A copy has the name alone.
class CORVANE_HOST_API MFColorTable {
 public:
  MFColorTable() = default;
  MFColorTable(const MFColorTable& other);
  MFColorTable& operator=(const MFColorTable& other);
  ~MFColorTable();

  // Nonzero when the file can be opened and read; a folder cannot.
  unsigned long SetFilename(const char* filename);

  // Opens the file for the calls that follow: nonzero when it can be read.
  unsigned long Open();
  void Close();

  // Stores the directory's size (0: the file has none) and returns 1. A file that cannot be read,
  // or a directory that does not lie in it, stores 0 and returns 0.
  unsigned long GetHeaderSize(unsigned long* size);

  // A buffer of `size` bytes read at file offset `offset`. With (0, 0) the single table of a file
  // without a directory: the 44217 bytes that follow byte 3, as many as the largest table has, zero
  // behind the file's end. A range outside the file gives null and 0, and so does a buffer that
  // cannot be allocated. Where `long` has 32 bits, offsets are taken as unsigned.
  unsigned long GetData(long offset, long size, unsigned char** out);

  // A buffer of `bufferSize` bytes whose last `size` bytes were read at `offset`; 0 in front.
  unsigned long GetData(long offset, long size, long bufferSize, unsigned char** out);

  static void DeleteData(unsigned char* data);

  // A buffer with the same `size` bytes as `data`, which goes back through `DeleteData`; null when
  // memory is short.
  static unsigned char* CopyData(const unsigned char* data, unsigned long size);

 private:
  // The file to read from: the open one, or a new one that the destructor closes.
  class Reading;

  char* filename_ = nullptr;
  std::FILE* file_ = nullptr;  // between `Open` and `Close`
  [[maybe_unused]] void* reserved_[sizeof(void*) == 8 ? 2 : 4] = {};
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

// Where the plug-in's three diagnostic files lie. Their fixed names are full paths of a Windows
// drive; with a directory named here `fwfopen` puts these files into it under their last names
// ("C:\\HTLog.txt" becomes HTLog.txt), otherwise the names are used as they stand, as are all other
// names always. Null or empty takes the directory back. To be set before chains run: the names are
// the same for all chains of a process, so only one chain at a time should write them. Returns 0
// for a directory whose name is too long (4000 bytes), which changes nothing, otherwise 1.
CORVANE_HOST_API unsigned long SetDiagnosticsDirectory(const char* directory);

// The `errno` of the first thing that has gone wrong since then: a diagnostic file that cannot be
// opened, unless there is none to read, or a read, write or close of these wrappers that fails, as
// on a full disk. 0: nothing. Elements say nothing of it, so a host that wants the files whole asks
// here, behind the end of a page.
CORVANE_HOST_API int DiagnosticsProblem();

}  // namespace ZCOM
