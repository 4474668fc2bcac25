#!/usr/bin/env python3
"""What the Python module costs over the library called from C++.

    bench/python.py [--build BUILD] [--rounds N]

Two cases, each printed as a JSON line with the house counters:

  apply1d_float_rgba/threads:all
                      Lookup.apply of a 4096-sample RGB table to a 3840x2160
                      RGBA float32 raster from Python, against the same call
                      from C++ (imb_bench_lookup's BM_Apply1DFloatRGBA on all
                      threads, the same table and image) as vs_peer, and a
                      numpy copy of the raster's bytes split into a band of
                      rows per processor, copied at once on as many threads,
                      as vs_memcpy. Lookup.apply runs on the library's pool.
  asarray_view/threads:1/WxH
                      numpy.asarray(raster) for rasters from 16x16 to
                      3840x2160, against numpy.asarray of a memoryview of a
                      numpy array of the same shape (numpy's own exporter) as
                      vs_peer. A view copies nothing, so this case reports the
                      time per call instead of bytes per second.

Timings on a shared machine are noisy: the rounds alternate between the
Python and the C++ measurements and the minimum of each is kept. Needs a
build with IMB_BUILD_BENCH and IMB_BUILD_PYTHON, and the interpreter the
module was built for (/usr/bin/python3 on Debian).
"""

import argparse
import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys
import time
import timeit

ROOT = pathlib.Path(__file__).resolve().parents[1]
W, H, LEN = 3840, 2160, 4096


def parse():
    p = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    p.add_argument("--build", default=str(ROOT / "build"), help="the build folder (default: build)")
    p.add_argument("--rounds", type=int, default=5, help="alternating rounds (default 5)")
    return p.parse_args()


ARGS = parse()
sys.path.insert(0, str(pathlib.Path(ARGS.build) / "python"))
import numpy as np  # noqa: E402
import imb  # noqa: E402


def table():
    # bench/lookup.cpp's table: three gamma-like curves, rounded to float.
    x = np.arange(LEN, dtype=np.float64) / (LEN - 1)
    curves = [x ** (1 / 2.2), x ** (1 / 1.8), x ** 2.0]
    return imb.Lookup.from_tables(np.stack(curves).astype(np.float32).astype(np.float64))


def cpp_apply(bench):
    """One run of the C++ case: its mean time per call in ms, and its number
    of calls."""
    out = subprocess.run([str(bench), "--benchmark_filter=^BM_Apply1DFloatRGBA/threads:all/",
                          "--benchmark_format=json"],
                         check=True, capture_output=True, text=True)
    run = json.loads(out.stdout)["benchmarks"][0]
    assert run["time_unit"] == "ms"
    return run["real_time"], run["iterations"]


def python_apply_ms(lut, pixels, calls):
    """The C++ case from Python: the mean time per call in ms of `calls`
    applications of the table, each to the same pixels restored untimed
    through the raster's numpy view, as the C++ case restores them."""
    raster = imb.Raster.from_array(pixels)
    view = np.asarray(raster)
    total = 0.0
    for _ in range(calls):
        np.copyto(view, pixels)
        start = time.perf_counter()
        lut.apply(raster)
        total += time.perf_counter() - start
    return total / calls * 1e3


def banded_copy_ms(pool, copy, pixels, bands):
    """A copy of `pixels` into `copy`, a band of rows per thread at once (numpy
    lets go of the interpreter lock while it copies), in ms."""
    edges = [H * i // bands for i in range(bands + 1)]
    start = time.perf_counter()
    list(pool.map(lambda i: np.copyto(copy[edges[i]:edges[i + 1]], pixels[edges[i]:edges[i + 1]]), range(bands)))
    return (time.perf_counter() - start) * 1e3


def main():
    bench = pathlib.Path(ARGS.build) / "bench" / "imb_bench_lookup"
    if not bench.exists():
        sys.exit(f"{bench} is missing: build with -DIMB_BUILD_BENCH=ON")
    pixels = np.random.default_rng(1).uniform(0, 1, (H, W, 4)).astype(np.float32)
    copy = np.empty_like(pixels)
    lut = table()
    python_apply_ms(lut, pixels, 1)  # start the thread pool

    # The pool has a thread per processor this process may run on.
    bands = len(os.sched_getaffinity(0))
    py, cpp, mem = [], [], []
    with concurrent.futures.ThreadPoolExecutor(bands) as pool:
        for _ in range(ARGS.rounds):
            ms, calls = cpp_apply(bench)
            cpp.append(ms)
            py.append(python_apply_ms(lut, pixels, calls))
            mem.append(min(banded_copy_ms(pool, copy, pixels, bands) for _ in range(5)))
    best = min(py)
    print(json.dumps({"name": "apply1d_float_rgba/threads:all", "python_ms": round(best, 3),
                      "cpp_ms": round(min(cpp), 3),
                      "bytes_per_second": pixels.nbytes / (best / 1e3),
                      "vs_peer": best / min(cpp), "vs_memcpy": best / min(mem)}))

    for w, h in [(16, 16), (640, 480), (W, H)]:
        r = imb.Raster(imb.Packing.RGBA, imb.Format.FLOAT32, w, h, clear=False)
        peer = np.empty((h, w, 4), np.float32)
        mine = min(timeit.repeat(lambda: np.asarray(r), number=20000, repeat=ARGS.rounds)) / 20000
        theirs = min(timeit.repeat(lambda: np.asarray(memoryview(peer)), number=20000, repeat=ARGS.rounds)) / 20000
        print(json.dumps({"name": f"asarray_view/threads:1/{w}x{h}", "us_per_call": round(mine * 1e6, 3),
                          "vs_peer": mine / theirs}))


if __name__ == "__main__":
    main()
