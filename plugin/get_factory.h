// SPDX-License-Identifier: MIT
//
// The plug-in's entry. A host finds it by its plain name in the loaded library:
//
//   auto* getFactory = reinterpret_cast<decltype(&GetFactory)>(dlsym(library, "GetFactory"));
//
// The factory creates the elements "EColorInline", "EHalftoneModule" and "EDotManagement"
// (`CreateElement`) and the object "CorvaneMovement" (`CreateObject`, a `Movement`). They are the
// caller's, who deletes them before the library is closed.
#pragma once

#include "host/framework.h"
#include "plugin/frame/export.h"

// The one plug-in factory; the same pointer on every call. It belongs to the library.
extern "C" CORVANE_API ZCOM::PluginFactory* GetFactory();
