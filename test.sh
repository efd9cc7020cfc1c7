#!/usr/bin/env bash
# Installs what is missing, builds and runs every test: unit tests plain and under the sanitizers, tests in real VMs
# and with a real servlet container, and a build with clang.
#
#   ./test.sh             everything (what CI runs)
#   ./test.sh quick       the dev preset only
#   ./test.sh PRESET...   these presets: dev asan tsan clang
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh
jobs=$(nproc)
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(clang asan tsan dev)
[ "${presets[*]}" != quick ] || presets=(dev)

echo "== house: floors, format"
python3 tests/house/check_floors.py
scripts/format.sh --check

build() {
    local name=$1
    shift
    echo "== build $name"
    cmake --preset "$name" "$@" >"build-$name.log" 2>&1 || { cat "build-$name.log"; exit 1; }
    cmake --build --preset "$name" -j "$jobs" >>"build-$name.log" 2>&1 || { tail -n 60 "build-$name.log"; exit 1; }
    rm -f "build-$name.log"
}

for preset in "${presets[@]}"; do
    # The second compiler gives its opinion of the product; the tests run on the first.
    [ "$preset" != clang ] || { build clang -DBUILD_TESTING=OFF; continue; }
    build "$preset"
    echo "== test $preset"
    ctest --preset "$preset" -j "$jobs" --no-tests=error
done
