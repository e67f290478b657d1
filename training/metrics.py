"""Transcription and beat metrics with one-to-one matching.

A reference event matches at most one estimate and the other way round; the matching is a maximum
bipartite matching (augmenting paths), so the figures do not depend on the order of the lists.
"""

from typing import Dict, List, Sequence, Tuple


def match_pairs(refs: Sequence[float], ests: Sequence[float], tolerance: float) -> List[Tuple[int, int]]:
    """A maximum matching between two sorted time lists, |ref - est| <= tolerance, as (ref, est) index pairs."""
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

    for i in range(len(refs)):
        if candidates[i]:
            augment(i, set())
    return sorted((i, j) for j, i in match_of_est.items())


def _max_matching(refs: Sequence[float], ests: Sequence[float], tolerance: float) -> int:
    return len(match_pairs(refs, ests, tolerance))


def prf(matched: int, n_ref: int, n_est: int) -> Tuple[float, float, float]:
    precision = matched / n_est if n_est else 0.0
    recall = matched / n_ref if n_ref else 0.0
    f = 2 * precision * recall / (precision + recall) if precision + recall else 0.0
    return precision, recall, f


def _by_pitch(notes) -> Dict[int, list]:
    """Notes (time, pitch, ...) grouped by pitch, each group in time order."""
    groups = {}
    for note in sorted(notes):
        groups.setdefault(note[1], []).append(note)
    return groups


def _pitch_matches(ref, est, tolerance: float):
    """Per pitch: its reference notes, its estimates, and a maximum matching of the two as index pairs."""
    refs, ests = _by_pitch(ref), _by_pitch(est)
    for p in refs.keys() | ests.keys():
        r, e = refs.get(p, []), ests.get(p, [])
        yield p, r, e, match_pairs([n[0] for n in r], [n[0] for n in e], tolerance)


def onset_scores(ref: List[Tuple[float, int]], est: List[Tuple[float, int]], tolerance: float = 0.05) -> Dict:
    """Note onsets as (time, pitch): a match needs the same pitch and onsets within `tolerance`."""
    ref_times = {p: [n[0] for n in notes] for p, notes in _by_pitch(ref).items()}
    matched = 0
    octave_errors = 0
    for p, _, found, pairs in _pitch_matches(ref, est, tolerance):
        matched += len(pairs)
        # False estimates an octave off a reference onset: the usual confusion of a harmonic for a note.
        hit = {j for _, j in pairs}
        for j, note in enumerate(found):
            if j not in hit and any(abs(note[0] - u) <= tolerance for q in (p - 12, p + 12)
                                    for u in ref_times.get(q, [])):
                octave_errors += 1
    precision, recall, f = prf(matched, len(ref), len(est))
    return {"precision": precision, "recall": recall, "f": f, "matched": matched, "ref": len(ref),
            "est": len(est), "octave": octave_errors}


def missed_notes(ref: List[Tuple[float, int, int]], est: List[Tuple[float, int]],
                 tolerance: float = 0.05) -> List[Tuple[float, int, int]]:
    """The reference notes (time, pitch, velocity) that no estimate matches."""
    missed = []
    for _, notes, _, pairs in _pitch_matches(ref, est, tolerance):
        hit = {i for i, _ in pairs}
        missed += [n for i, n in enumerate(notes) if i not in hit]
    return sorted(missed)


def error_kinds(ref: List[Tuple[float, int, int]], est: List[Tuple[float, int]], tolerance: float = 0.05) -> Dict:
    """Where the misses are: quiet notes (velocity under 40), notes repeating their key within 0.3 s,
    notes under a louder note an octave above or below at the same time, and the rest."""
    kinds = {"quiet": 0, "repeated": 0, "octave_masked": 0, "other": 0}
    starts = {}
    for t, p, v in ref:
        starts.setdefault(p, []).append((t, v))
    for t, p, v in missed_notes(ref, est, tolerance):
        if v < 40:
            kinds["quiet"] += 1
        elif any(0 < t - u <= 0.3 for u, _ in starts.get(p, [])):
            kinds["repeated"] += 1
        elif any(abs(t - u) <= tolerance and w >= v for q in (p - 12, p + 12) for u, w in starts.get(q, [])):
            kinds["octave_masked"] += 1
        else:
            kinds["other"] += 1
    return kinds


# The beat tracker's tempo range: beats slower or faster than this are outside what it can report.
TRACKER_BPM = (55.0, 215.0)


def tempo_of(beat_times: Sequence[float]) -> float:
    """Beats per minute from the median interval; 0 for fewer than two beats."""
    times = sorted(beat_times)
    intervals = sorted(b - a for a, b in zip(times, times[1:]) if b > a)
    return 60.0 / intervals[len(intervals) // 2] if intervals else 0.0


def in_tracker_range(beat_times: Sequence[float]) -> bool:
    return TRACKER_BPM[0] <= tempo_of(beat_times) <= TRACKER_BPM[1]


def beat_scores(ref: Sequence[float], est: Sequence[float], tolerance: float = 0.07) -> Dict:
    matched = _max_matching(sorted(ref), sorted(est), tolerance)
    precision, recall, f = prf(matched, len(ref), len(est))
    return {"precision": precision, "recall": recall, "f": f}
