#!/usr/bin/env bash
# Runs a program on a private Xvfb display:
#   run-under-xvfb.sh --screen WxHxD [--screen WxHxD ...] <program> [args...]
# Each --screen adds one screen of that size and depth; the first is the
# primary. The server picks a free display number itself and reports it
# through -displayfd; it is stopped by its process id whatever the program's
# outcome.
set -euo pipefail

screens=()
count=0
while [ "${1:-}" = "--screen" ] && [ $# -ge 2 ]; do
    screens+=(-screen "$count" "$2")
    count=$((count + 1))
    shift 2
done
if [ ${#screens[@]} -eq 0 ] || [ $# -eq 0 ]; then
    echo "usage: run-under-xvfb.sh --screen WxHxD [--screen WxHxD ...] <program> [args...]" >&2
    exit 2
fi

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

Xvfb -displayfd 3 "${screens[@]}" -nolisten tcp 3>"$workdir/display" 2>"$workdir/xvfb.log" &
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
