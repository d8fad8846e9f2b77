"""Prior boxes, their matching with faces, and the coding of boxes and landmarks; all in pixels, all in numpy.

A prior is (centre x, centre y, size, size); a box is (x0, y0, x1, y1). Coding as the library decodes it: centres and landmarks are
offsets in tenths of the prior's size, widths and heights logarithms in fifths.
"""

from functools import lru_cache

import numpy as np

from net import PRIOR_SIZES, PRIOR_STEPS

POSITIVE_OVERLAP = 0.35
AMBIGUOUS_OVERLAP = 0.28
FORCED_OVERLAP = 0.15  # a face's best prior is taken from this overlap on, whatever the others get
LARGEST_PRIOR = float(PRIOR_SIZES[-1][-1])

PART_OF_FACE = 2.5  # a prior in a face of this many times its side sees an eye, a mouth or an ear, not the face
EARS = 0.25  # how far beside its box, in widths, a face goes on

BACKGROUND, FACE, PART, IGNORED = 0, 1, 2, -1


def grid_sizes(width, height):
    """Columns and rows of the four branches: the stem rounds up, each pooling drops a lone last row or column."""
    width, height = (width + 1) // 4, (height + 1) // 4
    sizes = []
    for _ in PRIOR_STEPS:
        width, height = width // 2, height // 2
        sizes.append((width, height))
    return sizes


@lru_cache(maxsize=256)
def priors(width, height):
    """All priors of a picture in the network's order: branch, row, column, size."""
    out = []
    for (columns, rows), step, sizes in zip(grid_sizes(width, height), PRIOR_STEPS, PRIOR_SIZES):
        cy, cx, size = np.meshgrid((np.arange(rows) + 0.5) * step, (np.arange(columns) + 0.5) * step, sizes, indexing="ij")
        out.append(np.stack([cx, cy, size, size], -1).reshape(-1, 4))
    return np.concatenate(out).astype(np.float32)


def corners(prior):
    half = prior[:, 2:] / 2
    return np.concatenate([prior[:, :2] - half, prior[:, :2] + half], 1)


def area(box):
    return (box[..., 2] - box[..., 0]) * (box[..., 3] - box[..., 1])


def intersections(a, b):
    """Areas shared by each box of a (n, 4) with each of b (m, 4): (n, m)."""
    # Axis by axis: this is half of what composing a training picture costs, and numpy reduces a short last axis slowly.
    across = np.minimum(a[:, 2, None], b[:, 2]) - np.maximum(a[:, 0, None], b[:, 0])
    down = np.minimum(a[:, 3, None], b[:, 3]) - np.maximum(a[:, 1, None], b[:, 1])
    return np.maximum(across, 0) * np.maximum(down, 0)


def overlaps(a, b):
    shared = intersections(a, b)
    return shared / np.maximum(area(a)[:, None] + area(b)[None] - shared, 1e-9)


def within_reach(box):
    """The box as it is matched: one larger than the largest prior shrinks about its centre to that prior's size.

    A face that fills a picture of 480 pixels overlaps the 256 pixel prior by 0.28 at best. Matched by its true size it would teach
    one prior only, against all its neighbours, and break into several boxes.
    """
    size = box[:, 2:] - box[:, :2]
    centre = (box[:, :2] + box[:, 2:]) / 2
    half = size / 2 * np.minimum(1, LARGEST_PRIOR / np.sqrt(np.maximum(size.prod(1, keepdims=True), 1)))
    return np.concatenate([centre - half, centre + half], 1)


def match(faces, prior):
    """Targets of a picture's priors.

    faces: list of (box, landmarks (5, 2) or None, ignored). Returns the class of each prior (FACE, BACKGROUND, PART: background that
    is part of a much larger face, IGNORED), its coded targets (n, 14) and whether its landmarks count (n).
    """
    count = len(prior)
    classes = np.zeros(count, np.int64)
    targets = np.zeros((count, 14), np.float32)
    with_landmarks = np.zeros(count, np.float32)
    if not faces:
        return classes, targets, with_landmarks
    box = np.array([f[0] for f in faces], np.float32).reshape(-1, 4)
    ignored = np.array([f[2] for f in faces])
    squares = corners(prior)
    if ignored.any():
        shared = intersections(squares, box[ignored])
        inside = shared / area(squares)[:, None]
        classes[((overlaps(squares, box[ignored]) > 0.2) | (inside > 0.5)).any(1)] = IGNORED
    wanted = np.flatnonzero(~ignored)
    if not len(wanted):
        return classes, targets, with_landmarks
    overlap = overlaps(squares, within_reach(box[wanted]))
    all_within_reach = area(box[wanted]).max() <= LARGEST_PRIOR**2
    true_overlap = overlap if all_within_reach else overlaps(squares, box[wanted])
    best_face = overlap.argmax(1)
    best = overlap.max(1)
    for face, prior_index in enumerate(overlap.argmax(0)):
        if overlap[prior_index, face] > FORCED_OVERLAP:
            best_face[prior_index], best[prior_index] = face, 2
    positive = best >= POSITIVE_OVERLAP
    near = np.maximum(best, true_overlap.max(1)) >= AMBIGUOUS_OVERLAP
    much_larger = area(box) > area(squares)[:, None] * PART_OF_FACE**2
    ears = (box[:, 2:3] - box[:, :1]) * EARS * (-1, 0, 1, 0)
    part = (much_larger & (intersections(squares, box + ears) > 0.5 * area(squares)[:, None])).any(1)
    classes[part & (classes == BACKGROUND)] = PART
    classes[near] = IGNORED
    classes[positive] = FACE
    chosen = np.flatnonzero(positive)
    landmarks = np.full((len(faces), 5, 2), np.nan, np.float32)
    for i, (_, points, _) in enumerate(faces):
        if points is not None:
            landmarks[i] = points
    face_of = wanted[best_face[chosen]]
    coded = encode(box[face_of], landmarks[face_of], prior[chosen])
    known = ~np.isnan(coded).any(1)
    with_landmarks[chosen] = known
    targets[chosen] = np.nan_to_num(coded)
    return classes, targets, with_landmarks


def encode(box, landmarks, prior):
    """Boxes (n, 4) and landmarks (n, 5, 2) against their priors -> (n, 14)."""
    size = prior[:, 2:]
    centre = ((box[:, :2] + box[:, 2:]) / 2 - prior[:, :2]) / (0.1 * size)
    extent = np.log((box[:, 2:] - box[:, :2]) / size) / 0.2
    points = (landmarks - prior[:, None, :2]) / (0.1 * size[:, None])
    return np.concatenate([centre, extent, points.reshape(len(box), 10)], 1)


def decode(coded, prior):
    """The inverse of encode: boxes (n, 4) and landmarks (n, 5, 2), not clipped."""
    size = prior[:, 2:]
    centre = prior[:, :2] + coded[:, :2] * 0.1 * size
    half = size * np.exp(coded[:, 2:4] * 0.2) / 2
    points = prior[:, None, :2] + coded[:, 4:].reshape(-1, 5, 2) * 0.1 * size[:, None]
    return np.concatenate([centre - half, centre + half], 1), points


def apart(box, overlap=0.3):
    """Which of the boxes, best first, overlap none of those kept before them."""
    kept = []
    for i in range(len(box)):
        if not kept or overlaps(box[i:i + 1], box[kept]).max() <= overlap:
            kept.append(i)
    return kept


def detections(coded, score, width, height, threshold=0.5, overlap=0.3, top=1000, keep=100):
    """Faces of one picture by the library's rules: (scores, boxes clipped to the picture, landmarks), best first."""
    prior = priors(width, height)
    candidates = np.flatnonzero(score > threshold)
    candidates = candidates[np.argsort(-score[candidates], kind="stable")][:top]
    box, points = decode(coded[candidates], prior[candidates])
    box = np.stack([np.maximum(box[:, 0], 0), np.maximum(box[:, 1], 0), np.minimum(box[:, 2], width), np.minimum(box[:, 3], height)], 1)
    kept = apart(box, overlap)[:keep]
    return score[candidates[kept]], box[kept], points[kept]
