#!/usr/bin/env python3
"""Builds ONNX networks for OpenCV DNN from face-api weight manifests.

The manifests of @vladmandic/face-api carry weights only; the graph is the published
architecture of each network, written out here:
  face_recognition  the dlib ResNet face recogniser (29 convolutions, 150x150 RGB in,
                    128-d descriptor out)
  age_gender        a small Xception (two middle blocks, 112x112 RGB in): age in years and
                    the softmax of (male, female)
Both take RGB pixels 0..255 (NCHW float); the mean subtraction and scaling the networks were
trained with are part of the graph. Per-channel scales that follow a convolution are folded
into its weights.

usage: faceapi_to_onnx.py NETWORKS.json MODELS_DIR OUT_DIR
       (the "weights_package" networks of NETWORKS.json, as OUT_DIR/<model>.model)
"""
import json
import os
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import onnx_graph  # noqa: E402
from tfjs_to_onnx import ConversionError, read_weights, same_pads, section_main  # noqa: E402

MEAN_RGB = [122.782, 117.001, 104.298]


class Graph:
    """ONNX nodes and initialisers, NCHW throughout, with each tensor's spatial size."""

    def __init__(self, weights):
        self.w = weights
        self.used = set()
        self.nodes, self.inits = [], []
        self.count = 0

    def weight(self, name):
        if name not in self.w:
            raise ConversionError("weight %s missing from the manifest" % name)
        self.used.add(name)
        return self.w[name].astype(np.float32)

    def const(self, array, hint):
        self.count += 1
        name = "%s_%d" % (hint, self.count)
        self.inits.append(numpy_helper.from_array(np.ascontiguousarray(array, dtype=np.float32), name))
        return name

    def op(self, op_type, inputs, name=None, **attrs):
        self.count += 1
        out = name or "%s_%d" % (op_type.lower(), self.count)
        self.nodes.append(helper.make_node(op_type, inputs, [out], name=out, **attrs))
        return out

    def conv(self, x, size, filters, bias, stride=1, padding="same", group=1):
        """TF conv2d (HWIO filters) as ONNX Conv; returns (output, output size)."""
        kh, kw = filters.shape[:2]
        if padding == "same":
            pt, pb = same_pads(size, kh, stride, 1)
            pl, pr = same_pads(size, kw, stride, 1)
            out_size = (size + stride - 1) // stride
        else:
            pt = pb = pl = pr = 0
            out_size = (size - kh) // stride + 1
        oihw = filters.transpose(3, 2, 0, 1) if group == 1 else filters.transpose(2, 3, 0, 1)
        inputs = [x, self.const(oihw, "w")]
        if bias is not None:
            inputs.append(self.const(bias, "b"))
        y = self.op("Conv", inputs, kernel_shape=[kh, kw], strides=[stride, stride], pads=[pt, pl, pb, pr], group=group)
        return y, out_size

    def pixels_in(self, divisor):
        """The input, RGB 0..255, minus the training mean and divided by divisor."""
        mean = self.const(np.array(MEAN_RGB, np.float32).reshape(1, 3, 1, 1), "mean")
        centred = self.op("Sub", ["input", mean])
        return self.op("Mul", [centred, self.const(np.array(1.0 / divisor, np.float32), "scale")])

    def model(self, size, outputs, name):
        unused = set(self.w) - self.used
        if unused:
            raise ConversionError("weights not used by the architecture: %s" % ", ".join(sorted(unused)[:5]))
        graph = helper.make_graph(
            self.nodes, name, [helper.make_tensor_value_info("input", TensorProto.FLOAT, [1, 3, size, size])],
            [helper.make_tensor_value_info(o, TensorProto.FLOAT, shape) for o, shape in outputs.items()], self.inits)
        model = helper.make_model(graph, producer_name="vqfe-faceapi-to-onnx", opset_imports=[helper.make_opsetid("", 13)])
        model.ir_version = 7
        onnx.checker.check_model(model)
        return onnx_graph.optimize(model)


def face_recognition(g):
    """Conv layers are conv + bias, then a per-channel scale (weights, biases), folded here."""
    def conv_layer(x, size, prefix, stride, relu, padding="same"):
        filters = g.weight(prefix + "/conv/filters")
        scale = g.weight(prefix + "/scale/weights")
        shift = g.weight(prefix + "/scale/biases")
        bias = g.weight(prefix + "/conv/bias") * scale + shift
        y, size = g.conv(x, size, filters * scale, bias, stride, padding)
        return (g.op("Relu", [y]) if relu else y), size

    def residual(x, size, prefix):
        y, _ = conv_layer(x, size, prefix + "/conv1", 1, True)
        y, _ = conv_layer(y, size, prefix + "/conv2", 1, False)
        return g.op("Relu", [g.op("Add", [y, x])]), size

    def residual_down(x, size, channels, prefix):
        y, out_size = conv_layer(x, size, prefix + "/conv1", 2, True, "valid")
        y, _ = conv_layer(y, out_size, prefix + "/conv2", 1, False)
        out_channels = g.w[prefix + "/conv2/conv/filters"].shape[3]
        pooled = g.op("AveragePool", [x], kernel_shape=[2, 2], strides=[2, 2])
        pooled_size = size // 2
        # The shortcut is the pooled input, zero-padded to the new channel count; where the
        # valid convolution came out one smaller, the main path gets a zero row and column.
        if out_channels != channels:
            pads = np.array([0, 0, 0, 0, 0, out_channels - channels, 0, 0], np.int64)
            pooled = g.op("Pad", [pooled, int_const(g, pads)])
        if pooled_size != out_size:
            grow = pooled_size - out_size
            y = g.op("Pad", [y, int_const(g, np.array([0, 0, 0, 0, 0, 0, grow, grow], np.int64))])
        return g.op("Relu", [g.op("Add", [pooled, y])]), pooled_size, out_channels

    x = g.pixels_in(255.0)
    x, size = conv_layer(x, 150, "conv32_down", 2, True, "valid")
    x = g.op("MaxPool", [x], kernel_shape=[3, 3], strides=[2, 2])
    size = (size - 3) // 2 + 1
    channels = 32
    for block in ["conv32_1", "conv32_2", "conv32_3", "conv64_down", "conv64_1", "conv64_2", "conv64_3",
                  "conv128_down", "conv128_1", "conv128_2", "conv256_down", "conv256_1", "conv256_2",
                  "conv256_down_out"]:
        if block.endswith("down") or block.endswith("down_out"):
            x, size, channels = residual_down(x, size, channels, block)
        else:
            x, size = residual(x, size, block)
    pooled = g.op("Flatten", [g.op("GlobalAveragePool", [x])])
    g.op("MatMul", [pooled, g.const(g.weight("fc"), "fc")], name="descriptor")
    return {"descriptor": [1, 128]}


def int_const(g, values):
    g.count += 1
    name = "ints_%d" % g.count
    g.inits.append(numpy_helper.from_array(values, name))
    return name


def age_gender(g):
    def separable(x, size, prefix):
        depthwise = g.weight(prefix + "/depthwise_filter")
        y, _ = g.conv(x, size, depthwise, None, group=depthwise.shape[2])
        y, _ = g.conv(y, size, g.weight(prefix + "/pointwise_filter"), g.weight(prefix + "/bias"))
        return y

    def reduction(x, size, prefix, relu_first=True):
        y = separable(g.op("Relu", [x]) if relu_first else x, size, prefix + "/separable_conv0")
        y = separable(g.op("Relu", [y]), size, prefix + "/separable_conv1")
        pt, pb = same_pads(size, 3, 2, 1)
        y = g.op("MaxPool", [y], kernel_shape=[3, 3], strides=[2, 2], pads=[pt, pt, pb, pb])
        shortcut, size = g.conv(x, size, g.weight(prefix + "/expansion_conv/filters"),
                                g.weight(prefix + "/expansion_conv/bias"), 2)
        return g.op("Add", [y, shortcut]), size

    def main_block(x, size, prefix):
        y = x
        for k in range(3):
            y = separable(g.op("Relu", [y]), size, "%s/separable_conv%d" % (prefix, k))
        return g.op("Add", [y, x])

    x = g.pixels_in(255.0)
    x, size = g.conv(x, 112, g.weight("entry_flow/conv_in/filters"), g.weight("entry_flow/conv_in/bias"), 2)
    x = g.op("Relu", [x])
    x, size = reduction(x, size, "entry_flow/reduction_block_0", relu_first=False)
    x, size = reduction(x, size, "entry_flow/reduction_block_1")
    for k in range(2):
        x = main_block(x, size, "middle_flow/main_block_%d" % k)
    x, size = reduction(x, size, "exit_flow/reduction_block")
    x = g.op("Relu", [separable(x, size, "exit_flow/separable_conv")])
    # avgPool 7x7 stride 2, valid, on the 7x7 map: the mean of the whole map.
    if size != 7:
        raise ConversionError("age_gender: unexpected feature map %d" % size)
    features = g.op("Flatten", [g.op("GlobalAveragePool", [x])])
    # Gemm with the weights transposed (transB): the form OpenCV 4.6 reads for any width.
    age = g.op("Gemm", [features, g.const(g.weight("fc/age/weights").T, "w"), g.const(g.weight("fc/age/bias"), "b")], transB=1)
    g.op("Reshape", [age, int_const(g, np.array([1], np.int64))], name="age")
    logits = g.op("Gemm", [features, g.const(g.weight("fc/gender/weights").T, "w"), g.const(g.weight("fc/gender/bias"), "b")],
                  transB=1)
    g.op("Softmax", [logits], name="gender", axis=1)
    return {"age": [1], "gender": [1, 2]}


ARCHITECTURES = {"face_recognition": (face_recognition, 150), "age_gender": (age_gender, 112)}


def convert_one(manifest_path, architecture, out):
    build, size = ARCHITECTURES[architecture]
    g = Graph(read_weights(os.path.dirname(manifest_path), json.load(open(manifest_path))))
    outputs = build(g)
    model = g.model(size, outputs, os.path.basename(out))
    onnx_graph.save(model, out)


def convert_net(net, models_dir, out):
    """One network of networks.json's "weights_package" section."""
    size = ARCHITECTURES[net["architecture"]][1]
    if (net["input"]["height"], net["input"]["width"]) != (size, size):
        raise ConversionError("%s: the architecture takes %dx%d" % (net["model"], size, size))
    convert_one(os.path.join(models_dir, net["source"] + "-weights_manifest.json"), net["architecture"], out)


def main():
    section_main("faceapi_to_onnx", __doc__.strip().splitlines()[-2], "weights_package", convert_net)


if __name__ == "__main__":
    main()
