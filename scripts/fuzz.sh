#!/usr/bin/env bash
# Fuzzes what reads bytes from outside: scripts/fuzz.sh [seconds for each target, default 120] [target ...]
#     classfile_fuzz  the class-load hook's class-file code; seeds: tests/golden/classfile
#     decode_fuzz     the Publish Server's decoder; seeds: one record of each kind
# An input that breaks something is left in build/fuzz and named in the output. Put a class file into
# tests/golden/classfile under a telling name: a unit test shows it to the hook from then on.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-120}
[ $# -gt 0 ] && shift
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(classfile_fuzz decode_fuzz)

cmake --preset fuzz > /dev/null
for target in "${targets[@]}"; do
    seeds=$PWD/build/fuzz/seeds/$target
    corpus=$PWD/build/fuzz/corpus/$target
    mkdir -p "$seeds" "$corpus"
    cmake --build --preset fuzz -j2 --target "$target" "${target}_seeds"
    build/fuzz/tests/fuzz/"${target}_seeds" "$seeds"
    [ "$target" = classfile_fuzz ] && cp tests/golden/classfile/* "$seeds"
    (cd build/fuzz && tests/fuzz/"$target" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
        -print_final_stats=1 "$corpus" "$seeds")
done
