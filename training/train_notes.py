"""Trains the note network (the PyTorch model of the program's AllInWindowNet) on windows of the
program's own main spectrogram: 352 bands (4 per key), 720 frames of 10 ms.

Targets, for a window starting at frame s and output column t (the 40 ms step the program reads as
frame s + 86 + 4t): channel 0 is 1 for each key with an onset whose frame rounds to that column;
channel 1 is 1 for each key that sounds at that column's frame (not read by the program, a helper task).

    /usr/bin/python3 training/train_notes.py --hours 1.5          # resumes from checkpoints/notes.pt

Adam, BCE with positive weighting, fixed seed; validation loss on whole held-out songs after each
round; the best state is kept as checkpoints/notes_best.pt for export_notes.py.
"""

import argparse
import glob
import json
import math
import os
import random
import sys
import time

import numpy as np
import torch
from torch import nn

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "reference"))
from note_net import AllInWindowNet  # noqa: E402

BANDS, WINDOW, COLUMNS = 352, 720, 138
FIRST_COLUMN_FRAME = 86  # frame of column 0 relative to the window start
FRAMES_PER_COLUMN = 4
FRAME_SECONDS = 0.01


class Piece:
    def __init__(self, path: str):
        grid = np.load(path, mmap_mode="r")
        if grid.ndim != 2 or BANDS not in grid.shape:
            raise ValueError("%s: spectrogram of shape %s" % (path, grid.shape))
        self.grid = grid if grid.shape[0] == BANDS else grid.T  # (bands, frames)
        self.frames = self.grid.shape[1]
        with open(path[:-4] + ".json") as f:
            labels = json.load(f)
        notes = [n for n in labels["notes"] if 21 <= n[2] <= 108]
        self.onsets = np.array([[n[0] / FRAME_SECONDS, n[2] - 21] for n in notes], dtype=np.float64).reshape(-1, 2)
        self.spans = np.array([[n[0] / FRAME_SECONDS, n[1] / FRAME_SECONDS, n[2] - 21] for n in notes],
                              dtype=np.float64).reshape(-1, 3)
        self.name = os.path.basename(path)

    def window(self, start: int):
        """Input (1, 352, 720) with zeros outside the song, as the program builds it, and targets (2, 88, 138)."""
        x = np.zeros((1, BANDS, WINDOW), dtype=np.float32)
        lo, hi = max(0, start), min(self.frames, start + WINDOW)
        if hi > lo:
            x[0, :, lo - start:hi - start] = self.grid[:, lo:hi]
        y = np.zeros((2, 88, COLUMNS), dtype=np.float32)
        columns = np.rint((self.onsets[:, 0] - start - FIRST_COLUMN_FRAME) / FRAMES_PER_COLUMN).astype(int)
        ok = (columns >= 0) & (columns < COLUMNS)
        y[0, self.onsets[ok, 1].astype(int), columns[ok]] = 1.0
        column_frames = start + FIRST_COLUMN_FRAME + FRAMES_PER_COLUMN * np.arange(COLUMNS)
        for onset, offset, key in self.spans:
            sounding = (column_frames >= onset - 2) & (column_frames < offset)
            y[1, int(key), sounding] = 1.0
        # Columns past the end of the song are never read by the program: leave them out of the loss.
        mask = np.broadcast_to((column_frames < self.frames).astype(np.float32), (2, 88, COLUMNS)).copy()
        return x, y, mask


def bf16_supported() -> bool:
    """Whether the processor computes bfloat16 natively; emulated, it would be slower than float32."""
    try:
        with open("/proc/cpuinfo") as f:
            flags = f.read()
    except OSError:
        return False
    return "avx512_bf16" in flags or "amx_bf16" in flags


def load(folder: str, known=frozenset()):
    pieces = []
    for path in sorted(glob.glob(os.path.join(folder, "*.npy"))):
        if os.path.basename(path) in known:
            continue
        try:
            pieces.append(Piece(path))
        except (ValueError, OSError) as error:
            print("skipping:", error, file=sys.stderr)
    return pieces


def program_windows(piece: Piece):
    """The window starts the program uses: -84, then every 552 frames."""
    start = -84
    while True:
        yield start
        start += 552
        if start >= piece.frames:
            return


def loss_of(net, x, y, mask, pos_weight, bf16=False):
    # bfloat16 convolutions (where the processor has them) nearly halve a step; the weights, the
    # normalisations and the loss stay in float32.
    with torch.autocast("cpu", dtype=torch.bfloat16, enabled=bf16):
        logits = net.logits(x)
    logits = logits.float()
    loss0 = nn.functional.binary_cross_entropy_with_logits(logits[:, 0], y[:, 0], weight=mask[:, 0],
                                                           pos_weight=pos_weight, reduction="sum")
    loss1 = nn.functional.binary_cross_entropy_with_logits(logits[:, 1], y[:, 1], weight=mask[:, 1],
                                                           reduction="sum")
    cells = mask[:, 0].sum().clamp(min=1)
    return (loss0 + 0.3 * loss1) / cells


def validation_windows(pieces, limit: int):
    """A fixed choice of the program's windows over the held-out songs, spread evenly."""
    every = [(piece, start) for piece in pieces for start in program_windows(piece)]
    if len(every) <= limit:
        return every
    return [every[i * len(every) // limit] for i in range(limit)]


def validate(net, windows, pos_weight, bf16=False) -> float:
    net.eval()
    total, count = 0.0, 0
    with torch.no_grad():
        for piece, start in windows:
            x, y, mask = (torch.from_numpy(a)[None] for a in piece.window(start))
            total += loss_of(net, x, y, mask, pos_weight, bf16).item()
            count += 1
    net.train()
    return total / max(count, 1)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--data", default=os.path.join(HERE, "data", "notes"))
    parser.add_argument("--checkpoints", default=os.path.join(HERE, "checkpoints"))
    parser.add_argument("--hours", type=float, default=1.0, help="stop after this much training time")
    parser.add_argument("--round", type=int, default=200, help="steps between validations and checkpoints")
    parser.add_argument("--batch", type=int, default=2)
    parser.add_argument("--lr", type=float, default=1e-3)
    parser.add_argument("--pos-weight", type=float, default=8.0)
    parser.add_argument("--threads", type=int, default=2)
    parser.add_argument("--seed", type=int, default=88)
    parser.add_argument("--validation-windows", type=int, default=80)
    parser.add_argument("--decay", action="store_true",
                        help="lower the learning rate along a cosine to a twentieth by the end of this run")
    parser.add_argument("--fp32", action="store_true", help="train in float32 throughout")
    args = parser.parse_args()

    torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    rng = random.Random(args.seed)
    bf16 = not args.fp32 and bf16_supported()
    train, validation = load(os.path.join(args.data, "train")), load(os.path.join(args.data, "validation"))
    if not train:
        raise SystemExit("no training pieces under %s/train" % args.data)
    print("%d training pieces, %d validation pieces, %s" % (len(train), len(validation),
                                                           "bfloat16" if bf16 else "float32"))

    net = AllInWindowNet()
    optimizer = torch.optim.Adam(net.parameters(), lr=args.lr)
    pos_weight = torch.tensor(args.pos_weight)
    os.makedirs(args.checkpoints, exist_ok=True)
    checkpoint = os.path.join(args.checkpoints, "notes.pt")
    step, best = 0, float("inf")
    if os.path.exists(checkpoint):
        state = torch.load(checkpoint)
        net.load_state_dict(state["model"])
        optimizer.load_state_dict(state["optimizer"])
        step, best = state["step"], state["best"]
        rng.setstate(state["rng"])
        for group in optimizer.param_groups:
            group["lr"] = args.lr
        print("resuming at step %d (best validation loss %.4f)" % (step, best))

    validation_set = validation_windows(validation, args.validation_windows)
    began = time.time()
    deadline = began + args.hours * 3600
    net.train()
    while time.time() < deadline:
        # The data set may still be growing while training runs: newly finished pieces join each round.
        known = {piece.name for piece in train}
        train += load(os.path.join(args.data, "train"), known)
        started, total = time.time(), 0.0
        if args.decay:
            progress = min(1.0, (started - began) / (deadline - began))
            for group in optimizer.param_groups:
                group["lr"] = args.lr * (0.05 + 0.95 * 0.5 * (1 + math.cos(math.pi * progress)))
        for _ in range(args.round):
            batch = []
            for _ in range(args.batch):
                piece = rng.choice(train)
                batch.append(piece.window(rng.randint(-84, max(-84, piece.frames - 400))))
            x, y, mask = (torch.from_numpy(np.stack(parts)) for parts in zip(*batch))
            loss = loss_of(net, x, y, mask, pos_weight, bf16)
            optimizer.zero_grad()
            loss.backward()
            nn.utils.clip_grad_norm_(net.parameters(), 1.0)
            optimizer.step()
            total += loss.item()
            step += 1
        val = validate(net, validation_set, pos_weight, bf16) if validation else total / args.round
        if val < best:
            best = val
            torch.save(net.state_dict(), os.path.join(args.checkpoints, "notes_best.pt"))
        torch.save({"model": net.state_dict(), "optimizer": optimizer.state_dict(), "step": step, "best": best,
                    "rng": rng.getstate()}, checkpoint)
        print("step %6d  pieces %4d  train %.4f  validation %.4f  (%.2f s/step)" % (
            step, len(train), total / args.round, val, (time.time() - started) / args.round), flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
