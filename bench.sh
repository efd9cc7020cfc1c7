#!/usr/bin/env bash
# Prints the performance table of docs/PERFORMANCE.md: a release build, the Google Benchmark programs of bench/, and the
# request natives on a real VM beside the JDK's Flight Recorder. JAVA_HOME chooses the JDK.
#
#   ./bench.sh            everything
#   ./bench.sh native     the C++ programs only
#   ./bench.sh java       the request natives on a real VM only
set -euo pipefail
cd "$(dirname "$0")"
what=${1:-all}

scripts/setup.sh
log=$(mktemp)
trap 'rm -f "$log"' EXIT
{ cmake --preset release && cmake --build --preset release -j "$(nproc)"; } >"$log" 2>&1 || { tail -n 40 "$log"; exit 1; }
build=$PWD/build/release

if [ "$what" != java ]; then
    for program in "$build"/bench/*_bench; do
        echo "== $(basename "$program")"
        "$program" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true 2>/dev/null |
            grep -E '_median|^Benchmark|^-'
    done
fi

if [ "$what" != native ]; then
    work=$(mktemp -d)
    "$build/home/bin/velora-ps" --listen 127.0.0.1:0 --port-file "$work/port" --format json >/dev/null 2>"$work/ps.log" &
    ps_pid=$!
    trap 'kill $ps_pid 2>/dev/null; rm -rf "$log" "$work"' EXIT
    for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.1; done
    home=$work/home
    mkdir -p "$home/logs"
    cp -r "$build/home/etc" "$home/etc"
    ln -s "$build/home/lib" "$build/home/msg" "$build/home/codeset" "$home/"
    printf '\ninternal.probe.event.queue.size.limit=2000000\ninternal.memory.limit=2000\n' >>"$home/etc/datacollector.properties"
    "$(readlink -f "$(command -v javac)" | xargs dirname)/javac" -cp "$home/lib/velora.jar" -d "$work" bench/java/PairBench.java
    java=${JAVA_HOME:+$JAVA_HOME/bin/}java
    echo "== request natives on a real VM: $("$java" -version 2>&1 | sed -n 2p)"
    QLOG_COMMON_DIR="$work/log" "$java" -Xmx512m "-agentpath:$home/lib/libvelora_agent.so" "-Dam.home=$home" -Dam.nodename=bench \
        -Dam.appserver=bench -Dvelora.ps="127.0.0.1:$(cat "$work/port")" -cp "$work" PairBench 2>/dev/null |
        grep -vE '^(## |NLSPATH=|INFO: |set log|ffdc )'
fi
