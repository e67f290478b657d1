"""Reads and writes the safetensors layout the program loads: an 8-byte little-endian header length,
a JSON header of name -> {dtype, shape, data_offsets} (plus "__metadata__"), then raw little-endian data.
Only F32 is written; the program reads nothing else."""

import json
import struct
from typing import Dict, Tuple

import numpy as np


def save(path: str, tensors: Dict[str, np.ndarray], metadata: Dict[str, str] = None) -> None:
    header, offset, blobs = {}, 0, []
    for name in tensors:
        data = np.ascontiguousarray(tensors[name], dtype="<f4")
        header[name] = {"dtype": "F32", "shape": list(data.shape), "data_offsets": [offset, offset + data.nbytes]}
        blobs.append(data.tobytes())
        offset += data.nbytes
    if metadata:
        header["__metadata__"] = {k: str(v) for k, v in metadata.items()}
    text = json.dumps(header, separators=(",", ":")).encode()
    text += b" " * (-len(text) % 8)  # keeps the data 8-byte aligned
    with open(path, "wb") as f:
        f.write(struct.pack("<Q", len(text)))
        f.write(text)
        for blob in blobs:
            f.write(blob)


def load(path: str) -> Tuple[Dict[str, np.ndarray], Dict[str, str]]:
    with open(path, "rb") as f:
        raw = f.read()
    (length,) = struct.unpack("<Q", raw[:8])
    header = json.loads(raw[8:8 + length])
    metadata = header.pop("__metadata__", {})
    base = 8 + length
    tensors = {}
    for name, entry in header.items():
        begin, end = entry["data_offsets"]
        tensors[name] = np.frombuffer(raw[base + begin:base + end], dtype="<f4").reshape(entry["shape"])
    return tensors, metadata
