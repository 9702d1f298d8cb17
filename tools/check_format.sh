#!/usr/bin/env bash
# Does every source obey .clang-format? To mend: tools/check_format.sh -i
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 2
find . -path ./build -prune -o \( -name '*.h' -o -name '*.cpp' \) -print0 |
    xargs -0 clang-format-16 "${1:---dry-run}" --Werror
