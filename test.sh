#!/usr/bin/env bash
# Installs what is missing, builds and runs every test: unit tests plain, as released and under the sanitizers, tests in
# real VMs and with a real servlet container, a build with clang, and the installation that README.md describes.
#
#   ./test.sh             everything (what CI runs)
#   ./test.sh quick       the dev preset only
#   ./test.sh PRESET...   these presets: dev asan tsan release clang
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh
jobs=$(nproc)
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(clang release asan tsan dev)
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

# As README.md says: an agent home in a folder of its own, stripped, that starts.
install_release() {
    local home
    home=$(mktemp -d)
    echo "== install release"
    cmake --install build/release --prefix "$home" >"$home/install.log" 2>&1 || { cat "$home/install.log"; exit 1; }
    VELORA_INSTALLED="$home" scripts/check_install.sh || exit 1
    rm -rf "$home"
}

for preset in "${presets[@]}"; do
    # The second compiler gives its opinion of the product; the tests run on the first.
    [ "$preset" != clang ] || { build clang -DBUILD_TESTING=OFF; continue; }
    build "$preset"
    echo "== test $preset"
    ctest --preset "$preset" -j "$jobs" --no-tests=error
    [ "$preset" != release ] || install_release
done
