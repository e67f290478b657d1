"""Writes the bundled demo piece: examples/example.{mid,json,wav}.

The melody of the "Ode to Joy" (Beethoven, 1824, public domain) in C major at 96 beats a minute, three
phrases of four bars (A, B, A'), over a left hand of our own: the bass note on beats 1 and 3, the chord on 2 and 4.
It is rendered with the TimGM6mb soundfont, which no training piece uses, so the example is also a fair
check of the networks. The JSON holds the exact onsets and beats for evaluation.

    /usr/bin/python3 training/make_example.py
"""

import os
import random

import material
import render

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BPM = 96
C, D, E, F, G, A, B = 60, 62, 64, 65, 67, 69, 71

PHRASE_A = [(E, 1), (E, 1), (F, 1), (G, 1), (G, 1), (F, 1), (E, 1), (D, 1),
            (C, 1), (C, 1), (D, 1), (E, 1)]
MELODY = (PHRASE_A + [(E, 1.5), (D, 0.5), (D, 2)]
          + [(D, 1), (D, 1), (E, 1), (C, 1), (D, 1), (E, 0.5), (F, 0.5), (E, 1), (C, 1),
             (D, 1), (E, 0.5), (F, 0.5), (E, 1), (D, 1), (C, 1), (D, 1), (G - 12, 2)]
          + PHRASE_A + [(D, 1.5), (C, 0.5), (C, 2)])
# One chord a bar: root in the bass, triad in the middle.
CHORDS = {"C": (48, [55, 60, 64]), "G": (43, [55, 59, 62])}
BARS = ["C", "G", "C", "G", "G", "C", "G", "C", "C", "G", "C", "C"]


def piece() -> material.Piece:
    beat = 60.0 / BPM
    start = 0.5
    beats = [(start + i * beat, i % 4 == 0) for i in range(len(BARS) * 4 + 1)]
    notes, time = [], start
    for pitch, length in MELODY:
        notes.append(material.Note(time, time + length * beat * 0.95, pitch, 88, 0))
        time += length * beat
    for bar, name in enumerate(BARS):
        bass, triad = CHORDS[name]
        t0 = start + bar * 4 * beat
        for b in (0, 2):
            notes.append(material.Note(t0 + b * beat, t0 + (b + 1) * beat * 0.98, bass, 70, 1))
        for b in (1, 3):
            for p in triad:
                notes.append(material.Note(t0 + b * beat, t0 + (b + 0.9) * beat, p, 55, 1))
    return material.Piece("example", notes, beats, {0: 0, 1: 0})


def main() -> None:
    folder = os.path.join(ROOT, "examples")
    midi = material.write_piece(piece(), folder)
    wav = os.path.join(folder, "example.wav")
    render.render(midi, wav, random.Random(1824), validation=True)
    samples = render.read_wav(wav)
    render.write_wav(wav, samples.mean(axis=1, keepdims=True))  # mono keeps the file small
    print("wrote", os.path.join(folder, "example.wav"))


if __name__ == "__main__":
    main()
