"""The model file: scales, factors between the layers, rounding, and the network as the library's integers run it.

The backbone's ReLUs let a layer be multiplied by any positive factor if its bias and all later biases follow; the heads then carry
the inverse of the factors in front of them. So the factors decide how much of the signed 8 bits each layer uses.
"""

import math
import struct
import zlib

import numpy as np
import torch
import torch.nn.functional as F

from net import INPUT_DIVISOR, Net

BACKBONE_LAYERS = 16
LARGEST_WEIGHT = 127
# Stored weight = real weight * scale, one scale a layer, as the library's table has them.
SCALES = [
    7261.28564, 70.4242859, 105.353317, 102.571922, 213.187363, 47.9828072, 81.0171127, 908.274902, 98.6974487, 41.8721695, 2682.20532,
    104.257317, 57.7951927, 4739.41064, 150.196915, 117.236702, 249.860596, 319.911530, 329.790100, 393.914368, 777.063721, 707.699585,
    1242.70361, 845.599976,
]
SOURCE_OF_BRANCH = [6, 9, 12, 15]  # the backbone layer whose output the heads read
MAGIC, VERSION = b"FACECNN\n", 1


def source_of_head(row):
    return SOURCE_OF_BRANCH[(row - BACKBONE_LAYERS) // 2]


def reach(weights):
    """The weight that is to become 127: the largest, or one that few exceed by so much that they are better cut."""
    return min(float(weights.abs().max()), 9.0 * float(weights.pow(2).mean().sqrt()))


def factors(layers):
    """A factor for each backbone layer that keeps the noise of rounding, summed over all 24 layers, least.

    layers: the 24 convolutions of a folded network. The noise of a layer is the squared step of rounding by the mean square of its
    weights; no layer may pass 127. With x the logarithms of the factors this is a convex problem, solved by gradient descent on
    a barrier-free form: a backbone layer's factor is held at its largest value times exp(-softplus).
    """
    weights = [layer.weight.detach() / (INPUT_DIVISOR if i == 0 else 1) for i, layer in enumerate(layers)]
    rms = torch.tensor([float(w.pow(2).mean().sqrt()) for w in weights])
    largest = torch.tensor([LARGEST_WEIGHT / (reach(w) * s) for w, s in zip(weights, SCALES)])
    scale = torch.tensor(SCALES)
    slack = torch.zeros(BACKBONE_LAYERS, requires_grad=True)
    optimiser = torch.optim.Adam([slack], lr=0.02)
    for _ in range(4000):
        logs = torch.log(largest[:BACKBONE_LAYERS]) - F.softplus(slack)
        sums = torch.cumsum(logs, 0)
        heads = torch.stack([-sums[source_of_head(row)] for row in range(BACKBONE_LAYERS, len(layers))])
        every = torch.cat([logs, heads])
        noise = (1 / (12 * (scale * rms) ** 2) * torch.exp(-2 * every)).sum()
        too_large = F.relu(every[BACKBONE_LAYERS:] - torch.log(largest[BACKBONE_LAYERS:])).pow(2).sum()
        optimiser.zero_grad()
        (torch.log(noise) + 10 * too_large).backward()
        optimiser.step()
    return torch.exp(logs).tolist()


class IntegerNet(Net):
    """The network as the library runs it, for training through the rounding.

    Weights are kept in stored units, unrounded; the forward pass rounds weights, biases and activations as the library does and lets
    gradients pass. The input is raw bytes as floats. Between layers goes (stored values, scale, stored one), a picture each its own scale.
    """

    def __init__(self):
        super().__init__(normalised=False)

    @classmethod
    def of(cls, folded, factor):
        """From a folded float network and the factors of its backbone layers."""
        net = cls()
        net.load_state_dict(folded.state_dict())
        with torch.no_grad():
            product = 1.0
            products = []
            for i, conv in enumerate(net.convs):
                product *= factor[i]
                products.append(product)
                conv.weight.mul_(factor[i] * SCALES[i] / (INPUT_DIVISOR if i == 0 else 1))
                conv.bias.mul_(product * SCALES[i])
            for row, head in enumerate(net.table()[BACKBONE_LAYERS:], BACKBONE_LAYERS):
                head.weight.mul_(SCALES[row] / products[source_of_head(row)])
                head.bias.mul_(SCALES[row])
        return net

    @classmethod
    def of_rows(cls, rows):
        """From a model file's rows."""
        net = cls()
        with torch.no_grad():
            for layer, (weights, biases) in zip(net.table(), rows):
                layer.weight.copy_(torch.tensor(weights))
                layer.bias.copy_(torch.tensor(biases))
        return net

    def as_input(self, pictures):
        return torch.as_tensor(pictures).permute(0, 3, 1, 2).float().contiguous(memory_format=torch.channels_last)

    def accumulate(self, conv, x):
        values, _, one = x
        weight = rounded(conv.weight.clamp(-LARGEST_WEIGHT, LARGEST_WEIGHT))
        sums = F.conv2d(values, weight, None, conv.stride, conv.padding)
        return sums.to(conv.bias.dtype) + rounded(conv.bias).view(1, -1, 1, 1) * one

    def backbone_layer(self, index, x):
        """x: the input's bytes, or what the layer before gave."""
        if index == 0:
            x = x, torch.ones(len(x), 1, 1, 1), torch.ones(len(x), 1, 1, 1)
        _, scale, _ = x
        sums = F.relu(self.accumulate(self.convs[index], x))
        scale = scale * SCALES[index]
        ratio = 255.0 / sums.detach().amax((1, 2, 3), keepdim=True).clamp(min=1)
        stored = sums * ratio
        stored = stored + (torch.floor(stored.detach() + 0.499) - stored.detach())
        return stored, scale * ratio, torch.floor(torch.floor(scale + 0.5) * ratio + 0.5)

    def head_layer(self, heads, branch, x):
        row = BACKBONE_LAYERS + 2 * branch + (heads is self.conf)
        return self.accumulate(heads[branch], x) / (x[1] * SCALES[row])

    def pooling(self, x):
        return super().pooling(x[0]), x[1], x[2]

    def rows(self):
        """[(weights int8 (filters, channels, k, k), biases int32)] of the 24 layers."""
        out = []
        for layer in self.table():
            weights = layer.weight.detach().clamp(-LARGEST_WEIGHT, LARGEST_WEIGHT).round().to(torch.int8).numpy()
            out.append((weights, layer.bias.detach().round().to(torch.int32).numpy()))
        return out


def rounded(x):
    return x + (torch.round(x.detach()) - x.detach())


def pack(rows):
    """The model file's bytes."""
    payload = b"".join(w.astype("<i1").tobytes() for w, _ in rows) + b"".join(b.astype("<i4").tobytes() for _, b in rows)
    return struct.pack("<8sIIII", MAGIC, VERSION, len(rows), len(payload), zlib.crc32(payload)) + payload


def unpack(file):
    """The inverse of pack for the network of net.py."""
    magic, version, count, size, checksum = struct.unpack_from("<8sIIII", file)
    payload = file[24:]
    if (magic, version, count, size, checksum) != (MAGIC, VERSION, len(SCALES), len(payload), zlib.crc32(payload)):
        raise ValueError("not a whole face model")
    shapes = [layer.weight.shape for layer in Net(normalised=False).table()]
    rows, at = [], 0
    for shape in shapes:
        rows.append([np.frombuffer(payload, "<i1", math.prod(shape), at).reshape(shape)])
        at += math.prod(shape)
    for row, shape in zip(rows, shapes):
        row.append(np.frombuffer(payload, "<i4", shape[0], at))
        at += 4 * shape[0]
    return [tuple(row) for row in rows]
