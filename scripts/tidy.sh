#!/usr/bin/env bash
# Reads every source and header with clang-tidy. Nothing is built; neighbouring sources are read as one, so that the headers
# they share are read once. Clang's own warnings count, too.
#
#     scripts/tidy.sh          the naming rules: minutes, a part of ./test
#     scripts/tidy.sh --all    every check of .clang-tidy: half an hour
#
# Prints what is wrong, each finding once, and at the end "tidy: N units read, M findings". Status 1 where there are any.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
case "${1:-}" in
  "") checks=(--checks=-*,readability-identifier-naming) ;;
  --all) checks=() ;;
  *) echo "usage: scripts/tidy.sh [--all]" >&2; exit 2 ;;
esac
# A compiler cache has no part in this, and would stand in the commands that clang-tidy reads.
env -u CMAKE_CXX_COMPILER_LAUNCHER cmake --preset tidy >/dev/null
if ninja -C build/tidy -t targets all | grep '^station_window_autogen:' >/dev/null; then
  made=$(ninja -C build/tidy station_window_autogen) || { tail -n 40 <<<"$made"; exit 1; }
fi
# What Qt generates has names of its own.
units=$(sed -nE 's/^ *"file": "(.*)",?$/\1/p' build/tidy/compile_commands.json | grep -v _autogen/ | sort -u)
# A unit with findings ends with an error; what counts is what it printed.
xargs -P "$(nproc)" -n 1 -d '\n' clang-tidy --quiet "${checks[@]}" -p build/tidy <<<"$units" >build/tidy/said 2>&1 || true
findings=$(grep -E '(error|warning): ' build/tidy/said | sort -u || true)
if [ -n "$findings" ]; then printf '%s\n' "$findings"; fi
count=$(grep -c . <<<"$findings" || true)
echo "tidy: $(wc -l <<<"$units") units read, $count findings"
[ "$count" -eq 0 ]
