"""The person detector: says whether a square of 300x300 pixels shows an upright person.

Input: RGB in 0..1. Output: 20 candidates, one for each cell of a 4x5 grid over the square, with five channels: a logit
and the box (top, left, bottom, right as fractions of the square).
"""
from torch import nn

from pose_network import Step

SIDE = 300
ROWS, COLUMNS = 4, 5
# Centres of the cells in pixels.
CENTRES_Y = [60.0, 120.0, 180.0, 240.0]
CENTRES_X = [30.0, 90.0, 150.0, 210.0, 270.0]


class DetectorNetwork(nn.Module):
    def __init__(self):
        super().__init__()
        self.stem = nn.Conv2d(3, 24, 4, 4)
        self.body = nn.Sequential(
            nn.ReLU(), Step(24, 32, stride=2), Step(32, 32), Step(32, 64, stride=2), Step(64, 64), Step(64, 64),
            Step(64, 96, stride=2), Step(96, 96), Step(96, 96))
        self.head = nn.Conv2d(96, 5, (4, 2), (2, 2))

    def forward(self, x):
        return self.head(self.body(self.stem(x)))
