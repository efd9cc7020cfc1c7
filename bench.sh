#!/usr/bin/env bash
# Prints the performance tables of docs/PERFORMANCE.md: a release build, the Google Benchmark programs of bench/, the
# request natives on a real VM and in a real container beside the JDK's Flight Recorder, start and exit. JAVA_HOME
# chooses the JDK.
#
#   ./bench.sh            everything
#   ./bench.sh native     the C++ programs only
#   ./bench.sh java       the request natives on a real VM only
#   ./bench.sh tomcat     what a captured request adds to an embedded Tomcat
#   ./bench.sh mounts     what the agent adds to virtual threads (a JDK from 21 on)
#   ./bench.sh start      start and exit, of a HelloWorld and of Tomcat, and what an idle Tomcat holds
set -euo pipefail
cd "$(dirname "$0")"
what=${1:-all}

scripts/setup.sh
log=$(mktemp)
trap 'rm -f "$log"' EXIT  # until the VM's part sets its own
{ cmake --preset release && cmake --build --preset release -j "$(nproc)"; } >"$log" 2>&1 || { tail -n 40 "$log"; exit 1; }
rm -f "$log"
build=$PWD/build/release

wanted() { [ "$what" = all ] || [ "$what" = "$1" ]; }

if wanted native; then
    for program in "$build"/bench/*_bench; do
        echo "== $(basename "$program")"
        "$program" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true 2>/dev/null |
            grep -E '_median|^Benchmark|^-'
    done
fi

# Each in a shell of its own: what it started ends with it.
bench_java() (
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
)

bench_tomcat() (
    . bench/monitored_java.sh
    container=$(printf '%s:' /usr/share/java/tomcat10-{catalina,coyote,juli,util,util-scan,api,annotations-api,servlet-api,el-api,jsp-api,jaspic-api,jni}.jar)
    "${bin}javac" -cp "$home/lib/velora.jar:$container" -d "$work" bench/java/TomcatBench.java
    # The queue holds a whole turn. On one processor, so that what another one would hide counts.
    printf '%s\n' internal.probe.event.queue.size.limit=200000 internal.memory.limit=500 internal.probe.publishing.frequency=500 \
        >>"$home/etc/datacollector.properties"
    echo "== what a captured request adds to an embedded Tomcat, on one processor: $(java_version)"
    java_on_one_processor=yes monitored_java -Xmx512m "-Djava.io.tmpdir=$work" -cp "$work:$container" TomcatBench 20000 15
)

# With the newest JDK, when the one chosen has no virtual threads.
bench_mounts() {
    local chosen=${JAVA_HOME:-}
    if ! "${chosen:+$chosen/bin/}java" -version 2>&1 | grep -qE '"(2[1-9]|[3-9][0-9])'; then
        chosen=$(ls -d /usr/lib/jvm/*-2[1-9]-* /usr/lib/jvm/*-[3-9][0-9]-* 2>/dev/null | tail -n 1)
    fi
    [ -z "$chosen" ] || JAVA_HOME=$chosen bench/mounts.sh
}

! wanted java || bench_java
! wanted tomcat || bench_tomcat
! wanted start || bench/start_exit.sh
! wanted mounts || bench_mounts
