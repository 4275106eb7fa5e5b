#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# symbols.sh LIBRARY LIST VERSION FILE: writes the file "symbols" of the library's package: each symbol with
# the release that had it first, as LIST says. LIST leaves out virtual tables and types, which came with the
# first symbol of their class, and what comes from inline functions, which counts as this VERSION's.
set -euo pipefail
export LC_ALL=C
library=$1 list=$2 version=$3
soname=$(objdump -p "$library" | awk '$1 == "SONAME" { print $2 }')
mangled=$(nm -D --defined-only "$library" | awk '{ sub("@@", "@", $3); print $3 }' | sort)
mkdir -p "$(dirname "$4")"
{
    echo "$soname libtarnixcmn-4-4-0 #MINVER#"
    paste -d '\t' <(echo "$mangled") <(echo "${mangled//@TARNIXCMN_4.4/}" | c++filt) |
        awk -F '\t' -v version="$version" '
            NR == FNR {
                blank = index($0, " ")
                symbol = substr($0, blank + 1)
                since[symbol] = substr($0, 1, blank - 1)
                class = symbol
                sub(/\(.*/, "", class)
                if (sub(/::[^:]*$/, "", class) && (!(class in first) || since[symbol] < first[class]))
                    first[class] = since[symbol]
                next
            }
            {
                class = $2
                found = $2 in since ? since[$2] : version
                if (sub(/^(vtable|VTT|typeinfo|typeinfo name) for /, "", class) && class in first)
                    found = first[class]
                print " " ($1 ~ /@/ ? $1 : $1 "@" $1) " " found
            }' "$list" -
} >"$4"
