#!/usr/bin/env python3
"""Converts a TensorFlow.js graph model (model.json + weight shards) to ONNX for OpenCV DNN.

Only the part of the graph between one input tensor and the named output tensors is
converted; post-processing at the end of a network (arg-max, gathers) is done in C++.
Inside, the ONNX graph runs channels-first (what OpenCV's convolutions want): the input is
NCHW float, 4-D outputs are transposed back to the TF layout (NHWC) so that they compare
element by element with the reference runtime, other outputs keep TF's shape. Graphs that
were themselves exported from ONNX (channels-first tensors with a transpose around every
convolution) take an NCHW input; their transposes then cost nothing, and their shape
arithmetic on constants is folded here.

usage: tfjs_to_onnx.py convert MODEL.json OUT.onnx --input NODE:H,W --output NAME=NODE ...
       tfjs_to_onnx.py all NETWORKS.json MODELS_DIR OUT_DIR
"""
import argparse
import json
import os
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import onnx_graph  # noqa: E402

DTYPES = {"float32": np.float32, "int32": np.int32, "bool": np.bool_}
TO_NCHW = [0, 3, 1, 2]
TO_NHWC = [0, 2, 3, 1]


class ConversionError(Exception):
    pass


# What a converter reports as "<tool>: <reason>" rather than as a traceback.
CONVERSION_FAILURES = (ConversionError, KeyError, ValueError, OSError)


def convert_section(networks_json, section, models_dir, out_dir, convert_net):
    """Converts every network listed under networks.json's section (None: the top level)
    with convert_net(net, models_dir, out), out being OUT_DIR/<model>.model."""
    os.makedirs(out_dir, exist_ok=True)
    declared = json.load(open(networks_json))
    for net in (declared[section] if section else declared)["networks"]:
        convert_net(net, models_dir, os.path.join(out_dir, net["model"] + ".model"))


def section_main(tool, usage, section, convert_net):
    """The main() of a converter of one networks.json section: NETWORKS.json MODELS_DIR OUT_DIR."""
    if len(sys.argv) != 4:
        sys.exit(usage)
    try:
        networks_json, models_dir, out_dir = sys.argv[1:]
        convert_section(networks_json, section, models_dir, out_dir, convert_net)
    except CONVERSION_FAILURES as e:
        sys.exit("%s: %s" % (tool, e))


def read_weights(model_dir, manifest):
    """The weight tensors of the manifest, dequantised to their original type."""
    weights = {}
    for group in manifest:
        data = b"".join(open(os.path.join(model_dir, p), "rb").read() for p in group["paths"])
        offset = 0
        for w in group["weights"]:
            shape = [int(d) for d in w["shape"]]
            count = int(np.prod(shape)) if shape else 1
            q = w.get("quantization")
            if q is None:
                dtype = np.dtype(DTYPES[w["dtype"]])
                arr = np.frombuffer(data, dtype=dtype, count=count, offset=offset)
                offset += count * dtype.itemsize
            elif q["dtype"] == "float16":
                arr = np.frombuffer(data, dtype=np.float16, count=count, offset=offset).astype(np.float32)
                offset += count * 2
            elif q["dtype"] in ("uint8", "uint16"):
                qt = np.dtype(q["dtype"])
                raw = np.frombuffer(data, dtype=qt, count=count, offset=offset)
                offset += count * qt.itemsize
                arr = (raw.astype(np.float32) * q["scale"] + q["min"]).astype(DTYPES[w["dtype"]])
            else:
                raise ConversionError("unsupported quantisation %r" % q)
            if offset > len(data):
                raise ConversionError("weight file shorter than its manifest")
            weights[w["name"]] = arr.reshape(shape).copy()
    return weights


def attr(node, key, default=None):
    a = node.get("attr", {}).get(key)
    if a is None:
        return default
    if "list" in a:
        lst = a["list"]
        if "i" in lst:
            return [int(v) for v in lst["i"]]
        if "s" in lst:
            import base64
            return [base64.b64decode(v).decode() for v in lst["s"]]
        if "f" in lst:
            return [float(v) for v in lst["f"]]
        return []
    if "s" in a:
        import base64
        return base64.b64decode(a["s"]).decode()
    if "i" in a:
        return int(a["i"])
    if "f" in a:
        return float(a["f"])
    if "b" in a:
        return bool(a["b"])
    return a


def same_pads(size, kernel, stride, dilation):
    """TF's SAME padding of one spatial axis: (before, after)."""
    effective = (kernel - 1) * dilation + 1
    out = (size + stride - 1) // stride
    total = max((out - 1) * stride + effective - size, 0)
    return total // 2, total - total // 2


class Tensor:
    """A converted tensor: its ONNX name, its TF (NHWC) shape and whether it is held NCHW."""

    def __init__(self, name, shape, nchw):
        self.name, self.shape, self.nchw = name, list(shape), nchw


class Converter:
    def __init__(self, model_json):
        model = json.load(open(model_json))
        if model.get("format") != "graph-model":
            raise ConversionError("not a TF.js graph model")
        self.nodes = {n["name"]: n for n in model["modelTopology"]["node"]}
        self.consts = read_weights(os.path.dirname(model_json), model["weightsManifest"])
        self.tensors = {}
        self.onnx_nodes = []
        self.initializers = []
        self.counter = 0

    def fresh(self, base):
        self.counter += 1
        return "%s__%d" % (base.replace("/", "_"), self.counter)

    def const(self, array, base="const"):
        name = self.fresh(base)
        self.initializers.append(numpy_helper.from_array(np.asarray(array), name))
        return name

    def emit(self, op, inputs, base, **attrs):
        out = self.fresh(base)
        self.onnx_nodes.append(helper.make_node(op, inputs, [out], **attrs))
        return out

    def value(self, ref):
        """The numpy value of a Const input or of shape arithmetic on constants, or None."""
        name = ref.split(":")[0]
        if name in self.consts:
            return self.consts[name]
        node = self.nodes.get(name)
        if node is None or ":" in ref and not ref.endswith(":0"):
            return None
        if node["op"] == "Shape":
            # Shapes are static here: the input size is fixed at conversion.
            return np.array(self.get(node["input"][0]).shape, np.int32)
        fold = FOLDABLE.get(node["op"])
        if fold is None:
            return None
        args = [self.value(i) for i in node.get("input", []) if not i.startswith("^")]
        if any(a is None for a in args):
            return None
        self.consts[name] = fold(node, *args)
        return self.consts[name]

    def get(self, ref):
        name, _, index = ref.partition(":")
        if name not in self.tensors:
            self.convert(name)
        if index not in ("", "0"):
            # A multi-output node stores its further outputs as NAME:INDEX.
            if ref not in self.tensors:
                raise ConversionError("multi-output node %s" % ref)
            return self.tensors[ref]
        return self.tensors[name]

    def operand(self, ref, like):
        """An elementwise operand laid out to broadcast against tensor like."""
        v = self.value(ref)
        if v is None:
            t = self.get(ref)
            if t.nchw != like.nchw and len(t.shape) == 4:
                raise ConversionError("mixed layouts at %s" % ref)
            return t.name
        v = v.astype(np.float32)
        if like.nchw and v.ndim >= 1 and v.size > 1:
            if v.ndim in (3, 4):
                v = v.reshape((1,) * (4 - v.ndim) + v.shape).transpose(TO_NCHW)
            else:
                v = v.reshape(-1, 1, 1)
        return self.const(v)

    def convert(self, name):
        node = self.nodes.get(name)
        if node is None:
            raise ConversionError("unknown node %s" % name)
        op = node["op"]
        inputs = [i for i in node.get("input", []) if not i.startswith("^")]
        handler = getattr(self, "op_" + op.lstrip("_"), None)
        if handler is None:
            raise ConversionError("unsupported op %s at %s" % (op, name))
        self.tensors[name] = handler(node, inputs)

    # --- convolutions ---------------------------------------------------------------
    def conv(self, node, x, weight, depthwise, base):
        strides = attr(node, "strides", [1, 1, 1, 1])
        dilations = attr(node, "dilations", [1, 1, 1, 1])
        padding = attr(node, "padding", "VALID")
        if attr(node, "data_format", "NHWC") != "NHWC":
            raise ConversionError("data format at %s" % node["name"])
        kh, kw, cin, cout = weight.shape
        if depthwise:
            w = weight.transpose(2, 3, 0, 1).reshape(cin * cout, 1, kh, kw)
            group, channels = cin, cin * cout
        else:
            w = weight.transpose(3, 2, 0, 1)
            group, channels = 1, cout
        h, wd = x.shape[1], x.shape[2]
        if padding == "SAME":
            pt, pb = same_pads(h, kh, strides[1], dilations[1])
            pl, pr = same_pads(wd, kw, strides[2], dilations[2])
        elif padding == "VALID":
            pt = pb = pl = pr = 0
        elif padding == "EXPLICIT":
            e = attr(node, "explicit_paddings")
            pt, pb, pl, pr = e[2], e[3], e[4], e[5]
        else:
            raise ConversionError("padding %s" % padding)
        oh = (h + pt + pb - ((kh - 1) * dilations[1] + 1)) // strides[1] + 1
        ow = (wd + pl + pr - ((kw - 1) * dilations[2] + 1)) // strides[2] + 1
        return w.astype(np.float32), dict(group=group, strides=strides[1:3], dilations=dilations[1:3],
                                          pads=[pt, pl, pb, pr], kernel_shape=[kh, kw]), [1, oh, ow, channels]

    def fused_conv(self, node, inputs, depthwise):
        x = self.get(inputs[0])
        weight = self.value(inputs[1])
        if weight is None or not x.nchw:
            raise ConversionError("convolution input at %s" % node["name"])
        w, attrs, shape = self.conv(node, x, weight, depthwise, node["name"])
        fused = attr(node, "fused_ops", [])
        args = inputs[2:]
        conv_inputs = [x.name, self.const(w, "weight")]
        if fused and fused[0] == "BiasAdd":
            conv_inputs.append(self.const(self.value(args[0]).astype(np.float32), "bias"))
            args, fused = args[1:], fused[1:]
        out = self.emit("Conv", conv_inputs, node["name"], **attrs)
        out = self.activation(fused, out, args, node["name"])
        return Tensor(out, shape, True)

    def activation(self, fused, out, args, base):
        for act in fused:
            if act == "Relu":
                out = self.emit("Relu", [out], base)
            elif act == "Relu6":
                out = self.relu6(out, base)
            elif act == "Prelu":
                slope = self.value(args[0]).astype(np.float32).reshape(-1, 1, 1)
                out = self.emit("PRelu", [out, self.const(slope)], base)
                args = args[1:]
            elif act == "Sigmoid":
                out = self.emit("Sigmoid", [out], base)
            else:
                raise ConversionError("fused activation %s" % act)
        return out

    def op_FusedConv2D(self, node, inputs):
        return self.fused_conv(node, inputs, False)

    def op_Conv2D(self, node, inputs):
        return self.fused_conv(node, inputs, False)

    def op_FusedDepthwiseConv2dNative(self, node, inputs):
        return self.fused_conv(node, inputs, True)

    def op_DepthwiseConv2dNative(self, node, inputs):
        return self.fused_conv(node, inputs, True)

    # --- elementwise ----------------------------------------------------------------
    def binary(self, onnx_op, node, inputs):
        a_const, b_const = self.value(inputs[0]), self.value(inputs[1])
        like = self.get(inputs[1]) if a_const is not None else self.get(inputs[0])
        a = self.operand(inputs[0], like)
        b = self.operand(inputs[1], like)
        shape = like.shape
        if a_const is None and b_const is None:
            other = self.get(inputs[1])
            shape = [max(p, q) for p, q in zip(like.shape, other.shape)] if len(other.shape) == len(shape) else shape
        return Tensor(self.emit(onnx_op, [a, b], node["name"]), shape, like.nchw)

    def op_AddV2(self, node, inputs):
        return self.binary("Add", node, inputs)

    op_Add = op_AddV2

    def op_AddN(self, node, inputs):
        # A sum of tensors of one shape, as a chain of additions.
        x = self.get(inputs[0])
        out = x.name
        for ref in inputs[1:]:
            out = self.emit("Add", [out, self.operand(ref, x)], node["name"])
        return Tensor(out, x.shape, x.nchw)

    def op_Sub(self, node, inputs):
        return self.binary("Sub", node, inputs)

    def op_Mul(self, node, inputs):
        return self.binary("Mul", node, inputs)

    def op_RealDiv(self, node, inputs):
        return self.binary("Div", node, inputs)

    def op_Maximum(self, node, inputs):
        return self.binary("Max", node, inputs)

    def op_Minimum(self, node, inputs):
        return self.binary("Min", node, inputs)

    def unary(self, onnx_op, node, inputs):
        x = self.get(inputs[0])
        return Tensor(self.emit(onnx_op, [x.name], node["name"]), x.shape, x.nchw)

    def op_Relu(self, node, inputs):
        return self.unary("Relu", node, inputs)

    def op_Sigmoid(self, node, inputs):
        return self.unary("Sigmoid", node, inputs)

    def relu6(self, x, base):
        return self.emit("Clip", [x, self.const(np.float32(0), "zero"), self.const(np.float32(6), "six")], base)

    def op_Relu6(self, node, inputs):
        x = self.get(inputs[0])
        return Tensor(self.relu6(x.name, node["name"]), x.shape, x.nchw)

    def op_Prelu(self, node, inputs):
        x = self.get(inputs[0])
        slope = self.value(inputs[1]).astype(np.float32).reshape(-1, 1, 1)
        return Tensor(self.emit("PRelu", [x.name, self.const(slope)], node["name"]), x.shape, x.nchw)

    def op_Identity(self, node, inputs):
        return self.get(inputs[0])

    # --- shape and pooling ----------------------------------------------------------
    def op_MaxPool(self, node, inputs):
        x = self.get(inputs[0])
        k, s = attr(node, "ksize"), attr(node, "strides")
        pads = [0, 0, 0, 0]
        if attr(node, "padding") == "SAME":
            pt, pb = same_pads(x.shape[1], k[1], s[1], 1)
            pl, pr = same_pads(x.shape[2], k[2], s[2], 1)
            pads = [pt, pl, pb, pr]
        oh = (x.shape[1] + pads[0] + pads[2] - k[1]) // s[1] + 1
        ow = (x.shape[2] + pads[1] + pads[3] - k[2]) // s[2] + 1
        out = self.emit("MaxPool", [x.name], node["name"], kernel_shape=k[1:3], strides=s[1:3], pads=pads)
        return Tensor(out, [1, oh, ow, x.shape[3]], True)

    def op_AvgPool(self, node, inputs):
        x = self.get(inputs[0])
        k, s = attr(node, "ksize"), attr(node, "strides")
        if not x.nchw or attr(node, "padding") != "VALID":
            raise ConversionError("AvgPool at %s" % node["name"])
        oh = (x.shape[1] - k[1]) // s[1] + 1
        ow = (x.shape[2] - k[2]) // s[2] + 1
        out = self.emit("AveragePool", [x.name], node["name"], kernel_shape=k[1:3], strides=s[1:3])
        return Tensor(out, [1, oh, ow, x.shape[3]], True)

    def op_Conv2DBackpropInput(self, node, inputs):
        # A transposed convolution whose output size needs no padding (SAME with the kernel
        # a multiple of the stride, or VALID); weights [kh, kw, out, in] become [in, out, kh, kw].
        size = [int(v) for v in self.value(inputs[0]).reshape(-1)]
        weight = self.value(inputs[1])
        x = self.get(inputs[2])
        strides = attr(node, "strides", [1, 1, 1, 1])
        if weight is None or not x.nchw or attr(node, "dilations", [1, 1, 1, 1]) != [1, 1, 1, 1]:
            raise ConversionError("Conv2DBackpropInput at %s" % node["name"])
        kh, kw, cout, _ = weight.shape
        for axis, k in ((1, kh), (2, kw)):
            if (x.shape[axis] - 1) * strides[axis] + k != size[axis]:
                raise ConversionError("Conv2DBackpropInput needs padding at %s" % node["name"])
        w = self.const(weight.transpose(3, 2, 0, 1).astype(np.float32), "weight")
        out = self.emit("ConvTranspose", [x.name, w], node["name"], kernel_shape=[kh, kw], strides=strides[1:3])
        return Tensor(out, [1, size[1], size[2], cout], True)

    def op_Pad(self, node, inputs):
        x = self.get(inputs[0])
        p = self.value(inputs[1]).astype(np.int64)
        if not x.nchw:
            if p.shape != (len(x.shape), 2):
                raise ConversionError("Pad at %s" % node["name"])
            pads = self.const(np.concatenate([p[:, 0], p[:, 1]]).astype(np.int64), "pads")
            out = self.emit("Pad", [x.name, pads], node["name"], mode="constant")
            return Tensor(out, [d + int(q.sum()) for d, q in zip(x.shape, p)], False)
        if p.shape != (4, 2):
            raise ConversionError("Pad at %s" % node["name"])
        p = p[TO_NCHW]
        pads = self.const(np.concatenate([p[:, 0], p[:, 1]]).astype(np.int64), "pads")
        out = self.emit("Pad", [x.name, pads], node["name"], mode="constant")
        shape = [x.shape[i] + int(p[TO_NCHW.index(i)].sum()) for i in range(4)]
        return Tensor(out, shape, True)

    def op_Reshape(self, node, inputs):
        x = self.get(inputs[0])
        shape = [int(v) for v in self.value(inputs[1]).reshape(-1)]
        src = self.emit("Transpose", [x.name], node["name"], perm=TO_NHWC) if x.nchw else x.name
        out = self.emit("Reshape", [src, self.const(np.array(shape, np.int64), "shape")], node["name"])
        total = int(np.prod(x.shape))
        if -1 in shape:
            known = int(np.prod([v for v in shape if v != -1]))
            shape[shape.index(-1)] = total // known
        return Tensor(out, shape, False)

    def op_Mean(self, node, inputs):
        x = self.get(inputs[0])
        axes = sorted(int(v) for v in self.value(inputs[1]).reshape(-1))
        if not x.nchw or axes != [1, 2]:
            raise ConversionError("Mean at %s" % node["name"])
        out = self.emit("GlobalAveragePool", [x.name], node["name"])
        if attr(node, "keep_dims", False):
            return Tensor(out, [1, 1, 1, x.shape[3]], True)
        return Tensor(self.emit("Flatten", [out], node["name"], axis=1), [1, x.shape[3]], False)

    def op_Softmax(self, node, inputs):
        x = self.get(inputs[0])
        if x.nchw or len(x.shape) != 2:
            raise ConversionError("Softmax at %s" % node["name"])
        return Tensor(self.emit("Softmax", [x.name], node["name"], axis=1), x.shape, False)

    def op_ResizeBilinear(self, node, inputs):
        x = self.get(inputs[0])
        size = [int(v) for v in self.value(inputs[1]).reshape(-1)]
        if attr(node, "align_corners", False):
            mode = "align_corners"
        elif attr(node, "half_pixel_centers", False):
            mode = "half_pixel"
        else:
            mode = "asymmetric"
        sizes = self.const(np.array([1, x.shape[3]] + size, np.int64), "sizes")
        empty = self.const(np.zeros(0, np.float32), "empty")
        out = self.emit("Resize", [x.name, empty, empty, sizes], node["name"], mode="linear",
                        coordinate_transformation_mode=mode)
        return Tensor(out, [1] + size + [x.shape[3]], True)

    def op_ConcatV2(self, node, inputs):
        axis = int(self.value(inputs[-1]))
        parts = [self.get(i) for i in inputs[:-1]]
        nchw = parts[0].nchw
        rank = len(parts[0].shape)
        axis = axis % rank
        onnx_axis = TO_NCHW.index(axis) if nchw else axis
        shape = list(parts[0].shape)
        shape[axis] = sum(p.shape[axis] for p in parts)
        out = self.emit("Concat", [p.name for p in parts], node["name"], axis=onnx_axis)
        return Tensor(out, shape, nchw)

    # --- graphs exported from ONNX -------------------------------------------------
    def op_Transpose(self, node, inputs):
        x = self.get(inputs[0])
        perm = [int(v) for v in self.value(inputs[1]).reshape(-1)]
        shape = [x.shape[p] for p in perm]
        # Into and out of NHWC around a convolution: the ONNX tensor stays channels-first.
        if len(x.shape) == 4 and not x.nchw and perm == TO_NHWC:
            return Tensor(x.name, shape, True)
        if len(x.shape) == 4 and x.nchw and perm == TO_NCHW:
            return Tensor(x.name, shape, False)
        if x.nchw and len(x.shape) == 4:
            raise ConversionError("Transpose at %s" % node["name"])
        return Tensor(self.emit("Transpose", [x.name], node["name"], perm=perm), shape, False)

    def op_LeakyRelu(self, node, inputs):
        x = self.get(inputs[0])
        out = self.emit("LeakyRelu", [x.name], node["name"], alpha=attr(node, "alpha", 0.2))
        return Tensor(out, x.shape, x.nchw)

    def op_PadV2(self, node, inputs):
        x = self.get(inputs[0])
        p = self.value(inputs[1]).astype(np.int64)
        fill = float(self.value(inputs[2]))
        if x.nchw or p.shape != (len(x.shape), 2):
            raise ConversionError("PadV2 at %s" % node["name"])
        pads = self.const(np.concatenate([p[:, 0], p[:, 1]]).astype(np.int64), "pads")
        # The fill is -inf before max pooling; OpenCV's Pad takes the largest float instead.
        value = self.const(np.float32(max(fill, np.finfo(np.float32).min)), "fill")
        out = self.emit("Pad", [x.name, pads, value], node["name"], mode="constant")
        return Tensor(out, [d + int(q.sum()) for d, q in zip(x.shape, p)], False)

    def op_SplitV(self, node, inputs):
        x = self.get(inputs[0])
        sizes = [int(v) for v in self.value(inputs[1]).reshape(-1)]
        axis = int(self.value(inputs[2])) % len(x.shape)
        if -1 in sizes:
            sizes[sizes.index(-1)] = x.shape[axis] - (sum(sizes) + 1)
        onnx_axis = TO_NCHW.index(axis) if x.nchw else axis
        outs = [self.fresh(node["name"]) for _ in sizes]
        self.onnx_nodes.append(helper.make_node("Split", [x.name, self.const(np.array(sizes, np.int64), "split")],
                                                outs, axis=onnx_axis))
        tensors = []
        for out, size in zip(outs, sizes):
            shape = list(x.shape)
            shape[axis] = size
            tensors.append(Tensor(out, shape, x.nchw))
        for i, t in enumerate(tensors[1:], 1):
            self.tensors["%s:%d" % (node["name"], i)] = t
        return tensors[0]

    # --- the whole model ------------------------------------------------------------
    def build(self, input_node, input_shape, outputs, name, nchw_input=False):
        """input_shape is NHWC; nchw_input: the TF graph itself takes its input channels-first."""
        if nchw_input:
            self.tensors[input_node] = Tensor("input", [input_shape[i] for i in TO_NCHW], False)
        else:
            self.tensors[input_node] = Tensor("input", input_shape, True)
        graph_outputs = []
        for out_name, node_name in outputs:
            t = self.get(node_name)
            src = t.name
            if t.nchw and len(t.shape) == 4:
                src = self.emit("Transpose", [src], out_name, perm=TO_NHWC)
            self.onnx_nodes.append(helper.make_node("Identity", [src], [out_name]))
            graph_outputs.append(helper.make_tensor_value_info(out_name, TensorProto.FLOAT, t.shape))
        nchw = [input_shape[i] for i in TO_NCHW]
        graph = helper.make_graph(self.onnx_nodes, name, [helper.make_tensor_value_info("input", TensorProto.FLOAT, nchw)],
                                  graph_outputs, self.initializers)
        model = helper.make_model(graph, producer_name="vqfe-tfjs-to-onnx", opset_imports=[helper.make_opsetid("", 13)])
        model.ir_version = 7
        onnx.checker.check_model(model)
        return onnx_graph.optimize(model)


def sparse_to_dense(node, indices, shape, values, default):
    out = np.full(np.asarray(shape).reshape(-1), default, dtype=np.asarray(values).dtype)
    out[tuple(np.asarray(indices).reshape(-1, out.ndim).T)] = values
    return out


def strided_slice(node, x, begin, end, strides):
    """StridedSlice of a 1-D constant (a shape), with TF's begin, end and shrink masks."""
    if x.ndim != 1 or attr(node, "ellipsis_mask", 0) or attr(node, "new_axis_mask", 0):
        raise ConversionError("StridedSlice at %s" % node["name"])
    b, e, s = int(begin[0]), int(end[0]), int(strides[0])
    if attr(node, "shrink_axis_mask", 0) & 1:
        return x[b]
    return x[None if attr(node, "begin_mask", 0) & 1 else b:None if attr(node, "end_mask", 0) & 1 else e:s]


# Shape arithmetic on constants: in graphs exported from ONNX, and the sizes of up-sampling
# layers computed from their input's shape.
FOLDABLE = {
    "StridedSlice": strided_slice,
    "Identity": lambda node, x: x,
    "AddV2": lambda node, a, b: a + b,
    "Add": lambda node, a, b: a + b,
    "Sub": lambda node, a, b: a - b,
    "Mul": lambda node, a, b: a * b,
    "SparseToDense": sparse_to_dense,
}


def convert_one(model_json, out, input_spec, outputs):
    """input_spec: (node, height, width, channels, channels first); outputs: [(name, node)]. Writes out atomically."""
    node, h, w, c, nchw = input_spec
    model = Converter(model_json).build(node, [1, h, w, c], outputs, os.path.basename(out), nchw)
    onnx_graph.save(model, out)


def convert_net(net, models_dir, out):
    """One network of networks.json's top-level list."""
    inp = net["input"]
    convert_one(os.path.join(models_dir, net["source"] + ".json"), out,
                (inp["node"], inp["height"], inp["width"], inp.get("channels", 3), inp.get("layout") == "nchw"),
                list(net["outputs"].items()))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    sub = parser.add_subparsers(dest="command", required=True)
    one = sub.add_parser("convert", help="one network")
    one.add_argument("model_json")
    one.add_argument("out")
    one.add_argument("--input", required=True, help="NODE:H,W  the tensor fed as the network input (NHWC, 3 channels)")
    one.add_argument("--output", action="append", required=True, help="NAME=NODE")
    every = sub.add_parser("all", help="every network of a networks.json, as OUT_DIR/<model>.model")
    every.add_argument("networks_json")
    every.add_argument("models_dir")
    every.add_argument("out_dir")
    args = parser.parse_args()
    try:
        if args.command == "convert":
            node, _, hw = args.input.partition(":")
            h, w = (int(v) for v in hw.split(","))
            convert_one(args.model_json, args.out, (node, h, w, 3, False), [tuple(o.split("=", 1)) for o in args.output])
        else:
            convert_section(args.networks_json, None, args.models_dir, args.out_dir, convert_net)
    except CONVERSION_FAILURES as e:
        sys.exit("tfjs_to_onnx: %s" % e)


if __name__ == "__main__":
    main()
