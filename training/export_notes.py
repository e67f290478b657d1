"""Writes the trained note network to resources/weights/notes.safetensors under the program's table
names: 82 tensors, conv_1 to conv_14, with the batch-normalisation running statistics.

conv_14 (2 -> 1 channels, 1 x 1) is part of the file but read by no network; it is written as the
identity on the onset channel, so the file is complete and nothing in it is left at zero by accident.

    /usr/bin/python3 training/export_notes.py [--checkpoint training/checkpoints/notes_best.pt]
"""

import argparse
import os
import sys

import numpy as np
import torch

import safetensors_io

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "reference"))
from note_net import AllInWindowNet  # noqa: E402


def tables_of(net: AllInWindowNet) -> dict:
    t = lambda tensor: tensor.detach().cpu().numpy().astype(np.float32)  # noqa: E731
    tables = {
        "conv_1_layer_norm_scaling_weight": t(net.conv_1.norm.weight),
        "conv_1_layer_norm_scaling_bias": t(net.conv_1.norm.bias),
    }
    for n in range(1, 14):
        layer = getattr(net, "conv_%d" % n)
        if n > 1:
            tables["conv_%d_batch_norm_running_mean" % n] = t(layer.norm.running_mean)
            tables["conv_%d_batch_norm_running_var" % n] = t(layer.norm.running_var)
            tables["conv_%d_batch_norm_weight" % n] = t(layer.norm.weight)
            tables["conv_%d_batch_norm_bias" % n] = t(layer.norm.bias)
        tables["conv_%d_conv_weight" % n] = t(layer.conv.weight)
        tables["conv_%d_conv_bias" % n] = t(layer.conv.bias)
    tables["conv_14_batch_norm_running_mean"] = np.zeros(2, np.float32)
    tables["conv_14_batch_norm_running_var"] = np.ones(2, np.float32)
    tables["conv_14_batch_norm_weight"] = np.ones(2, np.float32)
    tables["conv_14_batch_norm_bias"] = np.zeros(2, np.float32)
    tables["conv_14_conv_weight"] = np.array([1.0, 0.0], np.float32).reshape(1, 2, 1, 1)
    tables["conv_14_conv_bias"] = np.zeros(1, np.float32)
    return tables


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--checkpoint", default=os.path.join(HERE, "checkpoints", "notes_best.pt"))
    parser.add_argument("--out", default=os.path.join(os.path.dirname(HERE), "resources", "weights", "notes.safetensors"))
    args = parser.parse_args()
    state = torch.load(args.checkpoint)
    net = AllInWindowNet()
    net.load_state_dict(state.get("model", state))
    tables = tables_of(net)
    # The export must read back into the same network: a wrong name or shape fails here, not in the program.
    check = AllInWindowNet()
    check.load_tables(tables)
    safetensors_io.save(args.out, tables)
    print("wrote %s: %d tensors" % (args.out, len(tables)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
