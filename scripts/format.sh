#!/usr/bin/env bash
# Formats the C++ sources with .clang-format; --check only tells what deviates, and fails.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(-i)
[ "${1:-}" != --check ] || mode=(--dry-run --Werror)
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format "${mode[@]}"
