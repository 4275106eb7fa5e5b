#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# page_program.sh PROGRAM FILE: fails unless the program prints FILE, the output that its page or
# header shows. The time, the caller's user id and whether a status was seen can differ from run to
# run; they are replaced first.
set -euo pipefail
export LC_ALL=C.UTF-8
# Skips where a product is installed: the programs would write to its directories.
! grep -qsvE '^[[:space:]]*([;#]|$)' /etc/tarnix/registry.conf || {
    printf '%s: Skipped\na product is installed\n' "$1"
    exit 77
}
normalised() {
    sed -E 's/[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:.]{15}/TIME/; s/(last words.*result) 11/\1 0/
            s/^[0-9]{1,5}$/CALLER/' "$1"
}
printed=$("$1")
[ ! -s "$2" ] || {
    normalised "$2" >"$2.normalised"
    normalised - <<<"$printed" | diff "$2.normalised" -
}
