# src/interop/exports.def is the one list of exported names. The Windows linker takes it as it is. All
# else is derived from it here: for the Linux linker a version script and the aliases, for Debian's
# packages the list of symbols, for hosts of other Windows compilers their import library.
#
#   perilink_exports(target def_file)
function(perilink_exports target def_file)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${def_file})
  file(STRINGS ${def_file} lines)
  set(names "")
  set(aliases "")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE ";.*" "" line "${line}")
    string(STRIP "${line}" line)
    if(line MATCHES "^([A-Za-z0-9_]+) *= *([A-Za-z0-9_]+)$")
      list(APPEND names ${CMAKE_MATCH_1})
      list(APPEND aliases ${CMAKE_MATCH_1}=${CMAKE_MATCH_2})
    elseif(line MATCHES "^[A-Za-z0-9_]+$" AND NOT line STREQUAL "EXPORTS")
      list(APPEND names ${line})
    endif()
  endforeach()
  set(derived ${CMAKE_CURRENT_BINARY_DIR}/${target})
  if(WIN32)
    target_sources(${target} PRIVATE ${def_file})
    # Hosts import an alias like any other name.
    list(JOIN names "\n" names)
    file(CONFIGURE OUTPUT ${derived}_names.def CONTENT "LIBRARY ${target}.dll\nEXPORTS\n@names@\n"
      @ONLY)
    find_program(PERILINK_DLLTOOL NAMES llvm-dlltool-14 llvm-dlltool REQUIRED)
    add_custom_command(TARGET ${target} POST_BUILD BYPRODUCTS ${derived}.lib
      COMMAND ${PERILINK_DLLTOOL} -m i386:x86-64 -d ${derived}_names.def -l ${derived}.lib)
    return()
  endif()
  foreach(alias IN LISTS aliases)
    target_link_options(${target} PRIVATE "-Wl,--defsym=${alias}")
  endforeach()
  # A host needs at least this minor version: only a new one brings new names.
  set(since ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  set(package lib${target}${PROJECT_VERSION_MAJOR})
  list(TRANSFORM names REPLACE "(.+)" " \\1@Base ${since}" OUTPUT_VARIABLE symbols)
  list(SORT symbols)
  list(JOIN symbols "\n" symbols)
  file(CONFIGURE OUTPUT ${derived}.symbols @ONLY
    CONTENT "lib${target}.so.${PROJECT_VERSION_MAJOR} ${package} #MINVER#\n@symbols@\n")

  list(TRANSFORM names APPEND "\\;")
  list(JOIN names "\n    " names)
  file(CONFIGURE OUTPUT ${derived}.map CONTENT "{\n  global:\n    @names@\n  local:\n    *;\n};\n" @ONLY)
  target_link_options(${target} PRIVATE "-Wl,--version-script=${derived}.map")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${derived}.map)
endfunction()
