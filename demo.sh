#!/usr/bin/env bash
# Shows the main road at work: builds the agent, starts the Publish Server and a real servlet container with the
# collector inside, sends it requests and prints what was captured. Ends with 0 only if every request was seen.
#
#   ./demo.sh           run, show, stop everything
#   ./demo.sh --keep    stay up afterwards and say how to use it; Ctrl-C stops everything
#
# JAVA_HOME chooses the JDK (default: the one that builds). Everything listens on loopback, on free ports.
set -euo pipefail
cd "$(dirname "$0")"

keep=no
case "${1:-}" in
    "") ;;
    --keep) keep=yes ;;
    *) sed -n '2,8s/^# \{0,1\}//p' "$0"; exit 2 ;;
esac

say() { printf '\n\033[1m%s\033[0m\n' "$*"; }
fail() { printf '\nDemo failed: %s\n' "$*" >&2; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/velora-demo.XXXXXX")
pids=()
clean_up() {
    local status=$?
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
    if [ "$status" -eq 0 ]; then rm -rf "$work"; else echo "Logs are kept in $work" >&2; fi
}
trap clean_up EXIT
trap 'exit 130' INT TERM

# Waits up to $1 seconds for the command that follows to succeed.
wait_for() {
    local tries=$(($1 * 10))
    shift
    while [ "$tries" -gt 0 ]; do
        "$@" && return 0
        tries=$((tries - 1))
        sleep 0.1
    done
    return 1
}

say "1. Installing what is missing and building (the first time takes a few minutes)"
scripts/setup.sh
cmake --preset release -DBUILD_TESTING=OFF >"$work/build.log" 2>&1 || { tail -n 40 "$work/build.log"; fail "configuration"; }
cmake --build --preset release -j "$(nproc)" >>"$work/build.log" 2>&1 || { tail -n 40 "$work/build.log"; fail "build"; }
home=$PWD/build/release/home
webapp=$PWD/build/release/demo/webapp
java=${JAVA_HOME:+$JAVA_HOME/bin/}java
echo "The agent home is $home"

say "2. Starting the Publish Server"
"$home/bin/velora-ps" --listen 127.0.0.1:0 --port-file "$work/ps.port" --format json >"$work/captured.jsonl" 2>"$work/ps.log" &
ps_pid=$!
pids+=("$ps_pid")
wait_for 10 test -s "$work/ps.port" || { cat "$work/ps.log"; fail "the Publish Server did not start"; }
ps_port=$(cat "$work/ps.port")
echo "velora-ps listens on 127.0.0.1:$ps_port (process $ps_pid)"

say "3. Starting the servlet container with the collector inside"
mkdir -p "$work/tomcat/"{logs,temp,webapps,work}
cp -r demo/container/conf "$work/tomcat/conf"
"$java" -version 2>&1 | head -1
QLOG_COMMON_DIR="$work/log" "$java" \
    "-agentpath:$home/lib/libvelora_agent.so" -Dvelora.ps="127.0.0.1:$ps_port" -Dam.nodename=demo -Dam.appserver=tomcat -Dvelora.admin=0 \
    -Djava.io.tmpdir="$work/tomcat/temp" -Dcatalina.home=/usr/share/tomcat10 -Dcatalina.base="$work/tomcat" \
    -Ddemo.port=0 -Ddemo.webapp="$webapp" \
    -cp /usr/share/tomcat10/bin/bootstrap.jar:/usr/share/tomcat10/bin/tomcat-juli.jar \
    org.apache.catalina.startup.Bootstrap start >"$work/tomcat.log" 2>&1 &
tomcat_pid=$!
pids+=("$tomcat_pid")
started() { grep -q 'Server startup in' "$work/tomcat.log" || ! kill -0 "$tomcat_pid" 2>/dev/null; }
wait_for 60 started || true
port=$(sed -n 's/.*"http-nio-127.0.0.1-auto-[0-9]*-\([0-9]*\)".*/\1/p' "$work/tomcat.log" | head -1)
[ -n "$port" ] || { tail -n 40 "$work/tomcat.log"; fail "the servlet container did not start"; }
base=http://127.0.0.1:$port/demo
echo "Tomcat serves $base (process $tomcat_pid), started with the one flag"
echo "  -agentpath:$home/lib/libvelora_agent.so"

say "4. Sending requests"
expected=()
request() {  # path, what must be captured (URLs of the records), curl options
    local path=$1 urls=$2
    shift 2
    printf '  GET /demo%-22s -> %s\n' "$path" "$(curl -s -o /dev/null -w '%{http_code}' "$@" "$base$path")"
    for url in $urls; do expected+=("$url"); done
}
# The collector takes requests from the moment its two worker threads are connected.
connected() { grep -q '"type":"agent"' "$work/captured.jsonl"; }
wait_for 20 connected || { cat "$work/ps.log"; fail "the collector did not connect"; }
for _ in 1 2 3; do
    request /hello /demo/hello
    request /private/hello /demo/private/hello -u demo:demo
    request '/slow?ms=80' /demo/slow
    request '/burn?rounds=4000' /demo/burn
    request /nested "/demo/nested /demo/slow /demo/hello"
    request /fail /demo/fail
    request /index.html /demo/index.html
done

say "5. What the Publish Server received"
count() { grep -c "\"type\":\"request\".*\"url\":\"$1\"" "$work/captured.jsonl" || true; }
missing_urls() {
    local url
    for url in $(printf '%s\n' "${expected[@]}" | sort -u); do
        local want
        want=$(printf '%s\n' "${expected[@]}" | grep -cx "$url")
        [ "$(count "$url")" -ge "$want" ] || echo "$url: $(count "$url") of $want"
    done
}
all_seen() { [ -z "$(missing_urls)" ]; }
seen=yes
wait_for 20 all_seen || seen=no
"$home/bin/velora-ps" --show "$work/captured.jsonl" || true
[ "$seen" = yes ] || { missing_urls; fail "not every request was seen"; }
echo
echo "All ${#expected[@]} requests (nested ones included) were captured, encoded, sent over TCP and decoded."

say "6. Asking the server itself: its largest classes, and where a thread is just now"
admin=$(sed -n 's/.*"adminPort":\([0-9]*\).*/\1/p' "$work/captured.jsonl" | head -1)
thread=$(sed -n 's/.*"type":"request".*"thread":\([0-9]*\).*/\1/p' "$work/captured.jsonl" | tail -1)
ask() {  # how many lines to show, question
    local lines=$1
    shift
    echo "  velora-ps --ask 127.0.0.1:$admin $*"
    "$home/bin/velora-ps" --ask "127.0.0.1:$admin" "$@" >"$work/answer" || fail "no answer from the admin port"
    head -n "$lines" "$work/answer"
    echo
}
ask 9 heap
ask 7 stack "$thread"

if [ "$keep" = yes ]; then
    say "Staying up (Ctrl-C stops everything)"
    echo "  open   $base/index.html          (user demo, password demo)"
    echo "  watch  tail -f $work/captured.jsonl"
    echo "  ask    $home/bin/velora-ps --ask 127.0.0.1:$admin threads"
    echo "  logs   $work/log/VEL/logs  $home/logs"
    wait "$tomcat_pid" || true
fi
