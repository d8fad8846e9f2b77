#!/usr/bin/python3
"""What can go wrong unseen while a model is made. FACELIST and PICTURE name the command of the build and a photograph."""

import json
import os
import random
import subprocess
import tempfile
import unittest
import unittest.mock
from pathlib import Path

import cv2
import numpy as np
import torch

import boxes
import calibrate
import data
import integer
import judge
import metrics
import quantise
import review
import train
from net import Net

MODEL = Path(__file__).parent.parent.parent / "multimedia" / "facedetectcnn" / "facemodel.bin"


def square(x, y, side):
    return np.array([x - side / 2, y - side / 2, x + side / 2, y + side / 2], np.float32)


class Priors(unittest.TestCase):
    def test_lie_where_the_network_puts_them(self):
        for width, height in ((64, 64), (80, 80), (179, 138), (480, 359), (65, 480)):
            with torch.no_grad():
                locations, _ = Net(normalised=False)(torch.zeros(1, 3, height, width))
            self.assertEqual(len(boxes.priors(width, height)), locations.shape[1])
        prior = boxes.priors(200, 100)
        self.assertEqual(prior[0].tolist(), [4, 4, 10, 10])
        self.assertEqual(prior[3 * 25].tolist(), [4, 12, 10, 10])

    def test_code_boxes_and_landmarks_both_ways(self):
        prior = boxes.priors(96, 96)[:40]
        random = np.random.default_rng(1)
        box = np.sort(random.uniform(0, 96, (40, 2, 2)), 1).reshape(40, 4) + [0, 0, 1, 1]
        points = random.uniform(-10, 100, (40, 5, 2))
        decoded, decoded_points = boxes.decode(boxes.encode(box, points, prior), prior)
        np.testing.assert_allclose(decoded, box, atol=1e-4)
        np.testing.assert_allclose(decoded_points, points, atol=1e-4)


class Matching(unittest.TestCase):
    def test_gives_each_face_a_prior_and_leaves_doubt_out(self):
        prior = boxes.priors(480, 480)
        landmarks = square(0, 0, 1).reshape(2, 2).repeat(3, 0)[:5] + 100
        cases = {
            "on a prior": (square(8 * 12.5, 8 * 12.5, 16), 1),
            "small, between four cells": (square(160, 160, 9), 1),
            "filling the picture": (square(240, 240, 480), 4),
        }
        for name, (box, fewest) in cases.items():
            with self.subTest(name):
                classes, targets, known = boxes.match([(box, landmarks, False)], prior)
                positive = classes == boxes.FACE
                self.assertGreaterEqual(positive.sum(), fewest)
                decoded, _ = boxes.decode(targets[positive], prior[positive])
                np.testing.assert_allclose(decoded, np.tile(box, (positive.sum(), 1)), atol=1e-2)
                self.assertTrue(known[positive].all())
                self.assertFalse(known[~positive].any())

    def test_takes_an_ignored_face_for_neither(self):
        prior = boxes.priors(480, 480)
        box = square(100, 100, 48)
        classes, _, _ = boxes.match([(box, None, True)], prior)
        self.assertFalse((classes == boxes.FACE).any())
        same = boxes.overlaps(boxes.corners(prior), box[None])[:, 0] > 0.5
        self.assertTrue(same.any())
        self.assertTrue((classes[same] == boxes.IGNORED).all())

    def test_tells_parts_of_a_large_face_from_what_stands_around_it(self):
        prior = boxes.priors(480, 480)
        classes, _, _ = boxes.match([(square(200, 200, 240), None, False)], prior)
        small = prior[:, 2] < 60
        for x, y in ((150, 170), (340, 200)):  # an eye, an ear
            self.assertEqual(set(classes[small & (np.abs(prior[:, :2] - (x, y)) < 20).all(1)]), {boxes.PART})
        beside = small & (prior[:, 0] > 400)
        self.assertEqual(set(classes[beside]), {boxes.BACKGROUND})

    def test_counts_no_landmarks_where_none_are_known(self):
        _, _, known = boxes.match([(square(100, 100, 32), None, False)], boxes.priors(200, 200))
        self.assertFalse(known.any())


class LookingOver(unittest.TestCase):
    def test_believes_a_sure_network_where_people_are_and_shows_its_mistakes(self):
        def look(labels, *found):
            photo = data.Photo("", None, [data.Face(box, None, False) for box in labels])
            scores, found = zip(*found)
            counts = train.look_over_photo(photo, np.array(scores), np.stack(found))
            return counts, [face.ignored for face in photo.faces], len(photo.mistakes)

        face, beside, away = square(50, 50, 40), square(75, 50, 40), square(150, 50, 40)
        self.assertEqual(look([face], (0.99, face), (0.95, away), (0.5, square(250, 50, 40))), ((1, 0, 1, 0), [False, True], 1))
        self.assertEqual(look([face], (0.99, beside)), ((1, 1, 0, 0), [True, True], 0))  # a label in the hair
        self.assertEqual(look([face], (0.99, face), (0.5, beside)), ((0, 0, 0, 0), [False], 0))
        self.assertEqual(look([face, away], (0.99, face), (0.8, away)), ((0, 0, 0, 1), [False, False], 0))  # to be learnt yet
        self.assertEqual(look([], (0.99, away)), ((0, 0, 1, 0), [], 1))  # no people: whatever it says, it is none


class Reviewing(unittest.TestCase):
    def test_takes_what_was_seen_into_the_labels(self):
        def ltwh(box):
            return [float(v) for v in (*box[:2], *(box[2:] - box[:2]))]

        labelled, aside, hand, loose, away = (square(x, 50, 40) for x in (50, 150, 250, 350, 450))
        better, ear, double, unclear = square(358, 55, 28), square(65, 50, 12), square(52, 60, 40), square(450, 150, 30)
        # Labels that the network overlooks; the statue's came of a former review.
        doll, profile, statue = (square(x, 150, 40) for x in (550, 650, 750))
        questions = [(1, away), (2, aside), (3, hand), (4, ear), (5, double), (6, unclear), (7, square(550, 50, 30)), (8, doll), (9, profile),
                     (10, statue)]
        with tempfile.TemporaryDirectory() as name, unittest.mock.patch.object(data, "CORRECTIONS", Path(name) / "corrections.jsonl"):
            folder, out = Path(name) / "some", Path(name) / "out"
            folder.mkdir()
            out.mkdir()
            data.CORRECTIONS.write_text(json.dumps({"file": "some/img/a.jpg", "face": [ltwh(statue)]}))
            faces = [{"box": ltwh(box), "lm": None, "ignore": box is aside or box is hand} for box in (labelled, aside, hand, loose, doll, profile)]
            photos = ("a", "train", faces), ("b", "val", faces), ("c", "val", [])
            (folder / "labels.jsonl").write_text("\n".join(json.dumps({"file": f"img/{photo}.jpg", "split": split, "faces": labels})
                                                           for photo, split, labels in photos))
            asked = [{"file": "some/img/a.jpg", "source": "some", "number": n, "box": box.tolist()} for n, box in questions]
            asked.append({"file": "some/img/a.jpg", "label": loose.tolist(), "box": better.tolist()})
            asked += [{"file": f"some/img/{photo}.jpg", "source": "judging", "number": n, "box": away.tolist()} for n, photo in enumerate("bc")]
            (out / "questions.jsonl").write_text("\n".join(map(json.dumps, asked)))
            (out / "some-00.txt").write_text("face: 1 2 5 9\nignored: 4 6\nnothing: 3 8 10\n")
            (out / "judging-00.txt").write_text("face: 0\nignored: 1\n")
            review.take(name, out)
            once = data.CORRECTIONS.read_text()
            review.take(name, out)
            self.assertEqual(data.CORRECTIONS.read_text(), once)
            after, = data.load(name, "train")["some"]
            judging, nobody = data.load(name, "val")["some"]
        # An ear and a second box on a labelled face stay background, whatever was said of them.
        self.assertEqual({(*ltwh(face.box), face.ignored) for face in after.faces},
                         {(*ltwh(labelled), False), (*ltwh(better), False), (*ltwh(away), False), (*ltwh(aside), False), (*ltwh(unclear), True),
                          (*ltwh(profile), False)})
        # What a network found does not judge it, and no doubt makes people of an empty picture.
        self.assertEqual(([face.ignored for face in judging.faces if (face.box == away).all()], nobody.faces), ([True], []))


class Composing(unittest.TestCase):
    def test_a_photo_lands_where_its_labels_say(self):
        random.seed(4)
        errors = []
        for _ in range(200):
            picture = np.zeros((120, 160, 3), np.uint8)
            face = data.Face(square(random.randint(50, 110), random.randint(40, 80), 20), None, False)
            x0, y0, x1, y1 = face.box.astype(int)
            picture[y0:y1, x0:x1] = 255
            canvas, faces = np.zeros((200, 200, 3), np.uint8), []
            data.Composer.place(canvas, faces, (20, 10, 200, 200), data.Photo("", None, [face], picture), (face.box[:2] + face.box[2:]) / 2,
                                random.uniform(0.3, 2), random.choice((0, 20)), np.array([random.uniform(70, 130), random.uniform(70, 130)]),
                                random.random() < 0.5)
            rows, columns = np.nonzero(canvas[..., 0] > 127)
            errors.append([columns.mean() + 0.5, rows.mean() + 0.5] - (faces[0].box[:2] + faces[0].box[2:]) / 2)
        self.assertLess(np.abs(np.mean(errors, 0)).max(), 0.05)
        self.assertLess(np.std(errors, 0).max(), 0.25)  # some are shrunk by dropping pixels


class Counting(unittest.TestCase):
    def test_hits_a_face_once(self):
        faces = [data.Face(square(50, 50, 40), None, False), data.Face(square(150, 50, 40), None, True)]
        found = np.stack([square(51, 50, 40), square(49, 50, 40), square(150, 50, 40), square(50, 150, 40)])
        tally, best = metrics.count(faces, np.array([0.8, 0.9, 0.99, 0.7]), found, np.zeros((4, 5, 2)))
        self.assertEqual(sorted(tally.hits), [(0.7, 0), (0.8, 0), (0.9, 1)])
        self.assertEqual((tally.faces, best), (1, [0.9, None]))

    def test_measures_the_area_under_the_curve(self):
        tally = metrics.Tally(faces=4, hits=[(0.9, 1), (0.8, 0), (0.7, 1), (0.6, 0)])
        self.assertAlmostEqual(tally.average_precision(), 0.25 * 1 + 0.25 * 2 / 3)


class Normalising(unittest.TestCase):
    def test_steady_it_is_what_folding_makes_of_it(self):
        torch.manual_seed(3)
        net = Net()
        for bn in net.bns:
            bn.running_mean.normal_(0, 0.1)
            bn.running_var.uniform_(0.5, 2)
        net.steady = True
        picture = net.as_input(torch.randint(0, 256, (1, 96, 96, 3), dtype=torch.uint8))
        with torch.no_grad():
            for found, wanted in zip(net(picture), net.folded()(picture)):
                torch.testing.assert_close(found, wanted)


class Integers(unittest.TestCase):
    def test_factors_change_nothing_but_rounding(self):
        torch.manual_seed(1)
        net = Net(normalised=False).double().eval()
        with torch.no_grad():
            for layer in net.table():
                layer.weight.normal_(0, (2 / layer.weight[0].numel()) ** 0.5)
                layer.bias.uniform_(-0.1, 0.1)
        whole = integer.IntegerNet.of(net, integer.factors(net.table())).double()
        for layer in whole.table():
            self.assertLessEqual(float(layer.weight.detach().abs().max()), 3 * integer.LARGEST_WEIGHT)
        picture = np.random.default_rng(2).integers(0, 256, (1, 96, 96, 3), dtype=np.uint8)
        with torch.no_grad():
            for found, wanted in zip(whole(whole.as_input(picture).double()), net(net.as_input(picture).double())):
                self.assertLess(float((found - wanted).pow(2).mean().sqrt()), 0.15 * float(wanted.pow(2).mean().sqrt()))

    def test_calibration_makes_of_two_probabilities_what_the_detector_asks(self):
        net, picture = Net(normalised=False).eval(), torch.rand(1, 3, 65, 83)
        with torch.no_grad():
            _, before = net(picture)
            former = quantise.Calibration([0.3, 0.4], [0.9])
            former.apply(net)
            calibration = quantise.Calibration([0.05, 0.1, 0.2], [0.98, 0.99])
            calibration.apply(net, former=former)
            _, after = net(picture)
        np.testing.assert_allclose(calibration.undone(after, 83, 65), before, atol=1e-4)
        whole, picture = integer.IntegerNet.of_rows(integer.unpack(MODEL.read_bytes())), picture * 255
        with torch.no_grad():
            _, before = whole(whole.as_input(picture.permute(0, 2, 3, 1)))
            calibration.apply(whole, quantise.CONFIDENCE_SCALES, quantise.Calibration([0.5], [0.95]))
            _, after = whole(whole.as_input(picture.permute(0, 2, 3, 1)))
        self.assertLess(float((calibration.undone(after, 83, 65) - before).abs().mean()), 0.1)  # 8 bits; a wrong unit makes it 1
        for size, passing, sure in ((10, 0.05, 0.98), (16, 0.1, 0.99), (24, 0.2, 0.99), (256, 0.2, 0.99)):
            index = quantise.SIZES.index(size)
            for probability, becomes in ((passing, 0.5), (sure, 0.95)):
                odds = calibration.slope[index] * torch.logit(torch.tensor(probability)) + calibration.shift[index]
                self.assertAlmostEqual(float(torch.sigmoid(odds)), becomes, places=5)

    def test_the_search_for_a_calibration_sees_what_the_detector_gives(self):
        random, (width, height) = np.random.default_rng(4), (160, 120)
        count = len(boxes.priors(width, height))
        coded, odds = random.normal(0, 0.5, (count, 14)).astype(np.float32), random.normal(-1, 2, count).astype(np.float32)

        class Answer:
            as_input = staticmethod(lambda pictures: pictures)

            def __call__(self, _):
                return torch.tensor(coded[None]), torch.tensor(np.stack([0 * odds, odds], -1)[None])

        scene = calibrate.Scene("photo", np.zeros((height, width, 3), np.uint8), [])
        scene.look(Answer(), quantise.Calibration([0.5], [0.95]))
        slope, shift = np.full(len(quantise.SIZES), 1.3), np.linspace(-0.5, 0.5, len(quantise.SIZES))
        scores, found = scene.detections(slope, shift)
        sizes = np.searchsorted(quantise.SIZES, boxes.priors(width, height)[:, 2])
        wanted, wanted_boxes, _ = boxes.detections(coded, 1 / (1 + np.exp(-(odds * slope[sizes] + shift[sizes]))), width, height)
        self.assertGreater(len(wanted), 10)
        np.testing.assert_allclose(scores, wanted, atol=1e-6)
        np.testing.assert_allclose(found, wanted_boxes, atol=1e-4)

    def test_a_file_comes_back_as_it_was_written(self):
        file = MODEL.read_bytes()
        self.assertEqual(integer.pack(integer.unpack(file)), file)
        with self.assertRaises(ValueError):
            integer.unpack(file[:-1] + bytes([file[-1] ^ 1]))

    def test_the_network_here_finds_what_the_library_finds(self):
        # Small enough for the library to take it unscaled.
        picture = np.ascontiguousarray(cv2.imread(os.environ["PICTURE"])[:320, 96:416])
        net = integer.IntegerNet.of_rows(integer.unpack(MODEL.read_bytes())).double()
        with torch.no_grad():
            locations, logits = net(net.as_input(picture[None]).double())
        height, width = picture.shape[:2]
        scores, box, points = boxes.detections(
            locations[0].numpy(), torch.softmax(logits, -1)[0, :, 1].numpy(), width, height)
        with tempfile.NamedTemporaryFile(suffix=".png") as file:
            cv2.imwrite(file.name, picture)
            run = subprocess.run([os.environ["FACELIST"]], input=file.name + "\n", stdout=subprocess.PIPE, text=True, check=True)
        faces = np.array(json.loads(run.stdout)["faces"]).reshape(-1, 15)
        self.assertGreater(len(faces), 0)
        self.assertEqual(len(faces), len(scores))
        np.testing.assert_allclose(faces[:, 0], scores, atol=1e-3)
        np.testing.assert_allclose(faces[:, 1:3], box[:, :2], atol=0.6)
        np.testing.assert_allclose(faces[:, 5:], points.reshape(-1, 10), atol=1.1)


class Judging(unittest.TestCase):
    def test_bounds_know_that_faces_of_a_picture_are_alike(self):
        np.testing.assert_allclose(judge.share([(0, 1)] * 90 + [(1, 1)] * 10), (0.1, 0.055, 0.174), atol=1e-3)
        _, low, high = judge.share([(0, 10)] * 9 + [(10, 10)])
        self.assertTrue(low < 0.03 and high > 0.3)
        np.testing.assert_allclose(judge.share([(0, 5)] * 20), (0, 0, 0.037), atol=1e-3)
        np.testing.assert_allclose(judge.rate([0] * 100), (0, 0, 0.037), atol=1e-3)
        np.testing.assert_allclose(judge.rate([0] * 90 + [1] * 10), (0.1, 0.048, 0.184), atol=1e-3)
        self.assertGreater(judge.rate([0] * 99 + [10])[2], 0.4)

    def test_a_face_is_hidden_where_the_blur_changes_the_picture(self):
        with tempfile.TemporaryDirectory() as folder:
            [(scores, found, _)] = judge.detect(os.environ["FACELIST"], [os.environ["PICTURE"]], folder)
            changed = cv2.imread(f"{folder}/0.png", cv2.IMREAD_GRAYSCALE)
        self.assertEqual(changed.shape, cv2.imread(os.environ["PICTURE"]).shape[:2])
        face, beside = data.Face(square(225, 126, 100), None, False), data.Face(square(325, 126, 100), None, False)
        self.assertTrue(judge.is_hidden(face, changed))
        self.assertFalse(judge.is_hidden(beside, changed))
        self.assertEqual(judge.false_patches([face], scores, found), 0)
        self.assertEqual(judge.false_patches([beside], scores, found), 1)
        self.assertEqual(judge.false_patches([], scores, found), 1)

    def test_labels_tell_the_groups(self):
        points = np.array([[10, 10], [30, 10], [11, 20], [12, 30], [28, 30]], np.float32)
        face = data.Face(square(20, 20, 40), points, False, "con_mascarilla")
        photo = data.Photo("maskon", Path("a.jpg"), [face, face])
        self.assertEqual(set(judge.groups_of(photo, face)), {"32 to 64 pixels", "masked", "masked, in groups", "turned"})
        face = data.Face(square(20, 20, 22), None, False)
        photo = data.Photo("utk", Path("7_0_1_2017.jpg"), [face])
        self.assertEqual(set(judge.groups_of(photo, face)), {"20 to 32 pixels", "child", "dark skin"})


if __name__ == "__main__":
    unittest.main()
