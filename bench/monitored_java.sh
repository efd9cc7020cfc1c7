# For the scripts of this folder, to be sourced at the root of the repository: an agent home of its own, a velora-ps that
# takes everything, and a Java VM with the agent. Everything ends and is removed with the script.
#
#   monitored_java ARGUMENT...    runs java under the agent; the collector's own lines are left out of the output.
#                                 With java_on_one_processor=yes all of it runs on the first processor

release=$PWD/build/release
[ -e "$release/home/bin/velora-ps" ] || { echo "no release build: cmake --preset release && cmake --build --preset release" >&2; exit 1; }
work=$(mktemp -d)
ps_pid=
trap '[ -z "$ps_pid" ] || kill "$ps_pid" 2>/dev/null || true; rm -rf "$work"' EXIT
"$release/home/bin/velora-ps" --listen 127.0.0.1:0 --port-file "$work/port" --format json >/dev/null 2>"$work/ps.log" &
ps_pid=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.1; done
home=$work/home
mkdir -p "$home/logs"
cp -r "$release/home/etc" "$home/etc"
ln -s "$release/home/lib" "$release/home/msg" "$release/home/codeset" "$home/"
bin=${JAVA_HOME:+$JAVA_HOME/bin/}

monitored_java() {
    QLOG_COMMON_DIR="$work/log" ${java_on_one_processor:+taskset -c 0} "${bin}java" "-agentpath:$home/lib/libvelora_agent.so" "-Dam.home=$home" -Dam.nodename=bench \
        -Dam.appserver=bench -Dvelora.ps="127.0.0.1:$(cat "$work/port")" -cp "$work" "$@" 2>"$work/err" |
        grep -vE '^(## |NLSPATH=|INFO: |set log|ffdc )' || { cat "$work/err" >&2; exit 1; }
}

java_version() { "${bin}java" -version 2>&1 | sed -n 2p; }
