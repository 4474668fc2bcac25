"""Pixel transfer between numpy arrays and rasters of any two formats.

Every function takes arrays of shape (height, width) or (height, width,
channels), or rasters (their views are used in place), and works channel by
channel with the library's rounding rules: integers round half up and clamp;
a value v of an integer buffer stands for (v - black) / (white - black).
Arrays to write into must have their rows packed one after another: numpy
arrays in C order, views of some of their channels (a[:, :, :3]) and the
views of rasters all qualify. The GIL is released while pixels are written.
"""

from ._imb import fill as _fill

convert = _fill.convert
clear = _fill.clear
invert = _fill.invert
multiply = _fill.multiply
divide = _fill.divide

__all__ = ["convert", "clear", "invert", "multiply", "divide"]
