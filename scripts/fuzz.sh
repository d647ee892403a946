#!/usr/bin/env bash
# Runs every fuzz target for an equal share of MINUTES and keeps their corpora in build/corpus:
# scripts/fuzz.sh MINUTES. Stops at the first input that fails.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
cd "$ROOT"

[ $# -eq 1 ] || { echo "usage: $0 MINUTES" >&2; exit 2; }
# shellcheck disable=SC2086
install_packages $TOOL_PACKAGES $TEST_PACKAGES
quietly cmake --preset asan
cmake --build --preset asan | tail -n 1

targets=(build/asan/bin/*_fuzz)
# The targets change to a root in memory, so the paths in their arguments must be relative.
for target in "${targets[@]}"; do
    name=$(basename "$target")
    echo "== $name"
    mkdir -p "build/corpus/$name" "fuzz/seeds/$name"
    # One and a half times as long as the longest seed.
    longest=$(find "fuzz/seeds/$name" -type f -printf '%s\n' | sort -n | tail -n 1)
    length=$((${longest:-0} * 3 / 2))
    [ $length -ge 512 ] || length=512
    "$target" -max_total_time=$(($1 * 60 / ${#targets[@]})) -max_len=$length -dict=fuzz/device.dict \
        -artifact_prefix=build/corpus/ "build/corpus/$name" "fuzz/seeds/$name" 2>&1 |
        grep -E "^Done|differs|ERROR|SUMMARY|Test unit|units_per_sec"
done
