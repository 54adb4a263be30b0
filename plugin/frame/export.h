// SPDX-License-Identifier: MIT
//
// Marks what the plug-in exports; everything else of it is hidden.
#pragma once

#if defined(_WIN32)
#if defined(CORVANE_BUILD)
#define CORVANE_API __declspec(dllexport)
#else
#define CORVANE_API
#endif
#else
#define CORVANE_API __attribute__((visibility("default")))
#endif
