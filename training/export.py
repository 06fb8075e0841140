"""Writes the trained networks as ONNX files with their sidecars.

    export.py --pose RUN/checkpoint.pt --detector RUN/checkpoint.pt --out models

A network reads its picture as it lies in memory: packed RGB bytes (as floats, 0..255) in one wide channel of width x 3
columns, so that nobody has to transpose it. Batch normalisation is folded into the convolutions; pose offsets leave the
network in pixels. Operator set 10 is what OpenCV 4.6 reads.
"""
import argparse
import hashlib
import json
import pathlib

import torch
from torch import nn

from detector_network import COLUMNS, ROWS, SIDE, DetectorNetwork
from pose_network import HEAT, MID, SHORT, STRIDE, PoseNetwork, Step

# name, layer in the network, channels, scale, zero point of the pose model's tensors, in their order
POSE_OUTPUTS = [("heatmaps", "heatmaps", 17, 0.08174263, 210), ("short_offsets", "short_offsets", 34, 0.7368203, 142),
                ("mid_offsets", "mid_offsets", 64, 1.4407082, 123), ("segments", "constant", 1, 1.0, 128),
                ("part_heatmaps", "constant", 24, 1.0, 128), ("long_offsets", "constant", 34, 1.0, 128)]


def fold(step):
    """The same step without normalisation."""
    convolution, norm = step.convolution, step.norm
    factor = norm.weight / torch.sqrt(norm.running_var + norm.eps)
    folded = nn.Conv2d(convolution.in_channels, convolution.out_channels, convolution.kernel_size, convolution.stride,
                       convolution.padding, convolution.dilation)
    folded.weight.data = convolution.weight.data * factor[:, None, None, None]
    folded.bias.data = norm.bias.data - norm.running_mean * factor
    return folded


class Folded(nn.Module):
    def __init__(self, step):
        super().__init__()
        self.convolution, self.residual = fold(step), step.residual

    def forward(self, x):
        y = self.convolution(x)
        return torch.relu(x + y) if self.residual else torch.relu(y)


def packed_stem(stem):
    """A stem that reads packed RGB, 0..255, as one channel."""
    outputs, channels, rows, columns = stem.weight.shape
    packed = nn.Conv2d(1, outputs, (rows, columns * channels), (stem.stride[0], stem.stride[1] * channels),
                       (stem.padding[0], stem.padding[1] * channels))
    packed.weight.data = (stem.weight.data / 255).permute(0, 2, 3, 1).reshape(outputs, 1, rows, columns * channels)
    packed.bias.data = stem.bias.data.clone()
    return packed


def part_of(head, channels, factor=1.0):
    """The head for some of the output channels, its values multiplied by factor."""
    part = nn.Conv2d(head.in_channels, len(range(*channels.indices(head.out_channels))), head.kernel_size, head.stride)
    part.weight.data = head.weight.data[channels] * factor
    part.bias.data = head.bias.data[channels] * factor
    return part


def folded_body(body):
    return nn.Sequential(*[Folded(layer) if isinstance(layer, Step) else layer for layer in body])


class ExportedPose(nn.Module):
    def __init__(self, network):
        super().__init__()
        self.stem, self.body = packed_stem(network.stem), folded_body(network.body)
        self.heat = part_of(network.head, HEAT)
        self.short = part_of(network.head, SHORT, STRIDE)
        self.mid = part_of(network.head, MID, STRIDE)

    def forward(self, x):
        x = self.body(torch.relu(self.stem(x)))
        return self.heat(x), self.short(x), self.mid(x)


class ExportedDetector(nn.Module):
    """Scores, boxes, their number and classes (0, a person: the only one there is)."""

    def __init__(self, network):
        super().__init__()
        self.stem, self.body = packed_stem(network.stem), folded_body(network.body)
        self.score, self.box = part_of(network.head, slice(0, 1)), part_of(network.head, slice(1, 5))
        self.classes = nn.Conv2d(1, 1, 1)
        self.classes.weight.data.zero_()
        self.classes.bias.data.zero_()
        self.count = nn.Conv2d(1, 1, (ROWS, COLUMNS))
        self.count.weight.data.zero_()
        self.count.bias.data.fill_(ROWS * COLUMNS)

    def forward(self, x):
        x = self.body(self.stem(x))
        score = torch.sigmoid(self.score(x))
        box = self.box(x).permute(0, 2, 3, 1).reshape(1, ROWS * COLUMNS, 4)
        return score.reshape(1, ROWS * COLUMNS), box, self.count(score).reshape(1, 1), self.classes(score).reshape(
            1, ROWS * COLUMNS)


def write(network, file, height, width, outputs, sidecar):
    network.eval()
    with torch.no_grad():
        torch.onnx.export(network, torch.rand(1, 1, height, width * 3) * 255, str(file), opset_version=10,
                          input_names=["picture"], output_names=outputs, do_constant_folding=True)
    checked = {"sha256": hashlib.sha256(file.read_bytes()).hexdigest(), **sidecar}
    pathlib.Path(str(file) + ".json").write_text(json.dumps(checked, indent=2) + "\n")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--pose", type=pathlib.Path)
    parser.add_argument("--detector", type=pathlib.Path)
    parser.add_argument("--out", type=pathlib.Path, required=True)
    arguments = parser.parse_args()
    if arguments.pose:
        network = PoseNetwork()
        network.load_state_dict(torch.load(arguments.pose)["average"])
        for name, width, height in (("pose_landscape", 1280, 720), ("pose_portrait", 720, 1280)):
            rows, columns = height // STRIDE + 1, width // STRIDE + 1
            tensors = [{"name": n, "layer": layer, "shape": [1, rows, columns, channels], "type": "uint8",
                        "scale": scale, "zero_point": zero} for n, layer, channels, scale, zero in POSE_OUTPUTS]
            write(ExportedPose(network.eval()), arguments.out / f"{name}.onnx", height, width,
                  ["heatmaps", "short_offsets", "mid_offsets"],
                  {"input": {"name": "picture", "shape": [1, height, width, 3], "type": "uint8"}, "outputs": tensors})
    if arguments.detector:
        network = DetectorNetwork()
        network.load_state_dict(torch.load(arguments.detector)["network"])
        candidates = ROWS * COLUMNS
        shapes = [("scores", [1, candidates]), ("locations", [1, candidates, 4]), ("count", [1]), ("classes", [1, candidates])]
        write(ExportedDetector(network.eval()), arguments.out / "person_detector.onnx", SIDE, SIDE,
              [n for n, _ in shapes],
              {"input": {"name": "picture", "shape": [1, SIDE, SIDE, 3], "type": "uint8"},
               "outputs": [{"name": n, "layer": n, "shape": s, "type": "float32"} for n, s in shapes]})


if __name__ == "__main__":
    main()
