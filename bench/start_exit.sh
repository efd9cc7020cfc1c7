#!/usr/bin/env bash
# Start and exit with and without the agent, in turns: a HelloWorld, from exec to the process's end and how much of that is
# exit; Tomcat, from exec to "Server startup"; and what an idle Tomcat holds: resident memory and threads. Medians.
# JAVA_HOME chooses the JDK; bench/start_exit.sh [rounds, default 15]
set -euo pipefail
cd "$(dirname "$0")/.."
. bench/monitored_java.sh
rounds=${1:-15}
java=${bin}java
cat >"$work/Hello.java" <<'J'
public final class Hello {
    public static void main(String[] args) {
        System.out.println(System.currentTimeMillis());
    }
}
J
"${bin}javac" -d "$work" "$work/Hello.java"
ps="127.0.0.1:$(cat "$work/port")"
agent=("-agentpath:$home/lib/libvelora_agent.so" "-Dam.home=$home" "-Dvelora.ps=$ps")
export QLOG_COMMON_DIR=$work/log

ms() { echo $(($(date +%s%N) / 1000000)); }
median() { sort -n | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }

# hello KIND FLAG...: milliseconds to main's line, and from there to the end
hello() {
    local kind=$1 start said end
    shift
    start=$(ms)
    said=$("$java" "$@" -cp "$work" Hello 2>/dev/null | tail -n 1)
    end=$(ms)
    echo $((said - start)) >>"$work/hello.$kind.start"
    echo $((end - said)) >>"$work/hello.$kind.exit"
}

# tomcat KIND FLAG...: milliseconds to "Server startup"; resident kB and threads two seconds later
tomcat() {
    local kind=$1 base=$work/tomcat start pid
    shift
    rm -rf "$base"
    mkdir -p "$base"/{logs,temp,webapps,work}
    cp -r demo/container/conf "$base/conf"
    start=$(ms)
    "$java" "$@" -Djava.io.tmpdir="$base/temp" -Dcatalina.home=/usr/share/tomcat10 -Dcatalina.base="$base" -Ddemo.port=0 \
        -Ddemo.webapp="$release/demo/webapp" -cp /usr/share/tomcat10/bin/bootstrap.jar:/usr/share/tomcat10/bin/tomcat-juli.jar \
        org.apache.catalina.startup.Bootstrap start >"$base/log" 2>&1 &
    pid=$!
    until grep -q 'Server startup in' "$base/log"; do
        kill -0 "$pid" 2>/dev/null || { cat "$base/log" >&2; exit 1; }
        sleep 0.01
    done
    echo $(($(ms) - start)) >>"$work/tomcat.$kind.start"
    sleep 2
    awk '/^VmRSS/ {print $2}' "/proc/$pid/status" >>"$work/tomcat.$kind.resident"
    awk '/^Threads/ {print $2}' "/proc/$pid/status" >>"$work/tomcat.$kind.threads"
    start=$(ms)
    kill "$pid"
    wait "$pid" || true
    echo $(($(ms) - start)) >>"$work/tomcat.$kind.exit"
}

for ((i = 0; i < rounds; i++)); do
    hello bare
    hello agent "${agent[@]}"
done
for ((i = 0; i < (rounds + 2) / 3; i++)); do
    tomcat bare
    tomcat agent "${agent[@]}"
done
echo "== start and exit: $(java_version)"
printf '%-34s %10s %10s\n' "" "bare" "agent"
row() { printf '%-34s %10s %10s\n' "$1" "$(median <"$work/$2.bare.$3")" "$(median <"$work/$2.agent.$3")"; }
row "HelloWorld to main, ms" hello start
row "HelloWorld from main to the end, ms" hello exit
row "Tomcat to \"Server startup\", ms" tomcat start
row "Tomcat from SIGTERM to the end, ms" tomcat exit
row "idle Tomcat, resident kB" tomcat resident
row "idle Tomcat, threads" tomcat threads
