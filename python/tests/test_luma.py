import numpy as np
import pytest

import imb
from imb import luma
from imb.luma import LumFunction as L

INT_WEIGHTS = {(8, L.WEIGHTED): (79, 156, 21), (8, L.NTSC): (77, 150, 29),
               (16, L.WEIGHTED): (20224, 39938, 5374), (16, L.NTSC): (19595, 38470, 7471)}
REAL_WEIGHTS = {L.WEIGHTED: (0.3086, 0.6094, 0.082), L.NTSC: (0.299, 0.587, 0.114)}


def reference(px, func):
    """The luma rules for uint8, uint16 and float32 pixels of 4 channels."""
    bits = {np.uint8: 8, np.uint16: 16}.get(px.dtype.type)
    c = [px[..., i].astype(np.int64 if bits else np.float32) for i in range(4)]
    if func in REAL_WEIGHTS:
        if bits:  # each term truncated on its own
            return sum((ch * w) >> bits for ch, w in zip(c, INT_WEIGHTS[(bits, func)])).astype(px.dtype)
        w = [np.float32(v) for v in REAL_WEIGHTS[func]]
        return c[0] * w[0] + c[1] * w[1] + c[2] * w[2]
    if func == L.MAX:
        return np.max(px, axis=-1)
    if func == L.MIN:
        return np.min(px, axis=-1)
    if func == L.AVERAGE:
        if bits:
            return np.minimum(sum((ch + 2) >> 2 for ch in c), 2**bits - 1).astype(px.dtype)
        return (c[0] + c[1] + c[2] + c[3]) * np.float32(0.25)
    return px[..., int(func) - int(L.RED)]


@pytest.mark.parametrize("func", list(L), ids=lambda f: f.name)
@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32])
def test_convert_follows_the_luma_rules(func, dtype):
    rng = np.random.default_rng(int(func))
    if dtype == np.float32:
        px = rng.uniform(0, 1, (7, 9, 4)).astype(dtype)
    else:
        px = rng.integers(0, np.iinfo(dtype).max + 1, (7, 9, 4)).astype(dtype)
    px[0, 0] = np.iinfo(dtype).max if dtype != np.float32 else 1.0
    planar = imb.Raster(imb.Packing.RGBA_NI, imb.Format.of_dtype(dtype), 9, 7)
    np.asarray(planar)[...] = px
    for src in (px, planar):
        assert np.array_equal(luma.convert(src, func), reference(px, func))


def test_white_gives_253_in_8_bits_and_absent_channels_count_as_described():
    white = np.full((1, 1, 3), 255, np.uint8)
    assert luma.convert(white)[0, 0] == 78 + 155 + 20
    assert luma.convert(white, L.NTSC)[0, 0] == 76 + 149 + 28
    two = np.array([[[10, 20]]], np.uint8)  # red and green only
    assert luma.convert(two, L.BLUE)[0, 0] == 0 and luma.convert(two, L.AVERAGE)[0, 0] == 15
    out = np.zeros((1, 1), np.uint8)
    assert luma.convert(two, L.MAX, out=out) is out and out[0, 0] == 20


@pytest.mark.parametrize("call, error", [
    (lambda: luma.convert(np.zeros((2, 2, 5), np.uint8)), ValueError),
    (lambda: luma.convert(np.zeros((2, 2, 3), np.int16)), TypeError),
    (lambda: luma.convert(np.zeros((2, 2, 3), np.uint8), 9), ValueError),
    (lambda: luma.convert(np.zeros((2, 2, 3), np.uint8), out=np.zeros((2, 2), np.uint16)), ValueError),
])
def test_bad_arguments_raise(call, error):
    with pytest.raises(error):
        call()
