"""libIMB from Python: rasters, pixel transfer, lookup tables, colour
management, luma and deep images.

    import numpy as np, imb
    r = imb.Raster.from_array(np.zeros((1080, 1920, 4), np.float32))
    imb.Lookup.srgb().apply(r)            # in place, without the GIL
    pixels = np.asarray(r)                # a view of r's pixels, no copy

Rasters show their pixels to numpy without a copy, as arrays of shape
(height, width, channels) for every packing. Failing library calls raise
imb.Error carrying the library's message; wrong argument types, shapes or
values raise TypeError or ValueError before any library code runs.
"""

import os

import numpy as np

from ._types import ColorSpace, Dither, Error, Format, LookupType, LumFunction, Packing
from ._imb import Lookup, Raster, color_space_from_name, color_space_name
from . import deep, fill, luma, ocio

__all__ = ["ColorSpace", "Dither", "Error", "Format", "LookupType", "LumFunction", "Packing", "Lookup", "Raster",
           "color_space_from_name", "color_space_name", "deep", "fill", "luma", "ocio"]

_DEFAULT_PACKINGS = {1: Packing.SINGLE, 2: Packing.UV, 3: Packing.RGB, 4: Packing.RGBA}


def _from_array(cls, array, packing=None):
    """A new raster holding a copy of `array`.

    `array` has shape (height, width) or (height, width, channels) and dtype
    uint8, uint16, uint32, float32 or float16 (TypeError for others).
    `packing` defaults to SINGLE, UV, RGB or RGBA by the number of channels;
    a given packing must show as many channels (DUAL and UV show 2, SINGLE 1;
    ValueError otherwise).
    """
    a = np.asarray(array)
    fmt = Format.of_dtype(a.dtype)
    if a.ndim == 2:
        a = a[:, :, np.newaxis]
    if a.ndim != 3:
        raise ValueError(f"expected an array of shape (height, width[, channels]), got shape {a.shape}")
    height, width, channels = a.shape
    if packing is None:
        if channels not in _DEFAULT_PACKINGS:
            raise ValueError(f"no packing holds {channels} channels")
        packing = _DEFAULT_PACKINGS[channels]
    packing = Packing(packing)
    if packing.channels != channels:
        raise ValueError(f"packing {packing.name} shows {packing.channels} channels, the array has {channels}")
    raster = cls(packing, fmt, width, height, clear=False)
    np.asarray(raster)[...] = a
    return raster


def _save(self, file, binary=True):
    """Writes the stream form (see to_bytes) to a path or a binary file object."""
    data = self.to_bytes(binary)
    if hasattr(file, "write"):
        file.write(data)
    else:
        with open(os.fspath(file), "wb") as f:
            f.write(data)


def _load(cls, file, binary=True):
    """Reads a raster in stream form (see from_bytes) from a path or a binary
    file object; imb.Error when it holds none."""
    if hasattr(file, "read"):
        data = file.read()
    else:
        with open(os.fspath(file), "rb") as f:
            data = f.read()
    return cls.from_bytes(data, binary)


Raster.from_array = classmethod(_from_array)
Raster.save = _save
Raster.load = classmethod(_load)
