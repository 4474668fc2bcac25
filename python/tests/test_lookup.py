import threading

import numpy as np
import pytest

import imb
from imb import Lookup, LookupType as T

F, P = imb.Format, imb.Packing


def srgb_decode(x):
    # The library's decode threshold is 0.004045, not 0.04045 (kept).
    return np.where(x > 0.004045, ((x + 0.055) / 1.055) ** 2.4, x / 12.92)


@pytest.mark.parametrize("build, curve", [
    (lambda: Lookup.gamma(2.2), lambda x: x ** (1 / 2.2)),
    (lambda: Lookup.gamma(2.2, inverse=True), lambda x: x ** 2.2),
    (lambda: Lookup.srgb(), lambda x: np.where(x > 0.0031308, 1.055 * x ** (1 / 2.4) - 0.055, 12.92 * x)),
    (lambda: Lookup.srgb(inverse=True), srgb_decode),
    (lambda: Lookup.rec709(), lambda x: np.where(x >= 0.018, 1.099 * x ** 0.45 - 0.099, 4.5 * x)),
    (lambda: Lookup.rec709(inverse=True), lambda x: np.where(x >= 0.081, ((x + 0.099) / 1.099) ** (1 / 0.45), x / 4.5)),
])
def test_builders_sample_their_curves(build, curve):
    lut = build()
    assert lut.type == T.C and lut.tables.shape == (3, 1024)
    x = np.arange(1024) / 1023
    assert np.allclose(lut.tables[0], curve(x), rtol=1e-14, atol=0)


def test_eval_positions_ignore_the_domain_unless_log_sampled():
    n = 64
    lut = Lookup.from_tables(np.arange(n, dtype=float))
    lut.range = (0, 10)
    lut.domain = (0.5, 1)  # not used without log sampling
    assert lut.eval(0.5) == pytest.approx((31.5 - 0) / 10)
    lut.log_sampling = True
    lut.domain = (1, 100)
    # Log sampling places x at n (ln x - ln min) / (ln max - ln min): the
    # factor n, not n - 1, is kept.
    assert lut.eval(10.0) == pytest.approx(n / 2 / 10, rel=1e-6)
    assert np.allclose(lut.eval(np.array([1.0, 10.0])), [0, n / 2 / 10], rtol=1e-6)
    assert lut.eval(0.3, T.A) == pytest.approx(0.0)  # ALL serves alpha too


def reference_1d(tables, x, dmin=np.float32(0), dmax=np.float32(1)):
    """The 1D kernels' rule in float32: clamp to the domain (NaN reads the
    minimum), position over n - 1 samples, linear interpolation."""
    t = tables.astype(np.float32)
    last = t.shape[-1] - 1
    x = np.where(np.isnan(x), dmin, np.clip(x, dmin, dmax)).astype(np.float32)
    pos = (x - dmin) * np.float32(last / (dmax - dmin))
    i = np.minimum(pos.astype(np.int64), last)
    j = np.minimum(i + 1, last)
    ti, tj = np.take(t, i), np.take(t, j)
    return np.where(i < last, ti + (tj - ti) * (pos - i.astype(np.float32)), ti)


@pytest.fixture
def rgb_table():
    x = np.linspace(0, 1, 4096)
    return np.stack([x ** 0.45, x ** 2, np.sqrt(x)])


def test_apply_maps_float_and_integer_rasters_by_the_kernel_rule(rgb_table):
    lut = Lookup.from_tables(rgb_table)
    rng = np.random.default_rng(2)
    px = rng.uniform(-0.2, 1.2, (30, 40, 4)).astype(np.float32)
    px[0, 0, :3] = np.nan
    r = imb.Raster.from_array(px)
    lut.apply(r)
    got = np.asarray(r)
    for c in range(3):
        assert np.array_equal(got[..., c], reference_1d(rgb_table[c], px[..., c]))
    assert np.array_equal(got[..., 3], px[..., 3])  # no alpha table

    px8 = rng.integers(0, 256, (30, 40, 4)).astype(np.uint8)
    r8 = imb.Raster.from_array(px8)
    lut.apply(r8)
    for c in range(3):
        v = reference_1d(rgb_table[c], px8[..., c].astype(np.float32) * np.float32(0.003921569))
        assert np.array_equal(np.asarray(r8)[..., c], np.clip(np.floor(v * np.float32(255) + np.float32(0.5)), 0, 255))


def test_apply_cubes_and_single_channels():
    g = np.linspace(0, 1, 5, dtype=np.float32)
    b, gg, r = np.meshgrid(g, g, g, indexing="ij")
    lut = Lookup.from_cube(np.stack([1 - r, 1 - gg, 1 - b], axis=-1))  # linear, so trilinear is exact
    px = np.array([[[0.1, 0.6, 0.3, 0.5], [np.nan, 0.5, 0.5, 1.0]]], np.float32)
    r = imb.Raster.from_array(px)
    lut.apply(r)
    got = np.asarray(r)
    assert np.allclose(got[0, 0], [0.9, 0.4, 0.7, 0.5], atol=1e-6)
    assert np.array_equal(got[0, 1], px[0, 1], equal_nan=True)  # a NaN pixel stays
    wide = imb.Raster.from_array(np.full((1, 1, 3), 7, np.uint32))
    lut.apply(wide)  # cubes leave 32-bit integer rasters unchanged (kept)
    assert (np.asarray(wide) == 7).all()

    r = imb.Raster.from_array(np.array([[[0.1, 0.2, 0.3, 0.25]]], np.float32))
    square = Lookup.from_tables(np.linspace(0, 1, 4097) ** 2)  # ALL: serves alpha too
    square.apply(r, channel=3)
    assert np.allclose(np.asarray(r)[0, 0], [0.0625] * 4)  # alpha mapped, then copied into R, G, B
    Lookup.gamma(0.5).apply(r, channel=3)
    assert np.allclose(np.asarray(r)[0, 0], [0.0625] * 4)  # C has no alpha table: only the copy runs


def test_two_threads_applying_tables_give_the_pixels_of_one(rgb_table):
    rng = np.random.default_rng(3)
    src = [rng.uniform(0, 1, (400, 300, 4)).astype(np.float32) for _ in range(2)]
    luts = [Lookup.from_tables(rgb_table), Lookup.srgb(inverse=True)]
    alone = [imb.Raster.from_array(s) for s in src]
    for lut, r in zip(luts, alone):
        lut.apply(r)
    together = [imb.Raster.from_array(s) for s in src]
    start = threading.Barrier(2)

    def run(lut, r):
        start.wait()
        lut.apply(r)

    threads = [threading.Thread(target=run, args=args) for args in zip(luts, together)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for a, b in zip(alone, together):
        assert np.array_equal(np.asarray(a), np.asarray(b))


def test_tables_survive_both_file_forms(tmp_path, rgb_table):
    lut = Lookup.from_tables(rgb_table[:, ::16])
    lut.save(tmp_path / "t.lut")
    text = Lookup.load(tmp_path / "t.lut")
    assert text.type == T.RGB and np.allclose(text.tables, lut.tables, rtol=1e-5)
    lut.log_sampling, lut.domain, lut.log_bias = True, (0.01, 1), 3.0
    lut.save(tmp_path / "t.blut", half=True)
    binary = Lookup.load(tmp_path / "t.blut")
    assert binary.is_half and binary.log_sampling and binary.log_bias == 3.0  # only the binary form keeps it
    assert np.array_equal(binary.tables, lut.tables.astype(np.float16))

    (tmp_path / "bad.lut").write_text("Version 1\nFormat i9\nLUT:\n")
    with pytest.raises(imb.Error, match="Bad format 'i9' at line 2"):
        Lookup.load(tmp_path / "bad.lut")
    with pytest.raises(imb.Error):
        Lookup.load(tmp_path / "t.txt")


def test_invert_and_merge():
    lut = Lookup.gamma(2.0, size=256)
    lut.specific_format = F.INT8
    lut.invert()
    t = lut.tables[0]
    assert t[0] == 0 and t[-1] == 1.0 and lut.domain == (0, 1)
    identity = Lookup.merged(Lookup.gamma(2.2), Lookup.gamma(2.2, inverse=True))
    x = np.linspace(0.05, 1, 20, dtype=np.float32)
    assert np.allclose(identity.eval(x), x, atol=2e-3)


def test_tables_from_colour_spaces():
    lut = Lookup.from_colorspaces("sRGB - Texture", "Linear Rec.709 (sRGB)")
    assert lut.type == T.RGB and lut.table_size == 8192
    x = np.linspace(0, 1, 50, dtype=np.float32)
    expected = np.where(x > 0.04045, ((x + 0.055) / 1.055) ** 2.4, x / 12.92)
    assert np.allclose(lut.eval(x, T.G), expected, atol=1e-4)
    with pytest.raises(imb.Error, match="no colour transform"):
        Lookup.from_colorspaces("sRGB - Texture", "no such space")


@pytest.mark.parametrize("call, error", [
    (lambda: Lookup.gamma(2.2, size=1), ValueError),
    (lambda: Lookup.gamma(0.0), ValueError),
    (lambda: Lookup.srgb().eval(0.5, T.RGB), ValueError),
    (lambda: Lookup.srgb().eval("x"), TypeError),
    (lambda: Lookup.srgb().apply(imb.Raster(P.RGB, F.INT8, 1, 1), channel=4), ValueError),
    (lambda: Lookup.from_cube(np.zeros((4, 4, 3, 3))), ValueError),
    (lambda: Lookup.from_tables(np.zeros((2, 8))), ValueError),
    (lambda: Lookup.merged(Lookup(), Lookup.srgb()), ValueError),
    (lambda: Lookup.load("/nonexistent/t.lut"), imb.Error),
])
def test_bad_arguments_and_failures_raise(call, error):
    with pytest.raises(error):
        call()
