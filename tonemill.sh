#!/usr/bin/env bash
# Runs Tonemill, installing and building first when needed.
#   ./tonemill.sh                 transcribes the bundled example into out/
#   ./tonemill.sh [options] file  passes everything on to build/tonemill
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
"$here/scripts/install-deps.sh"
if [ ! -x "$here/build/tonemill" ] || [ -n "$(find "$here"/{app,audio,analysis,nn,score,output,playback,ui,platform,resources} "$here/CMakeLists.txt" -newer "$here/build/tonemill" -print -quit 2>/dev/null)" ]; then
  "$here/scripts/build.sh"
fi
if [ $# -eq 0 ]; then
  mkdir -p "$here/out"
  example="$here/examples/example.wav"
  exec "$here/build/tonemill" -a "$example" \
    -x "$here/out/example.musicxml" -m "$here/out/example.mid" -c "$here/out/example.csv"
fi
exec "$here/build/tonemill" "$@"
