# SPDX-License-Identifier: MIT
#
# What `cmake --install` puts where, below the prefix:
#
#   bin/corvane                    the program
#   lib/corvane.so                 the plug-in, which hosts load at run time
#   lib/libcorvane_host.so         the host layer, which hosts link to
#   lib/cmake/corvane_host/        find_package(corvane_host): the target corvane::corvane_host and,
#                                  to name the plug-in's file, corvane::corvane
#   include/corvane/               the public headers
#   share/corvane/default.cvt      the default colour tables
include(CMakePackageConfigHelpers)

set_target_properties(corvane PROPERTIES INSTALL_RPATH "$ORIGIN")
target_include_directories(corvane_host INTERFACE $<INSTALL_INTERFACE:include/corvane>)
target_compile_features(corvane_host INTERFACE cxx_std_17)

install(TARGETS corvane_host corvane EXPORT corvane_host RUNTIME DESTINATION bin
        LIBRARY DESTINATION lib ARCHIVE DESTINATION lib)
install(FILES host/export.h host/framework.h host/raster.h DESTINATION include/corvane/host)
install(FILES printmode/print_mode.h DESTINATION include/corvane/printmode)
install(FILES movement/movement.h DESTINATION include/corvane/movement)
install(FILES plugin/export.h DESTINATION include/corvane/plugin)

set(package_dir lib/cmake/corvane_host)
install(EXPORT corvane_host NAMESPACE corvane:: FILE corvane_host-config.cmake
        DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/corvane_host-config-version.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/corvane_host-config-version.cmake DESTINATION ${package_dir})

if(CORVANE_BUILD_APP)
  install(TARGETS corvane_program RUNTIME DESTINATION bin)
  install(FILES ${PROJECT_BINARY_DIR}/share/corvane/default.cvt DESTINATION share/corvane OPTIONAL)
endif()

# The smallest host is built as its users build it: out of this tree, against what is installed.
if(CORVANE_BUILD_TESTS AND CORVANE_BUILD_APP AND NOT CMAKE_CROSSCOMPILING AND NOT CORVANE_SANITIZE)
  add_test(NAME host_example
           COMMAND ${CMAKE_COMMAND} -D BUILD_DIR=${PROJECT_BINARY_DIR}
                   -D GENERATOR=${CMAKE_GENERATOR} -D CXX_COMPILER=${CMAKE_CXX_COMPILER}
                   -P ${PROJECT_SOURCE_DIR}/examples/host/test.cmake)
endif()
