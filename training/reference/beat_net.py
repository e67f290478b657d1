"""An independent PyTorch model of the program's beat network ensemble (BiBeatNetEnsemble): eight
networks of three bidirectional LSTMs (25 units a direction) and a dense softmax layer, built with
torch.nn.LSTM from beats.safetensors, averaged. Checks the C++ ensemble.

    /usr/bin/python3 training/reference/beat_net.py --weights W.safetensors --input IN.npy --output OUT.npy

IN is (frames, 314) float32 features; OUT is (frames, 3): no beat, beat, downbeat, averaged over the
eight networks. torch.nn.LSTM has no peepholes, so the file's peepholes must be zero. Unless the
file's metadata says "scaled": "true", every weight, bias and peephole is multiplied by 0.5318532 in
float32 first, as the program does."""

import argparse
import os
import sys

import numpy as np
import torch
from torch import nn

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import safetensors_io  # noqa: E402

HIDDEN = 25
NUM_NETS = 8
GATES = ["input_gate", "forget_gate", "cell", "output_gate"]  # PyTorch's order: i, f, g, o
SCALE = np.float32(0.5318532)


def direction_lstm(tensors, prefix, scale):
    """One direction of one layer as a one-layer torch.nn.LSTM."""
    w_ih = np.concatenate([tensors[prefix + g + ".input_weights"].T for g in GATES]) * scale
    w_hh = np.concatenate([tensors[prefix + g + ".recurrent_weights"].T for g in GATES]) * scale
    b_ih = np.concatenate([tensors[prefix + g + ".bias"] for g in GATES]) * scale
    for g in GATES[:2] + GATES[3:]:
        if np.any(tensors[prefix + g + ".peepholes"] != 0):
            raise SystemExit("%speepholes are not zero: torch.nn.LSTM cannot model them" % (prefix + g + "."))
    lstm = nn.LSTM(w_ih.shape[1], HIDDEN, batch_first=True)
    with torch.no_grad():
        lstm.weight_ih_l0.copy_(torch.from_numpy(w_ih.astype(np.float32)))
        lstm.weight_hh_l0.copy_(torch.from_numpy(w_hh.astype(np.float32)))
        lstm.bias_ih_l0.copy_(torch.from_numpy(b_ih.astype(np.float32)))
        lstm.bias_hh_l0.zero_()
    return lstm


def run_net(tensors, index, features, scale):
    x = torch.from_numpy(features).unsqueeze(0)
    for layer in range(3):
        prefix = "net%d.layer%d." % (index, layer)
        forward = direction_lstm(tensors, prefix + "forward.", scale)
        backward = direction_lstm(tensors, prefix + "backward.", scale)
        ahead = forward(x)[0]
        behind = torch.flip(backward(torch.flip(x, [1]))[0], [1])
        x = torch.cat([ahead, behind], dim=2)
    weights = torch.from_numpy((tensors["net%d.linear.weights" % index] * scale).astype(np.float32))
    bias = torch.from_numpy((tensors["net%d.linear.bias" % index] * scale).astype(np.float32))
    return torch.softmax(x[0] @ weights + bias, dim=1)


def ensemble(weights_path, features):
    tensors, metadata = safetensors_io.load(weights_path)
    scale = np.float32(1.0) if metadata.get("scaled") == "true" else SCALE
    with torch.no_grad():
        total = torch.zeros(features.shape[0], 3)
        for index in range(NUM_NETS):
            total += run_net(tensors, index, features, scale)
        return (total * 0.125).numpy()


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--weights", required=True)
    parser.add_argument("--input", required=True)
    parser.add_argument("--output", required=True)
    args = parser.parse_args()
    torch.set_num_threads(1)
    features = np.load(args.input).astype(np.float32)
    if features.ndim != 2 or features.shape[1] != 314:
        print("input must be (frames, 314), not %s" % (features.shape,), file=sys.stderr)
        return 1
    np.save(args.output, ensemble(args.weights, features).astype(np.float32))
    return 0


if __name__ == "__main__":
    sys.exit(main())
