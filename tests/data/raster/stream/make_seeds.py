#!/usr/bin/env python3
# Writes the seed streams of fuzz_raster_stream into this folder. Each seed
# is one selector byte (0: binary form, 1: text form) and then the stream.
import os
import struct

here = os.path.dirname(os.path.abspath(__file__))


def binary(xres, yres, packing, fmt, comps, elem, values, black=0.0, white=1.0):
    head = struct.pack('<4i2fi', xres, yres, packing, fmt, black, white, 0)
    body = b''.join(struct.pack('<' + elem, v) for v in values[:comps * xres * yres])
    return b'\x00' + head + body


def uuencode(data):
    def ch(v):
        return chr(v + 32) if v else '`'
    out = 'begin 0 -\n'
    for i in range(0, len(data), 45):
        chunk = data[i:i + 45]
        line = chr(len(chunk) + 32)
        padded = chunk + b'\x00' * (-len(chunk) % 3)
        for k in range(0, len(padded), 3):
            t = (padded[k] << 16) | (padded[k + 1] << 8) | padded[k + 2]
            line += ''.join(ch((t >> s) & 63) for s in (18, 12, 6, 0))
        out += line + '\n'
    return out + '`\nend\n'


def text(xres, yres, pcode, fcode, data):
    return b'\x01' + ('%d %d %s %s 0 1 0\n' % (xres, yres, pcode, fcode)).encode() + \
        uuencode(data).encode() + b'end\n'


seeds = {
    'bin_rgb_int8.seed': binary(3, 2, 3, 0, 3, 'B', list(range(0, 250, 13))),
    'bin_rgba_float32.seed': binary(2, 2, 4, 3, 4, 'f', [0.5, 0.25, 1.0, 0.0, -1.0, 2.0, 0.75, 1.0] * 2),
    'bin_rgbani_float16.seed': binary(2, 1, 6, 4, 1, 'H', [0x3c00, 0x3800]),
    'bin_single_int32.seed': binary(2, 2, 0, 2, 1, 'I', [0, 1, 0xffffffff, 12345]),
    'bin_dual_int16.seed': binary(1, 2, 1, 1, 3, 'H', [1, 2, 3, 65535, 0, 7]),
    'text_rgb_int8.seed': text(2, 1, '3', '8', bytes([0, 1, 2, 250, 128, 255])),
    'text_rgbni_int16.seed': text(2, 2, '30', '16', bytes(range(24))),
    'text_single_float32.seed': text(4, 3, '1', '321', struct.pack('<12f', *[i / 7 for i in range(12)])),
}
for name, data in seeds.items():
    with open(os.path.join(here, name), 'wb') as f:
        f.write(data)
