#!/usr/bin/env bash
# under-xvfb.sh PROGRAM TEST...: runs these tests of a window's test program, each in a process of its own, on an X
# display that nobody sees. Exit status 77 where there is no Xvfb to make one.
set -euo pipefail
if ! command -v xvfb-run >/dev/null || ! command -v Xvfb >/dev/null; then
  echo "skipped: there is no Xvfb to run the window on (packages xvfb and xauth)"
  exit 77
fi
export KV_TEST_DISPLAY=1 QT_QPA_PLATFORM=xcb
exec xvfb-run -a -s "-screen 0 1280x800x24" bash -c '
  program=$1
  shift
  for test; do
    said=$("$program" --gtest_filter="$test" 2>&1) && grep -q "PASSED.* 1 test" <<<"$said" || { echo "$said"; exit 1; }
  done
' under-xvfb "$@"
