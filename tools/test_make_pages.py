#!/usr/bin/python3
"""Quick self-check of make_pages.py: the paper mask, the light and the files it writes."""

import json
import os
import sys
import tempfile
import unittest

import cv2
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import make_pages  # noqa: E402


def read_pnm(path):
    with open(path, "rb") as f:
        data = f.read()
    magic, w, h, maxval, raster = data.split(maxsplit=4)
    w, h = int(w), int(h)
    ch = {b"P6": 3, b"P5": 1}[magic]
    assert int(maxval) == 255
    return magic, np.frombuffer(raster, np.uint8).reshape((h, w, ch) if ch == 3 else (h, w))


class PageTest(unittest.TestCase):
    def test_mask_is_bare_paper_away_from_ink(self):
        for kind in ("index_card", "receipt"):
            lit, mask, clean, rec = make_pages.make_page(np.random.default_rng(3),
                                                         {"kind": kind, "dpi": 150})
            self.assertEqual(mask.shape, clean.shape[:2])
            self.assertEqual(lit.shape, clean.shape)
            self.assertTrue(rec["text"])
            paper = np.array(rec["page"]["paper"][::-1], np.int16)
            other = np.abs(clean.astype(np.int16) - paper).max(2) > make_pages.PAPER_TOLERANCE
            # Nothing within 2 px of ink or of the sheet's edge is paper, and all bare paper
            # further off is.
            padded = np.pad(~other, 1, constant_values=False).astype(np.uint8)
            dist = cv2.distanceTransform(padded, cv2.DIST_L2, cv2.DIST_MASK_PRECISE)[1:-1, 1:-1]
            self.assertFalse(np.any((mask > 0) & (dist <= 2.0)), kind)
            self.assertTrue(np.all(mask[dist > 3.0] == 255), kind)
            self.assertGreater(rec["paper_share"], 0.5)

    def test_light_falls_across_the_page(self):
        for seed in range(6):
            rng = np.random.default_rng(seed)
            field, rec = make_pages.light_field(rng, 400, 560, False, False)
            lo, hi = field.min(), field.max()
            self.assertAlmostEqual(hi, rec["exposure"], delta=0.02)
            self.assertAlmostEqual(lo / hi, rec["fall"], delta=0.03)
            self.assertTrue(0.55 <= rec["fall"] <= 0.80)
            # Smooth: no step between neighbouring pixels.
            self.assertLess(np.abs(np.diff(field[:, :, 0], axis=1)).max(), 0.01)
            shaded, srec = make_pages.light_field(np.random.default_rng(seed), 400, 560, True,
                                                  True)
            self.assertIn("shadow", srec)
            self.assertLess(shaded.min(), lo)
            self.assertFalse(np.allclose(shaded[:, :, 0], shaded[:, :, 2]))

    def test_cli_writes_rgb_files_deterministically(self):
        with tempfile.TemporaryDirectory() as d:
            args = ["--count", "2", "--seed", "5", "--kind", "index_card"]
            make_pages.main(["--out", d + "/a"] + args)
            make_pages.main(["--out", d + "/b"] + args)
            with open(d + "/a/truth.json") as f:
                truth = json.load(f)
            self.assertEqual(truth["count"], 2)
            for i, rec in enumerate(truth["pages"]):
                magic, rgb = read_pnm(os.path.join(d, "a", rec["file"]))
                self.assertEqual(magic, b"P6")
                self.assertEqual(rgb.shape, (rec["height"], rec["width"], 3))
                # Page i is drawn from the stream (seed, i) alone; its bytes are R,G,B.
                bgr, _, _, _ = make_pages.make_page(np.random.default_rng([5, i]),
                                                    {"kind": "index_card"})
                self.assertTrue(np.array_equal(rgb, bgr[:, :, ::-1]))
                magic, mask = read_pnm(os.path.join(d, "a", rec["mask"]))
                self.assertEqual(magic, b"P5")
                self.assertEqual(mask.shape, rgb.shape[:2])
                self.assertEqual(set(np.unique(mask)), {0, 255})
                self.assertIn("page:index_card", rec["tags"])
            for name in os.listdir(d + "/a"):
                with open(d + "/a/" + name, "rb") as fa, open(d + "/b/" + name, "rb") as fb:
                    self.assertEqual(fa.read(), fb.read(), name)


if __name__ == "__main__":
    unittest.main()
