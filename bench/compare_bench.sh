#!/usr/bin/env bash
# Compares the time of compare with that of explain --all, on a generated device of 3,000 properties
# on twelve partitions and a phone with those and 400 others. A tenth of them differ, one in a value
# of another carrier: bench/compare_bench.sh EXTPROP
set -euo pipefail
extprop=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
device=$work/device

for root in odm mnt/vendor/my_{preload,zorlin,stock,product,region,carrier,bigball,company} \
    mnt/vendor/my_{engineering,manifest} mnt/vendor/my_product/cust/EU; do
    mkdir -p "$device/$root"
    for ((line = 0; line < 250; line++)); do
        echo "ro.${root//\//.}.$line=value-$line"
    done >"$device/$root/build.prop"
done
mkdir -p "$device"/mnt/vendor/my_carrier/properties/{north,south}/SimSwitchFirstTime
echo "ro.tesvo.pipeline.region=EU" >>"$device/mnt/vendor/my_region/build.prop"
echo "ro.apn=north" >"$device/mnt/vendor/my_carrier/properties/north/SimSwitchFirstTime/a.prop"
echo "ro.apn=south" >"$device/mnt/vendor/my_carrier/properties/south/SimSwitchFirstTime/a.prop"
"$extprop" boot -q "$device" --set sys.sim.switch.first=north |
    sed -E '/[0-9]*7\]: /s/value/other/; s/(ro.apn\]: \[)north/\1south/' >"$work/phone"
# Properties that every phone has and no image.
for ((number = 0; number < 200; number++)); do
    echo "[persist.sys.$number]: [$number]"
    echo "[init.svc.$number]: [running]"
done >>"$work/phone"

# Prints the shortest processor time of five runs, in milliseconds, as others use the machine too.
shortest() {
    local TIMEFORMAT='%3U %3S'
    for _ in 1 2 3 4 5; do
        { time "$@" >/dev/null 2>&1; } 2>&1 || true  # what differs is no failure
    done | awk '{ print int(1000 * ($1 + $2) + 0.5) }' | sort -n | head -n 1
}

explain=$(shortest "$extprop" explain "$device" --all)
compare=$(shortest "$extprop" compare "$device" "$work/phone")
echo "$(wc -l <"$work/phone") properties on the phone: explain --all $explain ms, compare $compare ms," \
    "$(awk "BEGIN { printf \"%.2f\", $compare / $explain }") times"
