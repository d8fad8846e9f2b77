#!/usr/bin/python3
"""Makes the library's model file of a float network, and trains on through the rounding.

    quantise.py DATA OUT --float RUN/float.pt [--minutes 6] [--calibration SLOPE SHIFT]
    quantise.py DATA OUT --integer OUT/integer.pt [--minutes 6]

OUT receives facemodel.bin, integer.pt (stored units, unrounded: the file to go on from) and log.txt. With --minutes 0 the network is
rounded as it is.
"""

import argparse
import copy
import math
import time
from pathlib import Path

import torch

import data
import integer
from net import Net
from train import Pictures, begin_run, evaluate, loss_of, look_over

AVERAGING = 0.995


def calibrate(net, slope, shift):
    """Make the log odds of a face slope * log odds + shift.

    The detector drops what scores 0.5 or less before anything else sees it, and a credible face needs up to 0.95. A network trained
    to tell probabilities has found many a small face below 0.5; a slope below 1 and a positive shift bring these in and keep 0.95 high.
    """
    with torch.no_grad():
        for head in net.conf:
            head.weight.mul_(slope)
            head.bias.mul_(slope)
            head.bias[0::2] -= shift / 2
            head.bias[1::2] += shift / 2


def uncalibrated(logits, slope, shift):
    return (logits + torch.tensor([shift / 2, -shift / 2])) / slope


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("data", type=Path)
    parser.add_argument("out", type=Path)
    start = parser.add_mutually_exclusive_group(required=True)
    start.add_argument("--float", type=Path, help="a folded float network")
    start.add_argument("--integer", type=Path, help="integer.pt of a former run")
    parser.add_argument("--calibration", type=float, nargs=2, default=(1.0, 0.0), metavar=("SLOPE", "SHIFT"))
    parser.add_argument("--minutes", type=float, default=6)
    parser.add_argument("--rate", type=float, default=2e-4, help="highest step, as a share of a layer's mean weight")
    parser.add_argument("--threads", type=int, default=2)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    arguments = parser.parse_args()
    log = begin_run(arguments)
    if arguments.float:
        folded = Net(normalised=False)
        folded.load_state_dict(torch.load(arguments.float))
        calibration = tuple(arguments.calibration)
        calibrate(folded, *calibration)
        factors = integer.factors(folded.table())
        log("factors " + " ".join(f"{f:.3f}" for f in factors))
        net = integer.IntegerNet.of(folded, factors)
    else:
        saved = torch.load(arguments.integer)
        calibration = saved["calibration"]
        net = integer.IntegerNet()
        net.load_state_dict(saved["net"])
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
            loss, parts = loss_of(locations, uncalibrated(logits, *calibration), *targets)
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

    torch.save({"net": average.state_dict(), "calibration": calibration}, arguments.out / "integer.pt")
    (arguments.out / "facemodel.bin").write_bytes(integer.pack(average.rows()))
    evaluate(average, data.load(arguments.data, "val"), log, threshold=0.5)


if __name__ == "__main__":
    main()
