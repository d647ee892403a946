#!/usr/bin/env bash
# Builds the project as it is and runs all its tests: ./test.sh
# Runs those whose names match, and builds what they need only: ./test.sh NAME...
# Runs everything that a submission must pass: the formats, the tests under the sanitizers and
# clang-tidy too: ./test.sh --all
# Installs what is missing first.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/scripts/setup.sh"
source "$ROOT/scripts/checks.sh"
cd "$ROOT"

# shellcheck disable=SC2086
install_packages $TOOL_PACKAGES $TEST_PACKAGES

case "${1:-}" in
    --all)
        check formats check_formats
        # Under the thread sanitizer there are the tests that have threads.
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
tell_checks
