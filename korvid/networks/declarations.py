#!/usr/bin/env python3
"""Writes the C++ header of the networks' declarations from networks.json, so that the
converter, the reference scripts and the framework's network wrappers read one declaration
of each network: its input size, channels, channel order, scale and offset (network value =
pixel * scale + offset, per input plane: one number for all planes or a list), its output
names and the runtime tried first ("runtime": "dnnl", the default, or "xnnpack").

usage: declarations.py NETWORKS.json OUT.h
"""
import json
import os
import re
import sys


def per_plane(value, channels, what, model):
    values = value if isinstance(value, list) else [value] * channels
    if len(values) != channels:
        sys.exit("declarations: %s of %s needs %d values" % (what, model, channels))
    return values + [values[-1]] * (3 - channels)


def cpp_number(v):
    return repr(float(v))


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__.strip().splitlines()[-1])
    spec = json.load(open(sys.argv[1]))
    lines = ["// Generated at build time by korvid/networks/declarations.py from korvid/networks/networks.json:",
             "// each network's input and output names, declared once there. Do not edit.",
             "#pragma once", "", '#include "model/network_input.h"', "", "namespace kv::declared {", ""]
    networks = spec["networks"] + spec["weights_package"]["networks"] + spec["layers_package"]["networks"]
    for net in networks:
        model, inp = net["model"], net["input"]
        if not re.fullmatch(r"[A-Za-z_][A-Za-z0-9_]*", model):
            sys.exit("declarations: model name %r is no C++ name" % model)
        channels = inp.get("channels", 3)
        order = inp.get("order", "rgb")
        if order not in ("rgb", "bgr") or channels not in (1, 3):
            sys.exit("declarations: %s: channels 1 or 3, order rgb or bgr" % model)
        scale = per_plane(inp["scale"], channels, "scale", model)
        offset = per_plane(inp["offset"], channels, "offset", model)
        runtime = net.get("runtime", "dnnl")
        if runtime not in ("dnnl", "xnnpack"):
            sys.exit("declarations: %s: runtime dnnl or xnnpack" % model)
        lines.append("inline constexpr NetworkInput %s{\"%s\", %d, %d, %d, %s, {%s}, {%s}, %s};" % (
            model, model, channels, inp["height"], inp["width"], "true" if order == "bgr" else "false",
            ", ".join(map(cpp_number, scale)), ", ".join(map(cpp_number, offset)),
            "true" if runtime == "xnnpack" else "false"))
        lines.append("namespace %s_out {" % model)
        for name in net["outputs"]:
            lines.append("inline constexpr char %s[] = \"%s\";" % (name, name))
        lines.append("}  // namespace %s_out" % model)
        lines.append("")
    lines.append("// Every declared network, in the order of networks.json.")
    lines.append("inline constexpr const NetworkInput* kAll[] = {%s};" % ", ".join(
        "&" + n["model"] for n in networks))
    lines.append("")
    lines.append("}  // namespace kv::declared")
    text = "\n".join(lines) + "\n"
    out = sys.argv[2]
    with open(out + ".tmp", "w") as f:
        f.write(text)
    os.replace(out + ".tmp", out)


if __name__ == "__main__":
    main()
