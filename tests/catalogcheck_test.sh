#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# catalogcheck_test.sh PROGRAM CATALOG: the findings of the catalog are those of CATALOG/findings; then
# the options, and catalogs that are damaged, large or strangely named.
set -u
program=$(realpath "$1") catalog=$(realpath "$2")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1
failed=0

# expect STATUS OUTPUT ARGUMENT...: a part of the output, or nothing at all if that is empty.
expect() {
    local wanted=$1 output=$2 status=0
    shift 2
    "$program" "$@" >out 2>&1 || status=$?
    [ "$status" -eq "$wanted" ] && if [ -n "$output" ]; then grep -qF -- "$output" out; else [ ! -s out ]; fi ||
        { echo "catalogcheck ${*@Q}: status $status, wanted $wanted and: $output"; head -n 20 out; failed=1; }
}

expect 1 'fr.txt: does not compile' "$catalog"
sed 's/\(does not compile\).*/\1/' out | LC_ALL=C sort | diff - "$catalog/findings" || failed=1

mkdir -- -good --dashes
cat >-good/root.txt <<'END'
root { OLD { "x" } USED { "It's {0}: {1, plural, one{# \"file\"} other{\\# files}}" } }
END
cp -- -good/root.txt --dashes
expect 0 '' -good
expect 0 '' -- --dashes
expect 2 "unknown option '--dashes'" --dashes
expect 2 "cannot access 'none': No such file or directory" none
expect 2 "cannot start program './none': No such file or directory" --genrb ./none -good
expect 0 'usage: catalogcheck' --help
expect 0 'catalogcheck 4.' --version
expect 1 'lacks plural branches of {1} that pl needs: add few, many' --root-language pl -good

echo 'nb { OLD { "x" } USED { "x {0} {1}" } }' >nb.txt
expect 1 'nb.txt: ICU does not return from opening it' -good/root.txt nb.txt
# The texts of a region may be in its parents: in nb, and in no, which nb names.
echo 'no { OLD { "x" } USED { "x {0} {1}" } }' >no.txt
echo 'nb_NO { OLD { "y" } }' >nb_NO.txt
expect 1 'nb_NO.txt: ICU does not return from opening it' -good/root.txt no.txt nb_NO.txt
echo 'nb { "%%Parent" { "no" } OLD { "x" } }' >nb.txt
expect 0 '' -good/root.txt no.txt nb.txt nb_NO.txt

# What a language may have otherwise than root.
echo 'root { FULL { "{0, plural, one{Disk} other{Disks}} full" } OWNER { "{0}" }
    GONE { "{0, plural, one{file {1} deleted} other{# files deleted}}" } }' >root.txt
echo 'cs { FULL { "plno" } OWNER { "{0, select, host{x} other{y}}" }
    GONE { "{0, plural, one{soubor {1}} few{# soubory} other{# souborů}}" } }' >cs.txt
expect 0 '' root.txt cs.txt
echo 'root { X { "x' >root.txt
expect 1 'root.txt: does not compile' root.txt cs.txt
grep 'root: is missing' out && failed=1
TMPDIR=/none expect 2 "cannot create temporary directory '/none/" -good

expect 0 '' --pseudo en_XA.txt -good
grep -qF '{0}: {1, plural, one{# \"ƒîļé\"} other{\\# ƒîļéš}} ~~~~~]" }' en_XA.txt ||
    { cat en_XA.txt; failed=1; }
expect 0 '' -good/root.txt en_XA.txt
expect 0 '' --pseudo en_XA.txt -good
expect 2 "cannot write 'cs.txt': it is not a generated file" --pseudo cs.txt -good
expect 2 "cannot write 'new/root.txt': it is not for generated" --pseudo new/root.txt -good
expect 2 "no language has the code 'pseudo'" --pseudo pseudo.txt -good

mkdir -p source/in
echo 'Read me.' >source/README.txt
expect 1 'root: is missing: no source and no bundle of a language was found; give the' source
printf '// createMessage\ncreateMessage(\n    "USED", createMessage("NEW"' >source/in/a.cpp
echo 'createMessage("NOTE")' >source/in/notes.md
expect 1 'source/in/a.cpp:3: NEW: is missing in root' --ids 'createMessage\(\s*"(\w+)"' --source source -good
expect 1 'root.txt: OLD: is used by no source' --ids 'createMessage\(\s*"(\w+)"' --source source -good
grep -Eq 'NOTE|USED' out && { cat out; failed=1; }
expect 2 'it has not one group' --ids createMessage --source source -good
expect 2 "cannot read source 'none'" --ids '(x)' --source none -good

# A bundle whose table lies beyond its end.
mkdir damaged
genrb --quiet --destdir damaged ./-good/root.txt
printf '\xff\xff\xff\x2f' | dd status=none conv=notrunc bs=1 of=damaged/root.res \
    seek="$(od -An -tu2 -N2 damaged/root.res | tr -d ' ')"
expect 1 'root.res: is damaged' damaged

# In this order genrb alone would need longer than the test may take.
mkdir large
{ echo 'root {'; seq -f 'KEY_%06.0f { "{0}" }' 100000; echo '}'; } >large/root.txt
expect 0 '' large
echo "root { DEEP { \"$(printf '{0,select,other{%.0s' {1..9999})\" } }" >large/root.txt
expect 1 'root.txt: DEEP: nests plurals and selects more than 16 levels deep' large
exit "$failed"
