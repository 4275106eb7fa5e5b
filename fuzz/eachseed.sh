#!/bin/sh
# eachseed.sh PROGRAM CHANGES SEEDS [OPTION...]: runs random changes of the seeds, the same changes
# in each run, and equally many for each seed. The program has no coverage instrumentation; given
# the whole directory, libFuzzer would then change nearly always the same seed.
set -eu
program=$1 changes=$2 seeds=$3
shift 3
set -- -runs=$((changes / $(ls "$seeds" | wc -l))) -seed=1 -keep_seed=1 -len_control=0 "$@"
for seed in "$seeds"/*; do
    "$program" "$@" -seed_inputs="$seed"
done
