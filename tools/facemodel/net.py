"""The face detector's network in PyTorch.

Sixteen backbone convolutions, five poolings and four detection branches, each branch with a location head (14 values a prior:
4 of the box, 10 of the landmarks) and a confidence head (2 logits a prior: background, face). The convolutions stand in the
order of the library's model table: rows 0 to 15 are the backbone, rows 16 to 23 the heads, location before confidence.

The input is blue, green, red bytes divided by INPUT_DIVISOR with nothing subtracted, so that the zero padding means black here as
it does in the library.
"""

import torch
import torch.nn.functional as F
from torch import nn

INPUT_DIVISOR = 128.0

POOL, BRANCH = "pool", "branch"

# (input channels, output channels, kernel size, stride), with the poolings and the branches where they stand.
LAYOUT = [
    (3, 32, 3, 2), (32, 16, 1, 1), POOL,
    (16, 32, 3, 1), (32, 32, 1, 1), POOL,
    (32, 64, 3, 1), (64, 32, 1, 1), (32, 64, 3, 1), BRANCH, POOL,
    (64, 128, 3, 1), (128, 64, 1, 1), (64, 128, 3, 1), BRANCH, POOL,
    (128, 256, 3, 1), (256, 128, 1, 1), (128, 256, 3, 1), BRANCH, POOL,
    (256, 256, 3, 1), (256, 256, 1, 1), (256, 256, 3, 1), BRANCH,
]
BRANCH_CHANNELS = [64, 128, 256, 256]
PRIOR_SIZES = [[10, 16, 24], [32, 48], [64, 96], [128, 192, 256]]
PRIOR_STEPS = [8, 16, 32, 64]


class Net(nn.Module):
    """The network; with batch normalisation while it is trained, folded() for everything after."""

    def __init__(self, normalised=True):
        super().__init__()
        layers = [layer for layer in LAYOUT if not isinstance(layer, str)]
        self.convs = nn.ModuleList(
            nn.Conv2d(inputs, outputs, kernel, stride, kernel // 2, bias=not normalised)
            for inputs, outputs, kernel, stride in layers)
        self.bns = nn.ModuleList(
            nn.BatchNorm2d(layer[1]) if normalised else nn.Identity() for layer in layers)
        self.steady = False  # whether training uses the normalisation's running statistics instead of the batch's
        self.loc = nn.ModuleList(
            nn.Conv2d(c, 14 * len(s), 3, 1, 1) for c, s in zip(BRANCH_CHANNELS, PRIOR_SIZES))
        self.conf = nn.ModuleList(
            nn.Conv2d(c, 2 * len(s), 3, 1, 1) for c, s in zip(BRANCH_CHANNELS, PRIOR_SIZES))

    def backbone_layer(self, index, x):
        conv = self.convs[index]
        if self.steady:
            x = F.conv2d(x, *self.folded_layer(index), conv.stride, conv.padding)
        else:
            x = self.bns[index](conv(x))
        return F.relu(x, inplace=True)

    def folded_layer(self, index):
        """Weight and bias of a backbone convolution with its normalisation in them."""
        bn = self.bns[index]
        gain = bn.weight / torch.sqrt(bn.running_var + bn.eps)
        return self.convs[index].weight * gain.view(-1, 1, 1, 1), bn.bias - bn.running_mean * gain

    def pooling(self, x):
        return F.max_pool2d(x, 2)

    def head_layer(self, heads, branch, x):
        return heads[branch](x)

    def forward(self, x):
        """Pictures (n, 3, h, w) -> locations (n, priors, 14) and confidence logits (n, priors, 2), both 32-bit."""
        locations, confidences = [], []
        index = branch = 0
        for layer in LAYOUT:
            if layer == POOL:
                x = self.pooling(x)
            elif layer == BRANCH:
                for heads, values, out in ((self.loc, 14, locations), (self.conf, 2, confidences)):
                    head = self.head_layer(heads, branch, x)
                    out.append(head.permute(0, 2, 3, 1).reshape(len(head), -1, values))
                branch += 1
            else:
                x = self.backbone_layer(index, x)
                index += 1
        return torch.cat(locations, 1).float(), torch.cat(confidences, 1).float()

    def folded(self):
        """The same network for inference, the normalisation folded into weights and biases."""
        net = Net(normalised=False)
        with torch.no_grad():
            for i, conv in enumerate(net.convs):
                for parameter, value in zip((conv.weight, conv.bias), self.folded_layer(i)):
                    parameter.copy_(value)
        net.loc.load_state_dict(self.loc.state_dict())
        net.conf.load_state_dict(self.conf.state_dict())
        return net.eval()

    def as_input(self, pictures):
        """uint8 pictures (n, h, w, 3), blue green red -> the network's input."""
        x = torch.as_tensor(pictures).permute(0, 3, 1, 2).float() / INPUT_DIVISOR
        return x.contiguous(memory_format=torch.channels_last)

    def table(self):
        """The 24 convolutions of a folded network in the order of the library's model table."""
        return list(self.convs) + [head for pair in zip(self.loc, self.conf) for head in pair]


def load(path, normalised):
    """A network from a file of train.py; half precision becomes 32-bit."""
    net = Net(normalised)
    net.load_state_dict({k: v.float() if v.is_floating_point() else v for k, v in torch.load(path, map_location="cpu").items()})
    return net
