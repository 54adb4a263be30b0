// SPDX-License-Identifier: MIT
//
// Marks what the host layer's shared library exports.
#pragma once

#if defined(_WIN32)
#if defined(CORVANE_HOST_BUILD)
#define CORVANE_HOST_API __declspec(dllexport)
#else
#define CORVANE_HOST_API __declspec(dllimport)
#endif
#else
#define CORVANE_HOST_API __attribute__((visibility("default")))
#endif

#if defined(__GNUC__)
#define CORVANE_PRINTF_LIKE(text, first) __attribute__((format(printf, text, first)))
#else
#define CORVANE_PRINTF_LIKE(text, first)
#endif
