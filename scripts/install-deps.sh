#!/usr/bin/env bash
# Installs every Debian package that Tonemill and its tests need.
# Idempotent and quiet: when everything is present it only asks dpkg and exits.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  qtbase5-dev qtbase5-dev-tools libqt5svg5-dev qtmultimedia5-dev libqt5multimedia5-plugins
  qtwebengine5-dev
  libkissfft-dev nlohmann-json3-dev
  libvorbis-dev libogg-dev libflac-dev libopus-dev libopusfile-dev
  libwavpack-dev libmpcdec-dev libmpg123-dev
  libavformat-dev libavcodec-dev libavutil-dev libswresample-dev
  libgtest-dev libgmock-dev googletest
  libxml2-utils xvfb xauth
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null 2>&1 || { echo "install-deps: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo_cmd=(sudo)
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq >/dev/null
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
