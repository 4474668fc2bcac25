import os
import sys

import numpy as np
import pytest

import imb
from imb import ocio

LIN, SRGB = "Linear Rec.709 (sRGB)", "sRGB - Texture"


def srgb_to_linear(x):
    return np.where(x > 0.04045, ((x + 0.055) / 1.055) ** 2.4, x / 12.92)


def test_configuration_queries():
    assert ocio.config_path() == os.environ["OCIO"] and ocio.is_env_set()
    assert ocio.color_spaces() == [LIN, SRGB, "Gamma 2.4 Rec.709 - Texture", "Raw"]
    assert "scene_linear" in ocio.roles() and ocio.looks() == []
    assert ocio.displays() == ["sRGB"] and ocio.views("sRGB") == ["Standard", "Raw"]
    assert ocio.default_display() == "sRGB"
    assert ocio.display_view_color_space("sRGB", "Raw") == "Raw"
    assert ocio.well_known_spaces() == {"srgb": SRGB, "rec709": "Gamma 2.4 Rec.709 - Texture",
                                        "linear_rec709": LIN, "raw": "Raw", "file_default": LIN}
    info = ocio.space_info("srgb")  # an alias
    assert info["name"] == SRGB and info["allocation"] == "uniform" and not info["isdata"]
    assert ocio.space_info("no such space") is None
    assert ocio.parse_color_space("plate.exr") == LIN
    assert ocio.image_color_space(SRGB) == (imb.ColorSpace.SRGB, SRGB)
    assert ocio.image_color_space("gamma2.2") == (imb.ColorSpace.GAMMA2_2, "gamma2.2")  # not a space: a tag name
    assert ocio.tag_color_space(imb.ColorSpace.LINEAR) == LIN


def test_processors_transform_arrays_and_rasters_in_place():
    p = ocio.Processor(SRGB, LIN)
    assert p.is_valid and not p.is_3d and not p.is_noop
    x = np.linspace(0, 1, 300, dtype=np.float32)
    rgb = np.stack([x, x[::-1], x], axis=1)  # 300 pixels: the packed-image path
    p.apply(rgb)
    assert np.allclose(rgb, srgb_to_linear(np.stack([x, x[::-1], x], axis=1)), atol=1e-5)

    r = imb.Raster.from_array(np.full((2, 3, 4), 0.5, np.float32))
    p.apply(r)  # 6 pixels: pixel by pixel; alpha untouched
    assert np.allclose(np.asarray(r), [srgb_to_linear(0.5)] * 3 + [0.5], atol=1e-5)
    with pytest.raises(TypeError):
        p.apply(imb.Raster(imb.Packing.RGB, imb.Format.INT8, 2, 2))
    with pytest.raises(ValueError):
        p.apply(imb.Raster(imb.Packing.RGB_NI, imb.Format.FLOAT32, 2, 2))
    with pytest.raises(imb.Error, match="no processor"):
        ocio.Processor(SRGB, "no such space")


def test_reload_calls_back_and_makes_processors_stale(monkeypatch, capsys):
    raised = []
    monkeypatch.setattr(sys, "unraisablehook", lambda u: raised.append(u.exc_type))
    calls = []
    p = ocio.Processor(SRGB, LIN)
    ids = [ocio.add_change_callback(lambda: calls.append("a")),
           ocio.add_change_callback(lambda: 1 / 0),
           ocio.add_change_callback(ocio.reload)]  # would wait on itself inside the library
    ocio.reload()
    assert calls == ["a"] and raised == [ZeroDivisionError, RuntimeError]
    assert not p.is_valid
    with pytest.raises(imb.Error, match="stale"):
        p.apply(np.zeros((1, 3), np.float32))
    for i in ids:
        ocio.remove_change_callback(i)
    ocio.reload()
    assert calls == ["a"]

    # A configuration that fails to load: reload reports it on stderr, and
    # the library carries on without one.
    monkeypatch.setenv("OCIO", os.environ["OCIO"] + ".missing")
    ocio.reload()
    assert "OCIO config load error" in capsys.readouterr().err
    assert ocio.color_spaces() == []
    with pytest.raises(imb.Error):
        ocio.Processor(SRGB, LIN)
    monkeypatch.undo()
    ocio.reload()
    assert ocio.Processor(SRGB, LIN).is_valid
