#!/usr/bin/env bash
# Whether every C++ file is formatted as .clang-format has it: check-format.sh [CLANG-FORMAT]. Names those that are not;
# "clang-format -i FILE" mends one. 77 where there is no clang-format.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
command -v "${1:-clang-format}" >/dev/null || exit 77
find host ProjectShare station app tools tests -name '*.h' -o -name '*.cpp' |
  xargs "${1:-clang-format}" --dry-run -Werror
