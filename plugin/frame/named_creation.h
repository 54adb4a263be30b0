// SPDX-License-Identifier: MIT
#pragma once

#include <new>

#include "host/framework.h"

namespace corvane {

// The index of `name` in a null-terminated table of names; the number of names when it is not
// there, and 0 in an empty table.
inline int IndexOfName(const char* const* names, const char* name) {
  int index = 0;
  while (names[index] != nullptr && ZCOM::fwstrcmp(name, names[index]) != 0) ++index;
  return index;
}

// A new object for the table's first name, null for any other name or when memory is short. An
// empty table creates for every name. The caller owns the object.
template <class Object>
Object* CreateNamed(const char* const* names, const char* name) {
  if (IndexOfName(names, name) != 0) return nullptr;
  auto* object = new (std::nothrow) Object;
  if constexpr (requires { object->IsComplete(); }) {
    if (object != nullptr && !object->IsComplete()) {
      delete object;
      return nullptr;
    }
  }
  return object;
}

}  // namespace corvane
