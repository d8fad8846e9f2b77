"""The labelled photographs and the training pictures composed of them."""

import json
import math
import random
from dataclasses import dataclass, field
from pathlib import Path

import cv2
import numpy as np

import boxes

# How often a source is drawn from, for pictures that show faces.
SOURCE_WEIGHT = {
    "ilc": 6.0, "maskon": 5.0, "karan": 3.0, "covered": 3.0, "mtfl": 2.5, "udacity": 2.0, "utk": 2.0, "rwmfd": 2.0, "pose": 2.0, "wider": 1.6,
    "f8k": 1.6, "bikes": 1.6, "imnet": 0.8, "bwface": 0.8, "bsds": 0.7, "street": 0.6, "catdog": 0.1,
}
# How often a whole photo with several faces is drawn from a source.
CROWD_WEIGHT = {
    "ilc": 5.0, "maskon": 4.5, "karan": 3.5, "wider": 2.5, "bikes": 2.5, "f8k": 2.0, "covered": 2.0, "rwmfd": 1.5, "pose": 1.5, "bsds": 1.0,
    "street": 1.0, "imnet": 0.7, "bwface": 0.5,
}
CORRECTIONS = Path(__file__).parent / "corrections.jsonl"
SEEN = ("face", "ignored", "nothing")
REPLACED = 0.5  # overlap above which a correction speaks of a label, and not of a face beside it
LARGEST_EMPTY_PICTURE = 320  # pixels of the long side: pictures without faces serve as backgrounds only
SMALLEST_FACE = 8.0  # pixels; a smaller face is neither face nor background
LARGEST_FED = 480  # pixels of the long side: the library shrinks a larger picture
HARD_SHARE = 0.2  # of the faces drawn, where a network has looked
LARGE_FACE = 100.0  # pixels; from here on a face may be blown up until it fills a picture
MIRRORED_LANDMARKS = [1, 0, 2, 4, 3]


@dataclass
class Face:
    box: np.ndarray  # x0, y0, x1, y1 in pixels
    landmarks: np.ndarray | None  # (5, 2)
    ignored: bool  # neither face nor background
    kind: str = ""  # what the source says of it, in its own words

    @property
    def size(self):
        """The side of the square of the same area, in pixels."""
        return math.sqrt(max((self.box[2] - self.box[0]) * (self.box[3] - self.box[1]), 1.0))


@dataclass
class Photo:
    source: str
    path: Path
    faces: list = field(default_factory=list)
    _pixels: np.ndarray | None = None
    mistakes: list = field(default_factory=list)  # what a network took for faces: shown more often
    hard: list = field(default_factory=list)  # the faces that it hardly found: likewise
    origin: str = ""  # where the source says that it was taken from

    def pixels(self):
        """Blue, green, red bytes, (h, w, 3)."""
        return self._pixels if self._pixels is not None else cv2.imread(str(self.path), cv2.IMREAD_COLOR)

    def keep_pixels(self):
        image = self.pixels()
        ratio = LARGEST_EMPTY_PICTURE / max(image.shape[:2])
        if not self.faces and ratio < 1:
            image = cv2.resize(image, None, fx=ratio, fy=ratio, interpolation=cv2.INTER_AREA)
        self._pixels = image
        return self

    @property
    def name(self):
        """source/file, as corrections call it."""
        return f"{self.source}/{'/'.join(self.path.parts[-2:])}"

    @property
    def wanted(self):
        return [face for face in self.faces if not face.ignored]


def corrections():
    """{photo's name: [(box, one of SEEN)]}: what a review of the labels saw."""
    return {entry.pop("file"): [(np.array([x, y, x + w, y + h], np.float32), what) for what in entry for x, y, w, h in entry[what]]
            for entry in map(json.loads, CORRECTIONS.read_text().splitlines())}


def keep_corrections(seen):
    """Writes what corrections() reads."""
    lines = []
    for name in sorted(name for name in seen if seen[name]):
        entry = {"file": name}
        for box, what in seen[name]:
            entry.setdefault(what, []).append([round(float(value), 1) for value in (*box[:2], *(box[2:] - box[:2]))])
        lines.append(json.dumps(entry, separators=(",", ":")) + "\n")
    CORRECTIONS.write_text("".join(lines))


def corrected(faces, correction):
    """A picture's labels with what the review saw in place of those labels that it overlaps by more than half."""
    if not correction:
        return faces
    seen = np.array([box for box, _ in correction])
    kept = [face for face in faces if boxes.overlaps(face.box[None], seen).max() <= REPLACED]
    return kept + [Face(box, None, what == "ignored") for box, what in correction if what != "nothing"]


def load(folder, split):
    """{source: [Photo]} of one split ("train" or "val") of the unpacked sources under folder, with the corrections to their labels."""
    sources = {}
    seen = corrections()
    for labels in sorted(Path(folder).glob("*/labels.jsonl")):
        photos = []
        for line in labels.read_text().splitlines():
            entry = json.loads(line)
            if entry["split"] != split:
                continue
            faces = []
            for face in entry["faces"]:
                x, y, w, h = face["box"]
                points = None if face["lm"] is None else np.array(face["lm"], np.float32).reshape(5, 2)
                faces.append(Face(np.array([x, y, x + w, y + h], np.float32), points, bool(face["ignore"]), face.get("cls", "")))
            photo = Photo(labels.parent.name, labels.parent / entry["file"], faces, origin=entry.get("src", ""))
            photo.faces = corrected(faces, seen.get(photo.name))
            photos.append(photo)
        if photos:
            sources[labels.parent.name] = photos
    return sources


def load_pixels(folder, split):
    """load(), with all pictures decoded and kept."""
    sources = load(folder, split)
    for photos in sources.values():
        for photo in photos:
            photo.keep_pixels()
    return sources


class Composer:
    """Draws training pictures: single faces, mosaics, crowded scenes, scattered cut-outs, and pictures without a face."""

    def __init__(self, sources, plain=False):
        """plain: rather photos as they are than mosaics, turned faces and all that can befall a picture."""
        self.plain = plain
        self.by_source, self.weights = [], []
        self.crowds, self.crowd_weights = [], []
        self.empty = [photo for photos in sources.values() for photo in photos if not photo.faces]
        for source, photos in sources.items():
            shown = [photo for photo in photos if photo.wanted]
            if shown:
                self.by_source.append(shown)
                self.weights.append(SOURCE_WEIGHT.get(source, 1.0))
            crowds = [photo for photo in shown if plain or len(photo.faces) > 1]
            if crowds and source in CROWD_WEIGHT:
                self.crowds.append(crowds)
                self.crowd_weights.append(CROWD_WEIGHT[source])
        large = [[photo for photo in photos if any(face.size >= LARGE_FACE for face in photo.wanted)] for photos in self.by_source]
        self.large = [photos for photos in large if photos]
        self.large_weights = [math.sqrt(len(photos)) for photos in self.large]
        self.mistaken = [photo for photos in sources.values() for photo in photos if photo.mistakes]
        self.hard = [photo for photos in sources.values() for photo in photos if photo.hard]
        self.small = [photo for photos in self.by_source for photo in photos if max(photo.pixels().shape[:2]) <= 200]

    def draw(self, groups, weights):
        """A photo of the groups, or a hard one, and which of its faces to show."""
        if self.hard and random.random() < HARD_SHARE:
            photo = random.choice(self.hard)
            return photo, random.choice(photo.hard)
        photo = random.choice(random.choices(groups, weights)[0])
        return photo, random.choice(photo.wanted)

    def background(self, canvas, rect):
        """Fill rect (x0, y0, x1, y1) with a piece of a picture without faces."""
        x0, y0, x1, y1 = rect
        image = random.choice(self.empty).pixels()
        height, width = image.shape[:2]
        ratio = max((x1 - x0) / width, (y1 - y0) / height) * random.choice((1, 1, 1, 1.3, 2))
        cut_w, cut_h = max(2, int((x1 - x0) / ratio)), max(2, int((y1 - y0) / ratio))
        left, top = random.randint(0, max(0, width - cut_w)), random.randint(0, max(0, height - cut_h))
        piece = image[top:top + cut_h, left:left + cut_w]
        if random.random() < 0.5:
            piece = piece[:, ::-1]
        canvas[y0:y1, x0:x1] = cv2.resize(piece, (x1 - x0, y1 - y0), interpolation=cv2.INTER_AREA if ratio < 1 else cv2.INTER_LINEAR)

    def put(self, canvas, faces, rect, smallest, largest, photo=None, shown=None, cut=0.12):
        """Draw a photo into rect so that one of its faces, or what is to be shown, becomes smallest to largest pixels in size.

        cut is the chance that the face may stand across the border of rect.
        """
        if photo is None:
            photo, shown = self.draw(self.by_source, self.weights)
        face = shown or random.choice(photo.wanted)
        # Blown up too far, a face teaches blur.
        largest = max(smallest, min(largest, face.size * (3.0 if face.size < LARGE_FACE else 4.0)))
        size = math.exp(random.uniform(math.log(smallest), math.log(largest)))
        angle = 0.0
        if random.random() < (0.3 if self.plain else 0.7):
            angle = random.gauss(0, 9) if random.random() < 0.8 else random.uniform(-38, 38)
        inside = 0.12 if random.random() < cut else 0.5

        def centre(low, high):
            reach = min(size * inside, (high - low) / 2)
            return random.uniform(low + reach, high - reach)

        self.place(canvas, faces, rect, photo, (face.box[:2] + face.box[2:]) / 2, size / face.size, angle,
                   np.array([centre(rect[0], rect[2]), centre(rect[1], rect[3])]), random.random() < 0.5)

    def put_whole(self, canvas, faces, photo, shown):
        """Draw a photo as large as the library sees it or somewhat smaller, as much of it as there is room for around one of its faces."""
        room = np.array(canvas.shape[1::-1], float)
        length = np.array(photo.pixels().shape[1::-1], float)
        scale = min(1, LARGEST_FED / length.max()) * random.uniform(*random.choices(((0.85, 1.2), (0.5, 0.85)), (0.65, 0.35))[0])
        face = shown.box.reshape(2, 2).mean(0)
        if mirrored := random.random() < 0.5:
            face[0] = length[0] - face[0]
        spare = room - length * scale
        corner = np.where(spare < 0, np.clip(room * np.random.uniform(0.1, 0.9, 2) - face * scale, spare, 0), spare * np.random.uniform(0, 1, 2))
        angle = random.gauss(0, 5) if random.random() < 0.3 else 0.0
        self.place(canvas, faces, (0, 0, *map(int, room)), photo, length / 2, scale, angle, corner + length * scale / 2, mirrored)

    def put_mistake(self, canvas, faces, rect, smallest, largest):
        """As put(), of something that is no face."""
        photo = random.choice(self.mistaken)
        self.put(canvas, faces, rect, smallest, largest, photo, random.choice(photo.mistakes))

    @staticmethod
    def place(canvas, faces, rect, photo, anchor, scale, angle, target, mirrored):
        """Draw photo, scaled, turned and mirrored, into rect so that its point anchor lands on target; append its faces that show."""
        image = photo.pixels()
        height, width = image.shape[:2]
        # The library shrinks by dropping pixels, so some pictures here do so too.
        nearest = scale < 1 and random.random() < 0.35
        shrunk = 1.0
        if scale < 0.7 and not nearest:
            shrunk = max(scale * 1.15, 2 / min(height, width))
            image = cv2.resize(image, (max(2, round(width * shrunk)), max(2, round(height * shrunk))), interpolation=cv2.INTER_AREA)
        x0, y0, x1, y1 = rect
        c, s = math.cos(math.radians(angle)) * scale, math.sin(math.radians(angle)) * scale
        turn = np.array([[-c if mirrored else c, -s], [-s if mirrored else s, c]])
        shift = target - turn @ anchor
        area = np.ascontiguousarray(canvas[y0:y1, x0:x1])
        # Labels count from the corner of the first pixel, warpAffine from its centre.
        warp = turn / shrunk
        cv2.warpAffine(image, np.c_[warp, shift + warp @ (0.5, 0.5) - (x0 + 0.5, y0 + 0.5)], (x1 - x0, y1 - y0), dst=area,
                       flags=cv2.INTER_NEAREST if nearest else cv2.INTER_LINEAR, borderMode=cv2.BORDER_TRANSPARENT)
        if scale > 1.2 and random.random() < 0.5:
            area = cv2.addWeighted(area, 2.2, cv2.GaussianBlur(area, (0, 0), scale), -1.2, 0)
        canvas[y0:y1, x0:x1] = area
        low, high = np.array([x0, y0]), np.array([x1, y1])
        for face in photo.faces:
            middle = turn @ ((face.box[:2] + face.box[2:]) / 2) + shift
            half = (face.box[2:] - face.box[:2]) * scale / 2
            visible = np.concatenate([np.maximum(middle - half, low), np.minimum(middle + half, high)])
            if (visible[2:] <= visible[:2]).any():
                continue
            share = (visible[2:] - visible[:2]).prod() / (4 * half.prod())
            if share < 0.2:
                continue
            points = None
            if face.landmarks is not None:
                points = face.landmarks @ turn.T + shift
                points = points[MIRRORED_LANDMARKS] if mirrored else points
                if (points < low).any() or (points > high).any():
                    points = None
            faces.append(Face(visible.astype(np.float32), points, face.ignored or share < 0.6 or max(half) * 2 < SMALLEST_FACE))

    def single(self, canvas, faces):
        height, width = canvas.shape[:2]
        self.background(canvas, (0, 0, width, height))
        short = min(height, width)
        if short <= 128:  # what such pictures are: one small photo, nearly as it was taken
            photo = random.choice(self.small)
            ratio = short / max(photo.pixels().shape[:2])
            face = random.choice(photo.wanted)
            self.put(canvas, faces, (0, 0, width, height), face.size * ratio * 0.75, face.size * ratio * 1.3, photo)
            return
        self.put(canvas, faces, (0, 0, width, height), 14, short * 0.85)

    def filling(self, canvas, faces):
        """A face of about half of the picture up to more than all of it."""
        height, width = canvas.shape[:2]
        self.background(canvas, (0, 0, width, height))
        short = min(height, width)
        photo = random.choice(random.choices(self.large, self.large_weights)[0]) if short > 200 else None
        self.put(canvas, faces, (0, 0, width, height), short * 0.5, max(height, width) * 1.0, photo)

    def mosaic(self, canvas, faces):
        height, width = canvas.shape[:2]
        cell = random.uniform(40, 150) if min(height, width) > 128 else random.uniform(30, 70)
        columns, rows = max(1, round(width / cell)), max(1, round(height / cell))

        def cuts(length, count):
            inner = [int(length * (i + random.uniform(-0.2, 0.2)) / count) for i in range(1, count)]
            return [0, *inner, length]

        xs, ys = cuts(width, columns), cuts(height, rows)
        for x0, x1 in zip(xs, xs[1:]):
            for y0, y1 in zip(ys, ys[1:]):
                side = min(x1 - x0, y1 - y0)
                self.background(canvas, (x0, y0, x1, y1))
                sizes = max(9, side * 0.22), max(12, side * 0.88)
                chance = random.random()
                if chance < 0.64:
                    self.put(canvas, faces, (x0, y0, x1, y1), *sizes, cut=0.05)
                elif chance < 0.84 and self.mistaken:
                    self.put_mistake(canvas, faces, (x0, y0, x1, y1), *sizes)

    def crowd(self, canvas, faces):
        height, width = canvas.shape[:2]
        self.background(canvas, (0, 0, width, height))
        photo, shown = self.draw(self.crowds, self.crowd_weights)
        if self.plain:
            self.put_whole(canvas, faces, photo, shown)
        elif random.random() < 0.7:
            # The whole photo, about as large as the picture, so that its faces keep the size they have in life.
            ratio = max(width, height) / max(photo.pixels().shape[:2]) * random.uniform(0.8, 1.4)
            size = shown.size * ratio
            self.put(canvas, faces, (0, 0, width, height), max(8, size * 0.8), max(10, size * 1.2), photo, shown)
        else:
            self.put(canvas, faces, (0, 0, width, height), 10, min(height, width) * 0.5, photo, shown)

    def scattered(self, canvas, faces):
        height, width = canvas.shape[:2]
        self.background(canvas, (0, 0, width, height))
        taken = []
        for _ in range(random.randint(1, 7)):
            w, h = random.randint(width // 8, width // 2), random.randint(height // 8, height // 2)
            x, y = random.randint(0, width - w), random.randint(0, height - h)
            if any(x < t[2] and t[0] < x + w and y < t[3] and t[1] < y + h for t in taken):
                continue
            taken.append((x, y, x + w, y + h))
            if random.random() < 0.7:
                self.put(canvas, faces, taken[-1], max(9, min(w, h) * 0.3), max(12, min(w, h) * 0.9), cut=0.05)
            else:
                self.background(canvas, taken[-1])

    def nothing(self, canvas, faces):
        height, width = canvas.shape[:2]
        self.background(canvas, (0, 0, width, height))
        if self.mistaken and random.random() < 0.6:
            self.put_mistake(canvas, faces, (0, 0, width, height), 10, min(height, width) * 0.6)

    def compose(self, width, height):
        """A picture (height, width, 3) and its faces."""
        canvas = np.zeros((height, width, 3), np.uint8)
        faces = []
        if min(width, height) <= 128:
            kinds, weights = (self.single, self.mosaic, self.nothing), (0.66, 0.14, 0.20)
        else:
            kinds = (self.single, self.filling, self.mosaic, self.crowd, self.scattered, self.nothing)
            filling = 0.14 if min(width, height) < 300 else 0.36
            weights = (0.20, filling, 0.04, 0.50, 0.0, 0.14) if self.plain else (0.20, filling, 0.22, 0.36, 0.04, 0.09)
        random.choices(kinds, weights)[0](canvas, faces)
        for face in faces:
            if face.landmarks is not None and not face.ignored and random.random() < 0.14:
                cover(canvas, face)
        if not self.plain or random.random() < 0.4:
            canvas = degrade(canvas)
        return np.ascontiguousarray(canvas), faces


def cover(canvas, face):
    """Dark glasses or a mask drawn over a face, which stays a face."""
    left, right, nose, mouth_left, mouth_right = face.landmarks
    colour = tuple(random.randint(0, 255) for _ in range(3)) if random.random() < 0.6 else (random.randint(0, 60),) * 3
    across, down = right - left, (mouth_left + mouth_right) / 2 - (left + right) / 2
    if random.random() < 0.4:
        for eye in (left, right):
            axes = max(1, int(np.hypot(*across) * random.uniform(0.25, 0.42)))
            cv2.ellipse(canvas, tuple(int(v) for v in eye), (axes, max(1, int(axes * random.uniform(0.5, 0.9)))), 0, 0, 360, colour, -1)
        return
    top = (left + right) / 2 + down * random.uniform(0.3, 0.55)
    bottom = (left + right) / 2 + down * random.uniform(1.45, 1.8)
    half = across * random.uniform(0.75, 0.95)
    outline = [top - half, top, top + half, bottom + half * 0.6, bottom, bottom - half * 0.6]
    cv2.fillPoly(canvas, [np.array(outline).astype(np.int32)], colour)


def degrade(image):
    """What cameras, networks and people do to pictures: blur, blocks, greys, gamma, contrast, tint, noise."""
    if random.random() < 0.15:
        image = cv2.GaussianBlur(image, (3, 3) if random.random() < 0.7 else (5, 5), 0)
    if random.random() < 0.12:
        image = cv2.imdecode(cv2.imencode(".jpg", image, [cv2.IMWRITE_JPEG_QUALITY, random.randint(25, 75)])[1], cv2.IMREAD_COLOR)
    if random.random() < 0.08:
        image = cv2.cvtColor(cv2.cvtColor(image, cv2.COLOR_BGR2GRAY), cv2.COLOR_GRAY2BGR)
    if random.random() < 0.8:
        curve = (np.arange(256) / 255.0) ** math.exp(random.gauss(0, 0.28))
        curve = (curve - 0.5) * random.uniform(0.65, 1.3) + 0.5 + random.uniform(-0.16, 0.14)
        table = np.stack([curve * (1 + random.gauss(0, 0.07)) for _ in range(3)], -1)
        image = cv2.LUT(image, (np.clip(table, 0, 1) * 255).astype(np.uint8).reshape(1, 256, 3))
    if random.random() < 0.1:
        noise = np.empty(image.shape, np.float32)
        image = cv2.add(image, cv2.randn(noise, 0, random.uniform(2, 12)), dtype=cv2.CV_8U)
    return image
