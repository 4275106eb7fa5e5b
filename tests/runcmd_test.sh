#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# runcmd_test.sh RUNCMD: the options and exit statuses of the example, and how signals end it.
set -u
runcmd=$(realpath "$1")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit
printf x >data && chmod -x data
printf x >format && chmod +x format
mkfifo pid release
failed=0

# expect STATUS OUTPUT ARGUMENT...: how runcmd ends and what it prints, its own input being "mine".
expect() {
    local expected="$1 $2" printed status=0
    shift 2
    printed=$("$runcmd" "$@" 2>err <<<mine) || status=$?
    [ "$status $printed" = "$expected" ] ||
        { echo "runcmd $*: $status $printed, not $expected"; failed=1; }
}
expect 0 'a b' --exit-status --input 'a b' -- cat
expect 1 '' -- sh -c 'exit 77'
expect 77 '' --exit-status -- sh -c 'exit 77'
expect 143 '' --exit-status -- sh -c 'kill $$'
expect 124 '' --exit-status --timeout 1 -- sh -c 'echo; exec sleep 600'
expect 124 '' --exit-status --limit 1 -- sh -c 'while :; do echo; sleep 0.2; done'
expect 125 $'y\ny' --exit-status --max-output 4 -- yes
expect 125 '' --exit-status --dir /no/such -- true
expect 126 '' --exit-status -- ./data
expect 126 '' --exit-status -- ./format
expect 127 '' --exit-status -- no-such-program
expect 125 '' --exit-status --user root --password-file no-such -- true
expect 2 '' --exit-status --user root -- true
expect 2 '' --password-file data -- true
expect 0 '' --timeout 4294967295 -- cat
expect 2 '' --timeout 4294967296 -- true
expect 2 '' --max-output -1 -- true
expect 2 '' --env A -- true
expect 125 '' --exit-status --user-env -- true
expect 0 $'B=2\nC=' --env A=1 --env B=2 --clear-env --unset A --env C= -- env
expect 0 x --stdin data -- cat
expect 0 mine --stdin - -- cat
expect 0 $'1\n2' -- sh -c 'echo 1; echo 2 >&2'
expect 0 1 --stderr discard -- sh -c 'echo 1; echo 2 >&2'
expect 0 1 --stderr apart -- sh -c 'echo 1; echo 2 >&2'
grep -qx 2 err || { echo "standard error is not apart"; failed=1; }

# The output arrives while the command runs.
"$runcmd" -- sh -c 'echo ready; read -r _ <release; echo "$0"' 'done' 2>err |
    { read -r line; echo >release; echo "$line"; cat; } >out
[ "$(tr '\n' ' ' <out)" = 'ready done ' ] || { echo "not streamed: $(cat out)"; failed=1; }

# A terminal shows that the command is silent; the next line of output removes that.
if script -qec true /dev/null >/dev/null 2>&1; then
    script -qfec "'$runcmd' -- sh -c 'read -r _ <release; echo done'" terminal >/dev/null 2>&1 &
    until grep -q 'running, 3 s without output' terminal 2>/dev/null; do sleep 0.1; done
    echo >release
    wait "$!"
    grep -q $'output\e\\[K\r\e\\[Kdone' terminal || { cat -v terminal; failed=1; }
else
    echo "left out: a terminal, which cannot be had here"
fi

"$runcmd" -- seq 9 >/dev/full 2>err && { echo 'a full disk is a success'; failed=1; }
env --default-signal=PIPE "$runcmd" -- yes 2>err | head -1 >out
[ "${PIPESTATUS[0]}" -eq 141 ] || { echo "closed output: ${PIPESTATUS[0]}"; failed=1; }

# stopped SETUP SIGNAL...: the signals end the command, and runcmd as a signal ends a program.
stopped() {
    local setup=$1 runner command status=0 signal
    shift
    env --default-signal=INT,TERM "$runcmd" -- sh -c "$setup echo \$\$ >pid; exec sleep 600" \
        >out 2>err &
    runner=$!
    read -r command <pid
    for signal in "$@"; do
        kill "-$signal" "$runner"
    done
    wait "$runner" 2>/dev/null || status=$?
    [ "$status" -gt 128 ] || { echo "after $*: $status"; failed=1; }
    kill -KILL "$command" 2>/dev/null && { echo "after $*: the command still ran"; failed=1; }
}
stopped '' INT
stopped '' TERM
stopped 'trap "" INT TERM;' INT TERM
exit "$failed"
