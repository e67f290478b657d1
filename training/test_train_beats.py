"""Checks of the beat networks' training targets: /usr/bin/python3 -m unittest training/test_train_beats.py"""

import unittest

import numpy as np
import torch

from train_beats import FrameStore, frame_loss, frame_targets


class FrameTargetsTest(unittest.TestCase):
    def test_slow_beats_keep_their_region(self):
        # 60 bpm: the HMM reads a beat over ceil(100 / 16) = 7 frames from the beat on.
        marks = frame_targets({"beats": [(1.0, True), (2.0, False), (3.0, False)]}, 400)
        np.testing.assert_allclose(marks[99:102, 2], 1.0)
        np.testing.assert_allclose(marks[102:107, 2], 0.7)
        self.assertEqual(marks[107, 2], 0.0)
        self.assertEqual(marks[98].tolist(), [1.0, 0.0, 0.0])
        np.testing.assert_allclose(marks[199:202, 1], 1.0)
        np.testing.assert_allclose(marks.sum(axis=1), 1.0)

    def test_fast_beats_are_marked_either_side_only(self):
        # 200 bpm: 30 frames a beat, a region of 2 frames, inside the frame either side.
        beats = [(0.5 + 0.3 * i, i % 4 == 0) for i in range(8)]
        marks = frame_targets({"beats": beats}, 300)
        self.assertEqual(marks[79:82, 1].tolist(), [1.0, 1.0, 1.0])
        self.assertEqual(marks[82, 1], 0.0)
        self.assertEqual(marks[78, 1], 0.0)

    def test_beats_past_the_end_are_dropped(self):
        marks = frame_targets({"beats": [(0.0, True), (5.0, False)]}, 100)
        self.assertEqual(marks.shape, (100, 3))
        self.assertEqual(marks[0, 2], 1.0)
        np.testing.assert_allclose(marks.sum(axis=1), 1.0)


class FrameLossTest(unittest.TestCase):
    def test_padding_adds_nothing(self):
        logits = torch.randn(2, 5, 3)
        targets = torch.zeros(2, 5, 3)
        targets[0, :3, 0] = 1.0
        weight = torch.tensor([1.0, 4.0, 8.0])
        total, frames = frame_loss(logits, targets, weight)
        expected = -torch.log_softmax(logits[0, :3], dim=-1)[:, 0].sum()
        self.assertAlmostEqual(total.item(), expected.item(), places=5)
        self.assertEqual(int(frames), 3)


class FrameStoreTest(unittest.TestCase):
    def setUp(self):
        # Two pieces whose feature rows hold their own frame number, so a gather shows what it read.
        pieces = []
        for frames in (6, 4):
            features = np.repeat(np.arange(1, frames + 1, dtype=np.float32)[:, None], 314, axis=1)
            pieces.append(("p", features, frame_targets({"beats": [(0.0, True)]}, frames)))
        self.store = FrameStore(pieces, torch.device("cpu"))

    def test_crops_stop_at_their_piece(self):
        x, y = self.store.gather([(0, 4), (1, 0)], 5)
        self.assertEqual(x[0, :, 0].tolist(), [5, 6, 0, 0, 0])  # never the next piece's frames
        self.assertEqual(x[1, :, 0].tolist(), [1, 2, 3, 4, 0])
        self.assertEqual(y[0, 2:].abs().sum().item(), 0.0)
        self.assertEqual(y[1, 0].tolist(), [0.0, 0.0, 1.0])

    def test_rates_and_scales(self):
        x, _ = self.store.gather([(0, 0), (0, 1)], 3, rates=[2.0, 0.5], scales=[1.0, 10.0])
        self.assertEqual(x[0, :, 0].tolist(), [1, 3, 5])
        self.assertEqual(x[1, :, 0].tolist(), [20, 20, 30])


if __name__ == "__main__":
    unittest.main()
