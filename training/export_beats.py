"""Writes the eight trained beat networks to resources/weights/beats.safetensors in the program's names.

The stored numbers are the trained ones (metadata "scaled": "true"), so the program uses them as they
are. PyTorch's gate order in weight_ih/weight_hh is input, forget, cell, output; peepholes are zero.

    /usr/bin/python3 training/export_beats.py [--checkpoints training/checkpoints] [--best]
"""

import argparse
import os
import sys

import numpy as np
import torch

import safetensors_io
from train_beats import HIDDEN, NUM_NETS, BeatNet

HERE = os.path.dirname(os.path.abspath(__file__))
GATES = ["input_gate", "forget_gate", "cell", "output_gate"]


def net_tensors(index: int, state: dict) -> dict:
    out = {}
    for layer in range(3):
        for direction, suffix in (("forward", ""), ("backward", "_reverse")):
            w_ih = state["lstm.weight_ih_l%d%s" % (layer, suffix)].numpy()
            w_hh = state["lstm.weight_hh_l%d%s" % (layer, suffix)].numpy()
            bias = (state["lstm.bias_ih_l%d%s" % (layer, suffix)] + state["lstm.bias_hh_l%d%s" % (layer, suffix)]).numpy()
            for g, gate in enumerate(GATES):
                rows = slice(g * HIDDEN, (g + 1) * HIDDEN)
                prefix = "net%d.layer%d.%s.%s." % (index, layer, direction, gate)
                out[prefix + "bias"] = bias[rows]
                out[prefix + "extra_bias"] = np.zeros(HIDDEN, np.float32)
                out[prefix + "recurrent_weights"] = w_hh[rows].T
                out[prefix + "input_weights"] = w_ih[rows].T
                if gate != "cell":
                    out[prefix + "peepholes"] = np.zeros(HIDDEN, np.float32)
    out["net%d.linear.weights" % index] = state["linear.weight"].numpy().T
    out["net%d.linear.bias" % index] = state["linear.bias"].numpy()
    return out


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--checkpoints", default=os.path.join(HERE, "checkpoints"))
    parser.add_argument("--best", action="store_true", help="export each network's best validation state")
    parser.add_argument("--out", default=os.path.join(os.path.dirname(HERE), "resources", "weights", "beats.safetensors"))
    args = parser.parse_args()
    tensors = {}
    for index in range(NUM_NETS):
        path = os.path.join(args.checkpoints, "beats_net%d%s.pt" % (index, "_best" if args.best else ""))
        if not os.path.exists(path):
            print("missing %s: all eight networks are needed" % path, file=sys.stderr)
            return 1
        state = torch.load(path, map_location="cpu")
        state = state.get("model", state)
        BeatNet().load_state_dict(state)  # refuses a checkpoint of another shape
        tensors.update(net_tensors(index, state))
    safetensors_io.save(args.out, tensors, {"scaled": "true"})
    print("wrote %s: %d tensors" % (args.out, len(tensors)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
