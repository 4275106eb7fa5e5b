#!/bin/sh
# eachseed.sh PROGRAM CHANGES SEEDS [OPTION...]: tries random changes of the seeds, the same in each
# run and as many of each: from a directory libFuzzer, which does not see here what an input reaches,
# would draw one seed nearly always.
set -eu
program=$1 changes=$2 seeds=$3
shift 3
set -- -runs=$((changes / $(ls "$seeds" | wc -l))) -seed=1 -keep_seed=1 -len_control=0 "$@"
for seed in "$seeds"/*; do
    "$program" "$@" -seed_inputs="$seed"
done
