#!/usr/bin/env bash
# exported_symbols.sh LIBRARY LIST [--update]: fails if the library shows other symbols than the
# reviewed list, one a line, demangled. A symbol that goes breaks those who link it; one that comes
# stays for as long as the interface.
set -euo pipefail
library=$1 list=$2
export LC_ALL=C

# What inline functions leave behind differs between compilers and is no promise: W, V and u. So do
# the marks of virtual tables; who derives from a class would not link without its table.
shown=$(nm -D --defined-only --without-symbol-versions "$library" | awk '$2 !~ /[WVuA]/ { print $3 }' | c++filt |
    grep -vE '^(vtable|VTT|typeinfo|typeinfo name) for ' | sort -u)
if [ "${3:-}" = --update ]; then
    printf '%s\n' "$shown" >"$list"
fi
if ! diff <(printf '%s\n' "$shown") "$list" >/dev/null; then
    diff <(printf '%s\n' "$shown") "$list" |
        sed -n 's/^> /no longer exported: /p; s/^< /exported, but not in the list: /p'
    exit 1
fi
foreign=$(nm -DC --defined-only --without-symbol-versions "$library" | cut -d' ' -f3- |
    grep -vE '^((typeinfo( name)?|vtable|VTT) for |(virtual|non-virtual) thunk to )?tarnix_cmn_4_4::' |
    grep -vxF TARNIXCMN_4.4 || true)
if [ -n "$foreign" ]; then
    printf 'foreign symbols:\n%s\n' "$foreign"
    exit 1
fi
echo "$(wc -l <"$list") symbols, as in the list"
