#!/usr/bin/env bash
# Takes the pictures of the window in docs/images/ anew, on a display that nobody sees. `scripts/screenshots.sh FOLDER`
# also leaves there those of the film in every size, light and dark, to be looked at.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

. scripts/setup.sh
kv_setup test && kv_build release kv-station projectshare window_shots window_tests

mkdir -p docs/images
for name in edit people asked happened panel refused dark empty many history conflict delete leave name give replace trash recovery start preferences; do
  KV_TEST_DISPLAY=1 xvfb-run -a -s "-screen 0 1280x800x24" \
    build/release/bin/window_shots "$name" "docs/images/window-$name.png" >/dev/null
  echo "docs/images/window-$name.png"
done

# The film: a test plays it, and leaves a picture of both windows after each step.
film() {  # FOLDER SIZE APPEARANCE
  mkdir -p "$1"
  KV_FILM="$1" KV_FILM_SIZE="$2" KV_FILM_APPEARANCE="$3" \
    build/release/bin/window_tests --gtest_filter=FilmTest.AnEditGoesFromHandToHandByMouse >/dev/null
  echo "$1"
}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
film "$scratch" 1280x800 light
for picture in 2-ask-ANNA 3-give-BEN 5-trimming-BEN 5-trim-ANNA 6-save-BEN 7-history-ANNA 9-undo-BEN 10-write-ANNA 11-answer-ANNA; do
  cp "$scratch/$picture.png" "docs/images/film-$picture.png"
done
film "$scratch/small" 640x480 dark
cp "$scratch/small/11-answer-BEN.png" docs/images/film-small-dark.png
[ $# -eq 0 ] || for size in 1280x800 640x480 2560x1440; do
  for appearance in light dark; do film "$1/$size-$appearance" "$size" "$appearance"; done
done
