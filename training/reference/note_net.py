"""An independent PyTorch model of the program's note network (AllInWindowNet), built from the
layer table alone, that loads the same notes.safetensors. Used to check the C++ network and as the
starting point of note training.

    /usr/bin/python3 training/reference/note_net.py --weights W.safetensors --input IN.npy --output OUT.npy

IN is one window, shaped (352, 720) or (1, 352, 720); OUT is (2, 88, 138) in float32.
Normalisation: conv_1's per-channel LayerNorm is InstanceNorm (population variance over the whole
window of its one channel); the others are BatchNorm in eval mode. Every convolution pads by half
its kernel; padded pool cells are minus infinity."""

import argparse
import os
import sys

import numpy as np
import torch
from torch import nn

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import safetensors_io  # noqa: E402

# number: (input channels, output channels, kernel rows, kernel columns)
LAYERS = {
    1: (1, 12, 7, 1), 2: (12, 25, 1, 7), 3: (25, 25, 5, 1), 4: (25, 50, 1, 5), 5: (50, 50, 9, 1),
    6: (50, 50, 1, 9), 7: (50, 50, 21, 1), 8: (50, 50, 1, 5), 9: (50, 50, 31, 1), 10: (50, 50, 1, 11),
    11: (50, 50, 41, 1), 12: (50, 50, 1, 11), 13: (50, 2, 1, 45), 14: (2, 1, 1, 1),
}
EPSILON = 1e-5


def _conv(number):
    cin, cout, rows, cols = LAYERS[number]
    return nn.Conv2d(cin, cout, (rows, cols), padding=(rows // 2, cols // 2))


class NormConv(nn.Module):
    def __init__(self, number, instance_norm=False):
        super().__init__()
        cin = LAYERS[number][0]
        self.norm = (nn.InstanceNorm2d(cin, eps=EPSILON, affine=True) if instance_norm
                     else nn.BatchNorm2d(cin, eps=EPSILON))
        self.conv = _conv(number)

    def forward(self, x):
        return self.conv(self.norm(x))


class AllInWindowNet(nn.Module):
    def __init__(self, window_frames=720, frames_per_group=12, left_margin_groups=7, right_margin_groups=7):
        super().__init__()
        self.conv_1 = NormConv(1, instance_norm=True)
        for n in range(2, 14):
            setattr(self, f"conv_{n}", NormConv(n))
        self.first_pool = nn.MaxPool2d(3, stride=2, padding=1)
        self.second_pool = nn.MaxPool2d(2, stride=2)
        self.crop = (3 * left_margin_groups, 3 * (window_frames // frames_per_group - right_margin_groups))

    def forward(self, x):
        return torch.sigmoid(self.logits(x))

    def logits(self, x):
        """The network before its final sigmoid, cropped: what training's loss works on."""
        relu = torch.relu
        x = relu(self.conv_1(x))
        skip = self.first_pool(relu(self.conv_2(x)))
        x = self.conv_4(relu(self.conv_3(skip)))
        x = relu(torch.cat([skip, skip], dim=1) + x)
        skip = self.second_pool(x)
        skip = relu(skip + self.conv_6(relu(self.conv_5(skip))))
        skip = relu(skip + self.conv_8(relu(self.conv_7(skip))))
        skip = relu(skip + self.conv_10(relu(self.conv_9(skip))))
        x = relu(skip + self.conv_12(relu(self.conv_11(skip))))
        x = self.conv_13(x)
        return x[:, :, :, self.crop[0]:self.crop[1]]

    def load_tables(self, tables):
        """Copies the program's tables (names as in notes.safetensors) into the modules."""
        def put(param, name):
            value = torch.from_numpy(np.array(tables[name], dtype=np.float32))
            if tuple(value.shape) != tuple(param.shape):
                raise ValueError(f"{name}: shape {tuple(value.shape)}, expected {tuple(param.shape)}")
            param.data.copy_(value)

        with torch.no_grad():
            put(self.conv_1.norm.weight, "conv_1_layer_norm_scaling_weight")
            put(self.conv_1.norm.bias, "conv_1_layer_norm_scaling_bias")
            for n in range(1, 14):
                layer = getattr(self, f"conv_{n}")
                put(layer.conv.weight, f"conv_{n}_conv_weight")
                put(layer.conv.bias, f"conv_{n}_conv_bias")
                if n == 1:
                    continue
                put(layer.norm.weight, f"conv_{n}_batch_norm_weight")
                put(layer.norm.bias, f"conv_{n}_batch_norm_bias")
                put(layer.norm.running_mean, f"conv_{n}_batch_norm_running_mean")
                put(layer.norm.running_var, f"conv_{n}_batch_norm_running_var")


def run(weights_path, window):
    tables, _ = safetensors_io.load(weights_path)
    net = AllInWindowNet()
    net.load_tables(tables)
    net.eval()
    x = torch.from_numpy(np.asarray(window, dtype=np.float32).reshape(1, 1, 352, 720))
    with torch.no_grad():
        return net(x)[0].numpy().astype(np.float32)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--weights", required=True)
    parser.add_argument("--input", required=True)
    parser.add_argument("--output", required=True)
    args = parser.parse_args()
    torch.set_num_threads(max(1, min(2, os.cpu_count() or 1)))
    np.save(args.output, run(args.weights, np.load(args.input)))


if __name__ == "__main__":
    main()
