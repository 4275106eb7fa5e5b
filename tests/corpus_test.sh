#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# corpus_test.sh DIRECTORY RENDER SETTINGS RUNCMD: reads the files that released versions have written, which lie in
# DIRECTORY/VERSION, and compares the results with those of that version. Trace lines are compared in their form.
set -u; shopt -s lastpipe # or "same" would set "failed" in a shell of its own
corpus=$(realpath "$1") render=$(realpath "$2") settings=$(realpath "$3") runcmd=$(realpath "$4")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export LC_ALL=C.UTF-8
failed=0

# same WHAT: compares standard input with the file WHAT of that version.
same() {
    diff "$release/$1" - || { echo "$(basename "$release"): $1 is not what that version had"; failed=1; }
}
for release in "$corpus"/*/; do
    cp -r "$release" "$folder/copy" && cd "$folder/copy" || exit 1
    "$render" --registry registry.conf --lang de <messages.txt | same rendered.txt
    mkdir -p settings install/Logs
    cp settings.conf settings/in.conf
    "$settings" settings/ in.conf New name value | sort | same settings.txt
    # What is written now is read with the same result.
    "$settings" settings/ in.conf New name value | sort | same settings.txt
    "$runcmd" --registry registry.conf --trace run -- sh -c 'echo out; exit 3' >/dev/null 2>&1
    form() { sed -E 's/[0-9]+/N/g' "$1"; }
    [ "$(form install/Logs/run.log)" = "$(form trace.log)" ] || {
        echo "trace lines have another form:"
        diff trace.log install/Logs/run.log
        failed=1
    }
    cd / && rm -r "$folder/copy"
done
exit "$failed"
