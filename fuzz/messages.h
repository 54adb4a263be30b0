// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "fuzz/fuzz.h"
#include "host/framework.h"

namespace corvane::fuzz {

// Elements by the names that the plug-in serves, linked in this order.
using ElementNames = std::span<const char* const>;

// A host that knows no manners: sends pages with settings that fit nothing, rows before and after
// them, ends without starts, and copies elements in the middle of a page. It keeps what the
// elements trust: a row's memory holds the bytes that its fields say, and is no longer.
void SendMessages(ElementNames elements, Bytes input);

}  // namespace corvane::fuzz
