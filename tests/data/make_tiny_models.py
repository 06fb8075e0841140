#!/usr/bin/python3
"""Writes the small networks beside it that the inference tests run (needs Debian's python3-onnx; the tests do not).

Most take a 4x6 RGB picture as one wide channel, [1, 1, 4, 18], and look at 2x2-pixel cells: a 2x3 grid.
tiny_pose:     heatmaps  [1, 2, 2, 3] = (red of the cell's top left pixel, minus its green)
               offsets   [1, 1, 2, 3] = sum of the blue of all four pixels, less 100
tiny_detector: scores [1, 6], locations [1, 6, 4], count [1], classes [1, 6] from the same cells
tiny_nan:      as tiny_pose's offsets, with a weight that is not a number
tiny_heads:    the four raw heads that an adapter reads: a person, all in one cell,
               wherever a cell is red; more than a float holds where one is blue
tiny_branches: one convolution whose channels are split into the two outputs of tiny_pose

Two have the sizes that the program needs and always say the same:
tiny_blind:    a pose network for 1280x720 that sees nobody; "bursting" is too large for a float where there is light
tiny_judge:    a person detector for 300x300 with two kinds of scores: "always" and "never"
"""
import pathlib

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

TARGET = pathlib.Path(__file__).resolve().parent


def weights(*channels):
    """One 2x6 kernel per channel from {(row, pixel, colour): weight}."""
    kernel = np.zeros((len(channels), 1, 2, 6), np.float32)
    for index, taps in enumerate(channels):
        for (row, pixel, colour), weight in taps.items():
            kernel[index, 0, row, pixel * 3 + colour] = weight
    return kernel


def conv(name, output, kernel, bias):
    tensors = [numpy_helper.from_array(kernel, name + "_w"),
               numpy_helper.from_array(np.array(bias, np.float32), name + "_b")]
    node = helper.make_node("Conv", ["picture", name + "_w", name + "_b"], [output], name=name,
                            kernel_shape=[2, 6], strides=[2, 6])
    return node, tensors


def save(name, nodes, tensors, outputs):
    graph = helper.make_graph(
        nodes, name, [helper.make_tensor_value_info("picture", TensorProto.FLOAT, [1, 1, 4, 18])],
        [helper.make_tensor_value_info(n, TensorProto.FLOAT, s) for n, s in outputs], tensors)
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 10)])
    model.ir_version = 5
    onnx.checker.check_model(model)
    onnx.save(model, TARGET / f"{name}.onnx")


RED, MINUS_GREEN = {(0, 0, 0): 1.0}, {(0, 0, 1): -1.0}
BLUE_SUM = {(r, p, 2): 1.0 for r in range(2) for p in range(2)}

heat, heat_tensors = conv("heat", "heatmaps", weights(RED, MINUS_GREEN), [0, 0])
off, off_tensors = conv("off", "offsets", weights(BLUE_SUM), [-100])
save("tiny_pose", [heat, off], heat_tensors + off_tensors, [("heatmaps", [1, 2, 2, 3]), ("offsets", [1, 1, 2, 3])])

nan, nan_tensors = conv("off", "offsets", weights({(0, 0, 0): np.nan}), [0])
save("tiny_nan", [nan], nan_tensors, [("offsets", [1, 1, 2, 3])])

def same(value, channels):
    return weights(*[{}] * channels), [value] * channels


burst = weights({(0, 0, 2): 3e38}, *[{}] * 33)
heads = [conv("center", "center", weights(RED), [-100]), conv("regression", "regression", burst, [0.25] * 34),
         conv("heat_head", "heat", *same(2, 17)), conv("offset", "offset", *same(0, 34))]
save("tiny_heads", [node for node, _ in heads], [tensor for _, tensors in heads for tensor in tensors],
     [("center", [1, 1, 2, 3]), ("regression", [1, 34, 2, 3]), ("heat", [1, 17, 2, 3]), ("offset", [1, 34, 2, 3])])

both, both_tensors = conv("both", "all", weights(RED, MINUS_GREEN, BLUE_SUM), [0, 0, -100])
split = helper.make_node("Split", ["all"], ["heatmaps", "offsets"], axis=1, split=[2, 1])
save("tiny_branches", [both, split], both_tensors, [("heatmaps", [1, 2, 2, 3]), ("offsets", [1, 1, 2, 3])])

score, score_tensors = conv("score", "score_map", weights(RED), [0])
place, place_tensors = conv("place", "place_map", weights(RED, MINUS_GREEN, BLUE_SUM, {}), [0, 0, 0, 7])
kind, kind_tensors = conv("kind", "kind_map", weights({}), [3])
shapes = [numpy_helper.from_array(np.array(s, np.int64), n)
          for n, s in (("flat", [1, 6]), ("boxes", [1, 4, 6]), ("one", [1]))]
save("tiny_detector",
     [score, place, kind,
      helper.make_node("Reshape", ["score_map", "flat"], ["scores"]),
      helper.make_node("Reshape", ["place_map", "boxes"], ["boxes_first"]),
      helper.make_node("Transpose", ["boxes_first"], ["locations"], perm=[0, 2, 1]),
      helper.make_node("Reshape", ["kind_map", "flat"], ["classes"]),
      helper.make_node("GlobalMaxPool", ["kind_map"], ["most"]),
      helper.make_node("Reshape", ["most", "one"], ["count"])],
     score_tensors + place_tensors + kind_tensors + shapes,
     [("scores", [1, 6]), ("locations", [1, 6, 4]), ("count", [1]), ("classes", [1, 6])])


# ---- networks of the program's sizes, that look at nothing ----

def constant(output, values, strides, pads=(0, 0, 0, 0)):
    """Channels that hold these values in every cell, whatever the picture."""
    tensors = [numpy_helper.from_array(np.zeros((len(values), 1, 1, 1), np.float32), output + "_w"),
               numpy_helper.from_array(np.array(values, np.float32), output + "_b")]
    return helper.make_node("Conv", ["picture", output + "_w", output + "_b"], [output], name=output,
                            kernel_shape=[1, 1], strides=strides, pads=pads), tensors


def save_sized(name, height, width, parts, more, outputs):
    graph = helper.make_graph(
        [node for node, _ in parts] + more, name,
        [helper.make_tensor_value_info("picture", TensorProto.FLOAT, [1, 1, height, width * 3])],
        [helper.make_tensor_value_info(n, TensorProto.FLOAT, s) for n, s in outputs],
        [tensor for _, tensors in parts for tensor in tensors])
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 10)])
    model.ir_version = 5
    onnx.checker.check_model(model)
    onnx.save(model, TARGET / f"{name}.onnx")


CELL = {"strides": [16, 48], "pads": (0, 0, 1, 1)}
red, red_tensors = constant("red", [0.0] * 17, **CELL)
red_tensors[0] = numpy_helper.from_array(np.ones((17, 1, 1, 1), np.float32), "red_w")
save_sized("tiny_blind", 720, 1280,
           [constant("heatmaps", [-10.0] * 17, **CELL), constant("short_offsets", [0.0] * 34, **CELL),
            constant("mid_offsets", [0.0] * 64, **CELL), (red, red_tensors)],
           [helper.make_node("Exp", ["red"], ["bursting"], name="bursting")],
           [("heatmaps", [1, 17, 46, 81]), ("short_offsets", [1, 34, 46, 81]), ("mid_offsets", [1, 64, 46, 81]),
            ("bursting", [1, 17, 46, 81])])

SQUARE = {"strides": [75, 180]}
save_sized("tiny_judge", 300, 300,
           [constant("always", [0.9], **SQUARE), constant("never", [0.1], **SQUARE),
            constant("locations", [0.0] * 4, **SQUARE), constant("classes", [0.0], **SQUARE)],
           [helper.make_node("GlobalMaxPool", ["classes"], ["count"], name="count")],
           [("always", [1, 1, 4, 5]), ("never", [1, 1, 4, 5]), ("locations", [1, 4, 4, 5]), ("classes", [1, 1, 4, 5]),
            ("count", [1, 1, 1, 1])])
