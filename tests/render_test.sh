#!/usr/bin/env bash
# render_test.sh RAISE RENDER: what the example raise refuses, and damaged records in the example
# render. If its time were quadratic, it would need half an hour for them.
set -u
raise=$(realpath "$1") render=$(realpath "$2")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
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
exit "$failed"
