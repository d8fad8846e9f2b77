"""Counting hits: what train.py says of the float network and judge.py of the library."""

import math
from dataclasses import dataclass, field

import numpy as np

from boxes import overlaps

HIT_OVERLAP = 0.5
IGNORED_OVERLAP = 0.3
SMALLEST_JUDGED = 10.0  # pixels (side of the square of the same area): smaller faces and detections count neither way


@dataclass
class Tally:
    """Detections of one source, or of one range of face sizes."""

    pictures: int = 0
    faces: int = 0
    hits: list = field(default_factory=list)  # (score, 1 or 0)
    landmark_errors: list = field(default_factory=list)  # mean distance / side of the face's square

    def add(self, other):
        self.pictures += other.pictures
        self.faces += other.faces
        self.hits += other.hits
        self.landmark_errors += other.landmark_errors

    def average_precision(self):
        """Area under the precision-recall curve, precision made monotone."""
        if not self.faces or not self.hits:
            return math.nan if not self.faces else 0.0
        hit = np.array([h for _, h in sorted(self.hits, key=lambda pair: -pair[0])], float)
        recall = np.cumsum(hit) / self.faces
        precision = np.maximum.accumulate((np.cumsum(hit) / np.arange(1, len(hit) + 1))[::-1])[::-1]
        return float((np.diff(np.r_[0, recall]) * precision).sum())

    def at(self, threshold):
        """Precision and recall of the detections above a score."""
        counted = [h for s, h in self.hits if s > threshold]
        return (sum(counted) / len(counted) if counted else math.nan, sum(counted) / self.faces if self.faces else math.nan)

    def false_faces(self, threshold):
        return sum(1 for s, h in self.hits if s > threshold and not h)

    def landmark_error(self):
        return float(np.mean(self.landmark_errors)) if self.landmark_errors else math.nan


def side(box):
    return math.sqrt(max((box[2] - box[0]) * (box[3] - box[1]), 0.0))


def count(faces, scores, boxes, landmarks):
    """The tally of one picture; also, for each of its faces, the best score that hit it (0 when missed, None when not judged).

    faces and boxes are in the pixels that the network saw. Each face is hit once at most, by the best detection first.
    """
    tally = Tally(pictures=1)
    truth = np.array([f.box for f in faces], np.float32).reshape(-1, 4)
    ignored = np.array([f.ignored or f.size < SMALLEST_JUDGED for f in faces], bool)
    tally.faces = int((~ignored).sum())
    best = [None if i else 0.0 for i in ignored]
    free = ~ignored
    for i in np.argsort(-np.asarray(scores), kind="stable"):
        overlap = overlaps(np.asarray(boxes[i], np.float32)[None], truth)[0] if len(truth) else np.zeros(0)
        if free.any():
            candidate = int(np.where(free, overlap, -1).argmax())
            if overlap[candidate] >= HIT_OVERLAP:
                free[candidate] = False
                best[candidate] = float(scores[i])
                tally.hits.append((float(scores[i]), 1))
                face = faces[candidate]
                if face.landmarks is not None:
                    distance = np.hypot(*(landmarks[i] - face.landmarks).T).mean()
                    tally.landmark_errors.append(float(distance) / face.size)
                continue
        if ignored.any() and overlap[ignored].max() > IGNORED_OVERLAP or side(boxes[i]) < SMALLEST_JUDGED:
            continue
        tally.hits.append((float(scores[i]), 0))
    return tally, best


def line(name, tally):
    """One line of a table."""
    if not tally.faces:
        return f"{name:<12} {tally.pictures:5d} pictures, no face; false faces over 0.5: {tally.false_faces(0.5)}, over 0.95: {tally.false_faces(0.95)}"
    (p5, r5), (p95, r95) = tally.at(0.5), tally.at(0.95)
    return (f"{name:<12} {tally.pictures:5d} pictures {tally.faces:5d} faces  AP {tally.average_precision():.3f}  "
            f"precision/recall at 0.5 {p5:.3f}/{r5:.3f} at 0.95 {p95:.3f}/{r95:.3f}  landmarks {tally.landmark_error():.4f}")
