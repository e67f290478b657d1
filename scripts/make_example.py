#!/usr/bin/env python3
"""Writes examples/example.wav: the bundled demo piece that ./tonemill.sh transcribes.

Eight bars of a melody over I-V-vi-IV in C major at 100 beats a minute (about 19 s plus the
last ring), mono, 44.1 kHz, 16-bit. Each note is a small piano model: eight slightly
inharmonic partials with a hammer-fast attack, an exponential decay that is faster for high
partials and high notes, and a short damper release. Only the standard library is used.
"""
import array
import math
import os
import wave

RATE = 44100
BEAT = 0.6  # seconds; 100 beats a minute
PARTIALS = 8
INHARMONICITY = 0.0004

# Middle C is MIDI 60. Melody as (MIDI key or None for a rest, beats), four beats a bar.
MELODY = [
    (76, 1), (74, 0.5), (72, 0.5), (74, 1), (76, 1),        # C
    (79, 1.5), (77, 0.5), (76, 1), (74, 1),                 # G
    (72, 1), (76, 1), (81, 1), (79, 0.5), (77, 0.5),        # Am
    (76, 1), (72, 1), (74, 2),                              # F
    (76, 1), (74, 0.5), (72, 0.5), (74, 1), (76, 1),        # C
    (79, 1), (83, 1), (81, 1), (79, 1),                     # G
    (81, 0.5), (79, 0.5), (77, 0.5), (76, 0.5), (77, 1), (74, 1),  # Am
    (72, 3), (None, 1),                                     # F, ending on C above it
]
# Left hand per bar: the bass note on beat 1, held, and the chord struck on beats 2, 3 and 4,
# as (bass key, chord keys).
CHORDS = {"C": (48, [60, 64, 67]), "G": (43, [59, 62, 67]), "Am": (45, [60, 64, 69]), "F": (41, [60, 65, 69])}
PROGRESSION = ["C", "G", "Am", "F", "C", "G", "Am", "F"]


def midi_to_hz(key):
    return 440.0 * 2.0 ** ((key - 69) / 12.0)


_cache = {}


def piano_note(key, seconds, velocity):
    """Samples of one struck and released note, `seconds` held, plus its release."""
    cache_key = (key, round(seconds, 4), round(velocity, 3))
    if cache_key in _cache:
        return _cache[cache_key]
    f0 = midi_to_hz(key)
    release = 0.12
    length = int((seconds + release) * RATE)
    held = int(seconds * RATE)
    # Low notes ring longer; every partial decays faster than the one below it.
    base_decay = 2.5 * (261.6 / f0) ** 0.45
    partials = []
    for n in range(1, PARTIALS + 1):
        f = n * f0 * math.sqrt(1.0 + INHARMONICITY * n * n)
        if f > RATE / 2.2:
            break
        amplitude = velocity / n ** 1.1
        decay = base_decay / (1.0 + 0.6 * (n - 1))
        partials.append((2.0 * math.pi * f / RATE, amplitude, math.exp(-1.0 / (decay * RATE))))
    out = [0.0] * length
    attack = int(0.004 * RATE)
    release_step = math.exp(-1.0 / (0.03 * RATE))
    for omega, amplitude, step in partials:
        a = amplitude
        for i in range(length):
            out[i] += a * math.sin(omega * i)
            a *= step
    gain = 1.0
    for i in range(length):
        if i < attack:
            out[i] *= i / attack
        if i >= held:
            gain *= release_step
            out[i] *= gain
    _cache[cache_key] = out
    return out


def add(mix, start_seconds, samples):
    start = int(start_seconds * RATE)
    for i, s in enumerate(samples):
        if start + i < len(mix):
            mix[start + i] += s


def main():
    total_beats = 4 * len(PROGRESSION)
    mix = [0.0] * int((total_beats * BEAT + 1.5) * RATE)
    beat = 0.0
    for key, beats in MELODY:
        if key is not None:
            add(mix, beat * BEAT, piano_note(key, beats * BEAT * 0.95, 0.55))
        beat += beats
    for bar, name in enumerate(PROGRESSION):
        bass, chord = CHORDS[name]
        start = bar * 4
        add(mix, start * BEAT, piano_note(bass, 3.8 * BEAT, 0.45))
        for chord_beat in (1, 2, 3):
            for key in chord:
                add(mix, (start + chord_beat) * BEAT, piano_note(key, 0.9 * BEAT, 0.22))
    # The final C major chord under the last melody note.
    add(mix, total_beats * BEAT, piano_note(48, 1.2, 0.45))
    for key in (60, 64, 67, 72):
        add(mix, total_beats * BEAT, piano_note(key, 1.2, 0.3))

    peak = max(abs(s) for s in mix)
    scale = 0.89 * 32767 / peak
    pcm = array.array("h", (int(round(s * scale)) for s in mix))
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "examples", "example.wav")
    with wave.open(path, "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(2)
        w.setframerate(RATE)
        w.writeframes(pcm.tobytes())
    print("wrote %s: %.1f s" % (os.path.normpath(path), len(pcm) / RATE))


if __name__ == "__main__":
    main()
