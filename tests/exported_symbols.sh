#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# exported_symbols.sh LIBRARY LIST [--update VERSION]: fails if the library exports other symbols than
# the reviewed list, which has one demangled symbol per line, after the release that had it first. Removing
# a symbol breaks programs that link it; an added one must stay as long as the interface.
set -euo pipefail
library=$1 list=$2
export LC_ALL=C

# Weak and unique symbols (W, V, u) come from inline functions: they differ between compilers and
# are no promise. Symbols of virtual tables are left out too: without them a derived class would not
# link.
shown=$(nm -D --defined-only --without-symbol-versions "$library" | awk '$2 !~ /[WVuA]/ { print $3 }' | c++filt |
    grep -vE '^(vtable|VTT|typeinfo|typeinfo name) for ' | sort -u)
if [ "${3:-}" = --update ]; then
    awk -v version="$4" 'NR == FNR { since[substr($0, index($0, " ") + 1)] = $1; next }
        { print ($0 in since ? since[$0] : version) " " $0 }' "$list" - <<<"$shown" >"$list.new"
    mv "$list.new" "$list"
fi
known=$(cut -d' ' -f2- "$list")
if [ "$shown" != "$known" ]; then
    diff <(echo "$shown") <(echo "$known") |
        sed -n 's/^> /no longer exported: /p; s/^< /exported, but not in the list: /p'
    exit 1
fi
foreign=$(nm -DC --defined-only --without-symbol-versions "$library" | cut -d' ' -f3- |
    grep -vE '^((typeinfo( name)?|vtable|VTT) for |(virtual|non-virtual) thunk to )?tarnix_cmn_4_4::' |
    grep -vxF TARNIXCMN_4.4 || true)
if [ -n "$foreign" ]; then
    printf 'symbols outside the namespace:\n%s\n' "$foreign"
    exit 1
fi
echo "$(wc -l <"$list") symbols, as in the list"
