#!/usr/bin/env bash
# Installs what is missing, builds (Release) and runs every test through CTest.
# The exit status is the tests'.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

# Test-only: the PyTorch and NumPy references that the network and feature tests compare our
# code with. The program never needs them, so install-deps.sh leaves them out; where they
# cannot be installed, those comparisons are skipped with a notice.
test_packages=(python3-torch python3-numpy)
missing=()
for p in "${test_packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && command -v sudo >/dev/null 2>&1 && sudo_cmd=(sudo)
  echo "Installing for the tests: ${missing[*]}"
  if ! { "${sudo_cmd[@]}" apt-get update -qq >/dev/null &&
         DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends \
           "${missing[@]}" >/dev/null; }; then
    echo "test.sh: could not install ${missing[*]}; the reference comparisons will be skipped" >&2
  fi
fi

scripts/build.sh "$@"
build_dir=${TONEMILL_BUILD_DIR:-build}
cd "$build_dir"
QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j "$(nproc)" --timeout 600
