import numpy as np
import pytest

import imb
from imb import fill

U32 = 2**32 - 1


# (source dtype, value, destination dtype, options, expected), each worked
# out from the conversion rules: every dtype on both sides and every option
# once (the rules themselves are pinned by the fill suite).
@pytest.mark.parametrize("src, value, dst, options, expected", [
    ("uint8", 255, "uint16", {}, 65535),                 # widening replicates: v * 257
    ("uint16", 0x80FF, "uint8", {}, 0x81),               # narrowing rounds on bit 7
    ("uint32", 0x00800000, "uint8", {}, 1),              # rounds on bit 23
    ("float32", 0.5, "uint8", {}, 128),                  # floor(127.5 + 0.5)
    ("float16", 2.0, "uint8", {}, 255),
    ("uint8", 10, "uint8", {"src_range": (16, 235)}, 0),  # below black: clamped
    ("uint8", 128, "uint8", {"dst_range": (16, 235)}, 126),  # floor(128/255 * 219 + 16.5)
    ("uint8", 64, "uint8", {"gamma": 2.0}, 128),         # floor(sqrt(64/255) * 255 + 0.5)
    ("float32", 0.5, "uint32", {}, 128),                 # default destination range 0-255, kept
    ("float32", 0.5, "uint32", {"dst_range": (0, U32)}, 2**31),
    ("float32", 0.1, "float16", {}, np.float16(0.1)),
])
def test_convert_follows_the_conversion_rules(src, value, dst, options, expected):
    s = np.full((2, 3), value, src)
    d = np.zeros((2, 3), dst)
    fill.convert(s, d, **options)
    assert (d == np.asarray(expected, dst)).all()


def test_convert_places_flips_and_picks_rows_per_channel():
    src = np.arange(24, dtype=np.float32).reshape(4, 2, 3) / 32
    planar = imb.Raster(imb.Packing.RGB_NI, imb.Format.FLOAT32, 2, 4)
    fill.convert(src, planar)
    assert np.array_equal(np.asarray(planar), src)

    out = np.zeros((4, 2, 3), np.uint8)
    fill.convert(planar, out, flip_y=True)
    assert np.array_equal(out, np.floor(src[::-1] * 255 + 0.5))
    fill.convert(planar, out, flip_x=True)
    assert np.array_equal(out, np.floor(src[:, ::-1] * 255 + 0.5))

    small = np.arange(1, 5, dtype=np.uint8).reshape(2, 2)
    d = np.zeros((3, 3), np.uint8)
    fill.convert(small, d, offset=(2, 1))  # clipped to the destination
    assert np.array_equal(d, [[0, 0, 0], [0, 0, 1], [0, 0, 3]])
    d = np.zeros((4, 2), np.uint8)  # rows are picked within the clipped height
    fill.convert(np.arange(8, dtype=np.uint8).reshape(4, 2), d, row_step=2, row_offset=1)
    assert np.array_equal(d, [[2, 3], [6, 7], [0, 0], [0, 0]])


def test_arithmetic_follows_its_rules():
    d = np.zeros((2, 4, 3), np.uint8)
    fill.clear(d, 0.5)
    assert (d == 128).all()
    fill.clear(d, [0, 1, 0.25], region=(1, 0, 2, 0))
    assert np.array_equal(d[0, 1:3], [[0, 255, 64]] * 2) and (d[1] == 128).all()
    wide = np.zeros((1, 2), np.uint32)
    fill.clear(wide, 1.0)  # the default 0-255 range of 32-bit destinations
    assert (wide == 255).all()

    d = np.full((1, 3), 100, np.uint8)
    fill.divide(d, np.array([[0.5, 0.25, 0.0]]))
    assert np.array_equal(d, [[200, 255, 0]])
    d = np.full((1, 2), 1000, np.uint16)
    fill.multiply(d, 2)
    assert (d == 2000).all()
    f = np.full((1, 2), 0.25, np.float32)
    fill.invert(f)
    assert (f == 0.75).all()
    b = np.zeros((1, 2), np.uint8)
    fill.invert(b)
    assert (b == 255).all()


def readonly():
    a = np.zeros((2, 2), np.uint8)
    a.flags.writeable = False
    return a


@pytest.mark.parametrize("call, error", [
    (lambda: fill.convert(np.zeros((2, 2)), np.zeros((2, 2), np.uint8)), TypeError),
    (lambda: fill.convert(np.zeros((2, 2), np.uint8), [[0, 0], [0, 0]]), TypeError),
    (lambda: fill.convert(np.zeros((2, 2, 3), np.uint8), np.zeros((2, 2, 4), np.uint8)), ValueError),
    (lambda: fill.convert(np.zeros((2, 2), np.uint8), np.zeros((4, 4), np.uint8)[::2, ::2]), ValueError),
    (lambda: fill.convert(np.zeros((2, 2), np.uint8), readonly()), ValueError),
    (lambda: fill.clear(np.broadcast_to(np.zeros(1, np.uint8), (2, 2)), 0.5), ValueError),
    (lambda: fill.clear(np.zeros((2, 2, 3), np.uint8), [1, 2]), ValueError),
    (lambda: fill.multiply(np.zeros((2, 2), np.uint8), np.ones((3, 2))), ValueError),
    (lambda: fill.convert(np.zeros((2, 2), np.uint8), np.zeros((2, 2), np.uint8), dst_range=(0, 256)), ValueError),
])
def test_bad_arguments_raise_before_anything_is_written(call, error):
    with pytest.raises(error):
        call()


def test_overlapping_buffers_are_refused():
    a = np.zeros((2, 2, 2), np.uint8)
    with pytest.raises(ValueError):
        fill.convert(a[..., :1], a[..., 1:])
