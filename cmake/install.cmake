# What `cmake --install` gives, in components, which are also Debian's packages (packages.cmake):
#
#   library       the library, on Linux with the platform library
#   development   headers, import libraries, a CMake package and a pkg-config file; on Linux the
#                 virtual devices too
#   tools         perictl with its manual pages, completions and descriptions of models
#   python        the module for hosts in Python
include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/perilink)

set(python_folder python)

set(libraries perilink)
if(NOT WIN32)
  set(python_folder lib/python3/dist-packages)
  list(APPEND libraries perilink_platform perilink_sim_core perilink_sim perilink_sim_kernel)
  # In a folder of its own: nobody links to it.
  install(TARGETS perilink_virtual_mouse EXPORT perilinkTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/perilink COMPONENT development)
  install(DIRECTORY portable/include/perilink_platform DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development)
  install(DIRECTORY sim/include/sim sim/portable/include/sim sim/kernel/include/sim
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/perilink_sim COMPONENT development)
endif()
install(DIRECTORY include/perilink DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(TARGETS ${libraries} EXPORT perilinkTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(WIN32)
  install(FILES ${PROJECT_BINARY_DIR}/src/perilink.lib DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT development)
endif()
install(TARGETS perictl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
# perictl's descriptions of models, manual pages and completions, as the build has made them.
install(DIRECTORY ${PROJECT_BINARY_DIR}/share/ DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}
  COMPONENT tools)
install(DIRECTORY python/perilink DESTINATION ${python_folder} COMPONENT python
  PATTERN __pycache__ EXCLUDE)

install(EXPORT perilinkTargets NAMESPACE perilink:: DESTINATION ${package_folder}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/perilinkConfig.cmake.in
  ${PROJECT_BINARY_DIR}/perilinkConfig.cmake INSTALL_DESTINATION ${package_folder})
# Before version 1.0 a new minor version may change what a host sees.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/perilinkConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/perilinkConfig.cmake
  ${PROJECT_BINARY_DIR}/perilinkConfigVersion.cmake DESTINATION ${package_folder}
  COMPONENT development)

# The file finds its folder by its own place, so that the installed folder can be moved.
file(RELATIVE_PATH up_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" up_to_prefix "${up_to_prefix}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/perilink.pc.in ${PROJECT_BINARY_DIR}/perilink.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/perilink.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
