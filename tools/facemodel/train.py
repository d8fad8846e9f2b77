#!/usr/bin/python3
"""Trains the float network.

    train.py DATA OUT [--init checkpoint.pt] [--minutes 120]
    train.py DATA OUT --init checkpoint.pt --finish --rate 2e-4 [--minutes 60]

DATA holds the unpacked sources (FOLDER/labels.jsonl, FOLDER/img/...). OUT receives checkpoint.pt (with batch normalisation, averaged
over the run: the file to go on from), float.pt (folded: the file to quantise) and log.txt. A run that was stopped goes on with
--init OUT/checkpoint.pt.
The second form ends a training: half an hour of it brings more than hours of the first alone.
"""

import argparse
import ctypes
import math
import random
import time
from pathlib import Path

import cv2
import numpy as np
import torch
import torch.nn.functional as F

import boxes
import data
import metrics
from net import Net, load

# (width, height), pictures a batch, share of the batches. The library feeds anything up to 480 pixels, unscaled.
BATCHES = [
    ((80, 80), 96, 0.10), ((112, 96), 72, 0.05), ((136, 136), 64, 0.05), ((200, 160), 40, 0.10), ((256, 256), 24, 0.20),
    ((320, 256), 18, 0.10), ((352, 320), 14, 0.10), ((480, 360), 9, 0.10), ((360, 480), 9, 0.10), ((480, 480), 7, 0.10),
]
NEGATIVES_PER_POSITIVE = 4
BOX_WEIGHT, POINT_WEIGHT = 0.7, 0.15
PART_WEIGHT = 8.0  # of a face of its own seen in a part of one: the detector's second box
WARM_UP = 0.02
AVERAGING = 0.998
SURE = 0.9  # the score from which a face that nobody labelled is believed
HARDLY_THE_SAME = 0.35  # overlap below which a detection is not the labelled face
SMALLEST_HARD = 16.0  # pixels: smaller faces are hard because they are small


def keep_memory():
    """Have malloc keep what is freed: fetching and clearing the same pages at every step takes half of the processor's time."""
    trim_threshold, mmap_max = -1, -4
    libc = ctypes.CDLL(None)
    libc.mallopt(trim_threshold, 2**31 - 1)
    libc.mallopt(mmap_max, 0)


def begin_run(arguments):
    """What train.py and quantise.py begin with: the folder, the seed, the threads. Gives the function that logs a line."""
    arguments.out.mkdir(parents=True, exist_ok=True)
    journal = open(arguments.out / "log.txt", "a", buffering=1)
    keep_memory()
    torch.manual_seed(arguments.seed)
    torch.set_num_threads(arguments.threads)

    def log(text):
        print(text, flush=True)
        journal.write(text + "\n")

    return log


class Pictures(torch.utils.data.IterableDataset):
    """Endless batches: pictures, classes, targets, landmark weights."""

    def __init__(self, composer):
        self.composer = composer

    def __iter__(self):
        worker = torch.utils.data.get_worker_info()
        seed = worker.seed % 2**32
        random.seed(seed)
        np.random.seed(seed)
        cv2.setRNGSeed(seed % 2**31)
        cv2.setNumThreads(0)
        while True:
            (width, height), count, _ = random.choices(BATCHES, [share for *_, share in BATCHES])[0]
            prior = boxes.priors(width, height)
            pictures = np.empty((count, height, width, 3), np.uint8)
            targets = []
            for i in range(count):
                pictures[i], faces = self.composer.compose(width, height)
                targets.append(boxes.match([(f.box, f.landmarks, f.ignored) for f in faces], prior))
            yield torch.from_numpy(pictures), *(torch.from_numpy(np.stack(t)) for t in zip(*targets))


def loss_of(locations, confidences, classes, targets, with_landmarks):
    """Cross entropy over the faces and the hardest background, boxes and landmarks by smooth L1: (sum, its three terms)."""
    positive = classes == boxes.FACE
    faces = max(int(positive.sum()), 1)
    entropy = F.cross_entropy(confidences.reshape(-1, 2), positive.long().reshape(-1), reduction="none").view_as(classes)
    entropy = torch.where(classes == boxes.PART, PART_WEIGHT * entropy, entropy)
    background = (classes == boxes.BACKGROUND) | (classes == boxes.PART)
    hard = min(int(background.sum()), max(NEGATIVES_PER_POSITIVE * faces, 5 * len(classes)))
    hardest = torch.topk(entropy[background], hard).values
    class_loss = (entropy[positive].sum() + hardest.sum()) / faces
    found, wanted, known = locations[positive], targets[positive], with_landmarks[positive]
    box_loss = F.smooth_l1_loss(found[:, :4], wanted[:, :4], reduction="sum") / faces
    points = F.smooth_l1_loss(found[:, 4:], wanted[:, 4:], reduction="none").sum(1)
    point_loss = (points * known).sum() / known.sum().clamp(min=1)
    return class_loss + BOX_WEIGHT * box_loss + POINT_WEIGHT * point_loss, torch.stack([class_loss, box_loss, point_loss]).detach()


@torch.no_grad()
def detect(net, photos, threshold):
    """The photos with what the network finds in each at its own size: (photo, (scores, boxes, landmarks))."""
    net.eval()
    by_shape = {}
    for photo in photos:
        image = photo.pixels()
        by_shape.setdefault(image.shape, []).append((photo, image))
    for (height, width, _), group in by_shape.items():
        for first in range(0, len(group), 32):
            part = group[first:first + 32]
            with torch.autocast("cpu", dtype=torch.bfloat16):
                coded, logits = net(net.as_input(np.stack([image for _, image in part])))
            scores = torch.softmax(logits, -1)[..., 1].numpy()
            for (photo, _), score, location in zip(part, scores, coded.numpy()):
                yield photo, boxes.detections(location, score, width, height, threshold)


def evaluate(net, sources, log, threshold=0.05):
    """The table of a split at the pictures' own sizes; threshold is below the library's, for the whole of the curve."""
    total = metrics.Tally()
    for source, photos in sources.items():
        tally = metrics.Tally()
        for photo, found in detect(net, photos, threshold):
            tally.add(metrics.count(photo.faces, *found)[0])
        log(metrics.line(source, tally))
        total.add(tally)
    log(metrics.line("all", total))


def look_over_photo(photo, scores, found):
    """Marks in a photo what the faces found in it show: how many (faces set aside, labels set aside, mistakes, faces hardly found)."""
    labels = list(photo.faces)
    overlap = boxes.overlaps(found, np.array([face.box for face in labels], np.float32).reshape(-1, 4))
    unlabelled = misplaced = mistakes = 0
    for score, box, nearness in zip(scores, found.astype(np.float32), overlap):
        nearest = nearness.max(initial=0)
        if labels and score > SURE and nearest < HARDLY_THE_SAME:
            for face, near, best in zip(labels, nearness, overlap.max(0)):
                if near > 0 and best < HARDLY_THE_SAME and not face.ignored:
                    face.ignored = True
                    misplaced += 1
            photo.faces.append(data.Face(box, None, True))
            unlabelled += 1
        elif nearest == 0:
            photo.mistakes.append(data.Face(box, None, True))
            mistakes += 1
    surely = overlap[scores > SURE].max(0, initial=0)
    photo.hard = [face for face, nearest in zip(labels, surely)
                  if nearest < HARDLY_THE_SAME and not face.ignored and face.size >= SMALLEST_HARD]
    return unlabelled, misplaced, mistakes, len(photo.hard)


def look_over(net, sources, log, threshold=0.2):
    """Marks in photos for training what a network in hand shows of their labels and of itself.

    Where people are, faces that it is sure of and nobody labelled, and labels beside such a face (a box in the hair), are ignored
    from now on. What else scores above threshold, away from all labels, becomes a mistake of the photo, and what it is not sure of
    though it is labelled, a hard face: both are shown more often.
    """
    for source, photos in sources.items():
        marks = [look_over_photo(photo, scores, found) for photo, (scores, found, _) in detect(net, photos, threshold)]
        unlabelled, misplaced, mistakes, hard = np.sum(marks, 0)
        log(f"{source}: {unlabelled} faces that nobody labelled and {misplaced} labels beside them ignored, "
            f"{mistakes} mistakes and {hard} hard faces to show")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("data", type=Path)
    parser.add_argument("out", type=Path)
    parser.add_argument("--init", type=Path, help="a checkpoint to start from")
    parser.add_argument("--finish", action="store_true",
                        help="pictures nearly as they were taken, normalised by the checkpoint's statistics, as the library will see them")
    parser.add_argument("--minutes", type=float, default=120)
    parser.add_argument("--rate", type=float, default=1e-3, help="highest learning rate")
    parser.add_argument("--threads", type=int, default=2)
    parser.add_argument("--evaluate-every", type=float, default=20, metavar="MINUTES")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    arguments = parser.parse_args()
    log = begin_run(arguments)
    net = load(arguments.init, True) if arguments.init else Net()
    validation = data.load(arguments.data, "val")
    training = data.load_pixels(arguments.data, "train")
    log(f"seed {arguments.seed}; " + ", ".join(f"{source} {len(photos)}" for source, photos in training.items()))
    if arguments.init:
        look_over(net.folded().to(memory_format=torch.channels_last), training, log)

    net = net.to(memory_format=torch.channels_last)
    net.steady = arguments.finish
    average = {k: v.clone() for k, v in net.state_dict().items()}
    matrices = [p for p in net.parameters() if p.dim() > 1]
    vectors = [p for p in net.parameters() if p.dim() <= 1]
    optimiser = torch.optim.AdamW([{"params": matrices, "weight_decay": 1e-3}, {"params": vectors, "weight_decay": 0}], lr=arguments.rate)
    batches = torch.utils.data.DataLoader(Pictures(data.Composer(training, arguments.finish)), batch_size=None, num_workers=2, prefetch_factor=6)

    def save():
        """Writes both files; a stop in between leaves the former ones whole."""
        averaged = Net()
        averaged.load_state_dict(average)
        for name, state in (("checkpoint.pt", average), ("float.pt", averaged.folded().state_dict())):
            torch.save(state, arguments.out / (name + ".new"))
            (arguments.out / (name + ".new")).replace(arguments.out / name)
        return averaged.folded().to(memory_format=torch.channels_last)

    begin = said = judged = time.monotonic()
    terms, steps, pixels = torch.zeros(3), 0, 0
    for pictures, *targets in batches:
        progress = (time.monotonic() - begin) / (arguments.minutes * 60)
        if progress >= 1:
            break
        falling = 0.5 * (1 + math.cos(math.pi * (progress - WARM_UP) / (1 - WARM_UP)))
        rate = arguments.rate * (progress / WARM_UP if progress < WARM_UP else 0.01 + 0.99 * falling)
        for group in optimiser.param_groups:
            group["lr"] = rate
        net.train()
        with torch.autocast("cpu", dtype=torch.bfloat16):
            found = net(net.as_input(pictures))
        loss, parts = loss_of(*found, *targets)
        optimiser.zero_grad()
        loss.backward()
        torch.nn.utils.clip_grad_norm_(net.parameters(), 5.0)
        optimiser.step()
        steps += 1
        decay = min(AVERAGING, steps / (steps + 20))
        for key, value in net.state_dict().items():
            if average[key].is_floating_point():
                average[key].mul_(decay).add_(value, alpha=1 - decay)
            else:
                average[key].copy_(value)
        terms += parts
        pixels += pictures.shape[0] * pictures.shape[1] * pictures.shape[2]
        now = time.monotonic()
        if steps % 200 == 0:
            log(f"step {steps} {(now - begin) / 60:.1f} min rate {rate:.6f} class {terms[0] / 200:.3f} box {terms[1] / 200:.3f} "
                f"landmarks {terms[2] / 200:.3f} {pixels / (now - said) / 1e6:.2f} Mpixel/s")
            terms.zero_()
            pixels, said = 0, now
        if now - judged > arguments.evaluate_every * 60:
            evaluate(save(), validation, log)
            judged = time.monotonic()
    evaluate(save(), validation, log)
    log(f"done: {steps} steps")


if __name__ == "__main__":
    main()
