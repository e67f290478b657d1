"""Note-onset precision, recall and F1 of the whole program on pieces it never trained on.

Runs `tonemill -a PIECE.wav -m OUT.mid` with constant-tempo MIDI (so a note's onset in the file is its
start time) and compares the file's onsets with the labels: 50 ms, same pitch, one-to-one.

    /usr/bin/python3 training/eval_notes.py [--data training/data/notes/validation] [extra.wav:extra.json ...]
"""

import argparse
import glob
import json
import os
import subprocess
import sys
import tempfile

import mido

import metrics

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def program_onsets(wav: str, workdir: str, tonemill: str, weights: str = "") -> list:
    """(time, MIDI pitch) of every note the program writes for `wav`."""
    data_home = os.path.join(workdir, "data")
    prefs_dir = os.path.join(data_home, "Tonemill")
    os.makedirs(prefs_dir, exist_ok=True)
    with open(os.path.join(prefs_dir, "Preferences.ini"), "w") as f:
        f.write("[General]\nmidi_tempo=2\nopen_sheet_music_after_processing=false\ncheck_for_updates_on_open=false\n")
    out = os.path.join(workdir, "out.mid")
    if os.path.exists(out):
        os.remove(out)
    env = dict(os.environ, XDG_DATA_HOME=data_home, QT_QPA_PLATFORM="offscreen")
    if weights:
        env["TONEMILL_NOTE_WEIGHTS"] = os.path.abspath(weights)
    subprocess.run([tonemill, "-a", wav, "-m", out], check=True, env=env, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    onsets, now = [], 0.0
    for message in mido.MidiFile(out):
        now += message.time
        if message.type == "note_on" and message.velocity > 0:
            onsets.append((now, message.note))
    return onsets


def label_notes(path: str) -> list:
    """(onset, MIDI pitch, velocity) of every labelled note."""
    with open(path) as f:
        return [(n[0], n[2], n[3]) for n in json.load(f)["notes"]]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--data", default=os.path.join(ROOT, "training", "data", "notes", "validation"))
    parser.add_argument("--tonemill", default=os.path.join(ROOT, "build", "tonemill"))
    parser.add_argument("--weights", default="", help="note weights to use instead of the program's own")
    parser.add_argument("pairs", nargs="*", help="more pieces as WAV:LABELS.json")
    args = parser.parse_args()

    pieces = [(w, w[:-4] + ".json") for w in sorted(glob.glob(os.path.join(args.data, "*.wav")))]
    pieces += [tuple(p.split(":", 1)) for p in args.pairs]
    if not pieces:
        print("No validation pieces under %s" % args.data, file=sys.stderr)
        return 1
    total = {"matched": 0, "ref": 0, "est": 0, "octave": 0}
    kinds = {}
    print("%-44s %6s %6s %6s %6s" % ("piece", "P", "R", "F1", "oct"))
    with tempfile.TemporaryDirectory() as workdir:
        for wav, labels in pieces:
            found = program_onsets(wav, workdir, args.tonemill, args.weights)
            notes = label_notes(labels)
            s = metrics.onset_scores([n[:2] for n in notes], found)
            for kind, count in metrics.error_kinds(notes, found).items():
                kinds[kind] = kinds.get(kind, 0) + count
            for k in total:
                total[k] += s[k]
            print("%-44s %6.3f %6.3f %6.3f %6d" % (os.path.basename(wav)[:44], s["precision"], s["recall"],
                                                    s["f"], s["octave"]))
    p, r, f = metrics.prf(total["matched"], total["ref"], total["est"])
    print("%-44s %6.3f %6.3f %6.3f %6d" % ("ALL (%d pieces, %d notes)" % (len(pieces), total["ref"]), p, r, f,
                                            total["octave"]))
    print("missed notes: " + ", ".join("%s %d" % item for item in kinds.items()))
    print("false notes an octave off a real one: %d of %d" % (total["octave"], total["est"] - total["matched"]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
