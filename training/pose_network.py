"""The pose network: one fully convolutional network for both picture sizes.

Input: RGB in 0..1, any height and width that are multiples of 16. Output: a grid with a cell every 16 pixels, the first
one on the picture's corner (81x46 for 1280x720), with 115 channels: 17 heatmap logits, 34 short offsets (17 y, then 17
x), 64 mid offsets (forward y 16, forward x 16, backward y 16, backward x 16). Offsets are in cells while training and in
pixels in the exported network.
"""
import torch
from torch import nn

STRIDE = 16
KEYPOINTS = 17
HEAT, SHORT, MID = slice(0, 17), slice(17, 51), slice(51, 115)
OUTPUTS = 115
# The forward edges of the body tree; the decoder knows them in this order.
EDGES = [(0, 1), (1, 3), (0, 2), (2, 4), (0, 5), (5, 7), (7, 9), (5, 11), (11, 13), (13, 15),
         (0, 6), (6, 8), (8, 10), (6, 12), (12, 14), (14, 16)]


class Step(nn.Module):
    """Convolution, batch normalisation and, when shapes allow, a residual connection; then ReLU."""

    def __init__(self, inputs, outputs, stride=1, dilation=1, kernel=3):
        super().__init__()
        padding = dilation * (kernel // 2)
        self.convolution = nn.Conv2d(inputs, outputs, kernel, stride, padding, dilation, bias=False)
        self.norm = nn.BatchNorm2d(outputs)
        self.residual = inputs == outputs and stride == 1

    def forward(self, x):
        y = self.norm(self.convolution(x))
        return torch.relu(x + y if self.residual else y)


class PoseNetwork(nn.Module):
    def __init__(self, early=32, middle=48, late=96):
        super().__init__()
        self.stem = nn.Conv2d(3, early, 4, 4, 2)
        self.body = nn.Sequential(
            Step(early, middle, stride=2), Step(middle, middle), Step(middle, late, stride=2),
            *[Step(late, late, dilation=d) for d in (1, 2, 1, 4, 1, 2)],
            Step(late, 128, kernel=1))
        self.head = nn.Conv2d(128, OUTPUTS, 1)
        nn.init.normal_(self.head.weight, std=0.01)
        with torch.no_grad():
            self.head.bias.zero_()
            self.head.bias[HEAT] = -4.0

    def forward(self, x):
        return self.head(self.body(torch.relu(self.stem(x))))
