"""Renders MIDI to 44.1 kHz 16-bit WAV with fluidsynth, with the variety that recordings have:
soundfont, gain, reverb and chorus levels, and low noise added afterwards.

TimGM6mb is the held-out soundfont: only validation pieces are rendered with it.
"""

import os
import random
import subprocess
import wave

import numpy as np

SOUNDFONTS_TRAIN = ["/usr/share/sounds/sf2/FluidR3_GM.sf2", "/usr/share/sounds/sf3/MuseScore_General.sf3"]
SOUNDFONT_VALIDATION = "/usr/share/sounds/sf2/TimGM6mb.sf2"
SAMPLE_RATE = 44100


def render(midi_path: str, wav_path: str, rng: random.Random, validation: bool = False) -> dict:
    """Renders one file; returns the settings used, for the record."""
    soundfont = SOUNDFONT_VALIDATION if validation else rng.choice(SOUNDFONTS_TRAIN)
    settings = {
        "soundfont": os.path.basename(soundfont),
        "gain": round(rng.uniform(0.25, 0.9), 3),
        "reverb": round(rng.choice([0.0, rng.uniform(0.1, 0.9)]), 3),
        "chorus": round(rng.choice([0.0, 0.0, rng.uniform(0.1, 0.8)]), 3),
        "noise_db": round(rng.uniform(-75, -45), 1),
    }
    raw = wav_path + ".raw.wav"
    command = [
        "fluidsynth", "-ni", "-q", "-F", raw, "-r", str(SAMPLE_RATE), "-g", str(settings["gain"]),
        "-o", "synth.reverb.active=%d" % (settings["reverb"] > 0),
        "-o", "synth.reverb.level=%g" % settings["reverb"],
        "-o", "synth.chorus.active=%d" % (settings["chorus"] > 0),
        "-o", "synth.chorus.level=%g" % (settings["chorus"] * 10),
        soundfont, midi_path,
    ]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    samples = read_wav(raw)
    os.remove(raw)
    noise = np.random.default_rng(rng.randrange(1 << 30)).standard_normal(samples.shape).astype(np.float32)
    samples = samples + noise * (10 ** (settings["noise_db"] / 20))
    peak = float(np.max(np.abs(samples))) if samples.size else 0.0
    if peak > 0.99:  # a dense passage at high gain: scale down rather than clip
        samples *= 0.99 / peak
    write_wav(wav_path, samples)
    return settings


def read_wav(path: str) -> np.ndarray:
    """Float samples in [-1, 1], shape (frames, channels)."""
    with wave.open(path, "rb") as w:
        channels, width = w.getnchannels(), w.getsampwidth()
        data = w.readframes(w.getnframes())
    if width == 2:
        samples = np.frombuffer(data, dtype="<i2").astype(np.float32) / 32768.0
    elif width == 4:
        samples = np.frombuffer(data, dtype="<i4").astype(np.float32) / 2147483648.0
    else:
        raise ValueError("%s: %d-byte samples" % (path, width))
    return samples.reshape(-1, channels)


def write_wav(path: str, samples: np.ndarray) -> None:
    pcm = np.clip(np.round(samples * 32767.0), -32768, 32767).astype("<i2")
    with wave.open(path, "wb") as w:
        w.setnchannels(pcm.shape[1])
        w.setsampwidth(2)
        w.setframerate(SAMPLE_RATE)
        w.writeframes(pcm.tobytes())
