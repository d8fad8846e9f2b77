#!/usr/bin/python3
"""Searches the calibration of a rounded network (see quantise.py) on the pictures for validation.

    calibrate.py DATA OUT/integer.pt [--clean PHOTO...] [--minutes 3]

Prints --passing and --sure for quantise.py --integer OUT/integer.pt --minutes 0, and what they are worth: the share of the faces over
20 pixels that stay unblurred, the false patches in pictures without a face, recall by size, average precision, and how often a face
that fills the picture is one box. --clean names photos in which nothing may be blurred, by a margin.
"""

import argparse
import math
import tempfile
import time
from pathlib import Path

import cv2
import numpy as np
import torch

import boxes
import data
import integer
import judge
import metrics
from quantise import SIZES, Calibration

LEAST_ODDS = -3.1  # of a face before calibration; lower ones never pass
MOST_ODDS = 7.6  # flatter than this, too little of the confidence head is left to round
MOST_FALSE = 1 / 20  # patches a picture without faces
MOST_IN_A_SWARM = 4  # so many are counted of one picture where a single one must not decide
MARGIN = 0.01  # below the blur's bar, for what must stay clean
SMALLEST_GAP = 1.0  # between the log odds that pass and those that are sure


class Scene:
    """One picture: its faces in the pixels that the network sees, and all that may become a detection, best first."""

    def __init__(self, kind, image, faces):
        self.kind, self.image, self.faces = kind, image, faces
        self.truth = np.array([face.box for face in faces], np.float32).reshape(-1, 4)

    def look(self, net, calibration):
        height, width = self.image.shape[:2]
        with torch.no_grad(), torch.autocast("cpu", dtype=torch.bfloat16):
            coded, logits = net(net.as_input(self.image[None]))
        logits = calibration.undone(logits, width, height)[0].numpy()
        odds = logits[:, 1] - logits[:, 0]
        order = np.argsort(-odds, kind="stable")
        order = order[odds[order] > LEAST_ODDS]
        prior = boxes.priors(width, height)[order]
        box, _ = boxes.decode(coded[0].numpy()[order], prior)
        self.boxes = np.clip(box, 0, [width, height, width, height])
        self.odds, self.size = odds[order], np.searchsorted(SIZES, prior[:, 2])
        self.image = None

    def detections(self, slope, shift):
        """As boxes.detections(), many times faster for few candidates: (scores, boxes), best first."""
        odds = self.odds * slope[self.size] + shift[self.size]
        left = np.flatnonzero(odds > 0)
        left = left[np.argsort(-odds[left], kind="stable")][:1000]
        kept = []
        while len(left) and len(kept) < 100:
            kept.append(left[0])
            left = left[1:][boxes.overlaps(self.boxes[left[:1]], self.boxes[left[1:]])[0] <= 0.3]
        return 1 / (1 + np.exp(-odds[kept])), self.boxes[kept]


def shrunk(image):
    """As the library shrinks it, and how much."""
    ratio = max(1.0, max(image.shape[:2]) / judge.DETECTION_LIMIT)
    size = (round(image.shape[1] / ratio), round(image.shape[0] / ratio))
    return (cv2.resize(image, size, interpolation=cv2.INTER_NEAREST) if ratio > 1 else image), ratio


def scenes(folder, clean):
    photos = [photo for photos in data.load(folder, "val").values() for photo in photos]
    for photo in photos:
        image, ratio = shrunk(photo.pixels())
        if min(image.shape[:2]) >= 63:
            yield Scene("photo", image, [data.Face(face.box / ratio, None, face.ignored) for face in photo.faces])
    for path in clean:
        yield Scene("clean", shrunk(cv2.imread(str(path)))[0], [])
    with tempfile.TemporaryDirectory() as name:
        for path, truth in zip(*judge.filling_faces(photos, Path(name))):
            yield Scene("filling", cv2.imread(str(path)), [data.Face(truth, None, False)])


def worth(pictures, passing, sure):
    """What a calibration is worth: (the smaller the better, a line that says so)."""
    slope = math.log(19) / (sure - passing)
    shift = -slope * passing
    large = unblurred = peopled = beside = empty = patches = swarms = filled = single = dirty = 0
    recall = {sizes: [0, 0] for sizes in judge.SIZES}
    total = metrics.Tally()
    for scene in pictures:
        scores, found = scene.detections(slope, shift)
        bar = judge.blur_bar(len(scores))
        if scene.kind == "clean":
            dirty += np.count_nonzero(scores > bar - MARGIN)
            continue
        if scene.kind == "filling":
            filled += 1
            single += len(found) == 1 and metrics.overlaps(found, scene.truth)[0, 0] >= metrics.HIT_OVERLAP
            continue
        tally, best = metrics.count(scene.faces, scores, found, None)
        total.add(tally)
        if not scene.faces:
            false = np.count_nonzero(scores > bar)
            empty, patches, swarms = empty + 1, patches + false, swarms + min(false, MOST_IN_A_SWARM)
        else:
            peopled, beside = peopled + 1, beside + judge.false_patches(scene.faces, scores, found)
        for face, score in zip(scene.faces, best):
            if score is None:
                continue
            for (low, high), counts in recall.items():
                if low <= face.size < high:
                    counts[0] += score > 0
                    counts[1] += 1
            if face.size > judge.UNBLURRED_FROM:
                large += 1
                unblurred += score <= bar
    share, precision = 100 * unblurred / large, total.average_precision()
    found = [some / max(every, 1) for some, every in recall.values()]
    cost = (share + 80 * max(0, swarms / empty - 0.6 * MOST_FALSE) + 60 * max(0, patches / empty - MOST_FALSE)
            + 6 * patches / empty + 6 * beside / peopled + 100 * max(0, 0.99 - single / max(filled, 1)) + 10 * dirty
            + 25 * max(0, 0.66 - found[0]) + 30 * max(0, 0.84 - found[1]) + 60 * max(0, 0.937 - found[2]) - 20 * precision)
    return cost, (f"unblurred {share:.2f} %, {patches} false patches in {empty} pictures, {beside} in {peopled} with faces, {dirty} in clean ones, "
                  f"one box {single / max(filled, 1):.3f}, AP {precision:.3f}, found by size " + " ".join(f"{value:.3f}" for value in found))


def search(cost_of, passing, sure, minutes, seed):
    """Simulated annealing from a calibration, in log odds."""
    random = np.random.default_rng(seed)
    here = best = (cost_of(passing, sure), passing, sure)
    begin = time.monotonic()
    while (progress := (time.monotonic() - begin) / (60 * minutes)) < 1:
        low, high = here[1].copy(), here[2].copy()
        for place in random.integers(0, 2 * len(SIZES), random.integers(1, 4)):
            (low if place < len(SIZES) else high)[place % len(SIZES)] += random.normal(0, 0.1 + 0.4 * (1 - progress))
        if (high - low < SMALLEST_GAP).any() or (low < LEAST_ODDS).any() or (high > MOST_ODDS).any():
            continue
        cost = cost_of(low, high)
        if cost < here[0] or random.random() < math.exp((here[0] - cost) / (0.15 * (1 - progress) + 1e-3)):
            here = (cost, low, high)
            best = min(best, here, key=lambda calibration: calibration[0])
    return best[1:]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("data", type=Path)
    parser.add_argument("integer", type=Path)
    parser.add_argument("--clean", type=Path, nargs="*", default=[])
    parser.add_argument("--minutes", type=float, default=3)
    parser.add_argument("--threads", type=int, default=2)
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    torch.set_num_threads(arguments.threads)
    saved = torch.load(arguments.integer)
    calibration = Calibration(saved["passing"], saved["sure"])
    net = integer.IntegerNet()
    net.load_state_dict(saved["net"])
    pictures = list(scenes(arguments.data, arguments.clean))
    for scene in pictures:
        scene.look(net, calibration)

    def odds(probabilities):
        return torch.logit(torch.tensor((probabilities + probabilities[-1:] * len(SIZES))[:len(SIZES)])).numpy()

    passing, sure = odds(saved["passing"]), odds(saved["sure"])
    print("as it is:", worth(pictures, passing, sure)[1], flush=True)
    passing, sure = search(lambda low, high: worth(pictures, low, high)[0], passing, sure, arguments.minutes, arguments.seed)
    print("now:", worth(pictures, passing, sure)[1])
    print("--passing", *(f"{1 / (1 + math.exp(-value)):.4f}" for value in passing),
          "--sure", *(f"{1 / (1 + math.exp(-value)):.4f}" for value in sure))


if __name__ == "__main__":
    main()
