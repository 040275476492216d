# A room is a static library with its dependencies stated. Arrows go down only: beside each room
# the build links it as a shared library against exactly the rooms that it states, with no
# undefined symbol allowed, so that an arrow nobody stated does not link.
#
#   perilink_room(NAME name SOURCES file... [DEPENDS room...] [LINKS library...])
function(perilink_room)
  cmake_parse_arguments(ROOM "" "NAME" "SOURCES;DEPENDS;LINKS" ${ARGN})
  set(target room_${ROOM_NAME})
  add_library(${target} STATIC ${ROOM_SOURCES})
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/src
    ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(${target} PRIVATE perilink_warnings)
  set(below "")
  foreach(dependency IN LISTS ROOM_DEPENDS)
    list(APPEND below room_${dependency})
  endforeach()
  target_link_libraries(${target} PUBLIC ${below} ${ROOM_LINKS})

  perilink_check_arrows(${ROOM_NAME} ${target} ${below} ${ROOM_LINKS})
endfunction()

#   perilink_check_arrows(name target library...)
function(perilink_check_arrows name target)
  if(NOT WIN32 AND NOT PERILINK_SANITIZE AND NOT PERILINK_FUZZ)
    file(WRITE ${CMAKE_BINARY_DIR}/arrows/empty.cpp "")
    add_library(arrows_${name} SHARED ${CMAKE_BINARY_DIR}/arrows/empty.cpp)
    set_target_properties(arrows_${name} PROPERTIES
      LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/arrows)
    target_link_libraries(arrows_${name} PRIVATE
      "$<LINK_LIBRARY:WHOLE_ARCHIVE,${target}>" ${ARGN})
    target_link_options(arrows_${name} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
