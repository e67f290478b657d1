#!/usr/bin/env bash
# Installs what is missing, builds (Release) and runs every test through CTest.
# The exit status is the tests'.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh "$@"
build_dir=${TONEMILL_BUILD_DIR:-build}
cd "$build_dir"
QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j "$(nproc)" --timeout 600
