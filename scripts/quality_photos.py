#!/usr/bin/env python3
"""Turns the files named in scripts/quality-labels.tsv into the photo folder that
scripts/quality runs vqfe over.

usage: quality_photos.py LABELS UNPACKED_DIR PHOTO_DIR

UNPACKED_DIR holds one folder per Debian package, unpacked with dpkg-deb -x. Each source
file is checked against the SHA-256 in the labels (a changed photo would no longer match
its labels), then copied as it is (JPEG, PNG) or converted to PNG: a NumPy array of 8-bit
grey levels in a .npz archive, or raw RGB bytes compressed with bzip2 (the 'raw-bz2:WxH'
form). Only the standard library is used.
"""
import bz2
import hashlib
import io
import ast
import os
import struct
import sys
import zipfile
import zlib

from quality_labels import read_labels


def png_bytes(width, height, channels, pixels):
    """An 8-bit PNG (grey or RGB) of row-major pixels."""
    colour_type = {1: 0, 3: 2}[channels]
    stride = width * channels
    raw = b"".join(b"\x00" + pixels[y * stride:(y + 1) * stride] for y in range(height))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8, colour_type, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")


def npy_grey(data):
    """Width, height and pixels of a 2-D uint8 .npy array."""
    if not data.startswith(b"\x93NUMPY"):
        raise ValueError("not a .npy array")
    major = data[6]
    size_format, offset = ("<H", 8) if major == 1 else ("<I", 10)
    (header_size,) = struct.unpack_from(size_format, data, offset)
    start = offset + struct.calcsize(size_format)
    header = ast.literal_eval(data[start:start + header_size].decode("latin-1"))
    if header["descr"] != "|u1" or header["fortran_order"] or len(header["shape"]) != 2:
        raise ValueError("expected a 2-D uint8 array, got %r" % (header,))
    height, width = header["shape"]
    pixels = data[start + header_size:]
    if len(pixels) != width * height:
        raise ValueError("array data is %d bytes, expected %d" % (len(pixels), width * height))
    return width, height, pixels


def convert(source, form):
    """The photo's bytes and file extension."""
    data = open(source, "rb").read()
    if form == "copy":
        return data, os.path.splitext(source)[1].lower()
    if form == "npz":
        with zipfile.ZipFile(io.BytesIO(data)) as archive:
            width, height, pixels = npy_grey(archive.read(archive.namelist()[0]))
        return png_bytes(width, height, 1, pixels), ".png"
    if form.startswith("raw-bz2:"):
        width, height = (int(v) for v in form.split(":", 1)[1].split("x"))
        pixels = bz2.decompress(data)
        if len(pixels) != width * height * 3:
            raise ValueError("%d bytes of RGB, expected %d" % (len(pixels), width * height * 3))
        return png_bytes(width, height, 3, pixels), ".png"
    raise ValueError("unknown form " + form)


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    labels, unpacked, photos = sys.argv[1:]
    os.makedirs(photos, exist_ok=True)
    for photo in read_labels(labels):
        source = os.path.join(unpacked, photo["package"], photo["path"].lstrip("/"))
        try:
            digest = hashlib.sha256(open(source, "rb").read()).hexdigest()
            if digest != photo["sha256"]:
                raise ValueError("SHA-256 %s, the labels were written for %s" % (digest, photo["sha256"]))
            data, extension = convert(source, photo["form"])
        except (OSError, ValueError, KeyError, zipfile.BadZipFile) as error:
            # The run goes on without it; the table lists the photo as not analysed.
            print("quality: skipping %s: %s" % (photo["name"], error), file=sys.stderr)
            continue
        with open(os.path.join(photos, photo["name"] + extension), "wb") as out:
            out.write(data)


if __name__ == "__main__":
    main()
