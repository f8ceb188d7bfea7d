#!/usr/bin/env bash
# Takes the pictures of the window in docs/images/ anew, on a display that nobody sees.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

. scripts/setup.sh
kv_setup test && kv_build release kv-station projectshare window_shots

mkdir -p docs/images
for name in edit people asked happened panel refused dark empty many history conflict delete leave name give replace trash recovery start preferences; do
  KV_TEST_DISPLAY=1 xvfb-run -a -s "-screen 0 1280x800x24" \
    build/release/bin/window_shots "$name" "docs/images/window-$name.png" >/dev/null
  echo "docs/images/window-$name.png"
done
