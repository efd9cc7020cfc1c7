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
trap 'rm -f "$log"' EXIT  # until the VM's part sets its own
{ cmake --preset release && cmake --build --preset release -j "$(nproc)"; } >"$log" 2>&1 || { tail -n 40 "$log"; exit 1; }
rm -f "$log"
build=$PWD/build/release

if [ "$what" != java ]; then
    for program in "$build"/bench/*_bench; do
        echo "== $(basename "$program")"
        "$program" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true 2>/dev/null |
            grep -E '_median|^Benchmark|^-'
    done
fi

if [ "$what" != native ]; then
    . bench/monitored_java.sh
    "${bin}javac" -cp "$home/lib/velora.jar" -d "$work" bench/java/PairBench.java
    settings=$home/etc/datacollector.properties
    cp "$settings" "$work/shipped"
    # pair_bench TITLE PAIRS PAUSE_MS SETTING...: PAIRS requests, then PAUSE_MS for the drainer, and so on
    pair_bench() {
        echo "== request natives on a real VM, $1: $(java_version)"
        printf '%s\n' "${@:4}" | cat "$work/shipped" - >"$settings"
        monitored_java -Xmx512m PairBench "$2" "$3"
    }
    pair_bench "queues drained between rounds" 2000 60 internal.probe.publishing.frequency=50
    pair_bench "bursts of two seconds" 5000 20 internal.probe.event.queue.size.limit=2000000 internal.memory.limit=2000
fi
