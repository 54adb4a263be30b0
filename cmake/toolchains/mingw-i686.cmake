# SPDX-License-Identifier: MIT
#
# Cross-builds for 32-bit Windows.
set(arch i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
