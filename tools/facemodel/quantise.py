#!/usr/bin/python3
"""Makes the library's model file of a float network, and trains on through the rounding.

    quantise.py DATA OUT --float RUN/float.pt [--minutes 6] [--passing P... --sure P...]
    quantise.py DATA OUT --integer OUT/integer.pt [--minutes 6] [--passing P... --sure P...]

OUT receives facemodel.bin, integer.pt (stored units, unrounded: the file to go on from) and log.txt. With --minutes 0 the network is
rounded as it is.
"""

import argparse
import copy
import math
import time
from pathlib import Path

import numpy as np
import torch

import boxes
import data
import integer
from net import PRIOR_SIZES, Net
from train import Pictures, begin_run, evaluate, loss_of, look_over

AVERAGING = 0.995
CONFIDENCE_SCALES = integer.SCALES[integer.BACKBONE_LAYERS + 1::2]
SIZES = [size for sizes in PRIOR_SIZES for size in sizes]


class Calibration:
    """Makes the log odds of a face slope * log odds + shift, by the size of the prior.

    The detector drops what scores 0.5 or less before anything else sees it, and a credible face needs up to 0.95. A network trained
    to tell probabilities has found many a small face below 0.5; this brings in what it gives `passing`, the smaller the face the less
    must do, and keeps 0.95 for what it gives `sure`, the larger the face the more: small parts of a large face and dogs score high, too.
    """

    def __init__(self, passing, sure):
        """One of each for every size of PRIOR_SIZES from the smallest on; the last stands for all that follow."""
        self.passing, self.sure = passing, sure
        lowest, highest = (torch.logit(torch.tensor(p + p[-1:] * (len(SIZES) - len(p)))) for p in (passing, sure))
        self.slope = torch.logit(torch.tensor(0.95)) / (highest - lowest)
        self.shift = -self.slope * lowest

    def apply(self, net, units=(1, 1, 1, 1), former=None):
        """units: what one is in the heads' biases; former: the calibration that the network has already."""
        slope, shift = self.slope, self.shift
        if former:
            slope = slope / former.slope
            shift = shift - former.shift * slope
        counts = [len(sizes) for sizes in PRIOR_SIZES]
        with torch.no_grad():
            for head, unit, slopes, shifts in zip(net.conf, units, slope.split(counts), shift.split(counts)):
                head.weight.mul_(slopes.repeat_interleave(2).view(-1, 1, 1, 1))
                head.bias.mul_(slopes.repeat_interleave(2))
                head.bias[0::2] -= shifts * unit / 2
                head.bias[1::2] += shifts * unit / 2

    def undone(self, logits, width, height):
        """What the network gave the priors of a picture before it was calibrated."""
        index = np.searchsorted(SIZES, boxes.priors(width, height)[:, 2])
        shift = self.shift[index, None] / 2
        return (logits + torch.cat([shift, -shift], 1)) / self.slope[index, None]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("data", type=Path)
    parser.add_argument("out", type=Path)
    start = parser.add_mutually_exclusive_group(required=True)
    start.add_argument("--float", type=Path, help="a folded float network")
    start.add_argument("--integer", type=Path, help="integer.pt of a former run")
    parser.add_argument("--passing", type=float, nargs="+", help="probability that becomes 0.5, by size of the prior; 0.5 or what it was")
    parser.add_argument("--sure", type=float, nargs="+", help="probability that becomes 0.95, likewise; 0.95 or what it was")
    parser.add_argument("--minutes", type=float, default=6)
    parser.add_argument("--rate", type=float, default=5e-5, help="highest step, as a share of a layer's mean weight")
    parser.add_argument("--threads", type=int, default=2)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    arguments = parser.parse_args()
    log = begin_run(arguments)
    if arguments.float:
        calibration = Calibration(arguments.passing or [0.5], arguments.sure or [0.95])
        folded = Net(normalised=False)
        folded.load_state_dict(torch.load(arguments.float))
        calibration.apply(folded)
        factors = integer.factors(folded.table())
        log("factors " + " ".join(f"{f:.3f}" for f in factors))
        net = integer.IntegerNet.of(folded, factors)
    else:
        saved = torch.load(arguments.integer)
        former = Calibration(saved["passing"], saved["sure"])
        calibration = Calibration(arguments.passing or saved["passing"], arguments.sure or saved["sure"])
        net = integer.IntegerNet()
        net.load_state_dict(saved["net"])
        calibration.apply(net, CONFIDENCE_SCALES, former)
        clipped = sum(int((head.weight.abs() > integer.LARGEST_WEIGHT + 0.5).sum()) for head in net.conf)
        log(f"{clipped} weights of the heads clipped")
    net = net.to(memory_format=torch.channels_last)
    average = copy.deepcopy(net)

    if arguments.minutes > 0:
        training = data.load_pixels(arguments.data, "train")
        look_over(average, training, log, threshold=0.5)  # calibrated, the least that the library shows
        groups = [{"params": [p], "highest": arguments.rate * float(p.detach().pow(2).mean().sqrt())} for p in net.parameters()]
        optimiser = torch.optim.Adam(groups, lr=0.0)
        batches = torch.utils.data.DataLoader(Pictures(data.Composer(training, plain=True)), batch_size=None, num_workers=2, prefetch_factor=6)
        begin, steps, terms = time.monotonic(), 0, torch.zeros(3)
        for pictures, *targets in batches:
            progress = (time.monotonic() - begin) / (arguments.minutes * 60)
            if progress >= 1:
                break
            for group in optimiser.param_groups:
                group["lr"] = group["highest"] * 0.5 * (1 + math.cos(math.pi * progress))
            with torch.autocast("cpu", dtype=torch.bfloat16):
                locations, logits = net(net.as_input(pictures))
            loss, parts = loss_of(locations, calibration.undone(logits, pictures.shape[2], pictures.shape[1]), *targets)
            optimiser.zero_grad()
            loss.backward()
            torch.nn.utils.clip_grad_norm_(net.parameters(), 1.0)
            optimiser.step()
            steps += 1
            decay = min(AVERAGING, steps / (steps + 20))
            with torch.no_grad():
                for mean, value in zip(average.parameters(), net.parameters()):
                    mean.mul_(decay).add_(value, alpha=1 - decay)
            terms += parts
            if steps % 100 == 0:
                log(f"step {steps} {(time.monotonic() - begin) / 60:.1f} min class {terms[0] / 100:.3f} box {terms[1] / 100:.3f} "
                    f"landmarks {terms[2] / 100:.3f}")
                terms.zero_()

    torch.save({"net": average.state_dict(), "passing": calibration.passing, "sure": calibration.sure}, arguments.out / "integer.pt")
    (arguments.out / "facemodel.bin").write_bytes(integer.pack(average.rows()))
    evaluate(average, data.load(arguments.data, "val"), log, threshold=0.5)


if __name__ == "__main__":
    main()
