#!/usr/bin/env python3
"""Writes a korvid model bundle: several files under one model name.
usage: bundle.py OUT NAME=FILE ...
A part NAME=@MODEL/PART names another model's part instead of carrying bytes
(src/model/model_reference.h)."""
import os
import sys


def main():
    out, parts = sys.argv[1], [a.split("=", 1) for a in sys.argv[2:]]
    tmp = out + ".tmp"
    with open(tmp, "wb") as f:
        f.write(b"korvid-bundle\n")
        for name, path in parts:
            if path.startswith("@"):
                data = b"korvid-ref\n%s\n" % path[1:].encode()
            else:
                data = open(path, "rb").read()
            f.write(b"%s %d\n" % (name.encode(), len(data)))
            f.write(data)
    os.replace(tmp, out)


if __name__ == "__main__":
    main()
