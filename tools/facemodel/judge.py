#!/usr/bin/python3
"""Judges the model that is built into the library, by the library's own detections.

    judge.py DATA build/release/tools/facemodel/facelist [--split val] [--misses FOLDER]

Prints, by source and by size of the face: average precision at an overlap of 0.5, precision and recall at score 0.5 and at the rule of
the blur, the landmarks' mean error as a share of the face's side, and the share of faces over 20 pixels that stay unblurred; false
faces in pictures without any; and how often a face of 60 to 100 % of the picture's height is one box. --misses draws the pictures with
a missed face (red), with a false one over 0.95 (blue) and with what was found (green).
"""

import argparse
import json
import math
import subprocess
import tempfile
from pathlib import Path

import cv2
import numpy as np

import data
import metrics

SIZES = [(10, 14), (14, 20), (20, 32), (32, 64), (64, 128), (128, 1000)]
UNBLURRED_FROM = 20.0  # pixels
DETECTION_LIMIT = 480.0
LARGE_HEIGHTS = [240, 360, 480]  # of the pictures that a face fills


def detect(facelist, paths):
    """[(scores, boxes, landmarks)] of each picture, as the library gives them."""
    run = subprocess.run([facelist], input="".join(f"{path}\n" for path in paths), stdout=subprocess.PIPE, text=True, check=True)
    found = []
    for line in run.stdout.splitlines():
        faces = np.array(json.loads(line)["faces"], np.float32).reshape(-1, 15)
        boxes = np.concatenate([faces[:, 1:3], faces[:, 1:3] + faces[:, 3:5]], 1)
        found.append((faces[:, 0], boxes, faces[:, 5:].reshape(-1, 5, 2)))
    assert len(found) == len(paths)
    return found


def blur_bar(count):
    """The score over which a face is blurred, with so many faces in the picture."""
    return 0.95**count


class Judgement:
    """A tally, and the same under the rule of the blur."""

    def __init__(self):
        self.tally = metrics.Tally()
        self.blurred = [0, 0, 0]  # right, false, faces
        self.unblurred = [0, 0]  # of the faces over 20 pixels: left, all

    def add(self, tally, best, faces, bar):
        self.tally.add(tally)
        self.blurred[0] += sum(1 for score, hit in tally.hits if hit and score > bar)
        self.blurred[1] += sum(1 for score, hit in tally.hits if not hit and score > bar)
        self.blurred[2] += tally.faces
        for face, score in zip(faces, best):
            if score is not None and face.size > UNBLURRED_FROM:
                self.unblurred[0] += score <= bar
                self.unblurred[1] += 1

    def line(self, name):
        text = metrics.line(name, self.tally)
        right, false, faces = self.blurred
        if not faces:
            return text
        share = self.unblurred[0] / self.unblurred[1] if self.unblurred[1] else math.nan
        return text + (f"  blur precision/recall {right / max(right + false, 1):.3f}/{right / faces:.3f}"
                       f"  unblurred {self.unblurred[0]}/{self.unblurred[1]} ({100 * share:.1f} %)")


def by_size(judged):
    """Recall by the size of the face, in pixels of the picture that the network saw."""
    for low, high in SIZES:
        hits = [(score, bar) for faces, best, bar in judged for face, score in zip(faces, best)
                if score is not None and low <= face.size < high]
        if hits:
            print(f"{low:4d} to {high:4d} pixels: {len(hits):5d} faces, found {sum(s > 0 for s, _ in hits) / len(hits):.3f}, "
                  f"blurred {sum(s > bar for s, bar in hits) / len(hits):.3f}")


def draw(folder, photo, faces, found, best):
    image = photo.pixels()
    ratio = max(1.0, 600 / max(image.shape[:2]))
    image = cv2.resize(image, None, fx=ratio, fy=ratio, interpolation=cv2.INTER_CUBIC)

    def outline(box, colour, text=""):
        x0, y0, x1, y1 = (int(v * ratio) for v in box)
        cv2.rectangle(image, (x0, y0), (x1, y1), colour, 1)
        cv2.putText(image, text, (x0, max(10, y0 - 3)), cv2.FONT_HERSHEY_SIMPLEX, 0.4, colour, 1)

    for score, box in zip(found[0], found[1]):
        outline(box, (0, 200, 0), f"{score:.2f}")
    for face, score in zip(faces, best):
        if score == 0:
            outline(face.box, (0, 0, 255))
    cv2.imwrite(str(folder / f"{photo.source}-{photo.path.stem}.png"), image)


def filling_faces(photos, folder):
    """Pictures that one face fills by 60 to 100 % of their height, cut from single faces of at least 100 pixels."""
    paths, truths = [], []
    for number, photo in enumerate(p for p in photos if len(p.faces) == 1 and p.wanted and p.faces[0].size >= 100):
        image = photo.pixels()
        x0, y0, x1, y1 = photo.faces[0].box
        available = min(image.shape[0], (y1 - y0) / 0.6)
        for share in (0.6, 0.75, 0.9, 1.0):
            height = (y1 - y0) / share
            if height > available:
                continue
            top = min(max(0.0, (y0 + y1 - height) / 2), image.shape[0] - height)
            width = min(image.shape[1], height * (1.0 if number % 2 else 0.75))
            left = min(max(0.0, (x0 + x1 - width) / 2), image.shape[1] - width)
            target = LARGE_HEIGHTS[(number + int(share * 20)) % len(LARGE_HEIGHTS)]
            ratio = target / height
            columns = max(64, int(width * ratio)) // 4 * 4
            matrix = np.array([[ratio, 0, -left * ratio], [0, ratio, -top * ratio]])
            path = folder / f"{photo.source}-{photo.path.stem}-{share}.png"
            cv2.imwrite(str(path), cv2.warpAffine(image, matrix, (columns, target), flags=cv2.INTER_CUBIC))
            paths.append(path)
            truths.append((photo.faces[0].box - (left, top, left, top)) * ratio)
    return paths, truths


def judge_filling(photos, facelist):
    with tempfile.TemporaryDirectory() as name:
        paths, truths = filling_faces(photos, Path(name))
        single = hidden = 0
        for (scores, boxes, _), truth in zip(detect(facelist, paths), truths):
            hits = metrics.overlaps(boxes, truth[None])[:, 0] >= metrics.HIT_OVERLAP if len(boxes) else np.zeros(0, bool)
            single += len(boxes) == 1 and hits[0]
            hidden += bool((hits & (scores > blur_bar(len(scores)))).any())
        print(f"faces of 60 to 100 % of the height: {len(paths)} pictures, one box {single / len(paths):.4f}, "
              f"blurred {hidden / len(paths):.4f}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("data", type=Path)
    parser.add_argument("facelist", type=Path)
    parser.add_argument("--split", default="val")
    parser.add_argument("--misses", type=Path)
    arguments = parser.parse_args()
    if arguments.misses:
        arguments.misses.mkdir(parents=True, exist_ok=True)
    sources = data.load(arguments.data, arguments.split)
    judged, total, empty = [], Judgement(), metrics.Tally()
    for source, photos in sources.items():
        judgement = Judgement()
        for photo, found in zip(photos, detect(arguments.facelist, [photo.path for photo in photos])):
            ratio = max(1.0, max(photo.pixels().shape[:2]) / DETECTION_LIMIT)
            faces = [data.Face(face.box / ratio, None if face.landmarks is None else face.landmarks / ratio, face.ignored)
                     for face in photo.faces]
            scores, boxes, landmarks = found[0], found[1] / ratio, found[2] / ratio
            tally, best = metrics.count(faces, scores, boxes, landmarks)
            bar = blur_bar(len(scores))
            judgement.add(tally, best, faces, bar)
            judged.append((faces, best, bar))
            if not photo.faces:
                empty.add(tally)
            wrong = any(not hit and score > 0.95 for score, hit in tally.hits)
            if arguments.misses and (wrong or 0.0 in best):
                draw(arguments.misses, photo, photo.faces, found, best)
        print(judgement.line(source))
        total.tally.add(judgement.tally)
        total.blurred = [a + b for a, b in zip(total.blurred, judgement.blurred)]
        total.unblurred = [a + b for a, b in zip(total.unblurred, judgement.unblurred)]
    print(total.line("all"))
    by_size(judged)
    print(f"pictures without a face: {empty.pictures}, false faces over 0.95: {empty.false_faces(0.95)}, over 0.5: {empty.false_faces(0.5)}")
    judge_filling([photo for photos in sources.values() for photo in photos], arguments.facelist)


if __name__ == "__main__":
    main()
