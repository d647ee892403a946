#!/usr/bin/env bash
# Measures a matrix of a generated device, of which a boot loads 60 files with 3,000 properties: its
# time on all processors, and the memory of the largest process: bench/matrix_bench.sh EXTPROP
set -euo pipefail
extprop=$1
device=$(mktemp -d)
trap 'rm -rf "$device"' EXIT

# Writes COUNT properties to FILE, with names that no other file has.
write() {
    local file=$device$1 line
    mkdir -p "$(dirname "$file")"
    for ((line = 0; line < $2; ++line)); do echo "ro.test$((files)).number$line=value $line of $1"; done >>"$file"
    files=$((files + 1))
}

files=0
for root in /odm /mnt/vendor/my_{preload,zorlin,stock,region,product,carrier,bigball,company,engineering,manifest}; do
    for part in 1 2 3 4; do
        write "$root/etc/part$part.prop" 50
        echo "import $root/etc/part$part.prop" >>"$device$root/build.prop"
    done
    write "$root/build.prop" 50
done
echo "ro.tesvo.pipeline.region=r0" >>"$device/mnt/vendor/my_region/build.prop"
for number in {0..99}; do
    write "/mnt/vendor/my_product/cust/r$number/build.prop" 50
    write "/mnt/vendor/my_carrier/properties/c$number/SimSwitchFirstTime/a.prop" 50
    write "/mnt/vendor/my_product/properties/c$number/SimSwitchFirstTime/a.prop" 50
    write "/odm/properties/c$number/SimSwitchFirstTime/a.prop" 50
    write "/mnt/vendor/my_stock/properties/c$number/SimSwitchFirstTime/a.prop" 50
done

run() {
    /usr/bin/time -f "$1 variants: %e s, %U s user, %S s system, %M KiB" \
        "$extprop" matrix "$device" --json ro.test0.number0 "${@:2}" >/dev/null
}
run 10201 --over region,sim-first --list
run 1 --only region=r1
run 201
run 1020 --over region,sim-first --shard 1/10
run 10201 --over region,sim-first
