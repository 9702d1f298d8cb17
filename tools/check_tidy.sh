#!/usr/bin/env bash
# Does every source that was built in BUILD obey .clang-tidy? check_tidy.sh BUILD [REGEX of paths]
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 2
set -o pipefail
run-clang-tidy-16 -quiet -j "$(nproc)" -p "$1" "${2:-$PWD/}" 2>&1 |
    { grep -vE '^clang-tidy-16 |warnings? generated' || true; }
