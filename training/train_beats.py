"""Trains the eight beat networks: three stacked bidirectional LSTMs of 25 units and a 3-way softmax
(no beat, beat, downbeat) over the 314 features per 10 ms frame of the program's own front end.

PyTorch's LSTM has no peepholes, so the networks train with the peepholes at zero, which the program's
peephole cell reproduces exactly. Each network has its own seed and leaves out its own eighth of the
training pieces, so the ensemble averages networks that saw different material.

    /usr/bin/python3 training/train_beats.py --net 0 --epochs 30     # one network, resumable
    /usr/bin/python3 training/train_beats.py --all --epochs 30       # all eight in turn
"""

import argparse
import glob
import json
import os
import random
import sys
import time

import numpy as np
import torch
from torch import nn

import metrics

HERE = os.path.dirname(os.path.abspath(__file__))
FRAME_SECONDS = 0.01
NUM_FEATURES = 314
HIDDEN = 25
NUM_NETS = 8


class BeatNet(nn.Module):
    def __init__(self):
        super().__init__()
        self.lstm = nn.LSTM(NUM_FEATURES, HIDDEN, num_layers=3, bidirectional=True, batch_first=True)
        self.linear = nn.Linear(2 * HIDDEN, 3)
        with torch.no_grad():  # the program has one bias per gate: keep the second at zero
            for name, p in self.lstm.named_parameters():
                if name.startswith("bias_hh"):
                    p.zero_()
                    p.requires_grad_(False)

    def forward(self, x):  # x: (batch, frames, 314) -> logits (batch, frames, 3)
        return self.linear(self.lstm(x)[0])


def frame_targets(labels: dict, frames: int, widen: int = 1) -> np.ndarray:
    """Class per frame: 2 on a downbeat, 1 on a beat, 0 elsewhere; `widen` frames either side are
    marked too, since a beat is an instant and the frame grid is coarse."""
    target = np.zeros(frames, dtype=np.int64)
    for t, down in labels["beats"]:
        f = int(round(t / FRAME_SECONDS))
        for g in range(f - widen, f + widen + 1):
            if 0 <= g < frames:
                target[g] = max(target[g], 2 if down else 1)
    return target


def load_pieces(folder: str):
    pieces = []
    for path in sorted(glob.glob(os.path.join(folder, "*.npy"))):
        with open(path[:-4] + ".json") as f:
            labels = json.load(f)
        if not metrics.in_tracker_range([t for t, _ in labels["beats"]]):
            # Beats slower or faster than the tracker can follow would teach the networks a beat
            # the program never reports.
            continue
        features = np.load(path, mmap_mode="r")
        if features.ndim != 2 or features.shape[1] != NUM_FEATURES:
            print("skipping %s: features of shape %s" % (path, features.shape), file=sys.stderr)
            continue
        pieces.append((os.path.basename(path), features, frame_targets(labels, features.shape[0])))
    return pieces


def batches(pieces, rng: random.Random, crop: int, batch: int):
    """Random crops of `crop` frames, `batch` at a time, one pass over roughly every frame."""
    total = sum(p[1].shape[0] for p in pieces)
    for _ in range(max(1, total // (crop * batch))):
        xs, ys = [], []
        for _ in range(batch):
            _, features, target = rng.choice(pieces)
            start = rng.randint(0, max(0, features.shape[0] - crop))
            x = np.zeros((crop, NUM_FEATURES), dtype=np.float32)
            y = np.full(crop, -100, dtype=np.int64)  # padding is ignored by the loss
            piece_x = np.array(features[start:start + crop], dtype=np.float32)
            x[:len(piece_x)] = piece_x
            y[:len(piece_x)] = target[start:start + crop]
            xs.append(x)
            ys.append(y)
        yield torch.from_numpy(np.stack(xs)), torch.from_numpy(np.stack(ys))


def evaluate(model, pieces, weight, chunk: int = 3000, batch: int = 16) -> float:
    """Mean loss per frame over whole pieces, cut into chunks that run side by side."""
    chunks = []
    for _, features, target in pieces:
        for start in range(0, features.shape[0], chunk):
            x = np.zeros((chunk, NUM_FEATURES), dtype=np.float32)
            y = np.full(chunk, -100, dtype=np.int64)
            part = np.array(features[start:start + chunk], dtype=np.float32)
            x[:len(part)], y[:len(part)] = part, target[start:start + chunk]
            chunks.append((x, y))
    model.eval()
    loss, frames = 0.0, 0
    with torch.no_grad():
        for i in range(0, len(chunks), batch):
            x = torch.from_numpy(np.stack([c[0] for c in chunks[i:i + batch]]))
            y = torch.from_numpy(np.stack([c[1] for c in chunks[i:i + batch]]))
            loss += nn.functional.cross_entropy(model(x).reshape(-1, 3), y.reshape(-1), weight=weight,
                                                reduction="sum").item()
            frames += int((y >= 0).sum())
    model.train()
    return loss / max(frames, 1)


def train_net(index: int, args) -> None:
    train = load_pieces(os.path.join(args.data, "train"))
    validation = load_pieces(os.path.join(args.data, "validation"))
    if not train:
        raise SystemExit("no training pieces under %s/train" % args.data)
    # Each network leaves out its own eighth of the training pieces.
    fold = [p for i, p in enumerate(train) if i % NUM_NETS != index] or train
    seed = 1000 + index
    torch.manual_seed(seed)
    rng = random.Random(seed)
    model = BeatNet()
    optimizer = torch.optim.Adam([p for p in model.parameters() if p.requires_grad], lr=args.lr)
    # Beats are rare frames: weigh the classes so that they are not drowned by silence between them.
    weight = torch.tensor([1.0, 4.0, 8.0])
    checkpoint = os.path.join(args.checkpoints, "beats_net%d.pt" % index)
    epoch, best = 0, float("inf")
    if os.path.exists(checkpoint):
        state = torch.load(checkpoint)
        model.load_state_dict(state["model"])
        optimizer.load_state_dict(state["optimizer"])
        epoch, best = state["epoch"], state["best"]
        rng.setstate(state["rng"])
        for group in optimizer.param_groups:
            group["lr"] = args.lr
        if args.reset_best:  # the validation set changed: earlier losses are not comparable
            best = float("inf")
        print("net %d: resuming at epoch %d (best validation loss %.4f)" % (index, epoch, best))
    os.makedirs(args.checkpoints, exist_ok=True)
    deadline = time.time() + args.minutes * 60 if args.minutes else float("inf")
    while epoch < args.epochs and time.time() < deadline:
        started, total, count = time.time(), 0.0, 0
        for x, y in batches(fold, rng, args.crop, args.batch):
            if time.time() >= deadline:
                break  # a time budget may end inside a pass: what was learnt is kept all the same
            logits = model(x)
            loss = nn.functional.cross_entropy(logits.reshape(-1, 3), y.reshape(-1), weight=weight)
            optimizer.zero_grad()
            loss.backward()
            nn.utils.clip_grad_norm_(model.parameters(), 1.0)
            optimizer.step()
            total, count = total + loss.item(), count + 1
        if count == 0:
            break
        epoch += 1
        val = evaluate(model, validation, weight) if validation else total / count
        if val < best:
            best = val
            torch.save(model.state_dict(), os.path.join(args.checkpoints, "beats_net%d_best.pt" % index))
        torch.save({"model": model.state_dict(), "optimizer": optimizer.state_dict(), "epoch": epoch,
                    "best": best, "rng": rng.getstate()}, checkpoint)
        print("net %d epoch %3d  train %.4f  validation %.4f  (%.0f s)" % (index, epoch, total / count, val,
                                                                           time.time() - started), flush=True)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--net", type=int, default=0)
    parser.add_argument("--all", action="store_true")
    parser.add_argument("--epochs", type=int, default=30)
    parser.add_argument("--minutes", type=float, default=0, help="time budget per network; 0: none")
    parser.add_argument("--crop", type=int, default=1000, help="frames per training sequence")
    parser.add_argument("--batch", type=int, default=32, help="sequences per step: the LSTM steps are "
                        "sequential, so wide batches are what keeps a CPU busy")
    parser.add_argument("--lr", type=float, default=3e-3)
    parser.add_argument("--threads", type=int, default=2)
    parser.add_argument("--reset-best", action="store_true",
                        help="forget the best validation loss of earlier rounds (after the validation set changed)")
    parser.add_argument("--data", default=os.path.join(HERE, "data", "beats"))
    parser.add_argument("--checkpoints", default=os.path.join(HERE, "checkpoints"))
    args = parser.parse_args()
    torch.set_num_threads(args.threads)
    for index in (range(NUM_NETS) if args.all else [args.net]):
        train_net(index, args)
    return 0


if __name__ == "__main__":
    sys.exit(main())
