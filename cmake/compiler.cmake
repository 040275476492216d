# What every target of this project is compiled with.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

add_library(perilink_warnings INTERFACE)
target_compile_options(perilink_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
if(WIN32)
  # The system's own headers and function-pointer idioms, not ours.
  target_compile_options(perilink_warnings INTERFACE -Wno-unknown-pragmas)
endif()

set(PERILINK_SANITIZE "" CACHE STRING "Sanitizers for every target, for example address,undefined")
if(PERILINK_SANITIZE)
  add_compile_options(-fsanitize=${PERILINK_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${PERILINK_SANITIZE})
endif()
# A library names all that it needs. With clang, what sanitizers and counters call is in the program.
set(perilink_no_undefined -Wl,--no-undefined)
if(PERILINK_FUZZ OR (PERILINK_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL Clang))
  set(perilink_no_undefined "")
endif()
# What steers a fuzzer: the edges that run in the code that reads foreign bytes. Those of the fuzz
# targets, the platform and the virtual devices would only slow it down and lead it astray.
if(PERILINK_FUZZ AND NOT PERILINK_SANITIZE)
  set(perilink_fuzz_counters -fsanitize-coverage=inline-8bit-counters,pc-table
    -fsanitize-coverage-ignorelist=${PROJECT_SOURCE_DIR}/fuzz/not_counted.txt)
endif()

option(PERILINK_COVERAGE "Count which lines and branches run" OFF)
if(PERILINK_COVERAGE)
  # Threads count together; counts of several processes are merged under a lock.
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

if(WIN32)
  # Sections of their own, so that the linker can leave out what nothing calls.
  add_compile_options(-ffunction-sections -fdata-sections)
  # The runtime is linked in: a host needs nothing but the system's own DLLs.
  add_link_options(-static)
  add_compile_definitions(WINVER=0x0601 _WIN32_WINNT=0x0601 WIN32_LEAN_AND_MEAN NOMINMAX UNICODE
    _UNICODE)
endif()
# Entry points that do the same must still be entry points of their own.
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fno-ipa-icf>)
