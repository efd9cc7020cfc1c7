#!/usr/bin/env bash
# An installed agent home, VELORA_INSTALLED: its binaries are stripped, with their line numbers beside them, and a VM
# started with it as README.md says is monitored.
set -euo pipefail
home=${VELORA_INSTALLED:?}
fail() { echo "check_install: $*" >&2; exit 1; }

for file in "$home"/lib/*.so "$home"/bin/velora-ps; do
    debug=$(dirname "$file")/.debug/$(basename "$file").debug
    ! readelf -SW "$file" 2>/dev/null | grep -q '\.debug_line' || fail "$file is not stripped"
    readelf -SW "$debug" 2>/dev/null | grep -q '\.debug_line' || fail "$debug holds no line numbers"
    readelf -SW "$file" 2>/dev/null | grep -q '\.gnu_debuglink' || fail "$file does not name $debug"
done
[ "$("$home/bin/velora-ps" --version | wc -l)" -eq 1 ] || fail "velora-ps does not run"
text=$(QLOG_COMMON_DIR="$home/qlog" java "-agentpath:$home/lib/libvelora_agent.so" -Dvelora.ps=127.0.0.1:1 \
       -version 2>&1) || fail "the VM ended: $text"
ls "$home"/logs/*.datacollector.log >/dev/null 2>&1 || fail "the agent did not start: $text"
