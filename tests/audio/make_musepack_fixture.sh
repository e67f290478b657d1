#!/usr/bin/env bash
# Musepack is the one format the test suite cannot encode at test time (no encoder library
# is packaged), so its fixture is committed. This regenerates it: 0.4 s of a 440 Hz tone
# left and 660 Hz right at 44.1 kHz, through Debian's musepack-tools.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
command -v mpcenc >/dev/null || { echo "needs mpcenc (apt-get install musepack-tools)" >&2; exit 1; }
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
python3 - "$tmp/tone.wav" <<'PY'
import math, struct, sys, wave
rate, seconds = 44100, 0.4
with wave.open(sys.argv[1], "wb") as w:
    w.setnchannels(2)
    w.setsampwidth(2)
    w.setframerate(rate)
    frames = bytearray()
    for i in range(int(rate * seconds)):
        t = i / rate
        frames += struct.pack("<hh", int(16000 * math.sin(2 * math.pi * 440 * t)),
                              int(16000 * math.sin(2 * math.pi * 660 * t)))
    w.writeframes(bytes(frames))
PY
mpcenc --silent --overwrite --quality 3 "$tmp/tone.wav" "$here/fixtures/tone_stereo.mpc"
ls -l "$here/fixtures/tone_stereo.mpc"
