#!/usr/bin/env bash
# Runs clang-tidy with the checks of .clang-tidy over src (some twenty minutes on two cores); needs Debian's clang-tidy.
# Prints what it finds; the exit status is 1 when there is anything.
set -euo pipefail
cd "$(dirname "$0")/.."
command -v run-clang-tidy >/dev/null || { echo "install clang-tidy first" >&2; exit 2; }
cmake --preset clang >/dev/null  # its compile commands know no flag of g++
found=$(run-clang-tidy -quiet -p build/clang -j "$(nproc)" "$PWD/src/.*\.cpp\$" 2>/dev/null |
    sed 's/\x1b\[[0-9;]*m//g' | grep -E ': (warning|error): ' | sort -u) || true
[ -z "$found" ] || { echo "$found"; exit 1; }
