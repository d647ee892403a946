#!/usr/bin/env bash
# Builds and runs all tests: as they are, and under the sanitizers; and clang-tidy.
# Installs what is missing first.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/scripts/setup.sh"
cd "$ROOT"

# shellcheck disable=SC2086
install_packages $TOOL_PACKAGES $TEST_PACKAGES

echo "== formats"
difference=$(bpfmt -d system/core_common/extproperty/Android.bp)
[ -z "$difference" ] || { echo "$difference"; exit 1; }
git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror

# Under the thread sanitizer there are the tests that have threads.
for preset in default asan tsan; do
    echo "== $preset"
    quietly cmake --preset "$preset"
    cmake --build --preset "$preset" | tail -n 1
    ctest --preset "$preset" -j "$(nproc)"
done

echo "== clang-tidy"
git ls-files 'system/*.cpp' 'host/*.cpp' ':!*_test.cpp' |
    quietly xargs -P 2 -n 1 clang-tidy -p build/default --quiet
