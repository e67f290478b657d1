"""Musical material for training: notes and beats in seconds, written as MIDI with exact labels.

Every piece is a list of `Note`s, optional pedal events and a beat list, all in seconds. Writing goes
through one fixed tempo, so a label time is the time at which the synthesiser starts the note to within
a fraction of a millisecond whatever tempo the material had.

Sources:
  - POP909 piano arrangements (MIT, ../shared/data/pop909), with their beat and downbeat times;
    for the beat networks a bass line from the chord file and a drum part on the song's beat grid;
  - piano textures made here (chords, arpeggios, scales, repeated notes) at 40-220 bpm;
  - short pieces in 3/4, 6/8 and 2/4 with melody and accompaniment, so that the beat networks hear
    other meters than POP909's 4/4;
  - other General MIDI instruments for a share of the pieces.
"""

import dataclasses
import json
import os
import random
from typing import List, Optional, Tuple

import mido

POP909_DIR = os.path.join(os.path.dirname(__file__), "..", "..", "shared", "data", "pop909", "POP909")

TICKS_PER_QUARTER = 960
TEMPO_US = 500000  # 120 bpm: one tick is 0.52 ms
SECONDS_PER_TICK = TEMPO_US / 1e6 / TICKS_PER_QUARTER

DRUM_CHANNEL = 9
# General MIDI programs (0-based) for the instruments that are not piano.
OTHER_PROGRAMS = {
    "guitar": [24, 25, 26, 27],
    "strings": [40, 41, 42, 48, 49],
    "organ": [16, 17, 19],
    "winds": [56, 60, 65, 68, 71, 73],
    "pad": [52, 53, 88, 89, 91],
}
PIANO_PROGRAMS = [0, 0, 0, 1, 2]
BASS_PROGRAMS = [32, 33, 34, 35]


@dataclasses.dataclass
class Note:
    start: float  # seconds
    end: float  # seconds
    pitch: int  # MIDI key, 21..108 for the piano range
    velocity: int
    channel: int = 0


@dataclasses.dataclass
class Piece:
    name: str
    notes: List[Note]
    beats: List[Tuple[float, bool]]  # (time, is_downbeat)
    programs: dict  # channel -> program
    pedal: List[Tuple[float, bool]] = dataclasses.field(default_factory=list)  # (time, down) on channel 0
    beats_per_bar: int = 4

    def labels(self) -> dict:
        """What the synthesiser was asked to play: onsets of pitched notes and the beat grid."""
        onsets = [
            [round(n.start, 5), round(n.end, 5), n.pitch, n.velocity, self.programs.get(n.channel, 0)]
            for n in sorted(self.notes, key=lambda n: (n.start, n.pitch))
            if n.channel != DRUM_CHANNEL
        ]
        return {
            "name": self.name,
            "notes": onsets,
            "beats": [[round(t, 5), int(d)] for t, d in self.beats],
            "beats_per_bar": self.beats_per_bar,
        }


def write_midi(piece: Piece, path: str, detune_cents: float = 0.0) -> None:
    """Writes a type-1 file at the fixed tempo; a global pitch bend detunes every pitched channel."""
    events = []  # (tick, order, channel, message)
    for channel, program in piece.programs.items():
        events.append((0, 0, channel, mido.Message("program_change", channel=channel, program=program)))
        if channel != DRUM_CHANNEL and detune_cents:
            # The default bend range is two semitones either way.
            bend = max(-8192, min(8191, int(round(detune_cents / 200.0 * 8192))))
            events.append((0, 1, channel, mido.Message("pitchwheel", channel=channel, pitch=bend)))
    for time, down in piece.pedal:
        tick = int(round(time / SECONDS_PER_TICK))
        events.append((tick, 2, 0, mido.Message("control_change", channel=0, control=64, value=127 if down else 0)))
    for n in piece.notes:
        start = int(round(n.start / SECONDS_PER_TICK))
        end = max(start + 1, int(round(n.end / SECONDS_PER_TICK)))
        vel = max(1, min(127, n.velocity))
        # Note-offs sort before note-ons at the same tick, so a repeated key sounds again.
        events.append((end, 3, n.channel, mido.Message("note_off", channel=n.channel, note=n.pitch, velocity=0)))
        events.append((start, 4, n.channel, mido.Message("note_on", channel=n.channel, note=n.pitch, velocity=vel)))
    events.sort(key=lambda e: (e[0], e[1]))

    midi = mido.MidiFile(type=1, ticks_per_beat=TICKS_PER_QUARTER)
    meta = mido.MidiTrack()
    meta.append(mido.MetaMessage("set_tempo", tempo=TEMPO_US, time=0))
    midi.tracks.append(meta)
    track = mido.MidiTrack()
    last = 0
    for tick, _, _, message in events:
        track.append(message.copy(time=tick - last))
        last = tick
    midi.tracks.append(track)
    midi.save(path)


def write_piece(piece: Piece, folder: str, detune_cents: float = 0.0) -> str:
    midi_path = os.path.join(folder, piece.name + ".mid")
    write_midi(piece, midi_path, detune_cents)
    with open(os.path.join(folder, piece.name + ".json"), "w") as f:
        json.dump(piece.labels(), f)
    return midi_path


# ---------------------------------------------------------------------------------------------
# POP909


def pop909_songs() -> List[str]:
    return sorted(d for d in os.listdir(POP909_DIR) if d.isdigit())


def read_midi_notes(path: str) -> Tuple[List[Note], List[Tuple[float, bool]]]:
    """Notes and sustain pedal of every track, in seconds, all on channel 0."""
    midi = mido.MidiFile(path)
    notes, pedal, sounding = [], [], {}
    now = 0.0
    for message in midi:  # merged tracks, times in seconds
        now += message.time
        if message.type == "note_on" and message.velocity > 0:
            if message.note in sounding:  # a repeat without an off ends the last one
                start, vel = sounding.pop(message.note)
                notes.append(Note(start, now, message.note, vel))
            sounding[message.note] = (now, message.velocity)
        elif message.type in ("note_off", "note_on"):
            if message.note in sounding:
                start, vel = sounding.pop(message.note)
                notes.append(Note(start, max(now, start + 0.01), message.note, vel))
        elif message.type == "control_change" and message.control == 64:
            pedal.append((now, message.value >= 64))
    for pitch, (start, vel) in sounding.items():
        notes.append(Note(start, now, pitch, vel))
    return notes, pedal


def read_pop909_beats(song: str) -> List[Tuple[float, bool]]:
    beats = []
    with open(os.path.join(POP909_DIR, song, "beat_midi.txt")) as f:
        for line in f:
            parts = line.split()
            if len(parts) >= 3:
                beats.append((float(parts[0]), float(parts[2]) > 0.5))
    return beats


def read_pop909_chords(song: str) -> List[Tuple[float, float, Optional[int]]]:
    """(start, end, root pitch class or None) from the chord file."""
    names = {"C": 0, "D": 2, "E": 4, "F": 5, "G": 7, "A": 9, "B": 11}
    chords = []
    with open(os.path.join(POP909_DIR, song, "chord_midi.txt")) as f:
        for line in f:
            parts = line.split()
            if len(parts) < 3:
                continue
            root = None
            label = parts[2]
            if label != "N" and label[0] in names:
                root = names[label[0]]
                if len(label) > 1 and label[1] == "#":
                    root += 1
                elif len(label) > 1 and label[1] == "b":
                    root -= 1
                root %= 12
            chords.append((float(parts[0]), float(parts[1]), root))
    return chords


def scale_time(piece: Piece, factor: float) -> Piece:
    """Plays the piece `factor` times as fast."""
    s = 1.0 / factor
    return dataclasses.replace(
        piece,
        notes=[dataclasses.replace(n, start=n.start * s, end=n.end * s) for n in piece.notes],
        beats=[(t * s, d) for t, d in piece.beats],
        pedal=[(t * s, d) for t, d in piece.pedal],
    )


def excerpt(piece: Piece, start: float, length: float) -> Piece:
    """The part of the piece from `start` for `length` seconds, moved to begin at 0.5 s. Notes that
    start inside are kept (and cut at the end); notes already sounding at `start` are dropped, so every
    labelled onset is a real onset in the audio."""
    begin, end, shift = start, start + length, 0.5 - start
    notes = [dataclasses.replace(n, start=n.start + shift, end=min(n.end, end) + shift)
             for n in piece.notes if begin <= n.start < end]
    beats = [(t + shift, d) for t, d in piece.beats if begin <= t < end]
    pedal = [(t + shift, d) for t, d in piece.pedal if begin <= t < end]
    return dataclasses.replace(piece, notes=notes, beats=beats, pedal=pedal)


def transpose(piece: Piece, semitones: int) -> Piece:
    notes = [
        dataclasses.replace(n, pitch=n.pitch + semitones)
        for n in piece.notes
        if n.channel == DRUM_CHANNEL or 21 <= n.pitch + semitones <= 108
    ]
    return dataclasses.replace(piece, notes=notes)


def pop909_piano(song: str, rng: random.Random) -> Piece:
    notes, pedal = read_midi_notes(os.path.join(POP909_DIR, song, song + ".mid"))
    return Piece("pop909_" + song, notes, read_pop909_beats(song), {0: rng.choice(PIANO_PROGRAMS)}, pedal)


def bass_line(chords, beats, rng: random.Random, channel: int = 1) -> List[Note]:
    """Chord roots in the bass register, on every beat or on the strong beats."""
    every_beat = rng.random() < 0.5
    notes = []
    for i, (time, down) in enumerate(beats[:-1]):
        if not every_beat and i % 2:
            continue
        root = next((r for s, e, r in chords if s <= time + 1e-3 < e), None)
        if root is None:
            continue
        length = (beats[i + 1][0] - time) * (1 if every_beat else 2) * 0.9
        pitch = 36 + root if root < 8 else 24 + root
        notes.append(Note(time, time + length, pitch, rng.randint(70, 105) + (10 if down else 0), channel))
    return notes


# General MIDI drum keys.
KICK, SNARE, CLOSED_HAT, OPEN_HAT, RIDE, CRASH, TOM_LOW, TOM_MID, TOM_HIGH = 36, 38, 42, 46, 51, 49, 45, 47, 50


def drum_part(beats, beats_per_bar: int, rng: random.Random) -> List[Note]:
    """A drum part on the beat grid: one style per piece, fills at phrase ends, crashes on phrase starts."""
    style = rng.choice(["rock", "pop", "half", "double", "ballad", "shuffle"])
    hat = rng.choice([CLOSED_HAT, CLOSED_HAT, RIDE])
    notes = []

    def hit(time, key, vel):
        notes.append(Note(time, time + 0.08, key, max(1, min(127, vel + rng.randint(-12, 12))), DRUM_CHANNEL))

    bar, beat_in_bar = -1, 0
    for i, (time, down) in enumerate(beats[:-1]):
        if down:
            bar, beat_in_bar = bar + 1, 0
        else:
            beat_in_bar += 1
        step = beats[i + 1][0] - time
        phrase_end = bar % 8 == 7 and beat_in_bar >= beats_per_bar - 1
        if phrase_end and rng.random() < 0.8:
            for k, key in enumerate([TOM_HIGH, TOM_MID, TOM_LOW, SNARE]):
                hit(time + k * step / 4, key, 90)
            continue
        if down and bar % 8 == 0:
            hit(time, CRASH, 100)
        strong = beat_in_bar == 0 or (beats_per_bar == 4 and beat_in_bar == 2)
        if style in ("rock", "pop", "double", "shuffle"):
            if strong:
                hit(time, KICK, 105)
            elif beats_per_bar == 3 or (beats_per_bar == 4 and beat_in_bar in (1, 3)):
                hit(time, SNARE, 100)
        elif style == "half":
            if beat_in_bar == 0:
                hit(time, KICK, 105)
            if beats_per_bar == 4 and beat_in_bar == 2:
                hit(time, SNARE, 105)
        elif style == "ballad":
            if beat_in_bar == 0:
                hit(time, KICK, 90)
            if beat_in_bar == beats_per_bar - 1:
                hit(time, SNARE, 70)
        subdivisions = {"double": 4, "shuffle": 3}.get(style, 2)
        for k in range(subdivisions):
            if style == "shuffle" and k == 1:
                continue
            hit(time + k * step / subdivisions, hat, 80 if k == 0 else 60)
    return notes


def pop909_band(song: str, rng: random.Random) -> Piece:
    """The arrangement with bass and, for most pieces, drums: full-band material for the beat networks."""
    piece = pop909_piano(song, rng)
    chords = read_pop909_chords(song)
    notes = list(piece.notes) + bass_line(chords, piece.beats, rng)
    programs = {0: piece.programs[0], 1: rng.choice(BASS_PROGRAMS)}
    if rng.random() < 0.8:
        notes += drum_part(piece.beats, 4, rng)
        programs[DRUM_CHANNEL] = 0
    return dataclasses.replace(piece, name="band_" + song, notes=notes, programs=programs)


# ---------------------------------------------------------------------------------------------
# Generated material

MAJOR = [0, 2, 4, 5, 7, 9, 11]
MINOR = [0, 2, 3, 5, 7, 8, 10]


def beat_grid(bpm: float, bars: int, beats_per_bar: int, start: float = 0.5, swing: float = 0.0,
              rng: Optional[random.Random] = None) -> List[Tuple[float, bool]]:
    """Beats of `bars` bars with a slow tempo drift, as played music has, plus one closing beat."""
    beats, time, period = [], start, 60.0 / bpm
    for b in range(bars * beats_per_bar + 1):
        beats.append((time, b % beats_per_bar == 0))
        drift = 1.0 + (rng.uniform(-0.01, 0.01) if rng else 0.0)
        time += period * drift
    return beats


def piano_texture(index: int, rng: random.Random) -> Piece:
    """Chords, arpeggios, scales and repeated notes over the whole keyboard at 40-220 bpm."""
    bpm = rng.uniform(40, 220)
    beats = beat_grid(bpm, rng.randint(12, 24), 4, rng=rng)
    notes, pedal = [], []
    key = rng.randint(0, 11)
    scale = [key + s for s in rng.choice([MAJOR, MINOR])]
    loud, soft = rng.randint(60, 127), rng.randint(15, 60)
    for i, (time, _) in enumerate(beats[:-1]):
        step = beats[i + 1][0] - time
        kind = rng.choice(["chord", "chord", "arpeggio", "scale", "repeat", "random"])
        vel = lambda: rng.randint(soft, loud)  # noqa: E731
        if kind == "chord":
            size = rng.randint(1, 10)
            low = rng.randint(21, 96)
            pitches = sorted({min(108, low + rng.choice([0, 3, 4, 5, 7, 8, 9, 12, 15, 16, 19, 24])) for _ in range(size)})
            length = step * rng.choice([0.5, 1, 1, 2])
            for p in pitches:
                notes.append(Note(time, time + length, p, vel()))
        elif kind == "arpeggio":
            root = rng.randint(28, 84)
            pattern = [0, 4, 7, 12] if rng.random() < 0.5 else [0, 3, 7, 12]
            for k, interval in enumerate(pattern):
                t = time + k * step / 4
                notes.append(Note(t, t + step * rng.choice([0.25, 1.0]), min(108, root + interval), vel()))
        elif kind == "scale":
            octave = rng.randint(2, 6) * 12 + 12
            start = rng.randint(0, 6)
            direction = rng.choice([1, -1])
            count = rng.choice([4, 8])
            for k in range(count):
                degree = start + direction * k
                p = octave + scale[degree % 7] + 12 * (degree // 7)
                t = time + k * step / count
                if 21 <= p <= 108:
                    notes.append(Note(t, t + step / count * 0.95, p, vel()))
        elif kind == "repeat":
            p = rng.randint(21, 108)
            gap = rng.uniform(0.14, 0.5)
            t = time
            while t < time + step - 1e-3:
                notes.append(Note(t, t + gap * 0.8, p, vel()))
                t += gap
        else:
            for _ in range(rng.randint(1, 6)):
                t = time + rng.uniform(0, step)
                notes.append(Note(t, t + rng.uniform(0.1, 1.5), rng.randint(21, 108), vel()))
        if rng.random() < 0.25:
            pedal += [(time + 0.01, True), (time + step * 0.95, False)]
    return Piece("texture_%04d" % index, notes, beats, {0: rng.choice(PIANO_PROGRAMS)}, pedal)


def chord_progression(rng: random.Random, bars: int) -> List[List[int]]:
    """Triads by scale degree, as a simple functional progression."""
    degrees = [0, 3, 4, 0, 5, 3, 1, 4]
    offset = rng.randint(0, 3)
    return [[degrees[(b + offset) % len(degrees)] + k for k in (0, 2, 4)] for b in range(bars)]


def metered_piece(index: int, beats_per_bar: int, rng: random.Random, programs: Optional[dict] = None) -> Piece:
    """A melody over an accompaniment in 2, 3 or 4 beats per bar (6/8 as two dotted-quarter beats),
    with the meter's own accompaniment figure: waltz, minuet or ballad in 3; march in 2; 6/8 rocking."""
    six_eight = beats_per_bar == 2 and rng.random() < 0.5
    bpm = rng.uniform(55, 215)
    bars = rng.randint(16, 32)
    beats = beat_grid(bpm, bars, beats_per_bar, rng=rng)
    key = rng.randint(0, 11)
    scale = rng.choice([MAJOR, MINOR])
    progression = chord_progression(rng, bars)
    figure = rng.choice(["waltz", "minuet", "ballad"]) if beats_per_bar == 3 else "plain"
    programs = programs or {0: rng.choice(PIANO_PROGRAMS), 1: rng.choice(PIANO_PROGRAMS)}
    notes = []

    def pitch_of(degree, octave):
        return 12 * octave + key + scale[degree % 7] + 12 * (degree // 7)

    for bar in range(bars):
        chord = progression[bar]
        bar_beats = beats[bar * beats_per_bar:(bar + 1) * beats_per_bar + 1]
        for b in range(beats_per_bar):
            t, step = bar_beats[b][0], bar_beats[b + 1][0] - bar_beats[b][0]
            accent = 20 if b == 0 else 0
            bass = pitch_of(chord[0], 3)
            upper = [pitch_of(d, 4) for d in chord]
            if figure == "waltz":
                if b == 0:
                    notes.append(Note(t, t + step * 0.9, bass, 80 + accent, 1))
                else:
                    notes += [Note(t, t + step * 0.6, p, 60, 1) for p in upper]
            elif figure == "minuet":
                notes.append(Note(t, t + step * 0.9, bass if b == 0 else pitch_of(chord[b % 3], 3), 70 + accent, 1))
            elif figure == "ballad":
                for k in range(2):
                    p = bass if (b == 0 and k == 0) else upper[(b * 2 + k) % 3]
                    notes.append(Note(t + k * step / 2, t + step, p, 55 + (accent if k == 0 else 0), 1))
            elif six_eight:
                for k in range(3):
                    p = bass if k == 0 else upper[k]
                    notes.append(Note(t + k * step / 3, t + (k + 1) * step / 3, p, 60 + (accent if k == 0 else 0), 1))
            else:
                if b % 2 == 0:
                    notes.append(Note(t, t + step * 0.9, bass, 75 + accent, 1))
                else:
                    notes += [Note(t, t + step * 0.5, p, 60, 1) for p in upper]
            # Melody: a chord tone on strong beats, stepwise motion otherwise.
            if rng.random() < 0.85:
                degree = chord[rng.randint(0, 2)] if b == 0 else chord[0] + rng.randint(-2, 4)
                parts = rng.choice([1, 1, 2])
                for k in range(parts):
                    tm = t + k * step / parts
                    notes.append(Note(tm, tm + step / parts * 0.9, pitch_of(degree + k, 5), 85 + accent, 0))
    name = "meter%d%s_%04d" % (beats_per_bar, "_68" if six_eight else "", index)
    return Piece(name, notes, beats, programs, beats_per_bar=beats_per_bar)


def other_instruments(piece: Piece, rng: random.Random) -> Piece:
    """The same music on other General MIDI instruments, so the networks are not lost off the piano."""
    family = rng.choice(list(OTHER_PROGRAMS))
    programs = dict(piece.programs)
    for channel in programs:
        if channel != DRUM_CHANNEL and rng.random() < 0.7:
            programs[channel] = rng.choice(OTHER_PROGRAMS[family])
    return dataclasses.replace(piece, name=piece.name + "_" + family, programs=programs)
