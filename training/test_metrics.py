"""Checks of the matching used by every evaluation: /usr/bin/python3 -m unittest training/test_metrics.py"""

import unittest

import metrics


class MetricsTest(unittest.TestCase):
    def test_one_to_one(self):
        # Two estimates near one reference count once.
        s = metrics.onset_scores([(1.0, 60)], [(1.0, 60), (1.02, 60)])
        self.assertEqual(s["matched"], 1)
        self.assertAlmostEqual(s["precision"], 0.5)
        self.assertAlmostEqual(s["recall"], 1.0)

    def test_pitch_and_tolerance(self):
        s = metrics.onset_scores([(1.0, 60), (2.0, 62)], [(1.049, 60), (2.0, 74), (3.0, 50)])
        self.assertEqual(s["matched"], 1)
        self.assertEqual(s["octave"], 1)

    def test_matching_is_maximal_not_greedy(self):
        # Greedy nearest-first would pair 1.04 with 1.00 and leave 1.08 alone.
        refs = [1.0, 1.08]
        ests = [1.04, 1.12]
        self.assertEqual(metrics._max_matching(refs, ests, 0.05), 2)

    def test_misses_by_kind(self):
        ref = [(1.0, 60, 80), (1.2, 60, 80), (2.0, 50, 20), (3.0, 48, 60), (3.0, 60, 90), (4.0, 70, 80)]
        est = [(1.0, 60), (3.0, 60)]
        self.assertEqual(metrics.missed_notes(ref, est), [(1.2, 60, 80), (2.0, 50, 20), (3.0, 48, 60), (4.0, 70, 80)])
        self.assertEqual(metrics.error_kinds(ref, est),
                         {"quiet": 1, "repeated": 1, "octave_masked": 1, "other": 1})

    def test_tempo_range(self):
        self.assertAlmostEqual(metrics.tempo_of([0.0, 0.5, 1.0, 1.6, 2.0]), 120.0)
        self.assertTrue(metrics.in_tracker_range([i * 0.5 for i in range(8)]))
        self.assertFalse(metrics.in_tracker_range([i * 1.25 for i in range(8)]))  # 48 bpm
        self.assertFalse(metrics.in_tracker_range([1.0]))

    def test_beats(self):
        s = metrics.beat_scores([0.5, 1.0, 1.5, 2.0], [0.52, 1.0, 1.6, 2.5])
        self.assertAlmostEqual(s["f"], 0.5)
        self.assertEqual(metrics.beat_scores([], [])["f"], 0.0)


if __name__ == "__main__":
    unittest.main()
