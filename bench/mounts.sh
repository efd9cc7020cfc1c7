#!/usr/bin/env bash
# Measures what the agent adds to virtual threads: the section "Virtual threads" of docs/PERFORMANCE.md. A VM without the
# agent, one with it that captures nothing on virtual threads, and one that captures a request on each take turns, all
# pinned to one processor. Needs the release build and a JDK from 21 on (JAVA_HOME).
#
#   bench/mounts.sh [TURNS]      default 5
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/monitored_java.sh

"${bin}javac" -cp "$home/lib/velora.jar" -d "$work" bench/java/MountBench.java
echo "== virtual threads: $(java_version)"
processor=$(taskset -pc $$ | sed 's/.*: //; s/[-,].*//')
taskset -pc "$processor" $$ >/dev/null
for _ in $(seq "${1:-5}"); do
    echo "bare $("${bin}java" -Xmx512m -cp "$home/lib/velora.jar:$work" MountBench none)"
    echo "agent $(monitored_java -Xmx512m MountBench none)"
    echo "request $(monitored_java -Xmx512m MountBench request)"
done | awk '
    { for (i = 2; i <= 5; i++) if (!(($1, i) in best) || $i < best[$1, i]) best[$1, i] = $i }
    END {
        printf "%-44s %10s %10s\n", "CPU ns, best of all turns (their quarter)", "yield", "thread"
        split("bare agent request", kinds)
        split("without the agent,nothing captured on them,a request captured on each", names, ",")
        for (k = 1; k <= 3; k++)
            printf "%-44s %5.0f (%3.0f) %6.0f (%4.0f)\n", names[k], best[kinds[k], 2], best[kinds[k], 3],
                best[kinds[k], 4], best[kinds[k], 5]
        printf "a mount and an unmount: %+.0f ns with nothing captured, %+.0f with a request\n",
            best["agent", 2] - best["bare", 2], best["request", 2] - best["bare", 2]
    }'
