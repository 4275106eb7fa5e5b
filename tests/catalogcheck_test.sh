#!/usr/bin/env bash
# catalogcheck_test.sh PROGRAM CATALOG: fails unless the findings are those of CATALOG/findings.
set -euo pipefail

status=0
found=$("$1" "$2") || status=$?
[ "$status" -eq 1 ] || { echo "exit status $status"; exit 1; }
sed 's/\(does not compile\).*/\1/' <<<"$found" | sort | diff - "$2/findings"
