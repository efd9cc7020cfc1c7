#!/usr/bin/env bash
# Measures what the class-load hook costs: the time that a VM takes to define every class of java.base and of the jars
# given (by default the servlet container's), without the agent, with it as shipped (the hook is off by then) and with
# an injector that stays active because its targets never come. The three take turns, so that drift of the machine
# meets them alike. Needs the release build. JAVA_HOME chooses the JDK.
#
#   bench/class_load.sh [ROUNDS [JAR...]]      default 15 rounds
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/monitored_java.sh
rounds=${1:-15}
shift || true
[ $# -gt 0 ] || set -- /usr/share/tomcat10/lib/*.jar

"${bin}javac" -d "$work" tests/jvm/programs/AllClasses.java
configuration=$home/etc/instrumentation.properties
cp "$configuration" "$work/shipped"
key=com.kor.tessar.ruka.jvmpi.
target='org.acme.Never org.acme.Never defineClass (Ljava/lang/String;[BII)Ljava/lang/Class; 0,1,2,3,4'
printf '%s\n' "${key}instrumentDefineClass = YES" "${key}classLoader = $target" "${key}proxy = $target" >"$work/active"

note() { grep '^ms ' | cut -d' ' -f2 >>"$work/ms.$1"; }
for _ in $(seq "$rounds"); do
    "${bin}java" -cp "$work" AllClasses "$@" | tee "$work/last" | note none
    cp "$work/shipped" "$configuration"
    monitored_java AllClasses "$@" | note shipped
    cp "$work/active" "$configuration"
    monitored_java AllClasses "$@" | note active
done

java_version
sed -n 's/^\(loaded [0-9]*\).*/\1 classes/p' "$work/last"
echo "ms: lower quartile, median, upper quartile of $rounds runs"
for which in none shipped active; do
    printf '%-8s ' "$which"
    sort -n "$work/ms.$which" | awk '{v[NR]=$1} END {print v[int((NR+3)/4)], v[int((NR+1)/2)], v[int((3*NR+3)/4)]}'
done
