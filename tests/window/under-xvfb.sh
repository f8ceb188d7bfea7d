#!/usr/bin/env bash
# under-xvfb.sh PROGRAM TEST...: runs these tests of a window's test program, each in a process of its own, on an X
# display that nobody sees. Exit status 77 where there is no Xvfb to make one.
set -euo pipefail
if ! command -v Xvfb >/dev/null; then
  echo "skipped: there is no Xvfb to run the window on (package xvfb)"
  exit 77
fi
program=$1
shift
scratch=$(mktemp -d)
mkfifo "$scratch/display"
# The server chooses a free display by itself: two that start at once must not choose the same.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$scratch/display" 2>"$scratch/log" &
server=$!
trap 'kill "$server" 2>/dev/null; wait "$server" 2>/dev/null; rm -rf "$scratch"' EXIT
read -r display <"$scratch/display" || { cat "$scratch/log"; exit 1; }
# No bus of a desktop: the toolkit would start one for this display, by a fork that a sanitizer's allocator may not survive.
export DISPLAY=:$display KV_TEST_DISPLAY=1 QT_QPA_PLATFORM=xcb DBUS_SESSION_BUS_ADDRESS=disabled:
for test; do
  said=$("$program" --gtest_filter="$test" 2>&1) && grep -q "PASSED.* 1 test" <<<"$said" || { echo "$said"; exit 1; }
done
