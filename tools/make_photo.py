#!/usr/bin/python3
"""Renders phone-like photographs of a printed page lying on a table, with exact ground truth.

    make_photo.py --out DIR --count N --seed S [--size WxH] [--hard-fraction F]
                  [--border-fraction F]
    make_photo.py --out DIR --count N --seed S [--size WxH] --wild [--scenes LIST]
                  [--border-fraction F] [--empty-fraction F]
    make_photo.py --sample [--out DIR]

Rendering model (the modules beside this script hold the details):
  1. photo_page: a sheet of A4, US letter, a till receipt or an index card is drawn flat at
     150-200 dpi (twice that where the photograph will magnify it) with headings, paragraphs,
     tables, a picture box, marks; its printed lines are the OCR truth. In the wild mix half the
     A4 and letter sheets are invoices instead (photo_layouts): filled dark table headers with
     white type, title bands and strips of colour up to the paper's edge, ruled and shaded
     tables from 60 % of the text width to the whole sheet, a filled TOTAL box, logos.
  2. photo_scene: a pinhole camera (62-75 degree field of view) looks at the page from a tilt of
     up to 22 degrees (30 for hard cases) with a roll of up to 12 degrees, from the distance at
     which the page covers 40-90 % of the frame area (less when the sheet's shape cannot fill
     it); the page is area-reduced to the photo's scale and warped bilinearly with a coverage
     mask, over a table (wood, dark, mid, light, cloth, clutter) with a soft drop shadow.
     Hard cases: a light, low-contrast table, another sheet under the page, a shadow band, a
     fingertip over an edge. Then uneven light (gradient, vignetting, colour cast), lens blur,
     signal-dependent noise, sharpening, and JPEG at quality 85-95.
  3. --wild (photo_wild and the modules it draws on): harder scenes mixed evenly by kind:
     patterned fabric, floor tiles and rugs, desks and walls full of straight lines, saturated
     boards, crumpled paper, a page held up in a hand before foliage, a room, shelves or
     posters, folded and curled sheets (photo_sheet: the truth is the sheet's outer corners),
     steep perspective, motion blur, low light and coloured light; about a fifth touch or cross
     the frame. --scenes restricts the mix: listed backgrounds are the only ones, listed
     features the only ones and each photograph has one (fabric: plain fabric scenes;
     folded,dark: folded sheets on dark tables). Surfaces lie in the page's own plane.
  4. photo_exif: a camera-like EXIF APP1 block (byte order chosen per photograph) with a
     160x120 (120x160 for portrait frames, letter-boxed when the aspect differs) JPEG thumbnail
     of the photograph replaces OpenCV's JFIF header.

Truth: DIR/truth.json = {"count": N, "images": [record, ...]}; a record has file, width, height,
corners (top-left, bottom-left, bottom-right, top-right of the page in continuous pixel
coordinates: pixel (0,0) covers [0,1) x [0,1)), page_size (the flat page in its own pixels),
tags, text, and how it was made (page, scene, jpeg_quality, exif). Each photograph has its own
random stream seeded by (seed, index), so a photograph does not change with --count. Wild
records are tagged bg:<background>, wild, page:<kind>, each feature (hand, folded, curled,
perspective, motion_blur, low_light, coloured_light, shadow, finger, other_sheet) and border, so
that an evaluation can report per tag.
"""

import argparse
import datetime
import json
import math
import os
import sys
import time

import cv2
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import photo_exif  # noqa: E402
import photo_page  # noqa: E402
import photo_scene  # noqa: E402
import photo_wild  # noqa: E402

SIZES = [(4000, 3000), (3264, 2448), (1920, 1080), (3000, 4000), (2448, 3264)]
KINDS = ["a4", "letter", "receipt", "index_card"]
KIND_P = [0.36, 0.36, 0.14, 0.14]
EASY_BGS = ["wood", "dark", "mid", "cloth", "clutter"]
CAMERAS = [("Ardent Optics", "AO-12 Pro"), ("Pellucid", "PX 7"), ("Corvine", "CV-4s"),
           ("Tamsin Imaging", "T3")]
SAMPLE = {"size": (2448, 3264), "seed": 2024, "bg": "wood", "kind": "a4", "hard": False,
          "tilt": 17.0, "coverage": 0.55, "quality": 90}


def thumbnail(img):
    """160x120 (120x160 in portrait) JPEG, the photograph letter-boxed to keep its aspect.

    Quality 95, as phone cameras write their thumbnails (8-10 KB at this size): the room
    the capture path has for the page's own thumbnail is this one's length."""
    h, w = img.shape[:2]
    tw, th = (160, 120) if w >= h else (120, 160)
    s = min(tw / w, th / h)
    sw, sh = max(1, round(w * s)), max(1, round(h * s))
    box = np.zeros((th, tw, 3), np.uint8)
    x, y = (tw - sw) // 2, (th - sh) // 2
    box[y:y + sh, x:x + sw] = cv2.resize(img, (sw, sh), interpolation=cv2.INTER_AREA)
    return photo_exif.strip_app0(cv2.imencode(".jpg", box, [cv2.IMWRITE_JPEG_QUALITY, 95])[1]
                                 .tobytes())


def camera_info(rng, iso_hi):
    make, model = CAMERAS[int(rng.integers(len(CAMERAS)))]
    t = datetime.datetime(2019, 1, 1) + datetime.timedelta(seconds=int(rng.integers(0, 6 * 365
                                                                                    * 86400)))
    return {
        "make": make,
        "model": model,
        "datetime": t.strftime("%Y:%m:%d %H:%M:%S"),
        "exposure": (1, int(rng.choice([30, 40, 50, 60, 80, 100, 125, 160, 250]))),
        "fnumber": (int(rng.choice([17, 18, 19, 20, 22, 24])), 10),
        "iso": int(rng.choice([50, 64, 100, 125, 200, 320, 400, 640, 800][:iso_hi])),
        "focal": (int(rng.integers(40, 70)), 10),
    }


def make_photo(rng, name, size, hard, border=False, opts=None):
    """Renders one photograph. Returns (JPEG bytes, truth record)."""
    opts = opts or {}
    W, H = size
    kind = opts.get("kind") or str(rng.choice(KINDS, p=KIND_P))
    feats = set()
    if hard:
        while not feats:
            feats = {f for f in ("low_contrast", "shadow", "finger", "other_sheet")
                     if rng.random() < 0.5}
    bg = "light" if "low_contrast" in feats else (opts.get("bg") or str(rng.choice(EASY_BGS)))
    dpi = int(rng.integers(150, 201))
    size_mm = photo_page.page_format(rng, kind)
    page_px = photo_page.page_pixels(size_mm, dpi)
    tilt = opts.get("tilt", float(rng.uniform(5, 30) if hard else rng.uniform(2, 22)))
    roll = float(rng.uniform(-12, 12))
    fov = float(rng.uniform(62, 75))
    Hc, quad, coverage = photo_scene.place_page(rng, W, H, size_mm, page_px,
                                                opts.get("coverage", rng.uniform(0.4, 0.9)),
                                                tilt, roll, fov, border)
    scale = math.sqrt(cv2.contourArea(quad.astype(np.float32)) / (page_px[0] * page_px[1]))
    ss = 2 if scale > 1.1 else 1
    page, page_px, page_rec, lines = photo_page.render_page(rng, kind, size_mm, dpi, ss)

    img = photo_scene.table(rng, bg, W, H)
    if bg == "clutter":
        photo_scene.clutter(rng, img, quad, W, H)
    if "other_sheet" in feats:
        photo_scene.other_sheet(rng, img, quad)
    colour, mask = photo_scene.warp_page(page, ss, page_px, Hc, W, H)
    del page
    photo_scene.drop_shadow(img, mask, rng, rng.uniform(0.2, 0.45))
    m3 = mask[:, :, None]
    img *= 1 - m3
    img += colour * m3
    del colour, m3
    if "finger" in feats:
        photo_scene.finger(rng, img, quad)
    img *= photo_scene.light_field(rng, W, H, "shadow" in feats) * rng.uniform(0.9, 1.0)
    contrast = photo_scene.edge_contrast(img, quad)
    out = photo_scene.sensor(rng, img)
    del img

    quality = int(opts.get("quality", rng.integers(85, 96)))
    info = camera_info(rng, 9 if hard or bg == "dark" else 5)
    jpeg = cv2.imencode(".jpg", out, [cv2.IMWRITE_JPEG_QUALITY, quality])[1].tobytes()
    app1 = photo_exif.build_app1(info, W, H, thumbnail(out), bool(rng.integers(2)))
    jpeg = photo_exif.insert_app1(jpeg, app1)

    tags = ["bg:" + bg, "hard" if hard else "easy", "page:" + kind]
    tags += [f for f in ("finger", "shadow", "other_sheet", "low_contrast") if f in feats]
    if border:
        tags.append("border")
    record = {
        "file": name,
        "width": W,
        "height": H,
        "corners": [[round(float(x), 3), round(float(y), 3)] for x, y in quad],
        "page_size": [int(page_px[0]), int(page_px[1])],
        "tags": tags,
        "text": lines,
        "background": bg,
        "finger": "finger" in feats,
        "shadow": "shadow" in feats,
        "other_sheet": "other_sheet" in feats,
        "low_contrast": "low_contrast" in feats,
        "page": page_rec,
        "scene": {"coverage": round(coverage, 4), "edge_contrast": round(contrast, 1),
                  "fov_deg": round(fov, 2), "roll_deg": round(roll, 2),
                  "tilt_deg": round(tilt, 2)},
        "jpeg_quality": quality,
        "exif": {"datetime": info["datetime"], "make": info["make"], "model": info["model"]},
    }
    return jpeg, record


def make_wild_photo(rng, name, size, border, names=None, empty=False):
    """Renders one photograph of the wild mix (photo_wild). Returns (JPEG bytes, truth record).

    An empty photograph (the scene without its sheet) is tagged "empty"; its corners are where
    the sheet would have been, and a page search should report no page."""
    W, H = size
    out, r = photo_wild.compose(rng, W, H, border, names, empty)
    feats, bg = r["feats"], r["bg"]
    low = "low_light" in feats
    quality = int(rng.integers(72, 91) if low else rng.integers(80, 96))
    info = camera_info(rng, 9 if low or bg == "dark" else 7)
    jpeg = cv2.imencode(".jpg", out, [cv2.IMWRITE_JPEG_QUALITY, quality])[1].tobytes()
    app1 = photo_exif.build_app1(info, W, H, thumbnail(out), bool(rng.integers(2)))
    jpeg = photo_exif.insert_app1(jpeg, app1)
    order = photo_wild.FEATURES + photo_wild.OLD_FEATURES
    tags = ["bg:" + bg, "wild", "page:" + r["page"]["kind"]] + [f for f in order if f in feats]
    if r["border"] and not empty:
        tags.append("border")
    if r["page"].get("layout") == "invoice":
        tags.append("layout:invoice")
    if empty:
        tags = ["empty", "bg:" + bg, "wild"]
    record = {
        "file": name,
        "width": W,
        "height": H,
        "corners": [[round(float(x), 3), round(float(y), 3)] for x, y in r["corners"]],
        "page_size": [int(r["page_px"][0]), int(r["page_px"][1])],
        "tags": tags,
        "text": r["text"],
        "background": bg,
        "finger": "finger" in feats,
        "shadow": "shadow" in feats,
        "other_sheet": "other_sheet" in feats,
        "low_contrast": False,
        "page": r["page"],
        "scene": r["scene"],
        "jpeg_quality": quality,
        "exif": {"datetime": info["datetime"], "make": info["make"], "model": info["model"]},
    }
    return jpeg, record


def _parse_scenes(text):
    names = [n.strip() for n in text.split(",") if n.strip()]
    bad = [n for n in names if n not in photo_wild.NAMES]
    if bad or not names:
        raise argparse.ArgumentTypeError("unknown scene name(s) %s; choose from %s" % (
            ",".join(bad) or "(none)", ",".join(photo_wild.NAMES)))
    return names


def _parse_size(text):
    try:
        w, h = (int(v) for v in text.lower().split("x"))
    except ValueError:
        raise argparse.ArgumentTypeError("size must be WxH, e.g. 4000x3000")
    if not (64 <= w <= 12000 and 64 <= h <= 12000):
        raise argparse.ArgumentTypeError("width and height must be 64..12000")
    return (w, h)


def _write_truth(path, records):
    with open(path, "w") as f:
        json.dump({"count": len(records), "images": records}, f, indent=1)
        f.write("\n")


def write_sample(out_dir):
    rng = np.random.default_rng(SAMPLE["seed"])
    jpeg, rec = make_photo(rng, "page-on-desk.jpg", SAMPLE["size"], SAMPLE["hard"], False, SAMPLE)
    os.makedirs(out_dir, exist_ok=True)
    with open(os.path.join(out_dir, "page-on-desk.jpg"), "wb") as f:
        f.write(jpeg)
    _write_truth(os.path.join(out_dir, "page-on-desk.json"), [rec])
    print("%s: %d bytes" % (os.path.join(out_dir, "page-on-desk.jpg"), len(jpeg)))


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--out", help="output folder (default for --sample: the repo's samples/)")
    ap.add_argument("--count", type=int, default=1)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--size", type=_parse_size, help="WxH; default: a mix of phone sizes")
    ap.add_argument("--hard-fraction", type=float, default=0.2)
    ap.add_argument("--border-fraction", type=float, default=None,
                    help="share of photographs whose page touches or crosses the frame border "
                         "(default 0, or 0.2 with --wild)")
    ap.add_argument("--wild", action="store_true",
                    help="harder scenes: patterned fabric, tiles, rugs, lines, saturated boards, "
                         "paper, pages in a hand, folded and curled sheets, steep perspective, "
                         "motion blur, low and coloured light")
    ap.add_argument("--scenes", type=_parse_scenes, metavar="LIST",
                    help="comma list restricting the wild mix (implies --wild): listed "
                         "backgrounds are the only backgrounds, listed features the only "
                         "features and each photograph has one of them; names: " +
                         ",".join(photo_wild.NAMES))
    ap.add_argument("--empty-fraction", type=float, default=0.0,
                    help="with --wild: share of photographs that show the scene without a page")
    ap.add_argument("--sample", action="store_true", help="write the repo's sample photograph")
    a = ap.parse_args(argv)
    if a.sample:
        write_sample(a.out or os.path.join(os.path.dirname(os.path.abspath(__file__)), "..",
                                           "samples"))
        return 0
    if not a.out:
        ap.error("--out is required")
    wild = a.wild or a.scenes is not None
    if a.border_fraction is None:
        a.border_fraction = 0.2 if wild else 0.0
    if a.count < 1 or not 0 <= a.hard_fraction <= 1 or not 0 <= a.border_fraction <= 1 or \
            not 0 <= a.empty_fraction <= 1:
        ap.error("--count must be >= 1 and the fractions within 0..1")
    os.makedirs(a.out, exist_ok=True)
    records = []
    for i in range(a.count):
        rng = np.random.default_rng([a.seed, i])
        size = a.size or SIZES[int(rng.integers(len(SIZES)))]
        name = "%04d.jpg" % (i + 1)
        t0 = time.time()
        if wild:
            border = rng.random() < a.border_fraction
            # Drawn from a stream of its own, so that the other photographs do not change.
            empty = np.random.default_rng([a.seed, i, 1]).random() < a.empty_fraction
            jpeg, rec = make_wild_photo(rng, name, size, border, a.scenes, empty)
        else:
            hard = rng.random() < a.hard_fraction
            border = rng.random() < a.border_fraction
            jpeg, rec = make_photo(rng, name, size, hard, border)
        with open(os.path.join(a.out, name), "wb") as f:
            f.write(jpeg)
        records.append(rec)
        print("%s %dx%d %s (%.1f s)" % (name, size[0], size[1], " ".join(rec["tags"]),
                                        time.time() - t0), file=sys.stderr)
    _write_truth(os.path.join(a.out, "truth.json"), records)
    return 0


if __name__ == "__main__":
    sys.exit(main())
