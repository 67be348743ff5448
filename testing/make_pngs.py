#!/usr/bin/env python3
"""Writes COUNT distinct small RGB PNGs (imgNNN.png, SIDE x SIDE) and one file that is no
image (corrupt.png) into DIR, with nothing but the standard library.

usage: make_pngs.py DIR COUNT [SIDE]"""
import os
import struct
import sys
import zlib


def chunk(kind, data):
    body = kind + data
    return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))


def main():
    out, count = sys.argv[1], int(sys.argv[2])
    side = int(sys.argv[3]) if len(sys.argv) > 3 else 48
    os.makedirs(out, exist_ok=True)
    for i in range(count):
        rows = b"".join(
            b"\0" + bytes(v for x in range(side) for v in ((x * i) % 256, (y * 7 + i) % 256, (x + y + 3 * i) % 256))
            for y in range(side))
        png = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", side, side, 8, 2, 0, 0, 0))
        png += chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")
        with open(os.path.join(out, "img%03d.png" % i), "wb") as f:
            f.write(png)
    with open(os.path.join(out, "corrupt.png"), "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n but nothing after the signature")


main()
