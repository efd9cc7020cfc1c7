#!/usr/bin/env bash
# Runs clang-tidy with the checks of .clang-tidy; needs Debian's clang-tidy. Prints what it finds; the exit status is 1
# when there is anything.
#     scripts/lint.sh            all of src: some twenty minutes on two cores
#     scripts/lint.sh FILE...    these sources
set -euo pipefail
cd "$(dirname "$0")/.."
command -v run-clang-tidy >/dev/null || { echo "install clang-tidy first" >&2; exit 2; }
cmake --preset clang >/dev/null  # its compile commands know no flag of g++
sources=("$PWD/src/.*\.cpp\$")
[ $# -eq 0 ] || sources=("${@/%/\$}")
found=$(run-clang-tidy -quiet -p build/clang -j "$(nproc)" "${sources[@]}" 2>/dev/null |
    sed 's/\x1b\[[0-9;]*m//g' | grep -E ': (warning|error): ' | sort -u) || true
[ -z "$found" ] || { echo "$found"; exit 1; }
