#!/usr/bin/env bash
# Runs the commands in samples.txt over the samples, and compares their output with the lines that
# follow them there: samples_test.sh EXTPROP [print]. With "print" it prints the new file instead.
set -euo pipefail
tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

print() {
    while IFS= read -r line; do
        case $line in
            '|'*) ;;
            '$ '*)
                echo "$line"
                # shellcheck disable=SC2086
                { "$1" ${line#??} 2>&1 || echo "status $?"; } | sed -E 's/^/| /; s/(\.cpp:)[0-9]+:/\1/'
                ;;
            *) echo "$line" ;;
        esac
    done <"$tests/samples.txt"
}

# An endless import crashes sooner on a small stack.
ulimit -S -s 512
cd "$tests/../samples"
if [ "${2:-}" = print ]; then print "$1"; else print "$1" | diff "$tests/samples.txt" -; fi
