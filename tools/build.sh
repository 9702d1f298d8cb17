#!/usr/bin/env bash
# Builds a preset: build.sh PRESET [TARGET...]. Configures only what today's presets have not configured yet: ninja sees
# by itself when a CMakeLists.txt or the list of sources has changed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=$1
shift

# Harmless without ccache, and many times faster with it.
if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$PWD
fi
[ "build/$preset/build.ninja" -nt CMakePresets.json ] || cmake --preset "$preset"
cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
