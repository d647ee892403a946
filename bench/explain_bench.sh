#!/usr/bin/env bash
# Compares the time of explain with those of the boot that it explains and of all variants, on
# generated devices of 1,000 and 2,000 property files with 50 lines each, a quarter of which the
# boot loads: bench/explain_bench.sh EXTPROP
set -euo pipefail
extprop=$1
device=$(mktemp -d)
trap 'rm -rf "$device"' EXIT
set_first="--set sys.sim.switch.first=north"

# Adds the files with the numbers from FIRST to LAST in each of twenty directories.
make_files() {
    local root key file line directory
    for root in odm mnt/vendor/my_{stock,carrier,product,company}; do
        for key in north south east west; do
            directory=$device/$root/properties/$key/SimSwitchFirstTime
            mkdir -p "$directory"
            for ((file = $1; file <= $2; file++)); do
                for line in {1..50}; do
                    echo "ro.${root##*/}.$file.$line=value-$line"
                done >"$directory/$file.prop"
            done
        done
    done
}

# Prints the shortest processor time of five runs, in milliseconds, as others use the machine too.
shortest() {
    local TIMEFORMAT='%3U %3S'
    for _ in 1 2 3 4 5; do
        { time "$@" >/dev/null 2>&1; } 2>&1
    done | awk '{ print int(1000 * ($1 + $2) + 0.5) }' | sort -n | head -n 1
}

# Prints the times of the present device.
measure() {
    # shellcheck disable=SC2086
    echo "$1 files: boot $(shortest "$extprop" boot "$device" $set_first) ms," \
        "explain of one name $(shortest "$extprop" explain "$device" ro.odm.5.3 $set_first) ms," \
        "explain --all $(shortest "$extprop" explain "$device" --all $set_first) ms," \
        "matrix $(shortest "$extprop" matrix "$device" $set_first) ms"
}

make_files 1 50
measure 1000
make_files 51 100
measure 2000
