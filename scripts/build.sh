#!/usr/bin/env bash
# Configures and builds Tonemill into build/ (Release). The program is build/tonemill.
# Extra arguments go to CMake's configure step, e.g. -DTONEMILL_SANITIZE=ON.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${TONEMILL_BUILD_DIR:-build}
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE="${CMAKE_BUILD_TYPE:-Release}" "$@" >/dev/null
cmake --build "$build_dir" -j "$(nproc)"
