#!/usr/bin/env bash
# Builds the project and runs all tests: ./test.sh
# Builds and runs only the tests whose names match: ./test.sh NAME...
# Runs everything that a submission must pass, with the formats, the tests under the sanitizers and
# clang-tidy: ./test.sh --all
# Installs missing packages first.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/scripts/setup.sh"
source "$ROOT/scripts/checks.sh"
cd "$ROOT"

# shellcheck disable=SC2086
install_packages $TOOL_PACKAGES $TEST_PACKAGES

case "${1:-}" in
    --all)
        check formats check_formats
        # The tsan preset has only the tests with threads.
        for preset in default asan tsan; do check "$preset" check_preset "$preset"; done
        check clang-tidy check_tidy
        ;;
    -*)
        sed -n '2,6s/^# //p' "${BASH_SOURCE[0]}" >&2
        exit 2
        ;;
    "") check default check_preset default ;;
    *) check default check_named "$@" ;;
esac
report_checks
