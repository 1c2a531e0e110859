#!/usr/bin/env bash
# Runs a program on a private Xvfb display with two screens, 800x600 (the
# primary) and 640x480: run-under-xvfb.sh <program> [args...]
# The server picks a free display number itself and reports it through
# -displayfd; it is stopped by its process id whatever the program's outcome.
set -euo pipefail

if ! command -v Xvfb >/dev/null 2>&1; then
    echo "Xvfb is not installed (Debian: xvfb); skipped" >&2
    exit 77
fi

workdir=$(mktemp -d)
xvfb_pid=
cleanup() {
    if [ -n "$xvfb_pid" ]; then
        kill "$xvfb_pid" 2>/dev/null || true
        wait "$xvfb_pid" 2>/dev/null || true
    fi
    rm -rf "$workdir"
}
trap cleanup EXIT

Xvfb -displayfd 3 -screen 0 800x600x24 -screen 1 640x480x24 -nolisten tcp \
    3>"$workdir/display" 2>"$workdir/xvfb.log" &
xvfb_pid=$!

display=
for _ in $(seq 1 100); do
    # The number is complete once its line ends.
    if [ "$(wc -l <"$workdir/display")" -ge 1 ]; then
        display=$(tr -dc '0-9' <"$workdir/display")
        break
    fi
    if ! kill -0 "$xvfb_pid" 2>/dev/null; then
        echo "Xvfb ended before it was ready:" >&2
        cat "$workdir/xvfb.log" >&2
        exit 1
    fi
    sleep 0.1
done
if [ -z "$display" ]; then
    echo "Xvfb reported no display within 10 seconds" >&2
    exit 1
fi

status=0
DISPLAY=":$display" QT_QPA_PLATFORM=xcb "$@" || status=$?
exit $status
