// SPDX-License-Identifier: MIT
#include "tests/faults/allocator.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace corvane::faults {
namespace {

// No constructor of its own and no memory: allocations come before everything else.
[[gnu::tls_model("initial-exec")]] constinit thread_local AllocationGate currentGate = nullptr;
constinit std::atomic<int> fillByte{-1};
constinit std::atomic<std::int64_t> liveBlocks{0};

bool MayAllocate() {
  const AllocationGate gate = currentGate;
  if (gate == nullptr || gate()) return true;
  errno = ENOMEM;
  return false;
}

void Fill(void* block, std::size_t from) {
  const int byte = fillByte.load(std::memory_order_relaxed);
  if (byte < 0 || block == nullptr) return;
  const std::size_t size = malloc_usable_size(block);
  if (size > from) std::memset(static_cast<char*>(block) + from, byte, size - from);
}

void* Counted(void* block) {
  if (block != nullptr) liveBlocks.fetch_add(1, std::memory_order_relaxed);
  return block;
}

void* Filled(void* block) {
  Fill(block, 0);
  return Counted(block);
}

}  // namespace

void SetAllocationGate(AllocationGate gate) { currentGate = gate; }
void FillMemoryWith(int byte) { fillByte = byte; }
std::int64_t LiveBlocks() { return liveBlocks; }

}  // namespace corvane::faults

// NOLINTBEGIN(cppcoreguidelines-no-malloc): this is malloc.
extern "C" {

void* malloc(std::size_t size) noexcept {
  using namespace corvane::faults;
  return MayAllocate() ? Filled(__libc_malloc(size)) : nullptr;
}

void* calloc(std::size_t count, std::size_t size) noexcept {
  using namespace corvane::faults;
  return MayAllocate() ? Counted(__libc_calloc(count, size)) : nullptr;
}

void* realloc(void* block, std::size_t size) noexcept {
  using namespace corvane::faults;
  if (!MayAllocate()) return nullptr;
  if (block == nullptr) return Filled(__libc_realloc(nullptr, size));
  const std::size_t old = malloc_usable_size(block);
  void* const moved = __libc_realloc(block, size);
  if (size == 0) {
    liveBlocks.fetch_sub(1, std::memory_order_relaxed);
  } else {
    Fill(moved, old);
  }
  return moved;
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
  using namespace corvane::faults;
  return MayAllocate() ? Filled(__libc_memalign(alignment, size)) : nullptr;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
  void* const made = memalign(alignment, size);
  if (made == nullptr) return ENOMEM;
  *block = made;
  return 0;
}

void free(void* block) noexcept {
  using namespace corvane::faults;
  if (block == nullptr) return;
  const int problem = errno;
  Fill(block, 0);
  liveBlocks.fetch_sub(1, std::memory_order_relaxed);
  __libc_free(block);
  errno = problem;
}

}  // extern "C"
// NOLINTEND(cppcoreguidelines-no-malloc)
