"""Beat and downbeat F-measure (70 ms, one-to-one) of the program's beat stage on pieces it never
trained on, and the share of 3- and 4-beat pieces whose meter it gets right.

The beats are the whole stage's (features, the eight networks, the bar HMM), as `beat-features --beats`
writes them from the program's own code.

    /usr/bin/python3 training/eval_beats.py [--data training/data/beats/validation] [--weights FILE]
"""

import argparse
import collections
import glob
import json
import os
import subprocess
import sys
import tempfile

import metrics

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def program_beats(wav: str, tool: str, weights: str, workdir: str):
    """(time, number in the measure) of each beat the program finds."""
    out = os.path.join(workdir, "beats.txt")
    command = [tool, wav, os.path.join(workdir, "features.npy"), "--beats", out]
    if weights:
        command += ["--weights", weights]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    with open(out) as f:
        return [(float(t), int(n)) for t, n in (line.split() for line in f if line.strip())]


def meter_of(beats) -> int:
    """The most common measure length: the beat numbers that precede each downbeat."""
    lengths = collections.Counter()
    for (_, number), (_, following) in zip(beats, beats[1:]):
        if following == 1:
            lengths[number] += 1
    return lengths.most_common(1)[0][0] if lengths else 0


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--data", default=os.path.join(ROOT, "training", "data", "beats", "validation"))
    parser.add_argument("--tool", default=os.path.join(ROOT, "build", "tools", "beat-features", "beat-features"))
    parser.add_argument("--weights", default=os.path.join(ROOT, "resources", "weights", "beats.safetensors"))
    parser.add_argument("--example", action="store_true", help="also score examples/example.wav")
    args = parser.parse_args()

    pieces = [(w, w[:-4] + ".json") for w in sorted(glob.glob(os.path.join(args.data, "*.wav")))]
    if args.example:
        pieces.append((os.path.join(ROOT, "examples", "example.wav"), os.path.join(ROOT, "examples", "example.json")))
    if not pieces:
        print("No validation pieces under %s" % args.data, file=sys.stderr)
        return 1
    beat_f, down_f, meters = [], [], collections.Counter()
    in_range = []
    print("%-40s %6s %6s %6s %6s" % ("piece", "beatF", "downF", "meter", "found"))
    with tempfile.TemporaryDirectory() as workdir:
        for wav, labels_path in pieces:
            with open(labels_path) as f:
                labels = json.load(f)
            ref = [t for t, _ in labels["beats"]]
            ref_down = [t for t, d in labels["beats"] if d]
            found = program_beats(wav, args.tool, args.weights, workdir)
            b = metrics.beat_scores(ref, [t for t, _ in found])["f"]
            d = metrics.beat_scores(ref_down, [t for t, n in found if n == 1])["f"]
            beat_f.append(b)
            down_f.append(d)
            in_range.append(metrics.in_tracker_range(ref))
            truth, meter = labels.get("beats_per_bar", 4), meter_of(found)
            if truth in (3, 4):
                meters[(truth, meter == truth)] += 1
            print("%-40s %6.3f %6.3f %6s %6d%s" % (os.path.basename(wav)[:40], b, d, "%d/%d" % (meter, truth),
                                                   len(found), "" if in_range[-1] else "  (tempo %.0f bpm)" %
                                                   metrics.tempo_of(ref)))
    print("mean beat F %.3f, downbeat F %.3f over %d pieces" % (sum(beat_f) / len(beat_f),
                                                                 sum(down_f) / len(down_f), len(pieces)))
    kept = [i for i, ok in enumerate(in_range) if ok]
    if kept and len(kept) < len(pieces):
        print("mean beat F %.3f, downbeat F %.3f over the %d pieces within the tracker's %.0f-%.0f bpm" % (
            sum(beat_f[i] for i in kept) / len(kept), sum(down_f[i] for i in kept) / len(kept), len(kept),
            *metrics.TRACKER_BPM))
    for truth in (3, 4):
        total = meters[(truth, True)] + meters[(truth, False)]
        if total:
            print("meter right on %d of %d pieces in %d" % (meters[(truth, True)], total, truth))
    return 0


if __name__ == "__main__":
    sys.exit(main())
