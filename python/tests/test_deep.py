import gc
import threading

import numpy as np
import pytest

import imb
from imb import deep


@pytest.fixture
def channels():
    return deep.ChannelList([("C", 3), ("Of", 3), ("id", 1, True)])


def samples(channels, z, colour, opacity, ids=None):
    lst = deep.SampleList(channels, len(z))
    lst.zfront[:] = z
    lst.zback[:] = z
    lst.channel("C")[:] = colour
    lst.channel("Of")[:] = opacity
    if ids is not None:
        lst.channel("id")[:] = ids
    return lst


def test_channel_lists_lay_out_tuples_and_freeze_once_shared(channels):
    assert [channels[i] for i in range(3)] == [("C", 3, 0, False), ("Of", 3, 3, False), ("id", 1, 6, True)]
    assert channels.total_size == 7 and channels.max_size == 3 and channels.find("Of") == 1
    assert channels != deep.ChannelList([("Of", 3), ("C", 3), ("id", 1, True)])
    fresh = deep.ChannelList()
    fresh.add_channel("a", 2)
    lst = deep.SampleList(fresh, 1)
    with pytest.raises(ValueError):
        fresh.add_channel("b", 1)
    del lst


def test_planes_are_views_that_keep_their_list(channels):
    lst = samples(channels, [1, 2], [[0.1, 0.2, 0.3], [0.4, 0.5, 0.6]], [[0.5] * 3, [1.0] * 3])
    colour = lst.channel("C")
    colour[1, 2] = 0.75
    assert '"ch.C",[0.1,0.2,0.3,0.4,0.5,0.75]' in lst.to_json()
    z = lst.zfront
    del lst
    gc.collect()
    assert z.base is not None and list(z) == [1, 2]


def test_composite_runs_front_to_back_and_uncomposite_undoes_it(channels):
    rng = np.random.default_rng(4)
    colour = rng.uniform(0, 1, (4, 3)).astype(np.float32)
    opacity = rng.uniform(0, 0.9, (4, 3)).astype(np.float32)
    lst = samples(channels, [1, 2, 3, 4], colour, opacity)
    lst.composite("Of")
    # Per-component opacity: V[i] = (1 - A[i-1]) V[i] + V[i-1], the opacity
    # channel first, then the others with the composited opacity.
    a, c = opacity.copy(), colour.copy()
    for i in range(1, 4):
        a[i] = (1 - a[i - 1]) * a[i] + a[i - 1]
        c[i] = (1 - a[i - 1]) * c[i] + c[i - 1]
    assert lst.composited
    assert np.allclose(lst.channel("Of"), a, rtol=1e-6) and np.allclose(lst.channel("C"), c, rtol=1e-6)
    lst.uncomposite("Of")
    assert not lst.composited and np.allclose(lst.channel("C"), colour, rtol=1e-5)
    assert lst.find_full_opacity("Of", 0.99) == 4
    with pytest.raises(ValueError):
        lst.composite("Alpha")
    with pytest.raises(TypeError):
        lst.channel(1.5)
    with pytest.raises(TypeError):
        deep.ChannelList([("C", "3")])


def test_the_accumulator_sorts_by_id_and_depth_and_closes_without_the_gil(channels):
    px = deep.DeepPixel(channels, 4)
    px.start(3, 5)
    px.store(2.0, 2.0, [0] * 7, id=2)
    px.store(1.0, 1.0, [0] * 7, id=2)
    out = px.close()
    assert list(out.zfront) == [1, 2] and list(out.coverage) == [0x0000FFFF00000000] * 2
    assert not px.is_open and px.close() is None

    one = deep.DeepPixel(channels, 1)
    one.start(0, 0)
    rng = np.random.default_rng(5)
    z = [rng.permutation(500).astype(np.float32) for _ in range(2)]

    def store(zs):
        one.store_samples(zs, zs, np.zeros((500, 7), np.float32))

    threads = [threading.Thread(target=store, args=(zs,)) for zs in z]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    merged = one.close(deep.Compressor("null", channels))
    assert np.array_equal(merged.zfront, np.sort(np.concatenate(z)))

    with pytest.raises(ValueError):
        px.store(1.0, 1.0, [0] * 6)
    with pytest.raises(ValueError):
        px.store(1.0, 1.0, [0] * 7, id=4)
    for _ in range(4):
        px.store_list(out)
    with pytest.raises(ValueError):
        px.store_list(out)


def test_compressors_and_filters(channels):
    assert {"default", "mip", "null", "simple"} <= set(deep.compressor_names())
    a = samples(channels, [1, 3], [[1] * 3] * 2, [[0.5] * 3] * 2)
    b = samples(channels, [2, 4, 5], [[2] * 3] * 3, [[0.5] * 3] * 3)
    null = deep.Compressor("null", channels)
    assert null.compress(a) is a
    assert list(null.merge([a, None, b]).zfront) == [1, 2, 3, 4, 5]
    assert deep.Compressor("mip", channels, zbias=-1.0).name == "simple"
    with pytest.raises(ValueError):
        deep.Compressor("no such compressor", channels)

    mono = deep.Filter.monochrome("C")
    with pytest.raises(ValueError):
        mono.apply(a)  # before update_channels
    out_channels = mono.update_channels(channels)
    assert out_channels[0] == ("C", 1, 0, False) and mono.filtered_tuple_size("C", 3) == 1
    c = samples(channels, [1], [[0.25, 0.5, 0.75]], [[1] * 3])
    assert list(mono.apply(c).channel("C")) == [0.5]
    pre = deep.Filter.precomposite("Of")
    pre.update_channels(channels)
    c.composited = True
    assert pre.apply(c) is c
    with pytest.raises(ValueError):
        pre.apply(deep.SampleList(deep.ChannelList([("C", 3)]), 1))


def test_json_form_round_trips_and_reports_problems(channels):
    lst = samples(channels, [1, 2], [[0.1] * 3, [0.2] * 3], [[0.5] * 3] * 2, ids=[7, 8])
    lst.flags[1] = 1
    back = deep.loads(deep.dumps(lst), channels)
    for plane in ("zfront", "zback", "flags", "coverage"):
        assert np.array_equal(getattr(back, plane), getattr(lst, plane))
    assert np.array_equal(back.channel("id"), [7, 8])
    assert deep.dumps(None) == "[]"
    with pytest.warns(deep.JSONWarning, match="Unknown channel: X"):
        deep.loads('["sampleCount",1,"ch.X",[1]]', channels)
    with pytest.raises(imb.Error, match="Missing deep sample count for list"):
        deep.loads('["composited",false,"sampleCount",0]', channels)
    with pytest.raises(MemoryError):
        deep.SampleList(channels, 2**31 - 1)
