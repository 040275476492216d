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

measure() {
  gcovr --root "$root" --filter "$root/src/" --object-directory "$tree" \
    --exclude-throw-branches --exclude-unreachable-branches -j "$jobs" "$@" "$tree"
}

# Of the simulation's seeds the first few hundred; the others walk the same code once more. What only
# looks at built files counts nothing.
run_tests() {
  ctest --test-dir "$tree" --parallel "$jobs" --no-tests=error --output-on-failure \
    --exclude-regex '^(server_simulation\.([2-9]|1.)|exports$|csharp$|install$)' "$@"
}

quiet setup install_missing "${run_packages[@]}" "${coverage_packages[@]}" ||
  fail "setting up failed"
quiet coverage-build build_preset coverage || fail "the build failed"
find "$tree" -name '*.gcda' -delete
quiet coverage-tests run_tests "$@" || fail "a test failed"
mkdir -p "$tree/report"
measure --html-details "$tree/report/index.html"
measure --branches | sed '1,/^---.*/d'
measure --fail-under-line 95 --fail-under-branch 85
