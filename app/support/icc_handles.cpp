// SPDX-License-Identifier: MIT
#include "app/support/icc_handles.h"

#include <lcms2_plugin.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "app/support/memory_reserve.h"

namespace corvane {
namespace {

// As the library itself: a table that wants more is a damaged one.
constexpr std::size_t kLargestBlock = std::size_t{512} << 20;

thread_local bool memoryShort = false;

// What the library makes of parts it follows without a look at whether there was memory for them.
MemoryReserve iccReserve;

// A block begins with its size, for reallocation.
union Head {
  std::size_t size;
  std::max_align_t aligned;
};

void* Allocate(cmsContext, cmsUInt32Number size) {
  if (size == 0 || size > kLargestBlock) return nullptr;
  auto* head = static_cast<Head*>(std::malloc(sizeof(Head) + size));
  if (head == nullptr) {
    memoryShort = true;
    head = static_cast<Head*>(iccReserve.Allocate(sizeof(Head) + size));
    if (head == nullptr) return nullptr;
  }
  head->size = size;
  return head + 1;
}

void Free(cmsContext, void* block) {
  if (block == nullptr) return;
  Head* const head = static_cast<Head*>(block) - 1;
  if (iccReserve.Owns(head)) {
    iccReserve.Free();
  } else {
    std::free(head);
  }
}

void* Reallocate(cmsContext context, void* block, cmsUInt32Number size) {
  void* const moved = Allocate(context, size);
  if (block == nullptr || moved == nullptr) return moved;
  std::memcpy(moved, block, std::min<std::size_t>((static_cast<Head*>(block) - 1)->size, size));
  Free(context, block);
  return moved;
}

// The library's own locks are used without a look at whether there was memory for them. Without a
// lock nothing is read.
void* CreateLock(cmsContext context) {
  void* const memory = Allocate(context, sizeof(std::mutex));
  return memory == nullptr ? nullptr : new (memory) std::mutex;
}

void DestroyLock(cmsContext context, void* lock) {
  if (lock != nullptr) std::destroy_at(static_cast<std::mutex*>(lock));
  Free(context, lock);
}

cmsBool Lock(cmsContext, void* lock) {
  if (lock == nullptr) return FALSE;
  static_cast<std::mutex*>(lock)->lock();
  return TRUE;
}

void Unlock(cmsContext, void* lock) {
  if (lock != nullptr) static_cast<std::mutex*>(lock)->unlock();
}

cmsContext MakeContext() {
  static cmsPluginMutex locks = {{cmsPluginMagicNumber, 2000, cmsPluginMutexSig, nullptr},
                                 &CreateLock,
                                 &DestroyLock,
                                 &Lock,
                                 &Unlock};
  static cmsPluginMemHandler memory = {
      {cmsPluginMagicNumber, 2000, cmsPluginMemHandlerSig, &locks.base},
      &Allocate,
      &Free,
      &Reallocate,
      nullptr,
      nullptr,
      nullptr};
  cmsContext context = cmsCreateContext(&memory, nullptr);
  if (context == nullptr) throw std::bad_alloc();
  return context;
}

struct DeleteContext {
  void operator()(cmsContext context) const { cmsDeleteContext(context); }
};

}  // namespace

cmsContext IccContext() {
  static const std::unique_ptr<_cmsContext_struct, DeleteContext> context(MakeContext());
  return context.get();
}

bool TakeIccMemoryShort() { return std::exchange(memoryShort, false); }

}  // namespace corvane
