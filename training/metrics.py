"""Transcription and beat metrics with one-to-one matching.

A reference event matches at most one estimate and the other way round; the matching is a maximum
bipartite matching (augmenting paths), so the figures do not depend on the order of the lists.
"""

from typing import Dict, List, Sequence, Tuple


def _max_matching(refs: Sequence[float], ests: Sequence[float], tolerance: float) -> int:
    """Size of a maximum matching between two sorted time lists, |ref - est| <= tolerance."""
    candidates = []
    j0 = 0
    for r in refs:
        while j0 < len(ests) and ests[j0] < r - tolerance - 1e-9:
            j0 += 1
        row, j = [], j0
        while j < len(ests) and ests[j] <= r + tolerance + 1e-9:
            row.append(j)
            j += 1
        candidates.append(row)
    match_of_est = {}

    def augment(i, seen):
        for j in candidates[i]:
            if j in seen:
                continue
            seen.add(j)
            if j not in match_of_est or augment(match_of_est[j], seen):
                match_of_est[j] = i
                return True
        return False

    return sum(1 for i in range(len(refs)) if candidates[i] and augment(i, set()))


def prf(matched: int, n_ref: int, n_est: int) -> Tuple[float, float, float]:
    precision = matched / n_est if n_est else 0.0
    recall = matched / n_ref if n_ref else 0.0
    f = 2 * precision * recall / (precision + recall) if precision + recall else 0.0
    return precision, recall, f


def onset_scores(ref: List[Tuple[float, int]], est: List[Tuple[float, int]], tolerance: float = 0.05) -> Dict:
    """Note onsets as (time, pitch): a match needs the same pitch and onsets within `tolerance`."""
    by_pitch_ref, by_pitch_est = {}, {}
    for t, p in ref:
        by_pitch_ref.setdefault(p, []).append(t)
    for t, p in est:
        by_pitch_est.setdefault(p, []).append(t)
    matched = 0
    octave_errors = 0
    for p, times in by_pitch_ref.items():
        matched += _max_matching(sorted(times), sorted(by_pitch_est.get(p, [])), tolerance)
    # Estimates an octave off a reference onset, a common confusion worth counting.
    for p, times in by_pitch_est.items():
        for q in (p - 12, p + 12):
            octave_errors += _max_matching(sorted(times), sorted(by_pitch_ref.get(q, [])), tolerance)
    precision, recall, f = prf(matched, len(ref), len(est))
    return {"precision": precision, "recall": recall, "f": f, "matched": matched, "ref": len(ref),
            "est": len(est), "octave": octave_errors}


def beat_scores(ref: Sequence[float], est: Sequence[float], tolerance: float = 0.07) -> Dict:
    matched = _max_matching(sorted(ref), sorted(est), tolerance)
    precision, recall, f = prf(matched, len(ref), len(est))
    return {"precision": precision, "recall": recall, "f": f}
