// SPDX-License-Identifier: MIT
//
// The library and the JPEG library in it let a program define the functions that they allocate
// with. Where they do not (they are part of the program on Windows), or their own are bound to
// them, nothing is kept.
#include "app/image/tiff_memory.h"

#if defined(__linux__)
#include <malloc.h>
#include <tiffio.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "app/support/memory_reserve.h"

namespace corvane {
namespace {

MemoryReserve tiffReserve;

void* AllocateOrReserve(std::size_t size) {
  void* const block = std::malloc(size);
  return block != nullptr ? block : tiffReserve.Allocate(size);
}

void FreeOrReturn(void* block) {
  if (tiffReserve.Owns(block)) {
    tiffReserve.Free();
  } else {
    std::free(block);
  }
}

}  // namespace

void KeepMemoryForTiff() {}

}  // namespace corvane

// NOLINTBEGIN(bugprone-reserved-identifier,cppcoreguidelines-no-malloc): as the library has them.
extern "C" {

void* _TIFFmalloc(tmsize_t size) {
  return size == 0 ? nullptr : corvane::AllocateOrReserve(static_cast<std::size_t>(size));
}

void _TIFFfree(void* block) { corvane::FreeOrReturn(block); }

void* _TIFFrealloc(void* block, tmsize_t size) {
  using corvane::tiffReserve;
  const bool reserved = tiffReserve.Owns(block);
  if (!reserved) {
    void* const moved = std::realloc(block, static_cast<std::size_t>(size));
    if (moved != nullptr || size == 0) return moved;
  }
  void* const moved = _TIFFmalloc(size);
  if (moved == nullptr || block == nullptr) return moved;
  const std::size_t old = reserved ? tiffReserve.SizeOf(block) : malloc_usable_size(block);
  std::memcpy(moved, block, std::min(old, static_cast<std::size_t>(size)));
  _TIFFfree(block);
  return moved;
}

// No public header declares these two; the first argument is the decompressor.
void* jpeg_get_small(void*, std::size_t size);
void jpeg_free_small(void*, void* block, std::size_t size);

void* jpeg_get_small(void*, std::size_t size) { return corvane::AllocateOrReserve(size); }

void jpeg_free_small(void*, void* block, std::size_t) { corvane::FreeOrReturn(block); }

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cppcoreguidelines-no-malloc)

#else
namespace corvane {
void KeepMemoryForTiff() {}
}  // namespace corvane
#endif
