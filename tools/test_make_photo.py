#!/usr/bin/python3
"""Quick self-check of make_photo.py: small photographs, their EXIF block and their truth, for
the plain mix and the wild one (folded sheets, pages held in a hand), and the invoice pages."""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import cv2
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import make_photo  # noqa: E402
import photo_exif  # noqa: E402
import photo_layouts  # noqa: E402
import photo_page  # noqa: E402


def _signed_area(q):
    x, y = np.asarray(q, np.float64).T
    return 0.5 * np.sum(x * np.roll(y, -1) - np.roll(x, -1) * y)


class PhotoTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        rng = np.random.default_rng(7)
        cls.jpeg, cls.rec = make_photo.make_photo(rng, "t.jpg", (640, 480), False,
                                                  opts={"bg": "dark", "kind": "a4"})
        cls.img = cv2.imdecode(np.frombuffer(cls.jpeg, np.uint8), cv2.IMREAD_COLOR)

    def test_jpeg_and_exif(self):
        self.assertEqual(self.img.shape, (480, 640, 3))
        ex = photo_exif.read_exif(self.jpeg)
        info = self.rec["exif"]
        self.assertEqual(ex["ifd0"][0x010F], info["make"])
        self.assertEqual(ex["ifd0"][0x0110], info["model"])
        self.assertEqual(ex["ifd0"][0x0112], 1)
        self.assertEqual(ex["exif"][0x9003], info["datetime"])
        self.assertEqual((ex["exif"][0xA002], ex["exif"][0xA003]), (640, 480))
        self.assertEqual(ex["ifd1"][0x0103], 6)
        thumb = cv2.imdecode(np.frombuffer(ex["thumbnail"], np.uint8), cv2.IMREAD_COLOR)
        self.assertEqual(thumb.shape, (120, 160, 3))
        # Both byte orders read back the same.
        for big in (False, True):
            app1 = photo_exif.build_app1(
                {"make": "M", "model": "Model X", "datetime": "2020:01:02 03:04:05",
                 "exposure": (1, 60), "fnumber": (18, 10), "iso": 100, "focal": (47, 10)},
                4000, 3000, b"\xff\xd8\xff\xd9", big)
            back = photo_exif.read_exif(b"\xff\xd8" + app1 + b"\xff\xd9")
            self.assertEqual(back["byte_order"], ">" if big else "<")
            self.assertEqual(back["exif"][0x829A], (1, 60))
            self.assertEqual(back["exif"][0xA002], 4000)
            self.assertEqual(back["thumbnail"], b"\xff\xd8\xff\xd9")
        if shutil.which("exiftool"):
            with tempfile.NamedTemporaryFile(suffix=".jpg") as f:
                f.write(self.jpeg)
                f.flush()
                out = subprocess.run(["exiftool", "-validate", "-warning", "-a", f.name],
                                     capture_output=True, text=True).stdout
            self.assertIn("Validate", out)
            self.assertNotIn("Warning", out)

    def test_corners_lie_on_the_page_edge(self):
        q = np.array(self.rec["corners"])
        self.assertTrue(np.all(q >= 0) and np.all(q[:, 0] <= 640) and np.all(q[:, 1] <= 480))
        # Same winding and starting corner as the whole frame (0,0), (0,H), (W,H), (W,0).
        self.assertGreater(_signed_area(q) * _signed_area([[0, 0], [0, 1], [1, 1], [1, 0]]), 0)
        self.assertEqual(int(np.argmin(q.sum(1))), 0)
        # A white page on a dark table: bright just inside every edge, dark just outside.
        grey = cv2.cvtColor(self.img, cv2.COLOR_BGR2GRAY).astype(float)
        for i in range(4):
            a, b = q[i], q[(i + 1) % 4]
            for t in (0.3, 0.7):
                p = a + t * (b - a)
                n = np.array([b[1] - a[1], a[0] - b[0]]) / np.linalg.norm(b - a)
                if np.dot(n, q.mean(0) - p) < 0:
                    n = -n
                inside, outside = p + 4 * n, p - 4 * n
                self.assertGreater(grey[int(inside[1]), int(inside[0])],
                                   grey[int(outside[1]), int(outside[0])] + 60)
        self.assertTrue(self.rec["text"])
        self.assertEqual(self.rec["tags"], ["bg:dark", "easy", "page:a4"])

    def test_cli_is_deterministic(self):
        with tempfile.TemporaryDirectory() as d:
            args = ["--count", "2", "--seed", "5", "--size", "320x240", "--hard-fraction", "1",
                    "--border-fraction", "0.5"]
            make_photo.main(["--out", d + "/a"] + args)
            make_photo.main(["--out", d + "/b"] + args)
            with open(d + "/a/truth.json") as f:
                truth = json.load(f)
            self.assertEqual(truth["count"], 2)
            self.assertEqual([r["file"] for r in truth["images"]], ["0001.jpg", "0002.jpg"])
            self.assertTrue(all("hard" in r["tags"] for r in truth["images"]))
            for name in ("0001.jpg", "0002.jpg", "truth.json"):
                with open(d + "/a/" + name, "rb") as fa, open(d + "/b/" + name, "rb") as fb:
                    self.assertEqual(fa.read(), fb.read(), name)


def _band_means(grey, quad, width=4):
    """Mean grey in a band just inside and just outside the quadrangle's outline."""
    m = np.zeros(grey.shape, np.uint8)
    cv2.fillPoly(m, [np.round(np.asarray(quad) * 16 - 8).astype(np.int32)], 1, cv2.LINE_8, 4)
    k = np.ones((2 * width + 1, 2 * width + 1), np.uint8)
    inner = m.astype(bool) & ~cv2.erode(m, k).astype(bool)
    outer = cv2.dilate(m, k).astype(bool) & ~m.astype(bool)
    return grey[inner].mean(), grey[outer].mean()


class WildTest(unittest.TestCase):
    def test_wild_photographs(self):
        """--wild and --scenes: JPEGs with EXIF, tags per feature, corners on the sheet's outer
        boundary (folded sheets and held pages on a dark ground too, unless printed as an
        invoice), same bytes twice."""
        with tempfile.TemporaryDirectory() as d:
            plain = ["--count", "3", "--seed", "3", "--size", "640x480", "--wild"]
            make_photo.main(["--out", d + "/a"] + plain)
            make_photo.main(["--out", d + "/b"] + plain)
            for name in ("0001.jpg", "0002.jpg", "0003.jpg", "truth.json"):
                with open(d + "/a/" + name, "rb") as fa, open(d + "/b/" + name, "rb") as fb:
                    self.assertEqual(fa.read(), fb.read(), name)
            make_photo.main(["--out", d + "/k", "--count", "4", "--seed", "11", "--size",
                             "640x480", "--scenes", "folded,hand,dark", "--border-fraction", "0"])
            records = []
            for sub in ("a", "k"):
                with open(os.path.join(d, sub, "truth.json")) as f:
                    records += [(sub, r) for r in json.load(f)["images"]]
            kinds, checked = set(), 0
            for sub, r in records:
                with open(os.path.join(d, sub, r["file"]), "rb") as f:
                    jpeg = f.read()
                img = cv2.imdecode(np.frombuffer(jpeg, np.uint8), cv2.IMREAD_COLOR)
                self.assertEqual(img.shape, (480, 640, 3))
                self.assertEqual(photo_exif.read_exif(jpeg)["ifd0"][0x010F], r["exif"]["make"])
                tags = r["tags"]
                self.assertIn("wild", tags)
                self.assertIn("bg:" + r["background"], tags)
                self.assertIn("page:" + r["page"]["kind"], tags)
                q = np.array(r["corners"])
                self.assertGreater(_signed_area(q) * _signed_area([[0, 0], [0, 1], [1, 1],
                                                                   [1, 0]]), 0)
                if sub == "k":
                    # A bright sheet on a dark table or wall: bright just inside the truth
                    # outline, dark just outside, whether the sheet is folded or held.
                    self.assertEqual(r["background"], "dark")
                    self.assertTrue({"folded", "hand"} & set(tags), tags)
                    kinds |= {"folded", "hand"} & set(tags)
                    self.assertNotIn("border", tags)
                    self.assertTrue(np.all(q >= 0) and np.all(q <= [640, 480]))
                    if r["page"]["layout"] == "invoice":
                        continue  # its bars may run to the paper's edge: dark inside as well
                    inside, outside = _band_means(cv2.cvtColor(img, cv2.COLOR_BGR2GRAY)
                                                  .astype(float), q)
                    self.assertGreater(inside, outside + 50, (r["file"], tags))
                    checked += 1
            self.assertEqual(kinds, {"folded", "hand"})
            self.assertGreaterEqual(checked, 2)
            self.assertIn("invoice", {r["page"]["layout"] for _, r in records})


class InvoiceTest(unittest.TestCase):
    def test_invoice_pages(self):
        """An invoice prints its title and total as text truth and carries filled bars (kept by
        an opening that no text or rule survives): a TOTAL box on every page, bars across most
        of the sheet on some. Sheets that are not A4 or letter ignore the request."""
        mm = 100 / 25.4
        kernel = np.ones((int(1.5 * mm), int(15 * mm)), np.uint8)
        widest = []
        for i in range(6):
            kind = ("a4", "letter")[i % 2]
            rng = np.random.default_rng([5, i])
            img, _, rec, lines = photo_page.render_page(rng, kind, photo_page.FORMATS[kind], 100,
                                                        1, "invoice")
            self.assertEqual(rec["layout"], "invoice")
            self.assertTrue(set(lines) & set(photo_layouts.TITLES), lines)
            self.assertTrue(any(re.match(r"(TOTAL|Total Due|Balance Due|Amount Due) \$?[\d.]+$",
                                         t) for t in lines), lines)
            self.assertTrue(all(t.strip() for t in lines))
            paper = np.median(img.reshape(-1, 3), 0)
            strong = (np.abs(img.astype(np.int16) - paper).max(2) > 60).astype(np.uint8)
            bars = cv2.morphologyEx(strong, cv2.MORPH_OPEN, kernel)
            n, _, stats, _ = cv2.connectedComponentsWithStats(bars)
            self.assertGreater(n, 1, i)
            widest.append(stats[1:, 2].max() / img.shape[1])
        self.assertGreater(min(widest), 0.12)
        self.assertGreater(max(widest), 0.95)
        pages = [photo_page.render_page(np.random.default_rng(3), "receipt", (80.0, 150.0), 100, 1,
                                        layout) for layout in (None, "invoice")]
        self.assertEqual(pages[0][2], pages[1][2])
        self.assertTrue(np.array_equal(pages[0][0], pages[1][0]))


if __name__ == "__main__":
    unittest.main()
