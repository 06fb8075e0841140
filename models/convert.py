"""Makes the program's three networks of MoveNet multipose lightning, a graph in the format of TensorFlow.js.

Each network is the convolutional part of the graph, from the packed picture to the four raw heads; the inference
service's adapter makes the program's tensors of them, as the sidecar beside each network says. A network reads its
picture as it lies in memory: packed RGB bytes (as floats, 0..255) in one wide channel of width x 3 columns. What
OpenCV 4.6 wants decides the rest: limits of Clip as attributes, sizes of Pad as constants. Looks share their weights.
"""
import base64
import itertools
import json
import math
import typing

import numpy
from onnx import TensorProto, helper, numpy_helper

GRAPH, WEIGHTS = "movenet-multipose.json", "movenet-multipose.bin"
ROOT = "StatefulPartitionedCall/"
HEADS = {"center": "center_0/conv2d_4/BiasAdd", "regression": "kpt_regress_0/conv2d_8/BiasAdd",
         "heat": "kpt_heatmap_0/conv2d_7/BiasAdd", "offset": "kpt_offset_0/conv2d_9/BiasAdd"}
CHANNELS = {"center": 1, "regression": 34, "heat": 17, "offset": 34}
PICTURE = ROOT + "sub_1"  # the picture as (x - 127.5) / 127.5
STEP = 32                 # sides of what the network sees are multiples of it
HEAD_STRIDE = 4           # network pixels to a cell of the heads


class Refused(Exception):
    """One line for whoever started the conversion."""


class Graph:
    """The nodes of the graph by name, and their weights as numpy arrays."""

    def __init__(self, text, weights):
        try:
            document = json.loads(text)
            self.nodes = {node["name"]: node for node in document["modelTopology"]["node"]}
            entries = [entry for group in document["weightsManifest"] for entry in group["weights"]]
            self.weights = dict(self._read(entries, weights))
        except (ValueError, KeyError, TypeError) as problem:
            raise Refused(f"{GRAPH} is not a TensorFlow.js graph that fits {WEIGHTS}: {problem}") from problem

    @staticmethod
    def _read(entries, weights):
        at = 0
        for entry in entries:
            stored = numpy.dtype(entry.get("quantization", entry)["dtype"])
            count = math.prod(entry["shape"])
            values = numpy.frombuffer(weights, stored, count, at).reshape(entry["shape"])
            at += values.nbytes
            yield entry["name"], values.astype(entry["dtype"])
        if at != len(weights):
            raise ValueError(f"{len(weights)} bytes of weights where {at} are wanted")

    def node(self, name):
        if name not in self.nodes:
            raise Refused(f"{GRAPH} has no node {name}: it is another network")
        return self.nodes[name]

    def floats(self, name):
        if name not in self.weights or not numpy.isfinite(self.weights[name]).all():
            raise Refused(f"{WEIGHTS}: {name} is missing or not finite")
        return self.weights[name]


def texts(node, key):
    return [base64.b64decode(text).decode() for text in node["attr"].get(key, {}).get("list", {}).get("s", [])]


def side(size):
    return math.ceil(size / STEP) * STEP


class Network:
    """An ONNX network that grows layer by layer; sizes are (channels, height, width)."""

    def __init__(self, height, width):
        self.layers, self.constants, self.sizes = [], {}, {"picture": (1, height, width * 3)}
        self.picture = helper.make_tensor_value_info("picture", TensorProto.FLOAT, [1, 1, height, width * 3])

    def constant(self, name, values):
        """Once, however many layers read it: a constant's name says what it holds."""
        if name not in self.constants:
            self.constants[name] = numpy_helper.from_array(numpy.ascontiguousarray(values), name)
        return name

    def layer(self, kind, name, inputs, size, **attributes):
        self.layers.append(helper.make_node(kind, inputs, [name], name, **attributes))
        self.sizes[name] = size
        return name

    def convolution(self, name, source, weights, bias, stride, group=1, pads=(0, 0, 0, 0), shared=None):
        """`weights` as [outputs, inputs of a group, height, width]; `pads` as top, left, bottom, right; layers with the
        same name in `shared` have the same weights."""
        _, height, width = self.sizes[source]
        rows, columns = weights.shape[2:]
        size = (weights.shape[0], (height + pads[0] + pads[2] - rows) // stride[0] + 1,
                (width + pads[1] + pads[3] - columns) // stride[1] + 1)
        inputs = [source, self.constant((shared or name) + ".weights", weights)]
        if bias is not None:
            inputs.append(self.constant((shared or name) + ".bias", bias))
        return self.layer("Conv", name, inputs, size, kernel_shape=weights.shape[2:], strides=stride, group=group,
                          pads=pads)

    def pad(self, name, source, bottom, right):
        """Zeros below and at the right."""
        channels, height, width = self.sizes[source]
        sizes = self.constant(name + ".sizes", numpy.array([0, 0, 0, 0, 0, 0, bottom, right], numpy.int64))
        return self.layer("Pad", name, [source, sizes], (channels, height + bottom, width + right), mode="constant")

    def save(self, outputs):
        results = [helper.make_tensor_value_info(name, TensorProto.FLOAT, [1, *self.sizes[name]]) for name in outputs]
        graph = helper.make_graph(self.layers, "pose", [self.picture], results, list(self.constants.values()))
        model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 11)], producer_name="velmor_care")
        model.ir_version = 6
        return model.SerializeToString()


class Scale:
    """The graph's convolutional part on the picture shrunk so many times; its layers' names begin with `prefix`."""

    def __init__(self, graph, network, shrink, channels, prefix):
        self.graph, self.network, self.prefix = graph, network, prefix
        self.made = {PICTURE: self._front(shrink, channels)}

    def _front(self, shrink, channels):
        """From the packed picture to three channels of -1 to 1, shrunk by an exact mean; the border is mean grey."""
        weights = numpy.zeros((3, 1, shrink, shrink * 3), numpy.float32)
        for channel, packed in enumerate(channels):
            weights[channel, 0, :, packed::3] = 1 / (127.5 * shrink * shrink)
        small = self.network.convolution(self.prefix + "shrunk", "picture", weights, -numpy.ones(3, numpy.float32),
                                         (shrink, shrink * 3))
        _, rows, columns = self.network.sizes[small]
        return self.network.pad(self.prefix + "framed", small, side(rows) - rows, side(columns) - columns)

    def make(self, name):
        """The layer for a node of the graph, and before it whatever it needs."""
        if name not in self.made:
            node = self.graph.node(name)
            makers = {"_FusedConv2D": self._convolution, "FusedDepthwiseConv2dNative": self._depthwise,
                      "DepthwiseConv2dNative": self._depthwise, "AddV2": self._sum, "ResizeBilinear": self._doubled}
            if node["op"] not in makers:
                raise Refused(f"{GRAPH}: node {name} is of kind {node['op']}: it is another network")
            self.made[name] = makers[node["op"]](self.prefix + name.removeprefix(ROOT), node)
        return self.made[name]

    def _convolution(self, name, node):
        weights = self.graph.floats(node["input"][1]).transpose(3, 2, 0, 1)
        return self._activated(name, node, weights, 1)

    def _depthwise(self, name, node):
        weights = self.graph.floats(node["input"][1])
        if weights.shape[3] != 1:
            raise Refused(f"{GRAPH}: {name} has a depth multiplier: it is another network")
        return self._activated(name, node, weights.transpose(2, 3, 0, 1), weights.shape[2])

    def _activated(self, name, node, weights, group):
        """A convolution with TensorFlow's SAME padding, which puts an odd row or column at the end."""
        source = self.make(node["input"][0])
        steps = [int(step) for step in node["attr"]["strides"]["list"]["i"]][1:3]
        channels, *sizes = self.network.sizes[source]
        if channels != weights.shape[1] * group:
            raise Refused(f"{WEIGHTS}: {name} wants {weights.shape[1] * group} channels and gets {channels}")
        total = [max((math.ceil(size / step) - 1) * step + kernel - size, 0)
                 for size, step, kernel in zip(sizes, steps, weights.shape[2:])]
        if total[0] % 2 or total[1] % 2:  # OpenCV pads both ends alike
            source = self.network.pad(name + ".framed", source, *(t % 2 for t in total))
        pads = [t // 2 for t in total] * 2
        operations = texts(node, "fused_ops")
        bias = self.graph.floats(node["input"][2]) if "BiasAdd" in operations else None
        result = self.network.convolution(name, source, weights, bias, steps, group, pads, node["name"])
        size = self.network.sizes[result]
        if "Relu6" in operations:
            return self.network.layer("Clip", name + ".relu6", [result], size, min=0.0, max=6.0)
        if "Relu" in operations:
            return self.network.layer("Relu", name + ".relu", [result], size)
        return result

    def _sum(self, name, node):
        terms = [self.make(term) for term in node["input"]]
        if self.network.sizes[terms[0]] != self.network.sizes[terms[1]]:
            raise Refused(f"{GRAPH}: {name} adds two sizes: it is another network")
        return self.network.layer("Add", name, terms, self.network.sizes[terms[0]])

    def _doubled(self, name, node):
        source = self.make(node["input"][0])
        channels, height, width = self.network.sizes[source]
        scales = self.network.constant(name + ".scales", numpy.array([1, 1, 2, 2], numpy.float32))
        return self.network.layer("Resize", name, [source, "", scales], (channels, height * 2, width * 2),
                                  mode="linear", coordinate_transformation_mode="half_pixel")

    def heads(self):
        """The names of the heads' layers, in the adapter's order."""
        names = []
        for head, node in HEADS.items():
            name = self.make(ROOT + node)
            if self.network.sizes[name][0] != CHANNELS[head]:
                raise Refused(f"{GRAPH}: {node} has {self.network.sizes[name][0]} channels: it is another network")
            names.append(name)
        return names


# name, channels, scale and zero point of the pose model's tensors, in their order. Nobody reads the last three, so they
# are constant.
POSE_TENSORS = [("heatmaps", 17, 0.08174263, 210), ("short_offsets", 34, 0.7368203, 142),
                ("mid_offsets", 64, 1.4407082, 123), ("segments", 1, 1.0, 128), ("part_heatmaps", 24, 1.0, 128),
                ("long_offsets", 34, 1.0, 128)]
ADAPTED = 3
CELL = 16  # picture pixels to a cell of the pose tensors
CANDIDATES = 20


def pose_tensors(height, width):
    rows, columns = height // CELL + 1, width // CELL + 1
    return [{"name": name, "layer": "adapter" if at < ADAPTED else "constant", "shape": [1, rows, columns, channels],
             "type": "uint8", "scale": scale, "zero_point": zero}
            for at, (name, channels, scale, zero) in enumerate(POSE_TENSORS)]


def detector_tensors(_height, _width):
    shapes = {"scores": [1, CANDIDATES], "locations": [1, CANDIDATES, 4], "count": [1], "classes": [1, CANDIDATES]}
    return [{"name": name, "layer": "adapter", "shape": shape, "type": "float32"} for name, shape in shapes.items()]


# What the adapter's description of its sidecar says (platform/workstation/inference/pose_adapter.h).
RULES = {"center_threshold": 0.15, "reach": 0.3, "twin_distance": 0.08, "same_distance": 0.2, "most_people": 10}
# The logit of a joint's score becomes gain * logit + bias: the default Sensitivity is then the right bar.
POSE_CONFIDENCE = {"gain": 1.0, "bias": 0.0}
DETECTOR_CONFIDENCE = {"gain": 1.0, "bias": 0.2}
# What --eyes chooses from (docs/decisions/looks-at-a-picture.md).
POSE_EYES = {"fast": (5,), "sharp": (5, 3)}
DETECTOR_EYES = {eyes: (2,) for eyes in POSE_EYES}
RGB, BGR = (0, 1, 2), (2, 1, 0)


class Recipe(typing.NamedTuple):
    """One of the program's networks."""
    file: str
    height: int
    width: int
    eyes: dict          # by their name, their looks at the picture: pixels to one that the network sees; the first is
                        # believed most
    channels: tuple     # the packed picture's; the detector's square comes turned, which exchanges red and blue
    tensors: typing.Callable
    confidence: dict

    def looks(self):
        """All that any eyes make, each once."""
        return list(dict.fromkeys(itertools.chain.from_iterable(self.eyes.values())))


RECIPES = [Recipe("pose_landscape.onnx", 720, 1280, POSE_EYES, RGB, pose_tensors, POSE_CONFIDENCE),
           Recipe("pose_portrait.onnx", 1280, 720, POSE_EYES, RGB, pose_tensors, POSE_CONFIDENCE),
           Recipe("person_detector.onnx", 300, 300, DETECTOR_EYES, BGR, detector_tensors, DETECTOR_CONFIDENCE)]


def ranges_in(network, shrinks, ranges):
    """The ranges of layers as the sidecar wants them: each look has them all, and layers of its own in front."""
    made = {}
    for shrink in shrinks:
        prefix = f"by{shrink}/"
        made.update((prefix + layer, ends) for layer, ends in ranges.items())
    strange = [layer for layer in made if layer not in network.sizes]
    if strange:
        raise Refused(f"the ranges are of another network: there is no layer {strange[0]}")
    return made


def convert(text, weights, ranges=None):
    """The networks as {file: (ONNX bytes, sidecar without hashes)}, of what GRAPH and WEIGHTS hold. `ranges` are what the
    layers' values reach, if that is known. Raises Refused."""
    graph = Graph(text, weights)
    made = {}
    for recipe in RECIPES:
        network = Network(recipe.height, recipe.width)
        looks = recipe.looks()
        scales = [{"cell": shrink * HEAD_STRIDE,
                   "heads": Scale(graph, network, shrink, recipe.channels, f"by{shrink}/").heads()}
                  for shrink in looks]
        eyes = {name: [looks.index(shrink) for shrink in chosen] for name, chosen in recipe.eyes.items()}
        sidecar = {"input": {"name": "picture", "shape": [1, recipe.height, recipe.width, 3], "type": "uint8"},
                   "adapter": {"name": "movenet_multipose", "scales": scales, "eyes": eyes,
                               "rules": RULES, "confidence": recipe.confidence},
                   "outputs": recipe.tensors(recipe.height, recipe.width)}
        if ranges:
            sidecar["ranges"] = ranges_in(network, looks, ranges)
        made[recipe.file] = network.save([head for scale in scales for head in scale["heads"]]), sidecar
    return made
