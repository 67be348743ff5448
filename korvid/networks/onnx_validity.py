#!/usr/bin/env python3
"""Checks every network of the model directory with ONNX's own checker (full check: strict
shape inference at the opset each model declares): each network networks.json names, and
each binary part of every bundle (bundle.py's format; text parts are parameter files,
cascades and label tables). Prints one line per network, exits 1 when any fails.

usage: onnx_validity.py NETWORKS.json MODEL_DIR
"""
import json
import os
import sys

import onnx


def bundle_parts(data):
    """(name, bytes) of each part of a bundle, or None when data is not one."""
    magic = b"korvid-bundle\n"
    if not data.startswith(magic):
        return None
    parts, at = [], len(magic)
    while at < len(data):
        end = data.index(b"\n", at)
        name, size = data[at:end].decode().split(" ")
        at = end + 1 + int(size)
        parts.append((name, data[end + 1:at]))
    return parts


def is_text(data):
    try:
        data.decode("utf-8")
        return True
    except UnicodeDecodeError:
        return False


def check(label, data):
    try:
        model = onnx.load_from_string(data)
        onnx.checker.check_model(model, full_check=True)
        opset = max(o.version for o in model.opset_import if o.domain in ("", "ai.onnx"))
        print("ok   %s (opset %d, %d nodes)" % (label, opset, len(model.graph.node)))
        return True
    except Exception as e:  # the checker raises several types; each is a failure here
        print("FAIL %s: %s" % (label, str(e).strip().splitlines()[0] if str(e).strip() else type(e).__name__))
        return False


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__.strip().splitlines()[-1])
    spec = json.load(open(sys.argv[1]))
    model_dir = sys.argv[2]
    names = [n["model"] for n in spec["networks"] + spec["weights_package"]["networks"] + spec["layers_package"]["networks"]]
    failed = checked = 0
    for name in names:
        path = os.path.join(model_dir, name + ".model")
        data = open(path, "rb").read() if os.path.exists(path) else b""
        checked += 1
        failed += not check(name, data)
    for file in sorted(os.listdir(model_dir)):
        if not file.endswith(".model"):
            continue
        parts = bundle_parts(open(os.path.join(model_dir, file), "rb").read())
        for part, data in parts or []:
            if not is_text(data):
                checked += 1
                failed += not check("%s/%s" % (file[:-len(".model")], part), data)
    print("%d networks checked, %d failed" % (checked, failed))
    sys.exit(1 if failed or not checked else 0)


if __name__ == "__main__":
    main()
