"""Packs the beat material into a few compact files, to train on a machine that has a GPU but neither
the renderer nor our C++ front end.

Only the log amplitudes travel, quantised per piece, transposed so that each band runs along time, and
xz-compressed with a delta filter; their positive differences are recomputed on arrival exactly as the
program computes them (`train_beats.features_from_amplitudes`). Pieces outside the tracker's tempo range
are left out, as the trainer would leave them out.

    /usr/bin/python3 training/pack_beats.py --data training/data/beats --out .pack --parts 2
"""

import argparse
import glob
import io
import json
import lzma
import multiprocessing
import os
import sys

import numpy as np

import metrics
from train_beats import NUM_FEATURES, amplitudes_of, features_from_amplitudes

HERE = os.path.dirname(os.path.abspath(__file__))
XZ_FILTERS = [{"id": lzma.FILTER_DELTA, "dist": 1}, {"id": lzma.FILTER_LZMA2, "preset": 6}]


def quantise(amplitudes: np.ndarray, bits: int):
    """(bands x frames) unsigned integers and the scale that maps them back."""
    top = float(amplitudes.max()) if amplitudes.size else 0.0
    levels = (1 << bits) - 1
    scale = top / levels if top > 0 else 1.0
    return np.round(amplitudes / scale).clip(0, levels).astype(np.uint8).T.copy(), np.float32(scale)


def write_part(path: str, pieces: list) -> int:
    """pieces: (name, split, quantised, scale, beats)."""
    buffer = io.BytesIO()
    np.savez(buffer,
             names=np.array([p[0] for p in pieces]),
             splits=np.array([p[1] for p in pieces], dtype=np.int8),
             frames=np.array([p[2].shape[1] for p in pieces], dtype=np.int64),
             amplitudes=np.concatenate([p[2] for p in pieces], axis=1),
             scales=np.array([p[3] for p in pieces], dtype=np.float32),
             beat_counts=np.array([len(p[4]) for p in pieces], dtype=np.int64),
             beats=np.concatenate([np.asarray(p[4], dtype=np.float64).reshape(-1, 2) for p in pieces]))
    data = lzma.compress(buffer.getvalue(), format=lzma.FORMAT_XZ, filters=XZ_FILTERS)
    with open(path + ".part", "wb") as f:
        f.write(data)
    os.replace(path + ".part", path)
    return len(data)


def read_part(path: str) -> list:
    """Pieces of one packed file: (name, split, amplitudes frames x bands float32, beats [(t, down)])."""
    with open(path, "rb") as f:
        archive = np.load(io.BytesIO(lzma.decompress(f.read())), allow_pickle=False)
    if (archive["frames"].sum() != archive["amplitudes"].shape[1]
            or archive["beat_counts"].sum() != archive["beats"].shape[0]):
        raise ValueError("%s: the piece lengths do not add up to the stored frames and beats" % path)
    pieces, frame, beat = [], 0, 0
    for name, split, frames, scale, count in zip(archive["names"], archive["splits"], archive["frames"],
                                                 archive["scales"], archive["beat_counts"]):
        amplitudes = archive["amplitudes"][:, frame:frame + frames].T.astype(np.float32) * scale
        beats = [(float(t), bool(d)) for t, d in archive["beats"][beat:beat + count]]
        pieces.append((str(name), "validation" if split else "train", amplitudes, beats))
        frame, beat = frame + frames, beat + count
    return pieces


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--data", default=os.path.join(HERE, "data", "beats"))
    parser.add_argument("--out", required=True)
    parser.add_argument("--parts", type=int, default=1)
    parser.add_argument("--bits", type=int, default=8, choices=range(4, 9))
    args = parser.parse_args()

    pieces = []
    for split in ("validation", "train"):  # validation first: it lands in the first part
        for path in sorted(glob.glob(os.path.join(args.data, split, "*.npy"))):
            with open(path[:-4] + ".json") as f:
                beats = json.load(f)["beats"]
            if not metrics.in_tracker_range([t for t, _ in beats]):
                continue
            features = np.load(path)
            if features.ndim != 2 or features.shape[1] != NUM_FEATURES:
                print("skipping %s: features of shape %s" % (path, features.shape), file=sys.stderr)
                continue
            amplitudes = amplitudes_of(features)
            if not np.array_equal(features_from_amplitudes(amplitudes), features):
                print("%s: the differences are not those of its amplitudes" % path, file=sys.stderr)
                return 1
            quantised, scale = quantise(amplitudes, args.bits)
            pieces.append((os.path.basename(path)[:-4], split == "validation", quantised, scale, beats))
    if not pieces:
        print("no pieces under %s" % args.data, file=sys.stderr)
        return 1

    os.makedirs(args.out, exist_ok=True)
    validation = [p for p in pieces if p[1]]
    train = [p for p in pieces if not p[1]]
    # Training pieces are dealt round-robin so that every part holds every kind of material.
    parts = [list(validation) if i == 0 else [] for i in range(args.parts)]
    for i, piece in enumerate(train):
        parts[i % args.parts].append(piece)
    paths = [os.path.join(args.out, "beats_%d.xz" % i) for i in range(args.parts)]
    with multiprocessing.Pool(min(args.parts, os.cpu_count() or 1)) as pool:  # xz is slow: a core per part
        sizes = pool.starmap(write_part, zip(paths, parts))
    for i, (part, size) in enumerate(zip(parts, sizes)):
        print("part %d: %d pieces, %d frames, %.1f MB" % (i, len(part), sum(p[2].shape[1] for p in part), size / 1e6))
    return 0


if __name__ == "__main__":
    sys.exit(main())
