#!/usr/bin/python3
"""Renders flat printed pages under uneven light, with the true paper mask and the printed text.

    make_pages.py --out DIR --count N --seed S [--kind KIND]

The enhancement renderings are measured on these: a page that lies flat and square in the frame
needs no rectification, so everything that differs between the clean page and the lit one is
light, lens and sensor, which the enhancement is meant to undo.

Rendering model:
  1. photo_page draws the clean sheet (A4 or US letter document, till receipt, index card) at
     150-200 dpi, so an A4 page is 1240x1754 to 1654x2339 pixels; its printed lines are the OCR
     truth.
  2. The paper mask is every pixel whose clean colour is the paper's (within the faint mottle of
     the paper itself), eroded by 2 px so that the anti-aliased rims of ink never count as paper.
  3. Light: a smooth gradient from a bright corner to the opposite one, where the brightness has
     fallen to 55-80 %, slightly bent; on some pages a soft shadow band across the sheet and a
     slight colour cast; an overall exposure of 90-102 %.
  4. Lens and sensor: a mild Gaussian blur, signal-dependent noise with a little chroma noise, and
     on some pages a JPEG round trip at quality 85-95.

Output: DIR/NNNN.ppm (binary P6, bytes R,G,B), DIR/NNNN.mask.pgm (binary P5, 255 = paper, 0
elsewhere) and DIR/truth.json = {"count": N, "pages": [record, ...]}; a record has file, mask,
width, height, text (the printed lines in reading order), tags (page:KIND, and shadow, cast, jpeg
where they apply), dpi, paper_share, light (the parameters above) and page (how it was drawn).
Each page has its own random stream seeded by (seed, index), so a page does not change with
--count.
"""

import argparse
import json
import math
import os
import sys
import time

import cv2
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import photo_page  # noqa: E402

KINDS = ["a4", "letter", "receipt", "index_card"]
KIND_P = [0.35, 0.35, 0.15, 0.15]

# The clean paper varies from its base colour by a low-frequency mottle of at most about 4 levels;
# anything further off is ink, a rule, a picture, a highlight or their anti-aliased rim.
PAPER_TOLERANCE = 6
MASK_ERODE_PX = 2


def paper_mask(clean, paper_bgr):
    """255 where the clean page shows bare paper at least MASK_ERODE_PX from anything else."""
    diff = np.abs(clean.astype(np.int16) - np.asarray(paper_bgr, np.int16)).max(2)
    bare = np.where(diff <= PAPER_TOLERANCE, 255, 0).astype(np.uint8)
    k = 2 * MASK_ERODE_PX + 1
    # Pixels beyond the sheet count as not paper, so the rim of the page is eroded too.
    return cv2.erode(bare, cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (k, k)),
                     borderType=cv2.BORDER_CONSTANT, borderValue=0)


def light_field(rng, W, H, shadow, cast):
    """Multiplicative light per pixel and channel (float32, H x W x 3) and its parameters."""
    w, h = max(8, W // 8), max(8, H // 8)
    yy, xx = np.mgrid[0:h, 0:w].astype(np.float32)
    xx, yy = (xx + 0.5) / w, (yy + 0.5) / h  # 0..1 across the page
    # The bright corner and a direction towards the opposite one, turned by up to 15 degrees.
    corner = int(rng.integers(4))
    cx, cy = (0.0, 1.0, 1.0, 0.0)[corner], (0.0, 0.0, 1.0, 1.0)[corner]
    a = math.atan2(1 - 2 * cy, 1 - 2 * cx) + math.radians(rng.uniform(-15, 15))
    proj = (xx - cx) * math.cos(a) + (yy - cy) * math.sin(a)
    t = np.clip(proj / proj.max(), 0, 1)
    bend = float(rng.uniform(0.75, 1.35))
    fall = float(rng.uniform(0.55, 0.80))
    exposure = float(rng.uniform(0.90, 1.02))
    field = exposure * (1 - (1 - fall) * t ** bend)
    rec = {"bright_corner": ["top-left", "top-right", "bottom-right", "bottom-left"][corner],
           "fall": round(fall, 3), "bend": round(bend, 3), "exposure": round(exposure, 3)}
    if shadow:
        b = rng.uniform(0, math.pi)
        # Distances in units of the page diagonal so the band looks alike on every format.
        diag = math.hypot(W, H)
        dist = ((xx - 0.5) * W * math.cos(b) + (yy - 0.5) * H * math.sin(b)) / diag
        dist -= rng.uniform(-0.2, 0.2)
        half, soft = rng.uniform(0.04, 0.12), rng.uniform(0.015, 0.04)
        depth = float(rng.uniform(0.25, 0.45))
        band = np.clip((half - np.abs(dist)) / soft + 0.5, 0, 1)
        band = band * band * (3 - 2 * band)
        field *= 1 - depth * band
        rec["shadow"] = {"angle_deg": round(math.degrees(b), 1), "depth": round(depth, 3),
                         "half_width": round(float(half), 3)}
    gains = np.ones(3)
    if cast:
        gains = 1 + rng.uniform(-0.04, 0.04, 3)
        rec["cast_rgb"] = [round(float(g), 4) for g in gains[::-1]]
    field = cv2.resize(field.astype(np.float32), (W, H), interpolation=cv2.INTER_CUBIC)
    return field[:, :, None] * gains.astype(np.float32), rec


def sensor(rng, img, jpeg):
    """Blur, noise and the optional JPEG round trip on a float32 BGR image; returns uint8."""
    H, W = img.shape[:2]
    blur = float(rng.uniform(0.5, 0.9))
    cv2.GaussianBlur(img, (0, 0), blur, dst=img)
    a, b = rng.uniform(1.0, 3.0), rng.uniform(0.005, 0.025)
    sigma = np.sqrt(a + b * img.mean(2))
    img += (rng.standard_normal((H, W), dtype=np.float32) * sigma)[:, :, None]
    chroma = rng.normal(0, 1.0, ((H + 1) // 2, (W + 1) // 2, 3)).astype(np.float32)
    img += cv2.resize(chroma, (W, H), interpolation=cv2.INTER_LINEAR)
    out = np.clip(img + 0.5, 0, 255).astype(np.uint8)
    rec = {"blur_sigma": round(blur, 3), "noise": [round(float(a), 3), round(float(b), 4)]}
    if jpeg:
        q = int(rng.integers(85, 96))
        out = cv2.imdecode(cv2.imencode(".jpg", out, [cv2.IMWRITE_JPEG_QUALITY, q])[1],
                           cv2.IMREAD_COLOR)
        rec["jpeg_quality"] = q
    return out, rec


def make_page(rng, opts=None):
    """Renders one page. Returns (lit BGR image, paper mask, clean BGR image, record)."""
    opts = opts or {}
    kind = opts.get("kind") or str(rng.choice(KINDS, p=KIND_P))
    dpi = int(opts.get("dpi") or rng.integers(150, 201))
    size_mm = photo_page.page_format(rng, kind)
    clean, _, page_rec, lines = photo_page.render_page(rng, kind, size_mm, dpi, 1)
    mask = paper_mask(clean, page_rec["paper"][::-1])
    H, W = clean.shape[:2]
    shadow, cast, jpeg = (bool(rng.random() < p) for p in (0.35, 0.4, 0.4))
    field, light = light_field(rng, W, H, shadow, cast)
    lit, sens = sensor(rng, clean.astype(np.float32) * field, jpeg)
    tags = ["page:" + kind] + [t for t, on in (("shadow", shadow), ("cast", cast),
                                                ("jpeg", jpeg)) if on]
    record = {
        "width": W,
        "height": H,
        "text": lines,
        "tags": tags,
        "dpi": dpi,
        "paper_share": round(float(np.count_nonzero(mask)) / mask.size, 4),
        "light": light,
        "sensor": sens,
        "page": page_rec,
    }
    return lit, mask, clean, record


def write_pnm(path, img):
    """Binary P6 (R,G,B bytes) for a BGR image, binary P5 for a grey one."""
    h, w = img.shape[:2]
    if img.ndim == 3:
        head, data = b"P6\n%d %d\n255\n" % (w, h), np.ascontiguousarray(img[:, :, ::-1])
    else:
        head, data = b"P5\n%d %d\n255\n" % (w, h), np.ascontiguousarray(img)
    with open(path, "wb") as f:
        f.write(head)
        f.write(data.tobytes())


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--out", required=True, help="output folder")
    ap.add_argument("--count", type=int, default=1)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--kind", choices=KINDS, help="only this kind of page (default: a mix)")
    a = ap.parse_args(argv)
    if a.count < 1:
        ap.error("--count must be >= 1")
    os.makedirs(a.out, exist_ok=True)
    records = []
    for i in range(a.count):
        rng = np.random.default_rng([a.seed, i])
        t0 = time.time()
        lit, mask, _, rec = make_page(rng, {"kind": a.kind})
        name = "%04d" % (i + 1)
        write_pnm(os.path.join(a.out, name + ".ppm"), lit)
        write_pnm(os.path.join(a.out, name + ".mask.pgm"), mask)
        records.append({"file": name + ".ppm", "mask": name + ".mask.pgm", **rec})
        print("%s.ppm %dx%d %s paper %.0f%% (%.1f s)" % (name, rec["width"], rec["height"],
                                                         " ".join(rec["tags"]),
                                                         100 * rec["paper_share"],
                                                         time.time() - t0), file=sys.stderr)
    with open(os.path.join(a.out, "truth.json"), "w") as f:
        json.dump({"count": len(records), "pages": records}, f, indent=1)
        f.write("\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
