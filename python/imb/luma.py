"""Luma: one value per pixel from the red, green, blue and alpha channels.

convert(src, function) reads channels 0-3 of a (height, width, channels)
array or a raster as red, green, blue and alpha and returns a (height, width)
array of the same dtype, by an imb.LumFunction.
"""

from ._imb import luma as _luma
from ._types import LumFunction

convert = _luma.convert

__all__ = ["convert", "LumFunction"]
