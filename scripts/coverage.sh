#!/usr/bin/env bash
# Measures how much of src/ the tests run: builds with counters, runs the native tests, prints lines
# and branches by file with what was missed, and writes pages for reading to build/coverage/report.
# Fails when a test fails, below 95 % of the lines, or below 85 % of the branches. Branches that only
# an exception takes, and those that no source line has, are not counted.
#   scripts/coverage.sh [CTEST ARGS...]    for example: -R server_test
set -uo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

tree=$root/build/coverage

# From the library's own objects: what other programs compile of its headers counts elsewhere.
collect() {
  gcovr --root "$root" --filter "$root/src/" --object-directory "$tree" \
    --exclude-throw-branches --exclude-unreachable-branches -j "$jobs" \
    --json "$tree/coverage.json" "$tree/src"
}
report() { gcovr --root "$root" --add-tracefile "$tree/coverage.json" "$@"; }

# Without what walks the same code over and over, and without what only looks at built files.
run_tests() {
  ctest --test-dir "$tree" --parallel "$jobs" --no-tests=error --output-on-failure \
    --exclude-regex '^(server_simulation\.|config_update_test\..*/[2-7]$|exports$|csharp$|install$)' \
    "$@"
}

quiet setup install_missing "${run_packages[@]}" "${coverage_packages[@]}" ||
  fail "setting up failed"
quiet coverage-build build_preset coverage || fail "the build failed"
find "$tree" -name '*.gcda' -delete
quiet coverage-tests run_tests "$@" || fail "a test failed"
quiet coverage-collect collect || fail "the counters can't be read"
mkdir -p "$tree/report"
report --html-details "$tree/report/index.html"
report --txt --branches | sed '1,/^---.*/d'
report --txt --fail-under-line 95 --fail-under-branch 85
