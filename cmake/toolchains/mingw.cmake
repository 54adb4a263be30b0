# SPDX-License-Identifier: MIT
#
# What the MinGW-w64 toolchains of Debian have in common; `arch` is set by the including file.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${arch})
set(CMAKE_C_COMPILER ${arch}-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER ${arch}-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER ${arch}-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${arch}-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
