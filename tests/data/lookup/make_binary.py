#!/usr/bin/env python3
"""Writes the binary lookup-table seeds in binary/ (little-endian "ZLUT" form).

Run from this folder: python3 make_binary.py
"""
import struct


def header(version, fmt, typ, dom=(0.0, 1.0), rng=(0.0, 1.0), black=0.0, white=1.0, bias=None):
    out = b"ZLUT" + struct.pack("<iii", version, fmt, typ)
    out += struct.pack("<6f", dom[0], dom[1], rng[0], rng[1], black, white)
    if version == 3:
        out += struct.pack("<f", bias)
    return out


def samples(values, kind):
    if kind == b"f":
        return struct.pack("<%df" % len(values), *values)
    return struct.pack("<%de" % len(values), *values)


def tracks(n, tracks_, kind):
    out = struct.pack("<ii", n, len(tracks_)) + kind
    for t in tracks_:
        out += samples(t, kind)
    return out


def cube(n, triples, kind):
    flat = [c for t in triples for c in t]
    return struct.pack("<i", n) + kind + samples(flat, kind)


def corners(n, scale):
    return [(scale * r / (n - 1), scale * g / (n - 1), scale * b / (n - 1))
            for b in range(n) for g in range(n) for r in range(n)]


files = {
    # "RGB", three float tracks of 4 samples.
    "rgb_float.blut": header(1, 5, 23) + tracks(4, [[0, 0.25, 0.5, 1], [0, 0.5, 0.75, 1], [1, 0.5, 0.25, 0]], b"f"),
    # "All", one half track, i8 format.
    "all_half.blut": header(1, 0, 47) + tracks(3, [[0, 0.5, 1]], b"h"),
    # "3D", edge 2 identity cube of floats.
    "cube_float.blut": header(2, 3, 64) + cube(2, corners(2, 1.0), b"f"),
    # "3D+1D", version 3 with a log bias, a half pre-table and a half cube.
    "cube_pre_half.blut": header(3, 4, 96, bias=2.5) + tracks(3, [[0, 0.25, 1]], b"h") + cube(3, corners(3, 0.5), b"h"),
    # Log-sampled "C" table, version 3 with an out-of-range bias (read back as 20).
    "log_bias.blut": header(3, 3, 256 + 39, dom=(0.001, 100.0), bias=30.0) + tracks(2, [[0, 1]], b"f"),
    # A cube with edge 0.
    "cube_empty.blut": header(2, 5, 64) + struct.pack("<i", 0) + b"f",
    # Version 4: refused with the version message.
    "version4.blut": header(1, 5, 47)[:4] + struct.pack("<i", 4) + header(1, 5, 47)[8:],
}

for name, data in files.items():
    with open("binary/" + name, "wb") as f:
        f.write(data)
