#!/usr/bin/env bash
# Measures heap summaries of a heap of small objects beside the VM's own heap dump of the same heap: the table of the
# section "Heap snapshot" in docs/PERFORMANCE.md. Needs the release build. JAVA_HOME chooses the JDK.
#
#   bench/heap_snapshot.sh [OBJECTS]      default 10000000
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/monitored_java.sh

"${bin}javac" -cp "$home/lib/velora.jar" -d "$work" bench/java/HeapSnapshotBench.java
java_version
monitored_java -Xms1500m -Xmx1500m -XX:+AlwaysPreTouch HeapSnapshotBench "${1:-10000000}" "$work"
