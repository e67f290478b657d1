"""Builds the training and validation material: MIDI with labels, rendered audio, and the features that
the program itself computes (our C++ tools), so the networks learn from exactly what they will see.

    /usr/bin/python3 training/make_dataset.py notes --count 200
    /usr/bin/python3 training/make_dataset.py beats --count 200

Output under training/data/<kind>/{train,validation}/: NAME.json (labels), NAME.npy (features), and
NAME.wav for validation pieces.
Validation pieces are whole songs never used for training, rendered with the held-out soundfont.
The split and every random choice follow from --seed, so a rerun rebuilds the same set.
"""

import argparse
import json
import math
import os
import random
import subprocess
import sys

import material
import metrics
import render

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)


def is_validation(name: str) -> bool:
    """One song in ten, by its number: the same songs whatever else changes."""
    digits = "".join(c for c in name if c.isdigit())
    return bool(digits) and int(digits) % 10 == 3


def pieces(kind: str, count: int, rng: random.Random, max_seconds: float):
    """Yields (piece, validation) in a fixed order."""
    songs = material.pop909_songs()
    rng.shuffle(songs)
    for i in range(count):
        choice = rng.random()
        if kind == "notes":
            if choice < 0.55:
                song = songs[i % len(songs)]
                piece = material.pop909_piano(song, rng)
                validation = is_validation(song)
            elif choice < 0.85:
                piece = material.piano_texture(i, rng)
                validation = is_validation(piece.name)
            else:
                piece = material.metered_piece(i, rng.choice([2, 3, 4]), rng)
                piece = material.other_instruments(piece, rng)
                validation = is_validation(piece.name)
            piece = material.transpose(piece, rng.randint(-3, 3))
            piece = material.scale_time(piece, rng.uniform(0.8, 1.25))
        else:
            if choice < 0.5:
                song = songs[i % len(songs)]
                piece = material.pop909_band(song, rng) if rng.random() < 0.75 else material.pop909_piano(song, rng)
                validation = is_validation(song)
            else:
                meter = rng.choice([3, 3, 3, 4, 2])
                piece = material.metered_piece(i, meter, rng)
                if rng.random() < 0.6:
                    piece.notes += material.drum_part(piece.beats, meter, rng)
                    piece.programs[material.DRUM_CHANNEL] = 0
                if rng.random() < 0.3:
                    piece = material.other_instruments(piece, rng)
                validation = is_validation(piece.name)
            # POP909 songs lie between about 45 and 150 bpm: scale each from its own tempo to one drawn
            # log-uniformly from 60-200 bpm, inside the 55-215 bpm that the tracker follows.
            target = math.exp(rng.uniform(math.log(60.0), math.log(200.0)))
            if piece.name[:4] in ("band", "pop9"):
                bpm = metrics.tempo_of([t for t, _ in piece.beats])
                piece = material.scale_time(piece, target / bpm if bpm else 1.0)
        duration = max((n.end for n in piece.notes), default=0.0)
        if duration > max_seconds:  # long songs give an excerpt: more songs for the same rendering time
            start = rng.uniform(0.0, duration - max_seconds)
            piece = material.excerpt(piece, start, max_seconds)
        yield piece, validation


def feature_tool(kind: str) -> list:
    build = os.environ.get("TONEMILL_BUILD_DIR", os.path.join(ROOT, "build"))
    if kind == "notes":
        return [os.path.join(build, "tools", "spectrogram-dump", "spectrogram-dump")]
    return [os.path.join(build, "tools", "beat-features", "beat-features")]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("kind", choices=["notes", "beats"])
    parser.add_argument("--count", type=int, default=200)
    parser.add_argument("--seed", type=int, default=909)
    parser.add_argument("--out", default=os.path.join(HERE, "data"))
    parser.add_argument("--keep-audio", action="store_true")
    parser.add_argument("--max-seconds", type=float, default=75.0, help="longer pieces give an excerpt")
    args = parser.parse_args()

    rng = random.Random(args.seed + (0 if args.kind == "notes" else 1))
    tool = feature_tool(args.kind)
    if not os.access(tool[0], os.X_OK):
        print("Feature tool not built: %s (run scripts/build.sh)" % tool[0], file=sys.stderr)
        return 1
    for split in ("train", "validation"):
        os.makedirs(os.path.join(args.out, args.kind, split), exist_ok=True)

    for index, (piece, validation) in enumerate(pieces(args.kind, args.count, rng, args.max_seconds)):
        folder = os.path.join(args.out, args.kind, "validation" if validation else "train")
        piece.name = "%05d_%s" % (index, piece.name)
        features = os.path.join(folder, piece.name + ".npy")
        if os.path.exists(features):
            continue  # resumable: a finished piece is never made again
        midi_path = material.write_piece(piece, folder, detune_cents=rng.uniform(-15, 15))
        wav = midi_path[:-4] + ".wav"
        settings = render.render(midi_path, wav, rng, validation=validation)
        with open(midi_path[:-4] + ".json") as f:
            labels = json.load(f)
        labels["render"] = settings
        with open(midi_path[:-4] + ".json", "w") as f:
            json.dump(labels, f)
        subprocess.run(tool + [wav, features + ".part"], check=True, stdout=subprocess.DEVNULL)
        os.replace(features + ".part", features)
        if not (args.keep_audio or validation):  # validation audio feeds the whole-program evaluation
            os.remove(wav)
        print("%5d %-40s %s" % (index, piece.name, "validation" if validation else "train"), flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
