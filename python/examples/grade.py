#!/usr/bin/env python3
"""Grades an image through libIMB: a colour table baked from the colour
configuration, premultiplication and a luma image.

    grade.py INPUT OUTPUT [--to SPACE] [--from SPACE] [--saturation S] [--luma PATH]

The image is read with OpenImageIO's Python module into a numpy array,
converted to a float raster (imb.fill), mapped by a table baked from the
transform between two colour spaces of $OCIO (the project's
share/ocio/config.ocio when $OCIO is unset), premultiplied when it has alpha,
and written in the output's format: 8 bit for PNG, JPEG and TIFF, half float
for EXR. A luma image (imb.luma) is written beside it.
"""

import argparse
import os
import pathlib
import sys

import numpy as np

HERE = pathlib.Path(__file__).resolve().parent
os.environ.setdefault("OCIO", str(HERE.parents[1] / "share" / "ocio" / "config.ocio"))

import OpenImageIO as oiio  # noqa: E402
import imb  # noqa: E402

READABLE = {"uint8", "uint16", "half", "float"}
PACKINGS = {1: imb.Packing.SINGLE, 2: imb.Packing.UV, 3: imb.Packing.RGB, 4: imb.Packing.RGBA}


def read(path):
    """The image's pixels as a (height, width, channels) array, and its ImageSpec."""
    buf = oiio.ImageBuf(str(path))
    if buf.has_error:
        sys.exit(f"grade: cannot open {path}: {buf.geterror()}")
    desc = buf.nativespec()
    fmt = str(desc.format) if str(desc.format) in READABLE else "float"
    pixels = buf.get_pixels(fmt)
    if buf.has_error or pixels is None:
        sys.exit(f"grade: cannot read {path}: {buf.geterror()}")
    if desc.nchannels not in PACKINGS:
        sys.exit(f"grade: {path} has {desc.nchannels} channels; 1 to 4 are supported")
    return pixels.reshape(desc.height, desc.width, desc.nchannels), desc


def write(path, raster_or_array, channels, space):
    """Writes pixels in the format the extension calls for, converting with imb.fill."""
    eight_bit = pathlib.Path(path).suffix.lower() in (".png", ".jpg", ".jpeg", ".tif", ".tiff")
    src = np.asarray(raster_or_array)
    out = np.zeros(src.shape[:2] + (len(channels),), np.uint8 if eight_bit else np.float16)
    imb.fill.convert(src.reshape(out.shape), out)
    desc = oiio.ImageSpec(out.shape[1], out.shape[0], out.shape[2], "uint8" if eight_bit else "half")
    desc.channelnames = channels
    desc.attribute("oiio:ColorSpace", space)
    output = oiio.ImageOutput.create(str(path))
    if output is None or not output.open(str(path), desc) or not output.write_image(out):
        sys.exit(f"grade: cannot write {path}: {oiio.geterror()}")
    output.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("input")
    parser.add_argument("output")
    parser.add_argument("--from", dest="src", help="colour space of the input (default: from the file)")
    parser.add_argument("--to", dest="dst", help="colour space of the output (default: the sRGB space)")
    parser.add_argument("--saturation", type=float, default=1.0, help="saturation scale (default 1)")
    parser.add_argument("--luma", help="where to write the luma image (default: OUTPUT with _luma)")
    args = parser.parse_args()

    pixels, desc = read(args.input)
    height, width, nchannels = pixels.shape
    # The file's colour-space attribute ("sRGB", "Linear", ...) read as a
    # space of the configuration, or as a tag name when it is none.
    _, src = imb.ocio.image_color_space(args.src or desc.get_string_attribute("oiio:ColorSpace") or "linear")
    dst = args.dst or imb.ocio.well_known_spaces()["srgb"]
    if imb.ocio.space_info(src) is None:
        src = imb.ocio.well_known_spaces()["linear_rec709"]

    raster = imb.Raster(PACKINGS[nchannels], imb.Format.FLOAT32, width, height)
    imb.fill.convert(pixels, raster)
    table = imb.Lookup.from_colorspaces(src, dst)
    table.apply(raster)
    if args.saturation != 1.0:
        raster.adjust_saturation(args.saturation)
    if raster.has_alpha:
        raster.premultiply()
    luma = imb.luma.convert(raster, imb.LumFunction.WEIGHTED)

    out = pathlib.Path(args.output)
    luma_path = args.luma or out.with_name(out.stem + "_luma" + out.suffix)
    write(out, raster, list(desc.channelnames), dst)
    write(luma_path, luma, ["Y"], dst)
    print(f"{args.input}: {width}x{height}x{nchannels} {src} -> {dst} "
          f"({'cube %d' % table.cube_size if table.cube_size else '%d-sample tables' % table.table_size}); "
          f"wrote {out} and {luma_path}; mean luma {float(luma.mean()):.4f}")


if __name__ == "__main__":
    main()
