#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# newlanguage_test.sh CHECK RENDER RAISE: a team adds a language to its catalog. Each mistake fails the
# build, which says what to do; then the language is right, and the program speaks it.
set -u
check=$(realpath "$1") render=$(realpath "$2") raise=$(realpath "$3")
cmake=$(realpath "$(dirname "$0")/../cmake")
lang=pl_PL # a country of the language that the catalog has
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/[1]" # which CMake could take for a pattern
cd "$folder/[1]" || exit 1
failed=0

cat >root.txt <<'END'
root {
    DISKS { "{1} has {0, plural, one{# disk} other{# disks}}" }
    OWNER { "{0, select, group{the group {1}} other{{1}}}" }
}
END
# project SOURCE: a project with the root and that source.
project() {
    cat >lists <<END
cmake_minimum_required(VERSION 3.25)
project(disk NONE)
include($cmake/TarnixCatalog.cmake)
tarnix_add_catalog(NAME disk SOURCES root.txt $1 NO_INSTALL DIRECTORY Messages)
END
    cmp -s lists CMakeLists.txt || mv lists CMakeLists.txt # a new one is configured again
}
good_disks='{1} ma {0, plural, one{# dysk} few{# dyski} many{# dysków} other{# dysku}}'
good_owner='{0, select, group{grupa {1}} other{{1}}}'
# language TABLE DISKS OWNER: the source of the language.
language() { printf '%s { DISKS { "%s" } OWNER { "%s" } }\n' "$@"; }
# mistake SENTENCE [FILE]: the build of pl.txt, or of that file, fails with the sentence.
mistake() {
    project "${2-pl.txt}"
    if cmake --build build >log 2>&1 || ! grep -qF -- "$1" log; then
        echo "no failure with: $1"
        cat log
        failed=1
    fi
}

project ''
cmake -S . -B build -G Ninja -DTARNIX_CATALOGCHECK="$check" >log && cmake --build build >>log ||
    { cat log; exit 1; }

language pl-PL "$good_disks" "$good_owner" >pl-PL.txt
mistake 'pl-PL.txt: no locale has this name: rename the file and its table to pl_PL' pl-PL.txt
language root "$good_disks" "$good_owner" >pl.txt
mistake "pl.txt: contains the table of another language, 'root': name the table 'pl'"
grep -q disk <(strings -el build/Messages/libdisk/root.res) || { echo 'root is overwritten'; failed=1; }
echo "pl { DISKS { \"$good_disks\" } }" >pl.txt
mistake 'pl.txt: OWNER: is missing: translate the text of root'
language pl '{1} ma {0, plural, one{# dysk} other{# dysku}}' "$good_owner" >pl.txt
mistake 'pl.txt: DISKS: lacks plural branches of {0} that pl needs: add few, many'
language pl "$good_disks" '{0, select, grupa{grupa {1}} other{{1}}}' >pl.txt
mistake "pl.txt: OWNER: has the select branch 'grupa' of {0}, which root lacks: do not translate"
language pl "'{1}' ma ${good_disks#* ma }" "$good_owner" >pl.txt
mistake "pl.txt: DISKS: has an apostrophe that quotes '{1}', so that it is shown as it stands: write"

language pl "$good_disks" "$good_owner" >pl.txt
cmake --build build >log 2>&1 || { cat log; failed=1; }
cd build || exit 1
shown=$("$raise" DISKS int=5 text=host | LC_ALL=C.UTF-8 "$render" --catalog disk --lang "$lang")
[ "$shown" = 'disk: host ma 5 dysków' ] || { echo "shown: $shown"; failed=1; }
exit "$failed"
