#!/usr/bin/env bash
# exported_symbols.sh LIBRARY LIST [--update]: fails if the library exports other symbols than the
# reviewed list, which has one demangled symbol per line. Removing a symbol breaks programs that
# link it; an added one must stay as long as the interface.
set -euo pipefail
library=$1 list=$2
export LC_ALL=C

# Weak and unique symbols (W, V, u) come from inline functions: they differ between compilers and
# are no promise. Symbols of virtual tables are left out too: without them a derived class would not
# link.
shown=$(nm -D --defined-only --without-symbol-versions "$library" | awk '$2 !~ /[WVuA]/ { print $3 }' | c++filt |
    grep -vE '^(vtable|VTT|typeinfo|typeinfo name) for ' | sort -u)
if [ "${3:-}" = --update ]; then
    printf '%s\n' "$shown" >"$list"
fi
if [ "$shown" != "$(cat "$list")" ]; then
    printf '%s\n' "$shown" | diff - "$list" |
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
