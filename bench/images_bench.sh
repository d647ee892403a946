#!/usr/bin/env bash
# Times boots of a device whose odm is an image of one property file, the same with 400 MB of other
# data, and the same with 100,000 other files, as ext4 and as EROFS:
# bench/images_bench.sh EXTPROP
set -euo pipefail
extprop=$1
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
PATH=$PATH:/usr/sbin

# Makes the images of what lies in the directory: NAME SIZE.
make_images() {
    mkdir -p "$directory"/{ext4,erofs}."$1"
    mke2fs -q -F -t ext4 -b 1024 -N 110000 -d "$directory/files" "$directory/ext4.$1/odm.img" "$2" \
        >/dev/null
    mkfs.erofs "$directory/erofs.$1/odm.img" "$directory/files" >/dev/null
}

mkdir -p "$directory/files/apps"
echo "ro.odm=1" >"$directory/files/build.prop"
make_images one 40M
head -c 400000000 /dev/urandom | split -b 50M - "$directory/files/apps/"
make_images large 480M
rm "$directory"/files/apps/*
for ((i = 0; i < 100; i++)); do
    mkdir "$directory/files/apps/$i"
    (cd "$directory/files/apps/$i" && echo "ro.app=$i" | tee f{1..1000}.prop >/dev/null)
done
make_images many 200M

# Prints the middle of 15 processor times in milliseconds, taken in turns as others use the machine.
TIMEFORMAT='%3U %3S'
kinds="ext4.one ext4.large ext4.many erofs.one erofs.large erofs.many"
for _ in {1..15}; do
    for kind in $kinds; do
        { time "$extprop" boot -q "$directory/$kind" early >/dev/null; } 2>>"$directory/$kind.times"
    done
done
for kind in $kinds; do
    awk '{ print int(1000 * ($1 + $2) + 0.5) }' "$directory/$kind.times" | sort -n |
        awk -v kind="$kind" '{ time[NR] = $1 } END { print kind ": " time[8] " ms" }'
done
