"""Graph rewrites applied to every converted network before it is saved.

Each rewrite keeps the network's function (outputs equal to float rounding) and produces
ONNX that is valid at the opset the model declares and that OpenCV 4.6 reads:

  fold_conv_affine      a per-channel Add or Mul by a constant after a convolution goes into
                        its bias and weights (OpenCV runs each as its own layer otherwise)
  fold_pads             a zero Pad of the spatial axes before convolutions goes into their pads
  clips_as_hard_sigmoid hard swish, x * Clip(x + 3, 0, 6), becomes x * HardSigmoid(x), with
                        the factor 6 in the convolution before it (a Clip alone, ReLU6, stays:
                        korvid hands OpenCV 4.6, which reads Clip's bounds only as opset-6
                        attributes, a copy with them so, src/model/onnx_clip_form.h)
  split_convolutions    a Split of a convolution's output becomes one convolution per part
                        (OpenCV 4.6 ignores Split's sizes when they come as an input and
                        splits evenly); other Splits become Slices

usage: optimize(model) rewrites the onnx.ModelProto in place and checks it.
"""
import os

import numpy as np
import onnx
from onnx import helper, numpy_helper


class Graph:
    """Producers, consumers and constants of a graph, kept up to date by the rewrites."""

    def __init__(self, model):
        self.graph = model.graph
        self.consts = {t.name: numpy_helper.to_array(t) for t in self.graph.initializer}
        self.outputs = {o.name for o in self.graph.output}
        self.counter = 0

    def producer(self, name):
        for node in self.graph.node:
            if name in node.output:
                return node
        return None

    def consumers(self, name):
        return [n for n in self.graph.node if name in n.input]

    def only_use(self, name, node):
        """Whether node is the one reader of tensor name (and name no graph output)."""
        users = self.consumers(name)
        return name not in self.outputs and len(users) == 1 and users[0] is node and list(node.input).count(name) == 1

    def const(self, name):
        return self.consts.get(name)

    def set_const(self, name, array):
        """Replaces (or adds) initialiser name."""
        array = np.ascontiguousarray(array)
        self.consts[name] = array
        for i, t in enumerate(self.graph.initializer):
            if t.name == name:
                self.graph.initializer[i].CopyFrom(numpy_helper.from_array(array, name))
                return name
        self.graph.initializer.append(numpy_helper.from_array(array, name))
        return name

    def new_const(self, array, hint):
        self.counter += 1
        return self.set_const("%s__opt%d" % (hint, self.counter), array)

    def fresh(self, hint):
        self.counter += 1
        return "%s__opt%d" % (hint, self.counter)

    def own_weight(self, conv):
        """conv's weight, copied first if another node reads the same initialiser."""
        name = conv.input[1]
        if len(self.consumers(name)) > 1:
            conv.input[1] = self.new_const(self.consts[name].copy(), name)
        return self.consts[conv.input[1]]

    def own_bias(self, conv):
        channels = self.consts[conv.input[1]].shape[0]
        if len(conv.input) < 3 or not conv.input[2]:
            bias = self.new_const(np.zeros(channels, np.float32), conv.output[0] + "_bias")
            del conv.input[2:]
            conv.input.append(bias)
        elif len(self.consumers(conv.input[2])) > 1:
            conv.input[2] = self.new_const(self.consts[conv.input[2]].copy(), conv.input[2])
        return self.consts[conv.input[2]]

    def remove(self, node):
        """Removes node; its one output becomes its first input everywhere."""
        out, src = node.output[0], node.input[0]
        self.graph.node.remove(node)
        self.rename(out, src)

    def rename(self, old, new):
        """Readers of tensor old read new; a graph output keeps its name (the producer of new
        is renamed instead)."""
        if old in self.outputs:
            for n in self.graph.node:
                n.output[:] = [old if o == new else o for o in n.output]
                n.input[:] = [old if i == new else i for i in n.input]
            return
        for n in self.graph.node:
            n.input[:] = [new if i == old else i for i in n.input]

    def drop_unused_consts(self):
        used = {i for n in self.graph.node for i in n.input}
        keep = [t for t in self.graph.initializer if t.name in used]
        del self.graph.initializer[:]
        self.graph.initializer.extend(keep)
        self.consts = {k: v for k, v in self.consts.items() if k in used}


def attribute(node, name, default=None):
    for a in node.attribute:
        if a.name == name:
            return helper.get_attribute_value(a)
    return default


def set_attribute(node, name, value):
    for a in list(node.attribute):
        if a.name == name:
            node.attribute.remove(a)
    node.attribute.append(helper.make_attribute(name, value))


def channel_vector(array, channels):
    """A constant that broadcasts along the channel axis of an NCHW tensor as a vector of
    channels values, or None (scalars count)."""
    if array is None or array.dtype != np.float32:
        return None
    if array.size == 1:
        return np.full(channels, array.reshape(-1)[0], np.float32)
    shape = [d for d in array.shape]
    while shape and shape[0] == 1 and len(shape) > 3:
        shape = shape[1:]
    if len(shape) == 3 and shape[1:] == [1, 1] and shape[0] == channels:
        return array.reshape(-1).astype(np.float32)
    return None


def conv_channels(g, conv):
    return g.consts[conv.input[1]].shape[0]


def fold_conv_affine(g):
    changed = True
    while changed:
        changed = False
        for node in list(g.graph.node):
            if node.op_type not in ("Add", "Mul", "Sub") or len(node.input) != 2:
                continue
            data, const = node.input
            if g.const(data) is not None:
                if node.op_type == "Sub":
                    continue
                data, const = const, data
            conv = g.producer(data)
            if conv is None or conv.op_type != "Conv" or conv.input[1] not in g.consts or not g.only_use(data, node):
                continue
            vector = channel_vector(g.const(const), conv_channels(g, conv))
            if vector is None:
                continue
            bias = g.own_bias(conv)
            if node.op_type == "Mul":
                weight = g.own_weight(conv)
                g.set_const(conv.input[1], weight * vector.reshape(-1, 1, 1, 1))
                g.set_const(conv.input[2], bias * vector)
            else:
                g.set_const(conv.input[2], bias + vector if node.op_type == "Add" else bias - vector)
            out = node.output[0]
            g.graph.node.remove(node)
            conv.output[0] = out
            changed = True


def fold_pads(g):
    for pad in list(g.graph.node):
        if pad.op_type != "Pad" or attribute(pad, "mode", b"constant") not in (b"constant", "constant"):
            continue
        pads = g.const(pad.input[1]) if len(pad.input) > 1 else None
        value = g.const(pad.input[2]) if len(pad.input) > 2 and pad.input[2] else np.float32(0)
        if pads is None or pads.size != 8 or value is None or float(value) != 0.0:
            continue
        if pads[[0, 1, 4, 5]].any():
            continue
        users = g.consumers(pad.output[0])
        if pad.output[0] in g.outputs or not users or any(u.op_type != "Conv" or u.input[0] != pad.output[0] for u in users):
            continue
        top, left, bottom, right = (int(pads[i]) for i in (2, 3, 6, 7))
        for conv in users:
            p = list(attribute(conv, "pads", [0, 0, 0, 0]))
            set_attribute(conv, "pads", [p[0] + top, p[1] + left, p[2] + bottom, p[3] + right])
        g.remove(pad)


def scale_readers(g, node, factor):
    """The readers of node's output see it multiplied by factor: through the weights of the
    convolutions reading it when those are all its readers, otherwise through a Mul."""
    name = node.output[0]
    users = g.consumers(name)
    if name not in g.outputs and users and all(u.op_type == "Conv" and list(u.input).count(name) == 1 and
                                               u.input[0] == name and u.input[1] in g.consts for u in users):
        for conv in users:
            weight = g.own_weight(conv)
            g.set_const(conv.input[1], weight * np.float32(factor))
        return
    unscaled = g.fresh(name)
    node.output[0] = unscaled
    position = list(g.graph.node).index(node)
    g.graph.node.insert(position + 1, helper.make_node("Mul", [unscaled, g.new_const(np.float32(factor), "factor")], [name]))


def clip_bounds(g, clip):
    if len(clip.input) >= 3 and clip.input[1] and clip.input[2]:
        low, high = g.const(clip.input[1]), g.const(clip.input[2])
        if low is None or high is None:
            return None
        return float(low), float(high)
    low, high = attribute(clip, "min"), attribute(clip, "max")
    if low is None or high is None:
        return None
    return float(low), float(high)


def as_hard_sigmoid(node, source, alpha, beta):
    """Turns node, in place, into HardSigmoid(source; alpha, beta)."""
    node.op_type = "HardSigmoid"
    del node.input[:]
    node.input.append(source)
    del node.attribute[:]
    node.attribute.extend([helper.make_attribute("alpha", alpha), helper.make_attribute("beta", beta)])


def clips_as_hard_sigmoid(g):
    for clip in list(g.graph.node):
        if clip.op_type != "Clip" or clip_bounds(g, clip) != (0.0, 6.0):
            continue
        x = clip.input[0]
        add = g.producer(x)
        # Hard swish, x * relu6(x + 3): x * HardSigmoid(x; 1/6, 1/2) is a sixth of it.
        if add is not None and add.op_type == "Add" and g.only_use(x, clip):
            three = [i for i in add.input if g.const(i) is not None and g.const(i).size == 1 and float(g.const(i)) == 3.0]
            source = [i for i in add.input if g.const(i) is None]
            muls = g.consumers(clip.output[0])
            # The other factor of the Mul: x itself, or x times a constant (TF's hard swish
            # is (x / 6) * relu6(x + 3)), which then goes into the factor left over.
            factor = 6.0
            other = [i for i in muls[0].input if i != clip.output[0]] if len(muls) == 1 and muls[0].op_type == "Mul" else []
            scaled = g.producer(other[0]) if len(other) == 1 and source and other[0] != source[0] else None
            if (three and len(source) == 1 and scaled is not None and scaled.op_type == "Mul" and source[0] in scaled.input
                    and g.only_use(other[0], muls[0])):
                c = [g.const(i) for i in scaled.input if g.const(i) is not None and g.const(i).size == 1]
                if len(c) == 1:
                    factor *= float(c[0])
                    g.graph.node.remove(scaled)
                    muls[0].input[list(muls[0].input).index(other[0])] = source[0]
            if three and len(source) == 1 and len(muls) == 1 and muls[0].op_type == "Mul" and source[0] in muls[0].input:
                source = source[0]
                g.graph.node.remove(add)
                conv = g.producer(source)
                if abs(factor - 1.0) < 1e-6:
                    as_hard_sigmoid(clip, source, 1.0 / 6, 0.5)
                elif (conv is not None and conv.op_type == "Conv" and len(g.consumers(source)) == 1
                        and source not in g.outputs and conv.input[1] in g.consts and factor == 6.0):
                    # Six times the convolution, and the HardSigmoid a sixth as steep.
                    weight, bias = g.own_weight(conv), g.own_bias(conv)
                    g.set_const(conv.input[1], weight * np.float32(6))
                    g.set_const(conv.input[2], bias * np.float32(6))
                    as_hard_sigmoid(clip, source, 1.0 / 36, 0.5)
                else:
                    as_hard_sigmoid(clip, source, 1.0 / 6, 0.5)
                    scale_readers(g, muls[0], factor)
                continue


def split_convolutions(g):
    for split in list(g.graph.node):
        if split.op_type != "Split":
            continue
        axis = attribute(split, "axis", 0)
        sizes = g.const(split.input[1]) if len(split.input) > 1 and split.input[1] else attribute(split, "split")
        if sizes is None:
            continue
        bounds = np.cumsum([0] + [int(s) for s in np.asarray(sizes).reshape(-1)])
        x, outputs = split.input[0], list(split.output)
        conv = g.producer(x)
        if axis == 1 and conv is not None and conv.op_type == "Conv" and attribute(conv, "group", 1) == 1 \
                and conv.input[1] in g.consts and g.only_use(x, split):
            weight, bias = g.consts[conv.input[1]], g.own_bias(conv)
            original = onnx.NodeProto()
            original.CopyFrom(conv)
            position = list(g.graph.node).index(conv)
            g.graph.node.remove(split)
            g.graph.node.remove(conv)
            for k, out in enumerate(outputs):
                part = helper.make_node("Conv", [original.input[0], g.new_const(weight[bounds[k]:bounds[k + 1]], "weight"),
                                                 g.new_const(bias[bounds[k]:bounds[k + 1]], "bias")], [out])
                part.attribute.extend(original.attribute)
                g.graph.node.insert(position + k, part)
            continue
        position = list(g.graph.node).index(split)
        g.graph.node.remove(split)
        for k, out in enumerate(outputs):
            starts = g.new_const(np.array([bounds[k]], np.int64), "starts")
            ends = g.new_const(np.array([bounds[k + 1]], np.int64), "ends")
            axes = g.new_const(np.array([axis], np.int64), "axes")
            g.graph.node.insert(position + k, helper.make_node("Slice", [x, starts, ends, axes], [out]))


def optimize(model):
    g = Graph(model)
    fold_conv_affine(g)
    fold_pads(g)
    clips_as_hard_sigmoid(g)
    split_convolutions(g)
    fold_conv_affine(g)
    g.drop_unused_consts()
    onnx.checker.check_model(model, full_check=True)
    return model


def save(model, out):
    """Writes model to out atomically: a build stopped midway leaves no half-written network."""
    tmp = out + ".tmp"
    onnx.save(model, tmp)
    os.replace(tmp, out)
