# What `cmake --install` gives a host: the library with its headers, a CMake package and a
# pkg-config file, and perictl with what belongs to it; on Linux also the platform library and the virtual devices.
include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/perilink)

set(libraries perilink)
if(NOT WIN32)
  list(APPEND libraries perilink_platform perilink_sim_core perilink_sim
    perilink_sim_kernel perilink_virtual_mouse)
  install(DIRECTORY portable/include/perilink_platform DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY sim/include/sim sim/portable/include/sim sim/kernel/include/sim
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/perilink_sim)
endif()
install(DIRECTORY include/perilink DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS ${libraries} EXPORT perilinkTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS perictl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# perictl's descriptions of models, manual pages and completions, as the build has made them.
install(DIRECTORY ${PROJECT_BINARY_DIR}/share/ DESTINATION ${CMAKE_INSTALL_DATAROOTDIR})

install(EXPORT perilinkTargets NAMESPACE perilink:: DESTINATION ${package_folder})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/perilinkConfig.cmake.in
  ${PROJECT_BINARY_DIR}/perilinkConfig.cmake INSTALL_DESTINATION ${package_folder})
# Before version 1.0 a new minor version may change what a host sees.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/perilinkConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/perilinkConfig.cmake
  ${PROJECT_BINARY_DIR}/perilinkConfigVersion.cmake DESTINATION ${package_folder})

# The file finds its folder by its own place, so that the installed folder can be moved.
file(RELATIVE_PATH up_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" up_to_prefix "${up_to_prefix}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/perilink.pc.in ${PROJECT_BINARY_DIR}/perilink.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/perilink.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
