"""Trains the eight beat networks: three stacked bidirectional LSTMs of 25 units and a 3-way softmax
(no beat, beat, downbeat) over the 314 features per 10 ms frame of the program's own front end.

PyTorch's LSTM has no peepholes, so the networks train with the peepholes at zero, which the program's
peephole cell reproduces exactly. Each network has its own seed and leaves out its own eighth of the
training pieces, so the ensemble averages networks that saw different material.

    /usr/bin/python3 training/train_beats.py --net 0 --epochs 30     # one network, resumable
    /usr/bin/python3 training/train_beats.py --all --epochs 30       # all eight in turn

On a GPU machine without the renderer, train from the files of pack_beats.py, one process per network
(train_beats_gpu.sh starts the eight under CUDA's multi-process service, which shares the GPU well):

    python3 training/train_beats.py --net 3 --packed pack/beats_*.xz --batch 128 --lr 5e-4 --decay 3 \
        --epoch-steps 40 --stretch 1.25 --gain 1.2
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


def frame_targets(labels: dict, frames: int, widen: int = 1, trail: float = 0.7) -> np.ndarray:
    """Class probabilities per frame, rows of [no beat, beat, downbeat].

    A beat's own frame and `widen` frames either side are marked fully, since a beat is an instant and
    the frame grid is coarse. The bar HMM reads a beat over the first sixteenth of its interval, so
    the frames after a beat up to that point are marked with `trail`: a slow beat then keeps its
    activation through the whole region, instead of losing the path to twice its tempo, and the peak
    stays on the beat itself, where the tracker places it."""
    marks = np.zeros((frames, 3), dtype=np.float32)
    beats = labels["beats"]
    for i, (t, down) in enumerate(beats):
        if i + 1 < len(beats):
            interval = beats[i + 1][0] - t
        else:
            interval = t - beats[i - 1][0] if i > 0 else 0.0
        region = int(math.ceil(interval / FRAME_SECONDS / 16.0))
        f = int(round(t / FRAME_SECONDS))
        column = 2 if down else 1
        for g in range(f - widen, f + max(widen, region - 1) + 1):
            if 0 <= g < frames:
                marks[g, column] = max(marks[g, column], 1.0 if g <= f + widen else trail)
    marks[:, 1] = np.minimum(marks[:, 1], 1.0 - marks[:, 2])  # where a downbeat meets a beat, it wins
    marks[:, 0] = 1.0 - marks[:, 1] - marks[:, 2]
    return marks


def frame_loss(logits, targets, weight):
    """Weighted cross-entropy against class probabilities, per frame that has a target: padding has
    rows of zeros and adds nothing."""
    per_frame = -(targets * weight * nn.functional.log_softmax(logits, dim=-1)).sum(-1)
    return per_frame.sum(), (targets.sum(-1) > 0).sum()


# Bands of the three frame sizes (1024, 2048 and 4096 samples) and the lag of their positive differences:
# the features are, per frame size, the log amplitudes followed by their rise since `lag` frames before.
BANDS = ((21, 1), (45, 1), (91, 2))


def amplitudes_of(features: np.ndarray) -> np.ndarray:
    """The log amplitudes alone: frames x 157 of the 314 columns."""
    columns, offset = [], 0
    for bands, _ in BANDS:
        columns.append(features[:, offset:offset + bands])
        offset += 2 * bands
    return np.concatenate(columns, axis=1)


def features_from_amplitudes(amplitudes: np.ndarray) -> np.ndarray:
    """The 314 features from the log amplitudes, with the differences the program takes."""
    columns, offset = [], 0
    for bands, lag in BANDS:
        block = np.asarray(amplitudes[:, offset:offset + bands], dtype=np.float32)
        rise = np.zeros_like(block)
        rise[lag:] = np.maximum(block[lag:] - block[:-lag], 0.0)
        columns += [block, rise]
        offset += bands
    return np.concatenate(columns, axis=1)


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


def load_packed(paths):
    """Training and validation pieces from the files of pack_beats.py, in the order of their names."""
    import pack_beats  # imports this module in turn
    split = {"train": [], "validation": []}
    for path in paths:
        for name, part, amplitudes, beats in pack_beats.read_part(path):
            features = features_from_amplitudes(amplitudes)
            split[part].append((name, features, frame_targets({"beats": beats}, features.shape[0])))
    by_name = lambda piece: piece[0]
    return sorted(split["train"], key=by_name), sorted(split["validation"], key=by_name)


class FrameStore:
    """Every piece's features and class probabilities end to end on one device, so that a batch of crops is a
    single gather there rather than a copy from the host per step."""

    def __init__(self, pieces, device):
        self.lengths = [p[1].shape[0] for p in pieces]
        self.offsets = np.concatenate([[0], np.cumsum(self.lengths)]).astype(np.int64)
        self.features = torch.cat([torch.from_numpy(np.array(p[1], dtype=np.float32)) for p in pieces]).to(device)
        self.targets = torch.cat([torch.from_numpy(p[2]) for p in pieces]).to(device)
        self.device = device

    def __len__(self):
        return len(self.lengths)

    def frames(self) -> int:
        return int(self.offsets[-1])

    def gather(self, spans, length: int, rates=None, scales=None):
        """Features and class probabilities of (piece, first frame) spans of `length` frames, each span
        read at its rate (frames of the piece per frame of the crop) and its features scaled. Frames past
        a piece's end are zero, their targets too, so the loss passes them by."""
        first = torch.tensor([self.offsets[p] + s for p, s in spans], device=self.device)
        end = torch.tensor([self.offsets[p + 1] for p, _ in spans], device=self.device)
        steps = torch.arange(length, device=self.device)[None, :]
        if rates is not None:
            steps = (steps * torch.tensor(rates, device=self.device)[:, None]).long()
        index = first[:, None] + steps
        inside = index < end[:, None]
        index = torch.where(inside, index, torch.zeros_like(index))
        x = self.features[index] * inside[..., None]
        if scales is not None:
            x = x * torch.tensor(scales, device=self.device)[:, None, None]
        return x, self.targets[index] * inside[..., None]

    def random_crops(self, rng: random.Random, crop: int, batch: int, stretch: float = 1.0, gain: float = 1.0):
        """`batch` crops of `crop` frames. With `stretch` above 1, each crop is read at its own rate
        between 1/stretch and stretch, a faster or slower performance of the same music, and with `gain`
        above 1 its features are scaled by a factor between 1/gain and gain: the material is small
        beside what the networks can memorise."""
        rates = [math.exp(rng.uniform(-math.log(stretch), math.log(stretch))) for _ in range(batch)]
        spans = []
        for rate in rates:
            piece = rng.randrange(len(self.lengths))
            spans.append((piece, rng.randint(0, max(0, self.lengths[piece] - int(crop * rate)))))
        scales = [math.exp(rng.uniform(-math.log(gain), math.log(gain))) for _ in range(batch)]
        return self.gather(spans, crop, rates, scales)


def evaluate(model, store: FrameStore, weight, chunk: int = 3000, batch: int = 16) -> float:
    """Mean loss per frame over whole pieces, cut into chunks that run side by side."""
    spans = [(p, s) for p in range(len(store)) for s in range(0, store.lengths[p], chunk)]
    model.eval()
    loss, frames = 0.0, 0
    with torch.no_grad():
        for i in range(0, len(spans), batch):
            x, y = store.gather(spans[i:i + batch], chunk)
            total, count = frame_loss(model(x), y, weight)
            loss, frames = loss + total.item(), frames + int(count)
    model.train()
    return loss / max(frames, 1)


def decayed(lr: float, seconds: float, minutes: float) -> float:
    """Cosine decay over `minutes` of training, to a floor of 2 % of the starting rate."""
    progress = min(1.0, seconds / (minutes * 60.0))
    return lr * max(0.02, 0.5 * (1.0 + math.cos(math.pi * progress)))


def train_net(index: int, args, train, validation) -> None:
    if not train:
        raise SystemExit("no training pieces")
    device = torch.device(args.device)
    # Each network leaves out its own eighth of the training pieces.
    fold = FrameStore([p for i, p in enumerate(train) if i % NUM_NETS != index] or train, device)
    checks = FrameStore(validation, device) if validation else None
    seed = 1000 + index
    torch.manual_seed(seed)
    rng = random.Random(seed)
    model = BeatNet().to(device)
    optimizer = torch.optim.Adam([p for p in model.parameters() if p.requires_grad], lr=args.lr)
    # Beats are rare frames: weigh the classes so that they are not drowned by silence between them.
    weight = torch.tensor([1.0, 4.0, 8.0], device=device)
    checkpoint = os.path.join(args.checkpoints, "beats_net%d.pt" % index)
    epoch, best, seconds = 0, float("inf"), 0.0
    if os.path.exists(checkpoint):
        state = torch.load(checkpoint, map_location=device)
        model.load_state_dict(state["model"])
        if "optimizer" in state:  # a checkpoint made to travel light may have left it out
            optimizer.load_state_dict(state["optimizer"])
        epoch, best, seconds = state["epoch"], state["best"], state.get("seconds", 0.0)
        rng.setstate(state["rng"])
        for group in optimizer.param_groups:
            group["lr"] = args.lr
        if args.reset_best:  # the validation set changed: earlier losses are not comparable
            best = float("inf")
        if args.restart_decay:
            seconds = 0.0
        print("net %d: resuming at epoch %d (best validation loss %.4f)" % (index, epoch, best), flush=True)
    os.makedirs(args.checkpoints, exist_ok=True)
    steps = args.epoch_steps or max(1, fold.frames() // (args.crop * args.batch))
    deadline = time.time() + args.minutes * 60 if args.minutes else float("inf")
    while epoch < args.epochs and time.time() < deadline:
        started, total, count = time.time(), 0.0, 0
        for _ in range(steps):
            now = time.time()
            if now >= deadline:
                break  # a time budget may end inside a pass: what was learnt is kept all the same
            if args.decay:
                for group in optimizer.param_groups:
                    group["lr"] = decayed(args.lr, seconds + now - started, args.decay)
            x, y = fold.random_crops(rng, args.crop, args.batch, args.stretch, args.gain)
            total_loss, count_frames = frame_loss(model(x), y, weight)
            loss = total_loss / count_frames.clamp(min=1)
            optimizer.zero_grad()
            loss.backward()
            nn.utils.clip_grad_norm_(model.parameters(), 1.0)
            optimizer.step()
            total, count = total + loss.item(), count + 1
        if count == 0:
            break
        epoch += 1
        seconds += time.time() - started
        val = evaluate(model, checks, weight) if checks else total / count
        model_state = {k: v.detach().cpu() for k, v in model.state_dict().items()}
        if val < best:
            best = val
            torch.save(model_state, os.path.join(args.checkpoints, "beats_net%d_best.pt" % index))
        torch.save({"model": model_state, "optimizer": optimizer.state_dict(), "epoch": epoch, "best": best,
                    "seconds": seconds, "rng": rng.getstate()}, checkpoint + ".part")
        os.replace(checkpoint + ".part", checkpoint)
        print("net %d epoch %3d  train %.4f  validation %.4f  lr %.2g  (%d steps, %.0f s)"
              % (index, epoch, total / count, val, optimizer.param_groups[0]["lr"], count, time.time() - started),
              flush=True)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--net", type=int, nargs="+", default=[0], help="which networks, one after another")
    parser.add_argument("--all", action="store_true")
    parser.add_argument("--epochs", type=int, default=30)
    parser.add_argument("--epoch-steps", type=int, default=0, help="steps between validations; 0: one pass")
    parser.add_argument("--minutes", type=float, default=0, help="time budget per network; 0: none")
    parser.add_argument("--crop", type=int, default=1000, help="frames per training sequence")
    parser.add_argument("--batch", type=int, default=32, help="sequences per step: the LSTM steps are "
                        "sequential, so wide batches are what keeps a CPU busy")
    parser.add_argument("--lr", type=float, default=3e-3)
    parser.add_argument("--decay", type=float, default=0, help="cosine decay of the rate over this many "
                        "minutes of training, carried across resumed runs; 0: a constant rate")
    parser.add_argument("--restart-decay", action="store_true", help="begin the decay again")
    parser.add_argument("--stretch", type=float, default=1.0, help="read crops at rates up to this factor "
                        "faster or slower (1: as recorded)")
    parser.add_argument("--gain", type=float, default=1.0, help="scale crops' features by up to this factor")
    parser.add_argument("--threads", type=int, default=2)
    parser.add_argument("--device", default="cuda" if torch.cuda.is_available() else "cpu")
    parser.add_argument("--reset-best", action="store_true",
                        help="forget the best validation loss of earlier rounds (after the validation set changed)")
    parser.add_argument("--data", default=os.path.join(HERE, "data", "beats"))
    parser.add_argument("--packed", nargs="+", help="files of pack_beats.py instead of --data")
    parser.add_argument("--checkpoints", default=os.path.join(HERE, "checkpoints"))
    args = parser.parse_args()
    torch.set_num_threads(args.threads)
    if args.packed:
        train, validation = load_packed(args.packed)
    else:
        train = load_pieces(os.path.join(args.data, "train"))
        validation = load_pieces(os.path.join(args.data, "validation"))
    print("%d training and %d validation pieces" % (len(train), len(validation)), flush=True)
    for index in (range(NUM_NETS) if args.all else args.net):
        train_net(index, args, train, validation)
    return 0


if __name__ == "__main__":
    sys.exit(main())
