#!/usr/bin/env bash
# Builds for the phones' processor, and runs the library's tests and a share of the fault sweep
# under emulation. Installs what it needs on a fresh Debian 12.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
cd "$ROOT"

if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    as_root dpkg --add-architecture arm64
fi
# shellcheck disable=SC2086
install_packages $TOOL_PACKAGES $TEST_PACKAGES $ARM64_PACKAGES
quietly cmake --preset arm64
cmake --build --preset arm64 | tail -n 1
ctest --preset arm64 -j "$(nproc)"
