# Debian packages of the components (install.cmake). scripts/package.sh makes them, with cpack.
set(soname_package libperilink${PROJECT_VERSION_MAJOR})
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME perilink)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "perilink maintainers <maintainers@perilink.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each component has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src
  ${PROJECT_BINARY_DIR}/portable)
set(control ${PROJECT_BINARY_DIR}/control)
set(own_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

#   perilink_package(component NAME package SECTION section SUMMARY line TEXT text [DEPENDS depends])
macro(perilink_package component)
  cmake_parse_arguments(PACKAGE "" "NAME;SECTION;SUMMARY;TEXT;DEPENDS" "" ${ARGN})
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${PACKAGE_NAME})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${PACKAGE_SECTION})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${PACKAGE_DEPENDS}")
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${PACKAGE_SUMMARY}\n${PACKAGE_TEXT}")

  # What every package has to tell.
  set(folder ${PROJECT_BINARY_DIR}/doc/${component})
  set(destination ${CMAKE_INSTALL_DATAROOTDIR}/doc/${PACKAGE_NAME})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in
    ${folder}/changelog.Debian @ONLY)
  configure_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${folder}/changelog COPYONLY)
  install(FILES ${folder}/changelog ${folder}/changelog.Debian
    ${PROJECT_SOURCE_DIR}/cmake/debian/copyright DESTINATION ${destination}
    COMPONENT ${component})
endmacro()

string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
perilink_package(library NAME ${soname_package} SECTION libs
  SUMMARY "library that talks to wireless gaming mice and keyboards"
  TEXT "A configuration app finds the HID interfaces of a device with it, exchanges
commands with the firmware, reads and writes the whole configuration, follows
the battery, and upgrades the firmware.")
perilink_package(development NAME libperilink-dev SECTION libdevel
  DEPENDS "${soname_package} ${own_version}"
  SUMMARY "library that talks to wireless gaming mice and keyboards - development"
  TEXT "Headers, a CMake package, a pkg-config file, and virtual devices that a host
tries itself out on.")
perilink_package(tools NAME perilink SECTION utils
  DEPENDS "${soname_package} ${own_version}"
  SUMMARY "command line to wireless gaming mice and keyboards"
  TEXT "perictl finds devices, shows what they tell about themselves, reads and
changes their settings in words, follows battery and events, and upgrades the
firmware.")
perilink_package(python NAME python3-perilink SECTION python
  DEPENDS "python3, ${soname_package} (>= ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})"
  SUMMARY "module for wireless gaming mice and keyboards"
  TEXT "Finds devices, asks them, reads and changes their configuration, follows what
they report, and upgrades their firmware.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
foreach(script IN ITEMS postinst prerm)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/python_${script} ${control}/${script} COPYONLY)
endforeach()
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${control}/postinst ${control}/prerm)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)

# Whoever is built with the library needs a version that has the names it calls. The platform library
# is no interface of its own: it is used in the version that it was built with.
configure_file(${PROJECT_BINARY_DIR}/src/perilink.symbols ${control}/symbols COPYONLY)
file(WRITE ${control}/shlibs
  "libperilink ${PROJECT_VERSION_MAJOR} ${soname_package} (>= ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})\n"
  "libperilink_platform ${PROJECT_VERSION_MAJOR} ${soname_package} ${own_version}\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${control}/symbols ${control}/shlibs
  ${control}/triggers)

set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/compress.cmake)
include(CPack)
