#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# hardening.sh LIBRARY HELPER OBJECT: fails if a shipped file lacks a protection that the build asks for.
# The helper is static and has no symbols, so its stack protector is looked for in its object.
set -euo pipefail

failed=0
has() { # has FILE WHAT REGEX COMMAND...
    local file=$1 what=$2 regex=$3
    shift 3
    if ! "$@" "$file" | grep -E "$regex" >/dev/null; then
        echo "${file##*/}: no $what"
        failed=1
    fi
}
for file in "$1" "$2"; do
    has "$file" "read-only relocations" GNU_RELRO readelf -lW
    has "$file" "binding at load time" '\(FLAGS(_1)?\).*NOW' readelf -dW
    has "$file" "stack that cannot be executed" 'GNU_STACK.* RW +0x' readelf -lW
    has "$file" "position independence" 'DYN' readelf -hW
done
library=$1
has "$3" "stack protector" __stack_chk_fail nm
if readelf -lW "$2" | grep -w INTERP >/dev/null; then
    echo "${2##*/}: started by the dynamic loader"
    failed=1
fi
has "$library" "stack protector" __stack_chk_fail nm -D
has "$library" "checked containers" __glibcxx_assert_fail nm -D
has "$library" "fortified functions" '__(memcpy|vsnprintf)_chk' nm -D
case $(uname -m) in
x86_64)
    # a stack-clash probe; and marked jump targets, of which the compiler's start-up code has a few
    objdump -d "$library" | awk -v no="${library##*/}: no " '
        /sub +\$0x1000,%rsp/ { probes = 1 }
        /endbr64/ { ++marks }
        END { if (!probes) print no "stack-clash probes"
              if (marks < 100) print no "marked jump targets"
              exit !(probes && marks >= 100) }' || failed=1
    ;;
esac
exit $failed
