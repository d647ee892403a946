#!/usr/bin/env bash
# Boots a device directory on this workstation: ./run.sh [DEVICE [STEP...]] [OPTIONS of extprop boot].
# Without arguments boots the first sample; with one of the tool's commands runs that. Installs what
# is missing and builds the tool first.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/scripts/setup.sh"

BUILD=$ROOT/build/tool
# shellcheck disable=SC2086
install_packages $TOOL_PACKAGES
[ -f "$BUILD/build.ninja" ] || quietly cmake -S "$ROOT" -B "$BUILD" -G Ninja -DBUILD_TESTING=OFF
quietly cmake --build "$BUILD"

case ${1-} in
    boot | explain | diff | lint | --*) ;;
    "") set -- boot "$ROOT/samples/overlay" ;;
    *) set -- boot "$@" ;;
esac
exec "$BUILD/bin/extprop" "$@"
