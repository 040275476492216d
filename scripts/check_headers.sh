#!/usr/bin/env bash
# Compiles every public header alone, without a warning: with every compiler as C11 and C++20, with
# one of them as the oldest standards that hosts have, C99 and C++14; for Windows also all of them
# after the system's own headers, whose names they share. An internal header is compiled alone once, unless it
# is the first that a source includes: then every build does so.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# compile_one COMPILER LANGUAGE STANDARD HEADER...: the last header is the one that is tried.
compile_one() {
  local compiler=$1 language=$2 standard=$3
  shift 3
  # Something of its own, since a header may be for the preprocessor alone.
  printf '%s\n' "${@/#/#include <}" 'extern int perilink_checked;' | sed '/^#/s/$/>/' |
    "$compiler" -x "$language" -std="$standard" -fsyntax-only -Wall -Wextra -Wpedantic \
      -Wconversion -Wshadow -Werror -Iinclude -Isrc -Iportable/include -Iportable/src -Isim/include \
      -Isim/{portable,kernel,wine}/include -I. - ||
    {
      echo "$* does not compile alone with $compiler -std=$standard" >&2
      return 1
    }
}
export -f compile_one

# The names by which sources include their first header.
list_first() {
  git ls-files --cached --others --exclude-standard 'src/*.cpp' 'portable/src/*.cpp' 'sim/*.cpp' |
    xargs -d '\n' -n 1 grep -m 1 '^#include' | sed -n 's/^#include "\(.*\)"$/\1/p'
}

# list_internal PATTERN...
list_internal() {
  git ls-files --cached --others --exclude-standard "$@" |
    grep -vE "(^|/)($(list_first | sed 's/\./\\./g' | paste -sd '|'))\$"
}

list_compilations() {
  local path header compiler
  local mingw=x86_64-w64-mingw32
  for path in include/perilink/*.h; do
    header=perilink/${path##*/}
    echo "gcc c c99 $header"
    echo "g++ c++ c++14 $header"
    for compiler in gcc clang-14 $mingw-gcc-posix; do
      echo "$compiler c c11 $header"
    done
    for compiler in g++ clang++-14 $mingw-g++-posix; do
      echo "$compiler c++ c++20 $header"
    done
  done
  header=$(cd include && echo perilink/*.h)
  echo "$mingw-gcc-posix c c11 windows.h oleauto.h $header"
  echo "$mingw-g++-posix c++ c++17 windows.h oleauto.h $header"
  # What Windows programs host, too.
  git ls-files --cached --others --exclude-standard 'sim/include/*.h' 'sim/wine/*.h' |
    paste -sd ' ' | sed "s/^/$mingw-g++-posix c++ c++20 windows.h /"
  list_internal 'src/*.h' 'portable/*.h' 'sim/*.h' ':!sim/wine' |
    sed 's/^/g++ c++ c++20 /'
}

# shellcheck disable=SC2016  # the inner shell expands it
list_compilations | xargs -P "$(nproc)" -L 1 bash -c 'compile_one "$@"' compile_one
