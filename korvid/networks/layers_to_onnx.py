#!/usr/bin/env python3
"""Builds ONNX networks for OpenCV DNN from TF.js layers models (Keras topologies:
MODELS_DIR/NAME/NAME.json with its weight shards, written by layers_unpack.js).

The layers a MobileNetV2 classifier uses are converted: ZeroPadding2D, Conv2D and
DepthwiseConv2D (each with the BatchNormalization that follows folded into its weights),
ReLU (with its max_value: ReLU6), Add, AveragePooling2D, Flatten, Dense (relu, linear or
softmax) and Dropout (nothing at inference). The input is NCHW float, already scaled as
networks.json declares; the outputs are the named layers' outputs (2-D here).

usage: layers_to_onnx.py NETWORKS.json MODELS_DIR OUT_DIR
       (the "layers_package" networks of NETWORKS.json, as OUT_DIR/<model>.model)
"""
import json
import os
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import onnx_graph  # noqa: E402
from faceapi_to_onnx import Graph, int_const  # noqa: E402
from tfjs_to_onnx import ConversionError, read_weights, section_main  # noqa: E402


class Layers:
    """Walks a Keras functional topology; each layer's output: (ONNX name, size, channels)."""

    def __init__(self, topology, weights):
        self.g = Graph(weights)
        config = topology["model_config"]["config"]
        self.layers = {layer["name"]: layer for layer in config["layers"]}
        self.order = [layer["name"] for layer in config["layers"]]
        self.readers = {}
        for layer in config["layers"]:
            for src in self.inbound(layer):
                self.readers.setdefault(src, []).append(layer["name"])
        self.out = {}

    @staticmethod
    def inbound(layer):
        nodes = layer.get("inbound_nodes") or []
        if len(nodes) > 1:
            raise ConversionError("layer %s is shared" % layer["name"])
        return [n[0] for n in nodes[0]] if nodes else []

    def weight(self, layer, name):
        return self.g.weight("%s/%s" % (layer, name))

    def batch_norm_after(self, name):
        """The BatchNormalization that alone reads layer name, or None."""
        readers = self.readers.get(name, [])
        if len(readers) == 1 and self.layers[readers[0]]["class_name"] == "BatchNormalization":
            return readers[0]
        return None

    def build(self, size, channels):
        g = self.g
        for name in self.order:
            layer = self.layers[name]
            kind, cfg = layer["class_name"], layer["config"]
            ins = [self.out[src] for src in self.inbound(layer)]
            if kind == "InputLayer":
                self.out[name] = ("input", size, channels)
            elif kind == "ZeroPadding2D":
                (top, bottom), (left, right) = cfg["padding"]
                x, s, c = ins[0]
                if top + bottom != left + right:
                    raise ConversionError("%s: only square padding" % name)
                pads = np.array([0, 0, top, left, 0, 0, bottom, right], np.int64)
                self.out[name] = (g.op("Pad", [x, int_const(g, pads)]), s + top + bottom, c)
            elif kind in ("Conv2D", "DepthwiseConv2D"):
                self.out[name] = self.conv(name, kind, cfg, ins[0])
            elif kind == "BatchNormalization":
                if name not in self.out:
                    raise ConversionError("%s: a batch normalisation not after a convolution" % name)
            elif kind == "ReLU":
                if cfg.get("negative_slope", 0) or cfg.get("threshold", 0):
                    raise ConversionError("%s: leaky or thresholded ReLU" % name)
                x, s, c = ins[0]
                top = cfg.get("max_value")
                y = g.op("Relu", [x]) if top is None else g.op(
                    "Clip", [x, g.const(np.array(0, np.float32), "zero"), g.const(np.array(top, np.float32), "top")])
                self.out[name] = (y, s, c)
            elif kind == "Add":
                self.out[name] = (g.op("Add", [ins[0][0], ins[1][0]]), ins[0][1], ins[0][2])
            elif kind == "AveragePooling2D":
                x, s, c = ins[0]
                k, stride = cfg["pool_size"], cfg["strides"]
                if cfg["padding"] != "valid" or k[0] != k[1] or stride[0] != stride[1]:
                    raise ConversionError("%s: only square valid pooling" % name)
                y = g.op("AveragePool", [x], kernel_shape=k, strides=stride)
                self.out[name] = (y, (s - k[0]) // stride[0] + 1, c)
            elif kind == "Flatten":
                x, s, c = ins[0]
                # NHWC flattening equals NCHW flattening only on a 1x1 map.
                if s != 1:
                    raise ConversionError("%s: flattening a %dx%d map" % (name, s, s))
                self.out[name] = (g.op("Flatten", [x]), 1, c)
            elif kind == "Dropout":
                self.out[name] = ins[0]
            elif kind == "Dense":
                self.out[name] = self.dense(name, cfg, ins[0])
            else:
                raise ConversionError("layer %s: %s is not converted" % (name, kind))

    def conv(self, name, kind, cfg, x_in):
        x, size, channels = x_in
        g = self.g
        stride = cfg["strides"][0]
        if cfg["strides"][0] != cfg["strides"][1] or cfg.get("dilation_rate", [1, 1]) != [1, 1]:
            raise ConversionError("%s: unequal strides or dilation" % name)
        if cfg.get("activation", "linear") != "linear":
            raise ConversionError("%s: activation %s inside a convolution" % (name, cfg["activation"]))
        depthwise = kind == "DepthwiseConv2D"
        # Keras keeps HWIO filters (depthwise: H, W, channels, multiplier).
        filters = self.weight(name, "depthwise_kernel" if depthwise else "kernel")
        if depthwise and filters.shape[3] != 1:
            raise ConversionError("%s: depth multiplier %d" % (name, filters.shape[3]))
        out_channels = channels if depthwise else filters.shape[3]
        bias = self.weight(name, "bias") if cfg.get("use_bias", True) else np.zeros(out_channels, np.float32)
        bn = self.batch_norm_after(name)
        if bn is not None:
            eps = self.layers[bn]["config"].get("epsilon", 1e-3)
            factor = self.weight(bn, "gamma") / np.sqrt(self.weight(bn, "moving_variance") + eps)
            bias = (bias - self.weight(bn, "moving_mean")) * factor + self.weight(bn, "beta")
            filters = filters * factor.reshape(1, 1, -1, 1) if depthwise else filters * factor
        y, out_size = g.conv(x, size, filters, bias, stride, cfg["padding"], group=channels if depthwise else 1)
        if bn is not None:
            self.out[bn] = (y, out_size, out_channels)
        return y, out_size, out_channels

    def dense(self, name, cfg, x_in):
        x, _, _ = x_in
        g = self.g
        kernel = self.weight(name, "kernel")
        bias = self.weight(name, "bias") if cfg.get("use_bias", True) else np.zeros(kernel.shape[1], np.float32)
        # Gemm with the weights transposed (transB): the form OpenCV 4.6 reads for any width.
        y = g.op("Gemm", [x, g.const(kernel.T, "w"), g.const(bias, "b")], transB=1)
        activation = cfg.get("activation", "linear")
        if activation == "relu":
            y = g.op("Relu", [y])
        elif activation == "softmax":
            y = g.op("Softmax", [y], axis=1)
        elif activation != "linear":
            raise ConversionError("%s: activation %s" % (name, activation))
        return y, 1, kernel.shape[1]


def convert_one(model_json, out, size, outputs):
    """outputs: {name: layer}; the named layers' outputs become the graph's outputs."""
    spec = json.load(open(model_json))
    layers = Layers(spec["modelTopology"], read_weights(os.path.dirname(model_json), spec["weightsManifest"]))
    layers.build(size, 3)
    g = layers.g
    shapes = {}
    for name, layer in outputs.items():
        if layer not in layers.out:
            raise ConversionError("no layer %s" % layer)
        g.op("Identity", [layers.out[layer][0]], name=name)
        shapes[name] = [1, layers.out[layer][2]]
    unused = set(g.w) - g.used
    if unused:
        raise ConversionError("weights not used by the topology: %s" % ", ".join(sorted(unused)[:5]))
    graph = helper.make_graph(
        g.nodes, os.path.basename(out), [helper.make_tensor_value_info("input", TensorProto.FLOAT, [1, 3, size, size])],
        [helper.make_tensor_value_info(o, TensorProto.FLOAT, s) for o, s in shapes.items()], g.inits)
    model = helper.make_model(graph, producer_name="vqfe-layers-to-onnx", opset_imports=[helper.make_opsetid("", 13)])
    model.ir_version = 7
    onnx.checker.check_model(model)
    model = onnx_graph.optimize(model)
    onnx_graph.save(model, out)


def convert_net(net, models_dir, out):
    """One network of networks.json's "layers_package" section."""
    inp = net["input"]
    if inp["height"] != inp["width"]:
        raise ConversionError("%s: square inputs only" % net["model"])
    convert_one(os.path.join(models_dir, net["source"], net["source"] + ".json"), out, inp["height"], net["outputs"])


def main():
    section_main("layers_to_onnx", __doc__.strip().splitlines()[-2], "layers_package", convert_net)


if __name__ == "__main__":
    main()
