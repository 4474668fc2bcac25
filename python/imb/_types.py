"""The package's exception and enumerations.

Kept apart from the compiled module, which imports this one to raise
imb.Error and to return its enumerations as these IntEnums. The numbers are
the library's own and part of its interface: files and code store them.
"""

import enum

import numpy as np


class Error(RuntimeError):
    """A library call failed; the message carries what the library reported."""


class Format(enum.IntEnum):
    """Data format of one component, and the numpy dtype that holds it."""

    INT8 = 0  # unsigned, white 255
    INT16 = 1  # unsigned, white 65535
    INT32 = 2  # unsigned, white 4294967295
    FLOAT32 = 3  # white 1
    FLOAT16 = 4  # IEEE binary16, white 1
    UNDEFINED = 5  # no format; no buffer has it

    @property
    def dtype(self):
        """The numpy dtype of the format's components."""
        return np.dtype(_DTYPES[self])

    @classmethod
    def of_dtype(cls, dtype):
        """The format whose components a numpy dtype holds; TypeError for others."""
        dt = np.dtype(dtype)
        for fmt, name in _DTYPES.items():
            if dt == np.dtype(name):
                return fmt
        raise TypeError(f"unsupported dtype {dt}: expected uint8, uint16, uint32, float32 or float16")


_DTYPES = {Format.INT8: "uint8", Format.INT16: "uint16", Format.INT32: "uint32",
           Format.FLOAT32: "float32", Format.FLOAT16: "float16"}


class Dither(enum.IntEnum):
    """How Raster.convert_8bit spreads the rounding error; every method is deterministic."""

    NONE = 0  # round to nearest, exactly as imb.fill does
    BAYER4 = 1  # ordered, 4x4 Bayer matrix
    BAYER8 = 2  # ordered, 8x8 Bayer matrix
    FLOYD_STEINBERG = 3  # error diffusion, serpentine rows


class Packing(enum.IntEnum):
    """Layout of a pixel's components; the _NI packings keep one plane per channel."""

    SINGLE = 0
    DUAL = 1  # two channels stored as three interleaved components (kept)
    DUAL_NI = 2
    RGB = 3
    RGBA = 4
    RGB_NI = 5
    RGBA_NI = 6
    UV = 7
    UNKNOWN = 255  # an unconfigured raster

    @property
    def channels(self):
        """Channels of the numpy view of a raster of this packing (2 for DUAL)."""
        return _VIEW_CHANNELS[self]


_VIEW_CHANNELS = {Packing.SINGLE: 1, Packing.DUAL: 2, Packing.DUAL_NI: 2, Packing.RGB: 3, Packing.RGBA: 4,
                  Packing.RGB_NI: 3, Packing.RGBA_NI: 4, Packing.UV: 2, Packing.UNKNOWN: 0}


class ColorSpace(enum.IntEnum):
    """How a raster's values are encoded."""

    UNKNOWN = 0
    LINEAR = 1
    GAMMA2_2 = 2
    CUSTOM_GAMMA = 3
    SRGB = 4
    REC709 = 5
    OCIO = 6  # named by a colour-management colour-space name


class LookupType(enum.IntFlag):
    """Kind of a lookup table: channel bits R, G, B, A; 16 one table per
    channel; 32 one shared table; 64 a cube."""

    R = 1
    G = 2
    B = 4
    A = 8
    RGB = 23  # separate red, green and blue tables
    RGBA = 31  # separate red, green, blue and alpha tables
    C = 39  # one table shared by red, green and blue
    ALL = 47  # one table shared by all four channels
    CUBE = 64  # "3D": a colour cube
    CUBE_1D = 96  # "3D+1D": a cube with a shared pre-table


class LumFunction(enum.IntEnum):
    """How imb.luma.convert turns a pixel's channels into one value."""

    WEIGHTED = 0  # 0.3086 R + 0.6094 G + 0.0820 B
    NTSC = 1  # 0.299 R + 0.587 G + 0.114 B
    MAX = 2
    MIN = 3
    AVERAGE = 4
    RED = 5
    GREEN = 6
    BLUE = 7
    ALPHA = 8
