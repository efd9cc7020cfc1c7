#!/bin/sh
# run_in_vm.sh <expected text> <expected exit code> <command...>: runs the command and judges what it wrote.
expected=$1
status=$2
shift 2
output=$("$@" 2>&1)
got=$?
printf '%s\n' "$output"
if [ "$got" -ne "$status" ]; then
    echo "exit code $got, expected $status"
    exit 1
fi
if printf '%s\n' "$output" | grep -E 'FAILED|FATAL ERROR|WARNING in native|JNI local refs|no longer supported'; then
    exit 1
fi
printf '%s\n' "$output" | grep -qF -- "$expected" || { echo "missing: $expected"; exit 1; }
