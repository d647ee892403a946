#!/usr/bin/env bash
# Makes the device of docs/device-directory.md by the page's script, and takes the page at
# its word: device_script_test.sh EXTPROP
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
page=$PWD/docs/device-directory.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
# shellcheck disable=SC2016
sed -n '/^```sh$/,/^```$/{/^```/d;p}' "$page" >script
[ "$(wc -l <script)" -eq 10 ]
bash -eu script
"$1" lint device
"$1" boot --quiet device early persist >properties
while read -r name value; do
    grep -qxF "[$name]: [$value]" properties || { echo "$name is not $value"; cat properties; exit 1; }
done <<'END'
ro.acme.model One
ro.acme.slogan Quba for all
ro.acme.region EU
ro.acme.apn internet.beta
ro.vendor.tesvo.market.name Acme One 256
END
"$1" boot --quiet device --nv OPERAT01 --delete /data/system/customize/sim_switch/sim_switch_first_file |
    grep -qxF '[ro.acme.apn]: [internet.alpha]'
