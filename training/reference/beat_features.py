"""An independent NumPy implementation of the beat networks' feature front end (DownbeatDetector):
frames of 1024, 2048 and 4096 samples centred every 441 samples, a Hann window with the 16-bit
scale folded in, magnitudes, triangular log-frequency filters of unit area (3, 6 and 12 bands an
octave from 30 Hz to 17 kHz), log10(1 + x), and positive differences (lag 2 for the 91-band block).
314 columns a frame. Checks the C++ front end on a real file.

    /usr/bin/python3 training/reference/beat_features.py --wav FILE.wav --samples-out S.npy --features-out F.npy

The WAV (16-bit PCM at 44100 Hz) is mixed to mono as the audio stage does: the float sum of the
channels divided by their count, then truncated to integers. S holds those integers (as float32),
F the (frames, 314) features."""

import argparse
import math
import sys
import wave

import numpy as np

HOP = 441
SETTINGS = [(1024, 3), (2048, 6), (4096, 12)]
MIN_FREQUENCY = 30.0
MAX_FREQUENCY = 17000.0


def mono_samples(path):
    with wave.open(path, "rb") as w:
        if w.getsampwidth() != 2 or w.getframerate() != 44100:
            raise SystemExit("need 16-bit PCM at 44100 Hz: %s" % path)
        channels = w.getnchannels()
        data = np.frombuffer(w.readframes(w.getnframes()), dtype="<i2").astype(np.float32)
    frames = data.reshape(-1, channels)
    total = np.zeros(frames.shape[0], dtype=np.float32)
    for c in range(channels):
        total = (total + frames[:, c]).astype(np.float32)
    return np.trunc(total / np.float32(channels)).astype(np.int64)


def log_frequencies(bands):
    inverse_a4 = 0.0022727272727272726
    first = math.floor(math.log2(MIN_FREQUENCY * inverse_a4) * bands)
    last = math.ceil(math.log2(MAX_FREQUENCY * inverse_a4) * bands)
    out = []
    for i in range(first, last):
        exponent = np.float32(i) / np.float32(bands)
        f = 440.0 * 2.0 ** float(exponent)
        if MIN_FREQUENCY <= f <= MAX_FREQUENCY:
            out.append(f)
    return out


def triangle(start, centre, stop):
    values, value = [], np.float32(0.0)
    rise = np.float32(1.0) / np.float32(centre - start)
    for _ in range(start, centre):
        values.append(value)
        value = np.float32(value + rise)
    value = np.float32(1.0)
    fall = np.float32(1.0) / np.float32(stop - centre)
    for _ in range(centre, stop):
        values.append(value)
        value = np.float32(value - fall)
    weights = np.array(values, dtype=np.float64)
    total = weights.sum() or 1.0
    return (weights / total).astype(np.float32)


def filterbank(size, bands):
    """(size / 2, filters) matrix of the triangular filters."""
    bin_frequencies = np.arange(size // 2) * 44100.0 / size
    bins = []
    for f in log_frequencies(bands):
        b = int(np.searchsorted(bin_frequencies, f, side="left"))
        if b >= len(bin_frequencies):
            b = len(bin_frequencies) - 1
        elif b > 0 and f - bin_frequencies[b - 1] < bin_frequencies[b] - f:
            b -= 1
        if not bins or bins[-1] != b:
            bins.append(b)
    bank = np.zeros((size // 2, max(len(bins) - 2, 0)), dtype=np.float64)
    for i in range(len(bins) - 2):
        bank[bins[i]:bins[i + 2], i] = triangle(bins[i], bins[i + 1], bins[i + 2])
    return bank


def log_amplitudes(samples, size, bands):
    count = -(-len(samples) // HOP)
    k = 1.5259254737998596e-5
    n = np.arange(size)
    window = k - np.cos(2.0 * np.pi * n / (size - 1)) * k
    window[0] = 0.0
    bank = filterbank(size, bands)
    padded = np.concatenate([np.zeros(size // 2, np.int64), samples, np.zeros(size, np.int64)])
    out = np.empty((count, bank.shape[1]), dtype=np.float32)
    for start in range(0, count, 512):
        stop = min(count, start + 512)
        index = (np.arange(start, stop) * HOP)[:, None] + n[None, :]
        frames = (padded[index] * window).astype(np.float32)
        magnitudes = np.abs(np.fft.rfft(frames.astype(np.float64), axis=1))[:, : size // 2]
        out[start:stop] = np.log10(magnitudes @ bank + 1.0).astype(np.float32)
    return out


def differences(amplitudes):
    lag = 2 if amplitudes.shape[1] == 91 else 1
    diff = np.zeros_like(amplitudes)
    diff[lag:] = np.maximum(amplitudes[lag:] - amplitudes[:-lag], 0.0)
    return np.concatenate([amplitudes, diff], axis=1)


def features(samples):
    return np.concatenate([differences(log_amplitudes(samples, s, b)) for s, b in SETTINGS], axis=1)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--wav", required=True)
    parser.add_argument("--samples-out", required=True)
    parser.add_argument("--features-out", required=True)
    args = parser.parse_args()
    samples = mono_samples(args.wav)
    np.save(args.samples_out, samples.astype(np.float32))
    np.save(args.features_out, features(samples).astype(np.float32))
    return 0


if __name__ == "__main__":
    sys.exit(main())
