#!/usr/bin/env bash
# runcmd_test.sh RUNCMD: the exit statuses of the example, and how signals end it.
set -u
runcmd=$(realpath "$1")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
printf x >data && chmod -x data
printf x >format && chmod +x format
mkfifo pid
failed=0

# expect STATUS ARGUMENT...
expect() {
    local expected=$1 status=0
    shift
    "$runcmd" "$@" >out 2>err || status=$?
    [ "$status" -eq "$expected" ] || { echo "runcmd $*: $status, not $expected"; failed=1; }
}
expect 0 --exit-status -- true
expect 1 -- sh -c 'exit 77'
expect 77 --exit-status -- sh -c 'exit 77'
expect 143 --exit-status -- sh -c 'kill $$'
expect 124 --exit-status --timeout 1 -- sh -c 'echo; sleep 1.5'
expect 125 --exit-status --dir /no/such -- true
expect 126 --exit-status -- ./data
expect 126 --exit-status -- ./format
expect 127 --exit-status -- no-such-program
expect 125 --exit-status --user root --password-file no-such -- true
expect 2 --exit-status --user root -- true
expect 2 --password-file data -- true
expect 0 --timeout 4294967 -- true
expect 2 --timeout 4294968 -- true

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
    if kill -KILL "$command" 2>/dev/null; then
        echo "after $*: the command still ran"
        failed=1
    fi
}
stopped '' INT
stopped '' TERM
stopped 'trap "" INT TERM;' INT TERM
exit "$failed"
