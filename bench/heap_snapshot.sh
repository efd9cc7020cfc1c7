#!/usr/bin/env bash
# Measures heap summaries of a heap of small objects beside the VM's own heap dump of the same heap: the table of the
# section "Heap snapshot" in docs/PERFORMANCE.md. Needs the release build. JAVA_HOME chooses the JDK.
#
#   bench/heap_snapshot.sh [OBJECTS]      default 10000000
set -euo pipefail
cd "$(dirname "$0")/.."
objects=${1:-10000000}
build=$PWD/build/release
[ -e "$build/home/lib/libvelora_agent.so" ] || { echo "no release build: cmake --preset release && cmake --build --preset release" >&2; exit 1; }

work=$(mktemp -d)
ps_pid=
trap '[ -z "$ps_pid" ] || kill "$ps_pid" 2>/dev/null || true; rm -rf "$work"' EXIT
"$build/home/bin/velora-ps" --listen 127.0.0.1:0 --port-file "$work/port" --format json >/dev/null 2>"$work/ps.log" &
ps_pid=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.1; done
home=$work/home
mkdir -p "$home/logs"
cp -r "$build/home/etc" "$home/etc"
ln -s "$build/home/lib" "$build/home/msg" "$build/home/codeset" "$home/"
bin=${JAVA_HOME:+$JAVA_HOME/bin/}
"${bin}javac" -cp "$home/lib/velora.jar" -d "$work" bench/java/HeapSnapshotBench.java
"${bin}java" -version 2>&1 | sed -n 2p
QLOG_COMMON_DIR="$work/log" "${bin}java" -Xms1500m -Xmx1500m -XX:+AlwaysPreTouch "-agentpath:$home/lib/libvelora_agent.so" \
    "-Dam.home=$home" -Dam.nodename=bench -Dam.appserver=bench -Dvelora.ps="127.0.0.1:$(cat "$work/port")" \
    -cp "$work" HeapSnapshotBench "$objects" "$work" 2>"$work/err" |
    grep -vE '^(## |NLSPATH=|INFO: |set log|ffdc )' || { cat "$work/err" >&2; exit 1; }
