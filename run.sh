#!/usr/bin/env bash
# Boots a device directory on this workstation: ./run.sh [DEVICE [STEP...]] [OPTIONS of extprop boot].
# Without arguments it boots the first sample. Arguments that do not begin with a directory go to
# extprop unchanged. Installs missing packages and builds the tool first.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/scripts/setup.sh"

BUILD=$ROOT/build/tool
# shellcheck disable=SC2086
install_packages $TOOL_PACKAGES
show=quietly
if [ ! -x "$BUILD/bin/extprop" ]; then
    echo "Building extprop, which takes a few minutes the first time" >&2
    [ ! -t 2 ] || show=
fi
[ -f "$BUILD/build.ninja" ] ||
    quietly cmake -S "$ROOT" -B "$BUILD" -G Ninja -DBUILD_TESTING=OFF
$show cmake --build "$BUILD" >&2

if [ $# -eq 0 ]; then
    set -- boot "$ROOT/samples/overlay"
elif [ -d "$1" ]; then
    set -- boot "$@"
fi
exec "$BUILD/bin/extprop" "$@"
