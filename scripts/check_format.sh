#!/usr/bin/env bash
# Holds every C++ file against .clang-format, and every script against shellcheck.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

git ls-files -z --cached --others --exclude-standard '*.h' '*.cpp' '*.c' |
  xargs -0 clang-format-14 --dry-run -Werror
shellcheck -x run test .ci/run scripts/*.sh
