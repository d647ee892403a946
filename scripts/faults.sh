#!/usr/bin/env bash
# Runs the reliability tests in full, of which ./test.sh runs a share: fails every call in every
# way, kills boots after every change, boots 100,000 times in one process, and loads a huge file.
# Prints the figures of docs/reliability.md.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
cd "$ROOT"

# shellcheck disable=SC2086
install_packages $TOOL_PACKAGES $TEST_PACKAGES
quietly cmake --preset default
cmake --build --preset default | tail -n 1

for command in sweep crashes "growth 100000" "huge 64"; do
    echo "== $command"
    # shellcheck disable=SC2086
    build/default/bin/reliability $command
done
