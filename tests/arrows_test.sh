#!/usr/bin/env bash
# Checks that each part of the tool includes only headers of itself and of the parts before it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../host/extprop"
parts=(json device boot coverage explain compare lint matrix output commands)
[ "$(printf '%s\n' "${parts[@]}" | sort)" = "$(find . -mindepth 1 -type d -printf '%P\n' | sort)" ]
before=$(find . -maxdepth 1 -type f ! -name main.cpp ! -name CMakeLists.txt)
status=0
for part in "${parts[@]}"; do
    # shellcheck disable=SC2086
    if grep -HnE "#include \"$part/" $before; then status=1; fi
    before+=" $(find "$part" -type f -printf "%p ")"
done
exit $status
