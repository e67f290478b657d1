"""Checks of the packed beat material: /usr/bin/python3 -m unittest training/test_pack_beats.py"""

import os
import tempfile
import unittest

import numpy as np

import pack_beats
from train_beats import NUM_FEATURES, amplitudes_of, features_from_amplitudes


class PackBeatsTest(unittest.TestCase):
    def test_features_rebuilt_from_amplitudes(self):
        rng = np.random.default_rng(1)
        amplitudes = rng.uniform(0.0, 2.0, (50, 157)).astype(np.float32)
        features = features_from_amplitudes(amplitudes)
        self.assertEqual(features.shape, (50, NUM_FEATURES))
        np.testing.assert_array_equal(amplitudes_of(features), amplitudes)
        # The finest bands (the last 91) rise against two frames before; the others against one.
        fine = amplitudes[:, 66:]
        np.testing.assert_array_equal(features[:, 223:], np.vstack([np.zeros((2, 91), np.float32),
                                                                     np.maximum(fine[2:] - fine[:-2], 0)]))
        coarse = amplitudes[:, :21]
        np.testing.assert_array_equal(features[1:, 21:42], np.maximum(coarse[1:] - coarse[:-1], 0))
        self.assertFalse(features[0, 21:42].any())

    def test_round_trip(self):
        rng = np.random.default_rng(2)
        pieces, originals = [], []
        for i, frames in enumerate((40, 0, 75)):
            amplitudes = rng.uniform(0.0, 1.7, (frames, 157)).astype(np.float32)
            quantised, scale = pack_beats.quantise(amplitudes, 7)
            beats = [(0.5 * b, b % 3 == 0) for b in range(i + 1)]
            pieces.append(("piece%d" % i, i == 2, quantised, scale, beats))
            originals.append((amplitudes, beats, scale))
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "beats_0.xz")
            pack_beats.write_part(path, pieces)
            back = pack_beats.read_part(path)
        self.assertEqual([p[0] for p in back], ["piece0", "piece1", "piece2"])
        self.assertEqual([p[1] for p in back], ["train", "train", "validation"])
        for (_, _, amplitudes, beats), (original, original_beats, scale) in zip(back, originals):
            self.assertEqual(amplitudes.shape, original.shape)
            if original.size:
                self.assertLessEqual(np.abs(amplitudes - original).max(), 0.5 * scale + 1e-6)
            self.assertEqual(beats, original_beats)

    def test_silence_keeps_a_usable_scale(self):
        quantised, scale = pack_beats.quantise(np.zeros((10, 157), np.float32), 8)
        self.assertFalse(quantised.any())
        self.assertGreater(scale, 0)


if __name__ == "__main__":
    unittest.main()
