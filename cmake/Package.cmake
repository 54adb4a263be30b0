# SPDX-License-Identifier: MIT
#
# The Debian packages that `./dev package` makes, one of each component of cmake/Install.cmake. A
# printer's own package is one component more: its name in the list below and its files in
# Install.cmake.
set(CORVANE_MAINTAINER "Corvane maintainers <maintainers@corvane.example>" CACHE STRING
    "Name and address that packages carry")

set(host_package libcorvane-host${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(package_of_program corvane)
set(package_of_plugin corvane-plugin)
set(package_of_host ${host_package})
set(package_of_development libcorvane-host-dev)
set(package_of_pictures corvane-pictures)
set(CPACK_COMPONENTS_ALL program plugin host development)
set(package_of_printer corvane-printer)
if(kinds)
  list(APPEND CPACK_COMPONENTS_ALL pictures)
endif()
if(CORVANE_PRINTER)
  list(APPEND CPACK_COMPONENTS_ALL printer)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME corvane)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_CONTACT ${CORVANE_MAINTAINER})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

set(same_version "(= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "corvane-plugin ${same_version}, ${host_package} ${same_version}")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SUGGESTS "corvane-pictures, ghostscript, bubblewrap")
set(CPACK_DEBIAN_PICTURES_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PICTURES_PACKAGE_DEPENDS "corvane ${same_version}")
set(CPACK_DEBIAN_PRINTER_PACKAGE_SECTION text)
set(CPACK_DEBIAN_PRINTER_PACKAGE_DEPENDS
    "corvane ${same_version}, corvane-pictures ${same_version}, corvane-plugin ${same_version}, ${host_package} ${same_version}")
set(CPACK_DEBIAN_PRINTER_PACKAGE_SUGGESTS "cups, cups-filters, ghostscript, bubblewrap")
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_DEPENDS "${host_package} ${same_version}")
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "corvane-plugin ${same_version}, ${host_package} ${same_version}")

set(about "Corvane turns images and documents into the binary planes of a nine-ink\ninkjet printhead.")
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION
    "printhead data from images and documents\n${about}\n.\nThis package has the program and the default colour tables.")
set(CPACK_DEBIAN_PICTURES_DESCRIPTION
    "printhead data from further kinds of pictures\n${about}\n.\nThis package lets the program read further kinds of pictures, through\nlibraries that not everybody has.")
set(CPACK_DEBIAN_PRINTER_DESCRIPTION
    "printer application and CUPS driver for nine-ink printheads\n${about}\n.\nThis package has a printer application that speaks IPP, and a filter and\nPPD files for CUPS.")
set(CPACK_DEBIAN_PLUGIN_DESCRIPTION
    "printhead plug-in for raster pipelines\n${about}\n.\nThis package has the plug-in that printer drivers load: colour\nconversion, halftoning, dot placement and paper feed.")
set(CPACK_DEBIAN_HOST_DESCRIPTION
    "host layer of the Corvane plug-in\n${about}\n.\nThis package has the library that the plug-in and its hosts share.")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "host layer of the Corvane plug-in, development files\n${about}\n.\nThis package has the headers to write a host with.")

# How packages of hosts find the library's, and what keeps the cache of the loader true.
set(control ${PROJECT_BINARY_DIR}/package-control)
file(WRITE ${control}/shlibs "libcorvane_host ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR} "
     "${host_package} (>= ${PROJECT_VERSION})\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)

# What every Debian package has of its licence and history.
set(documents ${PROJECT_BINARY_DIR}/package-documents)
configure_file(packaging/copyright ${documents}/copyright COPYONLY)
configure_file(packaging/changelog.in ${documents}/changelog @ONLY)
execute_process(COMMAND gzip -9nkf ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)
foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package_of_${component}})
  install(FILES ${documents}/copyright ${documents}/changelog.gz
          DESTINATION share/doc/${package_of_${component}} COMPONENT ${component})
endforeach()

include(CPack)
