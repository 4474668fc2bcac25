import gc

import numpy as np
import pytest

import imb

F, P = imb.Format, imb.Packing
FORMATS = [F.INT8, F.INT16, F.INT32, F.FLOAT32, F.FLOAT16]
PACKINGS = [p for p in P if p != P.UNKNOWN]
PLANAR = {P.SINGLE, P.DUAL_NI, P.RGB_NI, P.RGBA_NI}
WHITE = {F.INT8: 255, F.INT16: 65535, F.INT32: 4294967295}


def read(fmt, stored):
    """Stored components as get_pixel reads them."""
    s = np.asarray(stored)
    if fmt == F.INT8:
        return s.astype(np.float32) * np.float32(1 / 255)
    if fmt == F.INT16:
        return s.astype(np.float32) * np.float32(1 / 65535)
    if fmt == F.INT32:
        return (s.astype(np.float64) / 4294967295.0).astype(np.float32)
    return s.astype(np.float32)


def stored(fmt, values):
    """Floats as set_pixel stores them: integers truncated toward zero, low
    bits kept; uint32 scaled by 2**32. (Values here are exact in float16.)"""
    v = np.asarray(values, np.float32).astype(np.float64)
    if fmt in WHITE:
        scale = 4294967296.0 if fmt == F.INT32 else float(WHITE[fmt])
        return (np.trunc(v * scale).astype(np.int64) & WHITE[fmt]).astype(fmt.dtype)
    return v.astype(fmt.dtype)


@pytest.mark.parametrize("fmt", FORMATS, ids=lambda f: f.name)
@pytest.mark.parametrize("packing", PACKINGS, ids=lambda p: p.name)
def test_view_and_pixel_access_see_the_same_memory(packing, fmt):
    r = imb.Raster(packing, fmt, 5, 3)
    v = np.asarray(r)
    n = packing.channels
    assert v.shape == (3, 5, n) and v.dtype == fmt.dtype
    v[...] = (np.arange(v.size) % 200).reshape(v.shape)
    for x, y in [(0, 0), (4, 2), (3, 1)]:
        assert np.array_equal(np.float32(r.get_pixel(x, y)), read(fmt, v[y, x]))
    values = [0.25, 0.5, 1.0, 0.75][:n]
    r.set_pixel(1, 2, values)
    # On plane packings set_pixel writes its values along plane 0 (kept).
    written = v[2, 1:1 + n, 0] if packing in PLANAR else v[2, 1]
    assert np.array_equal(written, stored(fmt, values))
    assert np.asarray(r).__array_interface__["data"][0] == v.__array_interface__["data"][0]


def test_a_view_keeps_its_raster_alive_and_pins_its_pixels():
    r = imb.Raster(P.RGB, F.INT8, 4, 3)
    v = np.asarray(r)
    v[...] = 7
    del r
    gc.collect()
    assert int(v.sum()) == 7 * 36
    r = v.base.obj  # numpy's base is a memoryview of the raster
    with pytest.raises(BufferError):
        r.promote_rgb_to_rgba(1.0)
    del v
    r.promote_rgb_to_rgba(1.0)
    assert r.packing == P.RGBA


@pytest.mark.parametrize("fmt, alpha, expected", [
    (F.INT8, 0.5, 128),
    (F.INT16, 1.0, 65355),  # 65355, not 65535: kept
    # float32 takes the low 32 bits of the double 0.1 (0x3FB999999999999A).
    (F.FLOAT32, 0.1, np.frombuffer(np.uint32(0x9999999A).tobytes(), np.float32)[0]),
])
def test_promote_writes_one_stored_alpha_sample_per_pixel(fmt, alpha, expected):
    r = imb.Raster(P.RGB, fmt, 4, 2)
    r.promote_rgb_to_rgba(alpha)
    a = np.asarray(r)[..., 3].ravel()
    # The copy runs from the blocks' starts, 16 bytes before the first pixel,
    # so the last 16 bytes of the image are not written (kept).
    unwritten = 16 // (4 * fmt.dtype.itemsize)
    assert np.array_equal(a[:-unwritten], np.full(8 - unwritten, expected, fmt.dtype))


@pytest.mark.parametrize("fmt", FORMATS, ids=lambda f: f.name)
def test_premultiply_and_unpremultiply_follow_the_float_interface(fmt):
    rng = np.random.default_rng(1)
    if fmt in WHITE:
        px = rng.integers(0, 256, (4, 6, 4)).astype(fmt.dtype) * (WHITE[fmt] // 255)
    else:
        px = (rng.integers(0, 17, (4, 6, 4)) / 16).astype(fmt.dtype)
    r = imb.Raster.from_array(px)
    r.premultiply()
    # Every value, alpha included, goes back through set_pixel's conversion.
    v = read(fmt, px)
    a = v[..., 3:]
    assert np.array_equal(np.asarray(r), stored(fmt, np.concatenate([v[..., :3] * a, a], axis=2)))

    r = imb.Raster.from_array(px)
    r.unpremultiply()
    partial = (a > 0) & (a < 1)  # other pixels are not written
    div = v[..., :3] / np.where(partial, a, 1)
    if fmt in WHITE:
        div = np.minimum(div, 1)
    expect = np.where(partial, stored(fmt, np.concatenate([div, a], axis=2)), px)
    assert np.array_equal(np.asarray(r), expect)


def test_pixel_operations_keep_the_library_rules():
    r = imb.Raster.from_array(np.arange(16, dtype=np.uint8).reshape(4, 4))
    crop = r.extract(-2, -2, 1, 1)
    expect = np.zeros((4, 4), np.uint8)
    expect[2:, 2:] = [[0, 1], [4, 5]]
    assert np.array_equal(np.asarray(crop)[..., 0], expect)
    r.insert(imb.Raster.from_array(np.full((2, 2), 99, np.uint8)), 3, 3)
    assert np.asarray(r)[3, 3, 0] == 99 and np.asarray(r)[2, 3, 0] == 11
    r.flip_vertical()
    assert np.array_equal(np.asarray(r)[0, :3, 0], [12, 13, 14])
    r.clear([7])  # on plane packings the first sample keeps its value (kept)
    assert np.asarray(r)[0, 0, 0] == 12 and (np.asarray(r).ravel()[1:] == 7).all()

    red = imb.Raster.from_array(np.array([[[255, 0, 0]]], np.uint8))
    red.adjust_saturation(0.0)  # raw values: 255 * 0.3086 = 78.69 -> 79
    assert np.array_equal(np.asarray(red), [[[79, 79, 79]]])


@pytest.mark.parametrize("binary", [True, False])
def test_stream_form_round_trips(binary, tmp_path):
    px = np.arange(24, dtype=np.uint16).reshape(2, 3, 4) * 1000
    r = imb.Raster.from_array(px)
    r.black_white = (0.25, 0.75)
    r.save(tmp_path / "r.bin", binary)
    back = imb.Raster.load(tmp_path / "r.bin", binary)
    assert back.packing == P.RGBA and back.black_white == (0.25, 0.75)
    assert np.array_equal(np.asarray(back), px)
    text = imb.Raster.from_array(np.zeros((1, 2, 3), np.uint8)).to_bytes(binary=False)
    assert text.startswith(b"2 1 3 8 0 1 0\n") and text.endswith(b"end\n")


@pytest.mark.parametrize("call, error", [
    (lambda: imb.Raster(99, F.INT8, 1, 1), ValueError),
    (lambda: imb.Raster(P.RGB, F.UNDEFINED, 1, 1), ValueError),
    (lambda: imb.Raster(P.RGB, 1.5, 1, 1), TypeError),
    (lambda: imb.Raster(P.RGB, F.INT8, 0, 1), ValueError),
    (lambda: imb.Raster(P.RGBA, F.FLOAT32, 1 << 22, 1 << 22), MemoryError),  # 2**48 bytes
    (lambda: imb.Raster.from_array(np.zeros((2, 2), np.float64)), TypeError),
    (lambda: imb.Raster.from_array(np.zeros((2, 2, 2, 2), np.uint8)), ValueError),
    (lambda: imb.Raster.from_array(np.zeros((2, 2, 3), np.uint8), packing=P.RGBA), ValueError),
    (lambda: imb.Raster(P.RGB, F.INT8, 2, 2).get_pixel(2, 0), IndexError),
    (lambda: imb.Raster(P.RGB, F.INT8, 2, 2).set_pixel(0, 0, [1, 2]), ValueError),
    (lambda: imb.Raster(P.RGBA, F.INT8, 2, 2).premultiply(imb.Raster(P.SINGLE, F.INT8, 3, 2)), ValueError),
    (lambda: imb.Raster(P.RGB, F.INT8, 2, 2).premultiply(imb.Raster(P.SINGLE, F.INT8, 2, 2)), ValueError),
    (lambda: imb.Raster(P.RGB, F.INT8, 2, 2).clamp_alpha(), ValueError),
    (lambda: imb.Raster(P.RGB, F.INT8, 2, 2).insert(imb.Raster(P.RGB, F.INT16, 1, 1), 0, 0), ValueError),
    (lambda: imb.Raster(P.RGB, F.INT8, 2, 2).clear([1, 2, 300]), ValueError),
    (lambda: imb.Raster.from_bytes(b"\x02\0\0\0\x01\0\0\0\x07\0\0\0"), imb.Error),
])
def test_bad_arguments_and_failures_raise(call, error):
    with pytest.raises(error):
        call()


@pytest.mark.parametrize("packing", [P.RGBA, P.RGB_NI, P.UV], ids=lambda p: p.name)
def test_image_operations_follow_their_numpy_counterparts(packing):
    rng = np.random.default_rng(3)
    a = rng.uniform(-0.5, 2.0, (6, 9, packing.channels)).astype(np.float32)
    a[2, 3, 0] = np.nan
    r = imb.Raster.from_array(a, packing=packing)
    lo, hi = r.get_range()
    assert lo == tuple(np.nanmin(a, axis=(0, 1))) and hi == tuple(np.nanmax(a, axis=(0, 1)))

    # Without dithering: floor(x * 255 + 0.5) clamped (alpha likewise, no gamma).
    out = np.asarray(r.convert_8bit())
    want = np.clip(np.floor(np.nan_to_num(a) * np.float32(255) + np.float32(0.5)), 0, 255)
    assert out.dtype == np.uint8 and np.array_equal(out, want.astype(np.uint8))
    assert abs(float(np.asarray(r.convert_8bit(dither=imb.Dither.FLOYD_STEINBERG)).mean()) - float(want.mean())) < 0.5

    edge = np.pad(a[1:4, 2:7], ((1, 2), (2, 2), (0, 0)), mode="edge")
    r.streak_edges(2, 1, 5, 3)
    assert np.array_equal(np.asarray(r), edge, equal_nan=True)
    with pytest.raises(ValueError):
        r.streak_edges(9, 0, 2, 2)
    with pytest.raises(ValueError):
        r.convert_8bit(dither=7)
