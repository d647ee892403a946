#!/usr/bin/env bash
# Times explain against the boot that it explains, on a made device of 2,000 property files with 50
# lines each, a quarter of which the boot loads: bench/explain_bench.sh EXTPROP
set -euo pipefail
extprop=$1
device=$(mktemp -d)
trap 'rm -rf "$device"' EXIT
set_first="--set sys.sim.switch.first=north"

for root in odm mnt/vendor/my_{stock,carrier,product,company}; do
    for key in north south east west; do
        directory=$device/$root/properties/$key/SimSwitchFirstTime
        mkdir -p "$directory"
        for file in {1..100}; do
            for line in {1..50}; do echo "ro.${root##*/}.$file.$line=value-$line"; done >"$directory/$file.prop"
        done
    done
done

# Prints the shortest of five runs, in milliseconds.
shortest() {
    for _ in 1 2 3 4 5; do
        local start=${EPOCHREALTIME/./}
        "$@" >/dev/null
        echo $(((${EPOCHREALTIME/./} - start) / 1000))
    done | sort -n | head -n 1
}

# shellcheck disable=SC2086
boot=$(shortest "$extprop" boot "$device" $set_first)
# shellcheck disable=SC2086
one=$(shortest "$extprop" explain "$device" ro.odm.5.3 $set_first)
# shellcheck disable=SC2086
all=$(shortest "$extprop" explain "$device" --all $set_first)
echo "boot $boot ms, explain of one name $one ms, explain --all $all ms"
