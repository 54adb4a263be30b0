# SPDX-License-Identifier: MIT
#
# The same with the program's libraries, where scripts/windows-libraries.sh puts them.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-x86_64.cmake)
get_filename_component(libraries ${CMAKE_CURRENT_LIST_DIR}/../../build-windows-program/libraries ABSOLUTE)
list(PREPEND CMAKE_FIND_ROOT_PATH ${libraries})
set(ENV{PKG_CONFIG_LIBDIR} ${libraries}/lib/pkgconfig)
