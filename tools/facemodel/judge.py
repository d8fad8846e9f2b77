#!/usr/bin/python3
"""Judges the model that is built into the library, by what the library finds and hides in the files as they are.

    judge.py DATA build/release/tools/facemodel/facelist [--split val] [--misses FOLDER]

Prints, by source and by size of the face: average precision at an overlap of 0.5, precision and recall at score 0.5 and at the rule of
the blur, the landmarks' mean error as a share of the face's side, and the share of faces over 20 pixels that stay unblurred: those of
which faceMask() leaves more than two fifths as they were. Then that share by what the labels say of a face, and the false patches in 20
pictures by what the pictures show, with the bounds of 95 % confidence; and how often a face of 60 to 100 % of the picture's height is
one box. --misses draws the pictures with an unblurred face (red) or a false patch, and what was found (green).
"""

import argparse
import collections
import json
import math
import re
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
HIDDEN_SHARE = 0.6  # of the ellipse in a face's box that the blur must have changed
INNER = 0.8  # of the box's width and height that this ellipse has
NEARBY = 0.1  # overlap from which a patch belongs to a label


def detect(facelist, paths, hidden=None):
    """[(scores, boxes, landmarks)] of each picture, as the library gives them; the n-th one's blur goes to hidden/n.png."""
    command = [facelist] if hidden is None else [facelist, hidden]
    run = subprocess.run(command, input="".join(f"{path}\n" for path in paths), stdout=subprocess.PIPE, text=True, check=True)
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


def is_hidden(face, changed):
    """Whether the blur covers a face; changed is white where the picture is no longer what it was."""
    centre, half = face.box.reshape(2, 2).mean(0), (face.box[2:] - face.box[:2]) / 2 * INNER
    ellipse = np.zeros_like(changed)
    cv2.ellipse(ellipse, (tuple(map(float, centre)), tuple(map(float, 2 * half)), 0), 255, -1)
    return bool(ellipse.any()) and np.count_nonzero(changed & ellipse) >= HIDDEN_SHARE * np.count_nonzero(ellipse)


def false_patches(faces, scores, boxes):
    """How many faces are blurred where no label is."""
    credible = boxes[scores > blur_bar(len(scores))]
    if not faces or not len(credible):
        return len(credible)
    return int((metrics.overlaps(credible, np.array([face.box for face in faces], np.float32)).max(1) < NEARBY).sum())


def groups_of(photo, face):
    """What the labels say of a face."""
    for low, high in SIZES:
        if max(low, UNBLURRED_FROM) <= face.size < high:
            yield f"{int(max(low, UNBLURRED_FROM))} to {high} pixels"
    if face.kind == "con_mascarilla" or re.search("with_mask|masked_hijab|mask-wearing", photo.origin):
        yield "masked"
        if len(photo.wanted) > 1:
            yield "masked, in groups"
    if face.kind == "mascarilla_mal_puesta":
        yield "mask worn badly"
    if face.kind == "sin_mascarilla":
        yield "no mask, among masks"
    if re.search("/(hijab|burka)", photo.origin):
        yield "headscarf"
    if photo.source == "bikes":
        yield "rider"
    if face.landmarks is not None:
        left, right, nose = face.landmarks[:3]
        along = (nose - left) @ (right - left) / max((right - left) @ (right - left), 1)
        yield "turned" if not 0.25 < along < 0.75 else "not turned"
    if photo.source == "utk":  # AGE_SEX_ORIGIN_DATE
        age, _, origin, *_ = photo.path.stem.split("_")
        yield from ["child"] * (int(age) < 13) + {"0": ["light skin"], "1": ["dark skin"]}.get(origin, [])


def share(counts):
    """Of [(some, all)] of each picture: the share, and its bounds (Wilson's), faces of one picture being no independent ones."""
    some, every = np.array(counts, float).sum(0)
    p = some / every
    spread = sum((k - p * n) ** 2 for k, n in counts) / every**2
    n = min(every, p * (1 - p) / spread) if spread > 0 else every
    z = 1.96
    middle, reach = (p + z * z / (2 * n)) / (1 + z * z / n), z * math.sqrt(p * (1 - p) / n + z * z / (4 * n * n)) / (1 + z * z / n)
    return p, max(middle - reach, 0.0), min(middle + reach, 1.0)


def rate(counts):
    """Of the events in each picture: the mean, and its bounds (Byar's), for events that come in swarms as well."""
    mean = np.mean(counts)
    swarm = max(np.var(counts) / mean, 1.0) if mean > 0 else 1.0
    k = np.sum(counts) / swarm
    low = k * (1 - 1 / (9 * k) - 1.96 / (3 * math.sqrt(k))) ** 3 if k > 0 else 0.0
    high = (k + 1) * (1 - 1 / (9 * (k + 1)) + 1.96 / (3 * math.sqrt(k + 1))) ** 3
    return mean, max(low, 0.0) * swarm / len(counts), high * swarm / len(counts)


class Groups:
    """Unblurred faces and false patches, by group and picture."""

    def __init__(self):
        self.faces = collections.defaultdict(list)
        self.patches = collections.defaultdict(list)

    def add(self, photo, faces, left, patches):
        """faces: in the pixels that the network saw; left: for each whether it stays unblurred, None where that is not judged."""
        here = collections.defaultdict(lambda: [0, 0])
        for seen, face, unblurred in zip(faces, photo.faces, left):
            if unblurred is None:
                continue
            named = data.Face(seen.box, face.landmarks, False, face.kind)
            for group in ["all", *groups_of(photo, named)]:
                here[group][0] += unblurred
                here[group][1] += 1
        for group, counts in here.items():
            self.faces[group].append(counts)
        for group in ("pictures with faces",) if photo.faces else ("pictures without a face", f"  {photo.source}"):
            self.patches[group].append(patches)

    def show(self):
        print("\nunblurred faces over 20 pixels")
        for group, counts in sorted(self.faces.items()):
            left, every = np.sum(counts, 0)
            print(f"{group:<24} {left:4d} of {every:5d}  {{:5.1%}}  ({{:.1%}} to {{:.1%}})".format(*share(counts)))
        print("\nfalse patches in 20 pictures")
        for group, counts in sorted(self.patches.items(), reverse=True):
            print(f"{group:<24} {sum(counts):4d} in {len(counts):5d}  {{:5.2f}}  ({{:.2f}} to {{:.2f}})".format(*(20 * v for v in rate(counts))))
        print()


class Judgement:
    """A tally, and the same under the rule of the blur."""

    def __init__(self):
        self.tally = metrics.Tally()
        self.blurred = [0, 0, 0]  # right, false, faces
        self.unblurred = [0, 0]  # of the faces over 20 pixels: left, all

    def add(self, tally, left, bar):
        self.tally.add(tally)
        self.blurred[0] += sum(1 for score, hit in tally.hits if hit and score > bar)
        self.blurred[1] += sum(1 for score, hit in tally.hits if not hit and score > bar)
        self.blurred[2] += tally.faces
        self.unblurred[0] += left.count(True)
        self.unblurred[1] += len(left) - left.count(None)

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


def draw(folder, photo, found, left):
    image = photo.pixels()
    ratio = max(1.0, 600 / max(image.shape[:2]))
    image = cv2.resize(image, None, fx=ratio, fy=ratio, interpolation=cv2.INTER_CUBIC)

    def outline(box, colour, text=""):
        x0, y0, x1, y1 = (int(v * ratio) for v in box)
        cv2.rectangle(image, (x0, y0), (x1, y1), colour, 1)
        cv2.putText(image, text, (x0, max(10, y0 - 3)), cv2.FONT_HERSHEY_SIMPLEX, 0.4, colour, 1)

    for score, box in zip(found[0], found[1]):
        outline(box, (0, 200, 0), f"{score:.2f}")
    for face, unblurred in zip(photo.faces, left):
        if unblurred:
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
    judged, total, empty, groups = [], Judgement(), metrics.Tally(), Groups()
    for source, photos in sources.items():
        judgement = Judgement()
        with tempfile.TemporaryDirectory() as hidden:
            found_in = detect(arguments.facelist, [photo.path for photo in photos], hidden)
            changes = [cv2.imread(f"{hidden}/{number}.png", cv2.IMREAD_GRAYSCALE) for number in range(len(photos))]
        for photo, found, changed in zip(photos, found_in, changes):
            ratio = max(1.0, max(changed.shape) / DETECTION_LIMIT)
            faces = [data.Face(face.box / ratio, None if face.landmarks is None else face.landmarks / ratio, face.ignored)
                     for face in photo.faces]
            scores, boxes, landmarks = found[0], found[1] / ratio, found[2] / ratio
            tally, best = metrics.count(faces, scores, boxes, landmarks)
            bar = blur_bar(len(scores))
            assert changed.any() == (scores > bar).any(), photo.path  # or the rule here is not the library's
            left = [not is_hidden(face, changed) if score is not None and seen.size > UNBLURRED_FROM else None
                    for face, seen, score in zip(photo.faces, faces, best)]
            patches = false_patches(faces, scores, boxes)
            judgement.add(tally, left, bar)
            groups.add(photo, faces, left, patches)
            judged.append((faces, best, bar))
            if not photo.faces:
                empty.add(tally)
            if arguments.misses and (patches or True in left):
                draw(arguments.misses, photo, found, left)
        print(judgement.line(source))
        total.tally.add(judgement.tally)
        total.blurred = [a + b for a, b in zip(total.blurred, judgement.blurred)]
        total.unblurred = [a + b for a, b in zip(total.unblurred, judgement.unblurred)]
    print(total.line("all"))
    by_size(judged)
    groups.show()
    print(f"pictures without a face: {empty.pictures}, false faces over 0.95: {empty.false_faces(0.95)}, over 0.5: {empty.false_faces(0.5)}")
    judge_filling([photo for photos in sources.values() for photo in photos], arguments.facelist)


if __name__ == "__main__":
    main()
