# SPDX-License-Identifier: MIT
#
# What `cmake --install` puts where, below the prefix; lib is the multiarch folder below /usr:
#
#   bin/corvane                    the program
#   bin/corvane_bench              the benchmarks, to try a machine with
#   lib/corvane/corvane.so         the plug-in, which hosts load at run time
#   lib/corvane/corvane-NAME.so    what reads kinds of input whose libraries may be missing
#   lib/libcorvane_host.so.0.1     the host layer, which hosts link to
#   lib/cmake/corvane_host/        find_package(corvane_host): the target corvane::corvane_host and,
#                                  to name the plug-in's file, corvane::corvane
#   lib/pkgconfig/                 the same for pkg-config
#   include/corvane/               the public headers
#   share/corvane/default.cvt      the default colour tables
#   bin/corvane-printer            the printer application, and for CUPS:
#   libexec/rastertocorvane        the filter, with a link in lib/cups/filter
#   share/ppd/corvane/*.ppd        the PPD files
#   share/man, share/bash-completion, ...: what the program says of itself
#
# Each file belongs to one of the components program, pictures, printer, plugin, host, development
# and bench, of which cmake/Package.cmake makes packages.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(plugin_dir ${CMAKE_INSTALL_LIBDIR}/corvane)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/corvane_host)

set_target_properties(corvane PROPERTIES INSTALL_RPATH "$ORIGIN/..")
target_include_directories(corvane_host INTERFACE $<INSTALL_INTERFACE:include/corvane>)
target_compile_features(corvane_host INTERFACE cxx_std_17)

install(TARGETS corvane_host EXPORT corvane_host
        RUNTIME DESTINATION bin COMPONENT host
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT host NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(TARGETS corvane EXPORT corvane_host LIBRARY DESTINATION ${plugin_dir} COMPONENT plugin)
install(FILES host/carried_state.h host/export.h host/framework.h host/property_names.h host/raster.h
        DESTINATION include/corvane/host COMPONENT development)
install(FILES printmode/print_mode.h DESTINATION include/corvane/printmode COMPONENT development)
install(FILES movement/movement.h DESTINATION include/corvane/movement COMPONENT development)
install(FILES plugin/get_factory.h DESTINATION include/corvane/plugin COMPONENT development)
install(FILES plugin/frame/export.h DESTINATION include/corvane/plugin/frame COMPONENT development)

install(EXPORT corvane_host NAMESPACE corvane:: FILE corvane_host-config.cmake
        DESTINATION ${package_dir} COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/corvane_host-config-version.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/corvane_host-config-version.cmake DESTINATION ${package_dir}
        COMPONENT development)

# Relative, so that an installed folder may be moved.
file(RELATIVE_PATH prefix_of_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/corvane_host.pc.in ${PROJECT_BINARY_DIR}/corvane_host.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/corvane_host.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

if(CORVANE_BUILD_APP)
  install(TARGETS corvane_program RUNTIME DESTINATION bin COMPONENT program)
  install(FILES ${PROJECT_BINARY_DIR}/share/corvane/default.cvt DESTINATION share/corvane
          COMPONENT program OPTIONAL)
  get_property(kinds GLOBAL PROPERTY CORVANE_KINDS)
  if(kinds)
    install(TARGETS ${kinds} LIBRARY DESTINATION ${plugin_dir} COMPONENT pictures)
  endif()
  set(reference ${PROJECT_BINARY_DIR}/reference)
  install(FILES ${reference}/corvane DESTINATION share/bash-completion/completions
          COMPONENT program OPTIONAL)
  install(FILES ${reference}/_corvane DESTINATION share/zsh/vendor-completions
          COMPONENT program OPTIONAL)
  install(FILES ${reference}/corvane.fish DESTINATION share/fish/vendor_completions.d
          COMPONENT program OPTIONAL)
  install(FILES ${reference}/corvane.1.gz DESTINATION share/man/man1 COMPONENT program OPTIONAL)
endif()

if(CORVANE_PRINTER)
  # What is run lies as deep as bin, so that it finds the plug-in and the tables likewise; the print
  # system finds the filter by a link.
  install(TARGETS corvane_printer RUNTIME DESTINATION bin COMPONENT printer)
  install(TARGETS corvane_filter RUNTIME DESTINATION libexec COMPONENT printer)
  file(CREATE_LINK ../../../libexec/rastertocorvane ${PROJECT_BINARY_DIR}/share/rastertocorvane SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/share/rastertocorvane DESTINATION lib/cups/filter
          COMPONENT printer)
  get_property(ppd_files GLOBAL PROPERTY CORVANE_PPD_FILES)
  install(FILES ${ppd_files} DESTINATION share/ppd/corvane COMPONENT printer)
  install(FILES ${PROJECT_BINARY_DIR}/reference/corvane-printer.1.gz
                ${PROJECT_BINARY_DIR}/reference/rastertocorvane.1.gz
          DESTINATION share/man/man1 COMPONENT printer OPTIONAL)
endif()

if(CORVANE_BUILD_BENCHMARKS)
  set_target_properties(corvane_bench PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS corvane_bench RUNTIME DESTINATION bin COMPONENT bench)
endif()

# The smallest host is built as its users build it: out of this tree, against what is installed.
if(CORVANE_BUILD_TESTS AND CORVANE_BUILD_APP AND NOT CMAKE_CROSSCOMPILING AND NOT CORVANE_SANITIZE)
  add_test(NAME host_example
           COMMAND ${CMAKE_COMMAND} -D BUILD_DIR=${PROJECT_BINARY_DIR}
                   -D GENERATOR=${CMAKE_GENERATOR} -D CXX_COMPILER=${CMAKE_CXX_COMPILER}
                   -P ${PROJECT_SOURCE_DIR}/examples/host/test.cmake)
endif()

if(NOT CMAKE_CROSSCOMPILING)
  include(cmake/Package.cmake)
endif()
