# The version stands in include/perilink/version.h. In perilink_version afterwards, and, for Windows:
#
#   perilink_version_resource(target description)
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/../include/perilink/version.h lines
  REGEX "^#define PERILINK_VERSION_(MAJOR|MINOR|PATCH) [0-9]+$")
string(REGEX REPLACE "[^;]* ([0-9]+)" "\\1" perilink_version "${lines}")
string(REPLACE ";" "." perilink_version "${perilink_version}")
if(NOT perilink_version MATCHES "^[0-9]+\\.[0-9]+\\.[0-9]+$")
  message(FATAL_ERROR "include/perilink/version.h tells no version")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${CMAKE_CURRENT_LIST_DIR}/../include/perilink/version.h)

# What the system shows of the file: its name, its version, what it is.
function(perilink_version_resource target description)
  if(WIN32)
    get_target_property(type ${target} TYPE)
    set(file_type VFT_DLL)
    set(file_name ${target}.dll)
    if(type STREQUAL EXECUTABLE)
      set(file_type VFT_APP)
      set(file_name ${target}.exe)
    endif()
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${script} @ONLY)
    target_sources(${target} PRIVATE ${script})
  endif()
endfunction()
