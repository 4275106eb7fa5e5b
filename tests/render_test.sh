#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# render_test.sh RAISE RENDER LANGUAGES: what the example raise refuses, damaged records in the example
# render, and the languages of the examples. If the time of render were quadratic, it would need half
# an hour for the records.
set -u
raise=$(realpath "$1") render=$(realpath "$2") languages=$(realpath "$3")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit
failed=0

# refused REASON ARGUMENT...
refused() {
    local reason=$1 status=0
    shift
    "$raise" "$@" >out 2>err || status=$?
    [ "$status" -eq 2 ] && [ ! -s out ] && grep -q "$reason" err ||
        { echo "raise ${*@Q}: $status"; cat out err; failed=1; }
}
refused 'without arguments' ID
refused 'not UTF-8' ID text=a $'text=f\374r'
refused usage 'AN ID' int=1

yes '<SERIALIZED_MESSAGE MSGID=a SEVERITY=1>' | head -n 200000 | "$render" >shown
"$raise" b int=1 | "$render" >>shown
[ "$(sort shown | uniq -c | tr -s '\n ' ' ')" = ' 200000 <a> 1 <b> ' ] || { tail -n 3 shown; failed=1; }

# In each language, whatever the locale is: ICU would take its bundle for "en".
printf '[SOFTWARE\\Brenholt\\Tarnix]\n"InstallDir64"="%s/"\n' "$(dirname "$render")" >registry.conf
LC_ALL=ja_JP.UTF-8 "$languages" --registry registry.conf <<EOF >shown
de_AT,ja make 1500 0
fr,ru_RU make 1234562 2
en-GB,de make 1 0
xx make 1234567 0
make 1
EOF
space=$'\302\240'
diff - shown <<EOF || failed=1
de: runcmd: make lief durch, nach 1.500 Zeilen.
ru: runcmd: Команда make завершилась с кодом 2, выведены 1${space}234${space}562 строки.
root: runcmd: make ended well after 1 line.
root: runcmd: make ended well after 1,234,567 lines.
not a request: make 1
EOF
"$raise" TARNIX_COMMAND_EXITED text=make int=1500 text=0 >message
[ "$(LC_ALL=C.UTF-8 "$render" --registry registry.conf --lang fr,de_DE <message)" = \
    'runcmd: make lief durch, nach 1.500 Zeilen.' ] || { echo 'render: not in German'; failed=1; }
exit "$failed"
