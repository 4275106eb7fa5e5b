#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-Tarnix
# headers.sh HEADER...: fails if a public header defines a macro without the project's prefix or has
# a "using namespace", which would affect every file that includes it.
set -euo pipefail
! grep -nHE '^[[:space:]]*#[[:space:]]*define[[:space:]]+' "$@" | grep -vE 'define[[:space:]]+TARNIX_' &&
    ! grep -nHE '^[[:space:]]*using[[:space:]]+namespace\b' "$@"
