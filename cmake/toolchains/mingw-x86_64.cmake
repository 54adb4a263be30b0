# SPDX-License-Identifier: MIT
#
# Cross-builds for 64-bit Windows and runs what is built under Wine.
set(arch x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/lib/wine/wine64)
