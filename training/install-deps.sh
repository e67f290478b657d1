#!/usr/bin/env bash
# Installs what the training scripts need (not needed to build or test the program):
# Debian's PyTorch, NumPy and mido, fluidsynth and the soundfonts. Use /usr/bin/python3.
set -euo pipefail
packages=(python3-torch python3-numpy python3-mido fluidsynth
          fluid-soundfont-gm musescore-general-soundfont timgm6mb-soundfont)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq >/dev/null
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
