#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# debugsymbols.sh DIRECTORY FILE...: writes the debug information of the programs and libraries to the names
# below DIRECTORY by which debuggers find it.
set -euo pipefail
rm -rf "$1"
for file in "${@:2}"; do
    id=$(readelf -n "$file" | sed -n 's/.*Build ID: //p')
    mkdir -p "$1/.build-id/${id:0:2}"
    objcopy --only-keep-debug --compress-debug-sections "$file" "$1/.build-id/${id:0:2}/${id:2}.debug"
done
