#!/usr/bin/python3
"""Checks the EXIF of the pages the scrivo tool writes.

For every photograph given (files, or folders of .jpg files) the tool scans the page into a
temporary folder, and the page must then:
  - pass `exiftool -validate -warning` with no warning the photograph does not have itself, and
    none about the thumbnail at all;
  - keep every IFD0, Exif, GPS and interoperability tag of the photograph (only the values the
    tool sets itself may differ);
  - carry a thumbnail when the photograph had one: a JPEG that decodes, 160 pixels on its longer
    side with the page's proportions, and that shows the page: against the page reduced to its
    size, its mean absolute difference stays under --max-diff grey levels and its correlation
    reaches --min-corr (a white page with text differs little from its own mirror image in mean
    difference, but not in correlation).

    check_pages_exif.py SCRIVO INPUT... [--limit N] [--max-diff D] [--min-corr C]

Prints one line per photograph and a summary; exits 0 when every page passes, 1 otherwise,
and 77 (skipped) when no input exists.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile

import cv2
import numpy as np

EXIFTOOL = "/usr/bin/exiftool"
SKIPPED = 77
# Groups whose tags must survive, and the tags the tool rewrites in them.
KEPT_GROUPS = ("IFD0", "ExifIFD", "GPS", "InteropIFD")
SET_BY_TOOL = {"ExifImageWidth", "ExifImageHeight", "ImageWidth", "ImageHeight", "Orientation"}


def exiftool(*args):
    run = subprocess.run([EXIFTOOL, *args], capture_output=True)
    return run.stdout, run.stderr.decode(errors="replace")


def warnings(path):
    out, _ = exiftool("-validate", "-warning", "-a", "-s3", path)
    lines = out.decode(errors="replace").splitlines()
    # The first line is the verdict ("OK" or "N Warnings"); the rest are the warnings.
    return set(lines[1:])


def kept_tags(path):
    out, _ = exiftool("-j", "-a", "-G1", "-n", path)
    tags = json.loads(out)[0]
    return {k for k in tags if k.split(":")[0] in KEPT_GROUPS and k.split(":")[1] not in SET_BY_TOOL}


def thumbnail(path):
    data, err = exiftool("-b", "-ThumbnailImage", path)
    return data, err.strip()


def check(scrivo, photo, folder, max_diff, min_corr):
    """The problems of one photograph's page, and its thumbnail figures."""
    page = os.path.join(folder, os.path.basename(photo))
    run = subprocess.run([scrivo, "scan", photo, "-o", page], capture_output=True)
    if run.returncode != 0 or not os.path.exists(page):
        return [f"scrivo failed ({run.returncode}): {run.stderr.decode(errors='replace').strip()}"], {}
    problems = []
    for w in sorted(warnings(page) - warnings(photo)):
        problems.append(f"new warning: {w}")
    for w in sorted(warnings(page)):
        if "thumbnail" in w.lower():
            problems.append(f"thumbnail warning: {w}")
    lost = sorted(kept_tags(photo) - kept_tags(page))
    if lost:
        problems.append("tags lost: " + ", ".join(lost))

    figures = {}
    thumb, err = thumbnail(page)
    had_thumb = bool(thumbnail(photo)[0])
    if err:
        problems.append(f"thumbnail: {err}")
    if not thumb:
        if had_thumb:
            problems.append("the photograph's thumbnail was lost")
        return problems, figures
    small = cv2.imdecode(np.frombuffer(thumb, np.uint8), cv2.IMREAD_GRAYSCALE)
    full = cv2.imread(page, cv2.IMREAD_GRAYSCALE)
    if small is None or full is None:
        return problems + ["the thumbnail or the page does not decode"], figures
    (th, tw), (ph, pw) = small.shape, full.shape
    if max(tw, th) != 160 or abs(tw / th - pw / ph) > 2 / min(tw, th) + 0.02:
        problems.append(f"thumbnail {tw}x{th} for a {pw}x{ph} page")
    reduced = cv2.resize(full, (tw, th), interpolation=cv2.INTER_AREA)
    a, b = reduced.astype(np.float64).ravel(), small.astype(np.float64).ravel()
    diff = float(np.mean(np.abs(a - b)))
    # A page of one grey has no pattern to correlate; its difference decides alone.
    corr = float(np.corrcoef(a, b)[0, 1]) if a.std() >= 1 and b.std() >= 1 else 1.0
    figures = {"bytes": len(thumb), "size": f"{tw}x{th}", "diff": diff, "corr": corr}
    if diff > max_diff or corr < min_corr:
        problems.append(f"the thumbnail does not show the page (difference {diff:.1f}, "
                        f"correlation {corr:.2f})")
    return problems, figures


def inputs(paths):
    for p in paths:
        if os.path.isdir(p):
            yield from sorted(os.path.join(p, f) for f in os.listdir(p) if f.lower().endswith(".jpg"))
        elif os.path.isfile(p):
            yield p


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("scrivo")
    ap.add_argument("inputs", nargs="+")
    ap.add_argument("--limit", type=int, default=0, help="at most this many photographs per folder")
    ap.add_argument("--max-diff", type=float, default=16.0)
    ap.add_argument("--min-corr", type=float, default=0.8)
    args = ap.parse_args()
    photos = []
    for p in args.inputs:
        found = list(inputs([p]))
        photos += found[: args.limit] if args.limit else found
    if not photos:
        print("check_pages_exif: no photographs, skipped")
        return SKIPPED
    failed = 0
    diffs, corrs = [], []
    with tempfile.TemporaryDirectory() as folder:
        for photo in photos:
            problems, figures = check(args.scrivo, photo, folder, args.max_diff, args.min_corr)
            if figures:
                diffs.append(figures["diff"])
                corrs.append(figures["corr"])
            shown = " ".join(f"{k}={v:.3g}" if isinstance(v, float) else f"{k}={v}"
                             for k, v in figures.items())
            print(f"{'FAIL' if problems else 'ok  '} {photo} {shown}")
            for p in problems:
                print(f"     {p}")
            failed += bool(problems)
    worst = (f", thumbnail difference mean {np.mean(diffs):.1f} max {max(diffs):.1f}, "
             f"correlation mean {np.mean(corrs):.3f} min {min(corrs):.3f}" if diffs else "")
    print(f"check_pages_exif: {len(photos) - failed} of {len(photos)} pages pass{worst}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
