#!/usr/bin/python3
"""Has the labels reviewed by eye: what a network takes for faces where no label is, labels where it sees none, and boxes set aside.

    review.py DATA OUT --float float.pt [--split val]
    review.py DATA OUT

The first form draws contact sheets, OUT/SOURCE-00.png and on: the box in question green, faces labelled already blue, boxes set aside
yellow. Who looks at a sheet writes beside it OUT/SOURCE-00.txt, with the numbers of the crops:

    face: 3 4 17       the face of a person, and the box fits it; of a label (green with no blue beneath): it is right
    ignored: 5 9       neither a clear yes nor a clear no; the box fits badly; a drawing, a statue
    nothing: 1 2       surely none; what stands in no line stays as it was

The second form takes the answers into corrections.jsonl, which data.load() reads. In photos for training, labels are asked about where
the network sees nothing, and those whose face it finds surely, mirrored too, in a box that fits them badly are moved there without being
asked about. Photos for validation judge the network: their labels stay, a face that it found is left out and not added, and a picture
that shows nobody stays one unless a face was seen in it.
"""

import argparse
import collections
import itertools
import json
from dataclasses import dataclass
from pathlib import Path

import cv2
import numpy as np
import torch

import boxes
import data
from net import Net
from train import HARDLY_THE_SAME, SURE, detect

LIKELY = 0.25  # the score, in the best view, from which a box is asked about
MOVED_FROM = 0.15  # overlap below which a detection is not the label's face
SAME = 0.6  # overlap from which the mirror image shows the same box
ABUTTING = 0.2  # overlap from which an answer "face" may mean the labelled face beside it
PART = 0.4  # share of a box in a labelled face, from which on it is the detector's mistake whatever it shows
LARGEST_DOUBLED = 650  # pixels of the long side
SMALLEST_ASKED = 9.5  # pixels, of a box set aside
SMALLEST_OVERLOOKED = 16.0  # pixels, of a label
COLUMNS, ROWS, CROP, CAPTION = 10, 8, 126, 15


@dataclass
class View:
    """A photo as it is, mirrored or enlarged, for detect()."""

    photo: data.Photo
    mirrored: bool = False
    ratio: int = 1

    def pixels(self):
        image = self.photo.pixels()
        if self.ratio > 1:
            image = cv2.resize(image, None, fx=self.ratio, fy=self.ratio, interpolation=cv2.INTER_CUBIC)
        return np.ascontiguousarray(image[:, ::-1]) if self.mirrored else image

    def in_photo(self, found):
        found = found / self.ratio
        if self.mirrored:
            found[:, [0, 2]] = self.photo.pixels().shape[1] - found[:, [2, 0]]
        return found


def look(net, photos):
    """(photo, (scores, boxes) as it is, mirrored, and enlarged where it is small) of each."""
    for first in range(0, len(photos), 32):
        part = photos[first:first + 32]
        views = [View(photo, *way) for photo in part for way in ((False, 1), (True, 1), (False, 2))
                 if way[1] == 1 or max(photo.pixels().shape[:2]) <= LARGEST_DOUBLED]
        seen = collections.defaultdict(list)
        for view, (scores, found, _) in sorted(detect(net, views, LIKELY), key=lambda one: (one[0].ratio, one[0].mirrored)):
            seen[view.photo.path].append((scores, view.in_photo(found)))
        yield from ((photo, seen[photo.path]) for photo in part)


def unlabelled(photo, views):
    """The best of the boxes found in any view that lie on no label."""
    scores, found = (np.concatenate(parts) for parts in zip(*views))
    best_first = found[np.argsort(-scores)]
    labels = np.array([face.box for face in photo.faces], np.float32).reshape(-1, 4)
    return [box for box in best_first[boxes.apart(best_first)] if boxes.overlaps(box[None], labels).max(initial=0) < HARDLY_THE_SAME]


def overlooked(photo, views):
    """The labels that were found in no view, not even by a box beside the face."""
    found = np.concatenate([boxes_found for _, boxes_found in views])
    return [face.box for face in photo.wanted
            if face.size >= SMALLEST_OVERLOOKED and boxes.overlaps(face.box[None], found).max(initial=0) < HARDLY_THE_SAME]


def centred(a, b):
    """Whether the middle of each box lies in the other."""
    return all((one[:2] < (other[:2] + other[2:]) / 2).all() and ((other[:2] + other[2:]) / 2 < one[2:]).all() for one, other in ((a, b), (b, a)))


def moved(photo, views):
    """(label, box that fits its face better), where both the photo and its mirror image show that box surely."""
    (scores, found), (mirrored_scores, mirrored) = views[:2]
    labels = np.array([face.box for face in photo.faces], np.float32).reshape(-1, 4)
    overlap = boxes.overlaps(found, labels)
    for face, nearness in zip(photo.faces, overlap.T):
        if face.ignored or nearness.max(initial=0) >= data.REPLACED:
            continue
        for score, box, near, all_near in zip(scores, found, nearness, overlap):
            again = boxes.overlaps(box[None], mirrored)[0] * (mirrored_scores > SURE)
            if score > SURE and near > MOVED_FROM and near == all_near.max() and centred(box, face.box) and again.max(initial=0) > SAME:
                yield face.box, (box + mirrored[again.argmax()]) / 2
                break


def crop(photo, box):
    """The box with its surroundings and the labels there."""
    centre, reach = (box[:2] + box[2:]) / 2, max(1.45 * max(box[2:] - box[:2]), 13)
    ratio = CROP / (2 * reach)
    shift = CROP / 2 - ratio * centre
    view = cv2.warpAffine(photo.pixels(), np.array([[ratio, 0, shift[0]], [0, ratio, shift[1]]]), (CROP, CROP),
                          flags=cv2.INTER_CUBIC if ratio > 1 else cv2.INTER_AREA, borderValue=(60, 60, 60))
    for drawn, colour in [(face.box, (0, 255, 255) if face.ignored else (255, 120, 0)) for face in photo.faces] + [(box, (0, 255, 0))]:
        cv2.rectangle(view, tuple(map(int, drawn[:2] * ratio + shift)), tuple(map(int, drawn[2:] * ratio + shift)), colour, 1)
    return view


def draw_sheets(out, source, questions):
    for sheet, first in enumerate(range(0, len(questions), COLUMNS * ROWS)):
        page = np.zeros((ROWS * (CROP + CAPTION), COLUMNS * (CROP + 4), 3), np.uint8)
        for place, (photo, box) in enumerate(questions[first:first + COLUMNS * ROWS]):
            y, x = place // COLUMNS * (CROP + CAPTION), place % COLUMNS * (CROP + 4)
            page[y + CAPTION:y + CAPTION + CROP, x:x + CROP] = crop(photo, box)
            cv2.putText(page, str(first + place), (x, y + 12), cv2.FONT_HERSHEY_SIMPLEX, 0.45, (255, 255, 255), 1, cv2.LINE_AA)
        cv2.imwrite(str(out / f"{source}-{sheet:02d}.png"), page)


def ask(net, sources, out, doubting):
    """Draws the sheets; questions.jsonl keeps which crop shows what, and where labels may be doubted those that were moved."""
    seen = data.corrections()
    with open(out / "questions.jsonl", "w") as journal:
        for source, photos in sources.items():
            questions = []
            for photo, views in look(net, photos):
                answered = np.array([box for box, _ in seen.get(photo.name, [])], np.float32).reshape(-1, 4)
                aside = [face.box for face in photo.faces if face.ignored and face.size >= SMALLEST_ASKED
                         and boxes.overlaps(face.box[None], answered).max(initial=0) <= data.REPLACED]
                questions += [(photo, box) for box in itertools.chain(unlabelled(photo, views), aside)]
                if not doubting:
                    continue
                questions += [(photo, box) for box in overlooked(photo, views)]
                for label, box in moved(photo, views):
                    journal.write(json.dumps({"file": photo.name, "label": label.tolist(), "box": box.tolist()}) + "\n")
            for number, (photo, box) in enumerate(questions):
                journal.write(json.dumps({"file": photo.name, "source": source, "number": number, "box": box.tolist()}) + "\n")
            draw_sheets(out, source, questions)
            print(f"{source}: {len(questions)} boxes")


def answers(out):
    """{(source, number): what}"""
    given = {}
    for path in out.glob("*.txt"):
        for line in path.read_text().splitlines():
            what, numbers = line.split(":")
            assert what in data.SEEN, f"{path}: {line}"
            given.update({(path.stem.rsplit("-", 1)[0], int(number)): what for number in numbers.split()})
    return given


def take(folder, out):
    """Adds the answers to the corrections; once, however often it is called."""
    training, judging = ({photo.name: photo for source in data.load(folder, split).values() for photo in source} for split in ("train", "val"))
    photos = training | judging
    seen = collections.defaultdict(list, data.corrections())
    given = answers(out)
    for question in map(json.loads, (out / "questions.jsonl").read_text().splitlines()):
        photo, box = photos[question["file"]], np.array(question["box"], np.float32)
        seen_here = seen[photo.name]
        wanted = [face.box for face in photo.wanted]
        what = given.get((question["source"], question["number"])) if "number" in question else None
        if any((box == label).all() for label in wanted):
            if what in ("ignored", "nothing"):
                seen_here[:] = [(other, kind) for other, kind in seen_here if (other != box).any()] + [(box, what)]
            continue
        if boxes.overlaps(box[None], np.array([other for other, _ in seen_here], np.float32).reshape(-1, 4)).max(initial=0) > data.REPLACED:
            continue
        if "label" in question:
            seen_here += [(box, "face"), (np.array(question["label"], np.float32), "nothing")]
            continue
        if photo.name in judging and what in ("face", "ignored"):
            what = "ignored" if what == "face" or photo.faces else None
        labels = np.array(wanted + [other for other, kind in seen_here if kind == "face"], np.float32).reshape(-1, 4)
        if what == "face" and (boxes.overlaps(box[None], labels).max(initial=0) > ABUTTING or any(centred(box, label) for label in labels)):
            what = "ignored"
        part = what == "ignored" and (boxes.intersections(box[None], labels) > PART * boxes.area(box)).any()
        if what and not part:
            seen_here.append((box, what))
    data.keep_corrections(seen)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("data", type=Path)
    parser.add_argument("out", type=Path)
    parser.add_argument("--float", type=Path, help="the folded network that looks")
    parser.add_argument("--split", default="train", choices=("train", "val"))
    arguments = parser.parse_args()
    if not arguments.float:
        take(arguments.data, arguments.out)
        return
    arguments.out.mkdir(parents=True, exist_ok=True)
    net = Net(normalised=False)
    net.load_state_dict(torch.load(arguments.float))
    sources = data.load(arguments.data, arguments.split)
    ask(net.eval().to(memory_format=torch.channels_last), sources, arguments.out, doubting=arguments.split == "train")


if __name__ == "__main__":
    main()
