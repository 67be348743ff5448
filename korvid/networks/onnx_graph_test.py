#!/usr/bin/env python3
"""The graph rewrites of onnx_graph.py on small graphs: each keeps the outputs (evaluated
here with numpy for the few operators involved), leaves no Clip or Split behind and passes
ONNX's full check, also where a rewrite cannot move a factor into a neighbouring
convolution and must fall back to a Mul or Slices. The converted networks themselves are
checked against the reference runtime by ctest korvid_network_onnx."""
import os
import sys
import unittest

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import onnx_graph  # noqa: E402

RNG = np.random.default_rng(7)


def conv1x1(x, w, b=None):
    y = np.einsum("oc,nchw->nohw", w[:, :, 0, 0], x)
    return y if b is None else y + b.reshape(1, -1, 1, 1)


def evaluate(model, x):
    """Runs a graph of 1x1 convolutions and elementwise operators on input x."""
    values = {t.name: numpy_helper.to_array(t) for t in model.graph.initializer}
    values["input"] = x
    for node in model.graph.node:
        a = [values[i] if i else None for i in node.input]
        attrs = {at.name: helper.get_attribute_value(at) for at in node.attribute}
        op = node.op_type
        if op == "Conv":
            out = [conv1x1(a[0], a[1], a[2] if len(a) > 2 else None)]
        elif op in ("Add", "Mul", "Sub"):
            out = [{"Add": np.add, "Mul": np.multiply, "Sub": np.subtract}[op](a[0], a[1])]
        elif op == "Clip":
            out = [np.clip(a[0], a[1], a[2])]
        elif op == "HardSigmoid":
            out = [np.clip(attrs["alpha"] * a[0] + attrs["beta"], 0, 1)]
        elif op == "Relu":
            out = [np.maximum(a[0], 0)]
        elif op == "Split":
            out = np.split(a[0], np.cumsum(a[1])[:-1], axis=attrs["axis"])
        elif op == "Slice":
            index = [slice(None)] * a[0].ndim
            index[int(a[3][0])] = slice(int(a[1][0]), int(a[2][0]))
            out = [a[0][tuple(index)]]
        elif op == "Pad":
            p = a[1].reshape(2, -1).T
            out = [np.pad(a[0], p)]
        else:
            raise AssertionError("no evaluator for " + op)
        values.update(zip(node.output, out))
    return [values[o.name] for o in model.graph.output]


def weight(cout, cin):
    return RNG.normal(size=(cout, cin, 1, 1)).astype(np.float32)


def build(nodes, consts, outputs, channels=4):
    inits = [numpy_helper.from_array(np.asarray(v, np.float32) if np.asarray(v).dtype != np.int64 else v, k)
             for k, v in consts.items()]
    graph = helper.make_graph(nodes, "t", [helper.make_tensor_value_info("input", TensorProto.FLOAT, [1, channels, 3, 3])],
                              [helper.make_tensor_value_info(name, TensorProto.FLOAT, shape) for name, shape in outputs],
                              inits)
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)])
    model.ir_version = 7
    onnx.checker.check_model(model, full_check=True)
    return model


class Rewrites(unittest.TestCase):
    def check(self, model, absent=("Clip", "Split"), scale=5.0):
        x = (RNG.normal(size=[d.dim_value for d in model.graph.input[0].type.tensor_type.shape.dim]) * scale).astype(np.float32)
        expected = evaluate(model, x)
        optimised = onnx.ModelProto()
        optimised.CopyFrom(model)
        onnx_graph.optimize(optimised)
        for got, want in zip(evaluate(optimised, x), expected):
            np.testing.assert_allclose(got, want, rtol=1e-4, atol=1e-4)
        ops = [n.op_type for n in optimised.graph.node]
        for op in absent:
            self.assertNotIn(op, ops)
        return ops

    def test_relu6_stays_a_clip_with_its_bounds_as_inputs(self):
        model = build([helper.make_node("Conv", ["input", "w1"], ["c"]), helper.make_node("Add", ["c", "b1"], ["cb"]),
                       helper.make_node("Clip", ["cb", "zero", "six"], ["r"]),
                       helper.make_node("Conv", ["r", "w2"], ["out"])],
                      {"w1": weight(4, 4), "b1": RNG.normal(size=(4, 1, 1)), "zero": np.float32(0),
                       "six": np.float32(6), "w2": weight(2, 4)}, [("out", [1, 2, 3, 3])])
        self.assertEqual(self.check(model, absent=("Split",)), ["Conv", "Clip", "Conv"])

    def test_hard_swish_with_and_without_a_convolution_of_its_own(self):
        def swish(src, tag):
            return [helper.make_node("Add", [src, "three"], [tag + "a"]),
                    helper.make_node("Clip", [tag + "a", "zero", "six"], [tag + "r"]),
                    helper.make_node("Mul", [src, tag + "r"], [tag + "m"])]
        consts = {"w1": weight(4, 4), "w2": weight(4, 4), "three": np.float32(3), "zero": np.float32(0),
                  "six": np.float32(6)}
        # The first swish reads a convolution nothing else reads (the factor goes into it); the
        # second reads the input and is read by a convolution whose weight the first one's
        # reader shares (the factor goes into a copy); the third is read by an output (a Mul).
        nodes = ([helper.make_node("Conv", ["input", "w1"], ["c"])] + swish("c", "s1") + swish("input", "s2") +
                 swish("input", "s3") +
                 [helper.make_node("Conv", ["s1m", "w2"], ["out"]), helper.make_node("Conv", ["s2m", "w2"], ["out2"])])
        ops = self.check(build(nodes, consts, [("out", [1, 4, 3, 3]), ("out2", [1, 4, 3, 3]), ("s3m", [1, 4, 3, 3])]))
        self.assertEqual(ops.count("HardSigmoid"), 3)
        self.assertEqual(ops.count("Mul"), 4)

    def test_hard_swish_written_as_a_sixth_of_x_times_relu6(self):
        nodes = [helper.make_node("Mul", ["input", "sixth"], ["x6"]), helper.make_node("Add", ["input", "three"], ["a"]),
                 helper.make_node("Clip", ["a", "zero", "six"], ["r"]), helper.make_node("Mul", ["x6", "r"], ["out"])]
        consts = {"sixth": np.float32(1 / 6), "three": np.float32(3), "zero": np.float32(0), "six": np.float32(6)}
        self.assertEqual(self.check(build(nodes, consts, [("out", [1, 4, 3, 3])])), ["HardSigmoid", "Mul"])

    def test_split_of_a_convolution_and_of_the_input(self):
        model = build([helper.make_node("Conv", ["input", "w1", "b1"], ["c"]),
                       helper.make_node("Split", ["c", "sizes"], ["p", "q"], axis=1),
                       helper.make_node("Split", ["input", "sizes2"], ["r", "s"], axis=1)],
                      {"w1": weight(5, 4), "b1": RNG.normal(size=5), "sizes": np.array([3, 2], np.int64),
                       "sizes2": np.array([1, 3], np.int64)},
                      [("p", [1, 3, 3, 3]), ("q", [1, 2, 3, 3]), ("r", [1, 1, 3, 3]), ("s", [1, 3, 3, 3])])
        ops = self.check(model)
        self.assertEqual(ops.count("Conv"), 2)
        self.assertEqual(ops.count("Slice"), 2)

    def test_bias_and_scale_fold_into_a_convolution_whose_weights_are_shared(self):
        model = build([helper.make_node("Conv", ["input", "w"], ["c1"]), helper.make_node("Mul", ["c1", "s"], ["m"]),
                       helper.make_node("Add", ["m", "b"], ["out1"]), helper.make_node("Conv", ["input", "w"], ["out2"])],
                      {"w": weight(4, 4), "s": RNG.normal(size=(1, 4, 1, 1)), "b": RNG.normal(size=(4, 1, 1))},
                      [("out1", [1, 4, 3, 3]), ("out2", [1, 4, 3, 3])])
        self.assertEqual(self.check(model), ["Conv", "Conv"])

    def test_zero_pad_folds_into_convolutions_and_a_channel_pad_stays(self):
        model = build([helper.make_node("Pad", ["input", "spatial"], ["p"]), helper.make_node("Conv", ["p", "w"], ["out"]),
                       helper.make_node("Pad", ["input", "channels"], ["out2"])],
                      {"w": weight(2, 4), "spatial": np.array([0, 0, 1, 0, 0, 0, 0, 2], np.int64),
                       "channels": np.array([0, 0, 0, 0, 0, 2, 0, 0], np.int64)},
                      [("out", [1, 2, 4, 5]), ("out2", [1, 6, 3, 3])])
        # The evaluator has 1x1 convolutions only: the folded pads are checked by attribute.
        optimised = onnx.ModelProto()
        optimised.CopyFrom(model)
        onnx_graph.optimize(optimised)
        conv = [n for n in optimised.graph.node if n.op_type == "Conv"][0]
        self.assertEqual(onnx_graph.attribute(conv, "pads"), [1, 0, 0, 2])
        self.assertEqual([n.op_type for n in optimised.graph.node], ["Conv", "Pad"])


if __name__ == "__main__":
    unittest.main()
