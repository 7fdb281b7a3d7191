#!/usr/bin/python3
"""Batch throughput: photographs per second of `scrivo scan DIR -j N` against the textbook
OpenCV pipeline run over the same folder with N processes.

    batch_throughput.py DIR [--scrivo build/bin/scrivo] [--jobs 2] [--mode document]
                            [--runs 3]

The textbook pipeline is the one the whole-capture benchmark times (bench/capture_bench.cpp):
imread, contour detection on a 500-pixel copy (grey, Gaussian blur 5x5, Canny 75/200,
findContours, the largest contour that approxPolyDP brings to 4 points), warpPerspective at
full size, then per mode nothing (none), adaptiveThreshold mean 31/10 (economic), background
division per channel (document: 7x7 dilation, median 21, 255 - |I - background|, stretched),
stretching (color) or grey (grey), and imwrite at quality 90. Its work is OpenCV's C++; the
Python around it costs a few microseconds a photograph.

The two run alternately, `--runs` times each, into fresh temporary folders; the medians of
their wall-clock times give photographs per second and ours / textbook. One OpenCV thread per
process, as each of N processes has a core to itself.
"""

import argparse
import multiprocessing
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import cv2
import numpy as np

METHODS = {"none": 0, "color": 2, "document": 3, "grey": 4, "economic": 5}


def textbook_corners(photo):
    scale = 500.0 / max(photo.shape[:2])
    small = cv2.resize(photo, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA)
    grey = cv2.GaussianBlur(cv2.cvtColor(small, cv2.COLOR_BGR2GRAY), (5, 5), 0)
    contours, _ = cv2.findContours(cv2.Canny(grey, 75, 200), cv2.RETR_LIST,
                                   cv2.CHAIN_APPROX_SIMPLE)
    quad = None
    for c in sorted(contours, key=cv2.contourArea, reverse=True):
        poly = cv2.approxPolyDP(c, 0.02 * cv2.arcLength(c, True), True)
        if len(poly) == 4:
            quad = poly.reshape(4, 2).astype(np.float32) / scale
            break
    if quad is None:
        h, w = photo.shape[:2]
        quad = np.float32([[0, 0], [w, 0], [w, h], [0, h]])
    s, d = quad.sum(1), quad[:, 1] - quad[:, 0]
    return np.float32([quad[s.argmin()], quad[d.argmin()], quad[s.argmax()], quad[d.argmax()]])


def textbook_one(job):
    src, dst, method = job
    photo = cv2.imread(src, cv2.IMREAD_COLOR)
    if photo is None:
        return False
    q = textbook_corners(photo)
    w = max(np.linalg.norm(q[2] - q[3]), np.linalg.norm(q[1] - q[0]))
    h = max(np.linalg.norm(q[1] - q[2]), np.linalg.norm(q[0] - q[3]))
    to = np.float32([[0, 0], [w - 1, 0], [w - 1, h - 1], [0, h - 1]])
    page = cv2.warpPerspective(photo, cv2.getPerspectiveTransform(q, to), (int(w), int(h)))
    if method == 5:
        out = cv2.adaptiveThreshold(cv2.cvtColor(page, cv2.COLOR_BGR2GRAY), 255,
                                    cv2.ADAPTIVE_THRESH_MEAN_C, cv2.THRESH_BINARY, 31, 10)
    elif method == 3:
        kernel = np.ones((7, 7), np.uint8)
        channels = []
        for c in cv2.split(page):
            background = cv2.medianBlur(cv2.dilate(c, kernel), 21)
            d = 255 - cv2.absdiff(c, background)
            channels.append(cv2.normalize(d, None, 0, 255, cv2.NORM_MINMAX))
        out = cv2.merge(channels)
    elif method == 2:
        out = cv2.normalize(page, None, 0, 255, cv2.NORM_MINMAX)
    elif method == 4:
        out = cv2.cvtColor(page, cv2.COLOR_BGR2GRAY)
    else:
        out = page
    return cv2.imwrite(dst, out, [cv2.IMWRITE_JPEG_QUALITY, 90])


def init_worker():
    cv2.setNumThreads(1)


def run_textbook(photos, out, jobs, method):
    work = [(p, os.path.join(out, os.path.basename(p)), method) for p in photos]
    t0 = time.perf_counter()
    with multiprocessing.Pool(jobs, initializer=init_worker) as pool:
        ok = pool.map(textbook_one, work, chunksize=1)
    return time.perf_counter() - t0, sum(ok)


def run_ours(scrivo, folder, out, jobs, mode):
    t0 = time.perf_counter()
    r = subprocess.run([scrivo, "scan", folder, "-o", out, "-j", str(jobs), "--enhance", mode],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    elapsed = time.perf_counter() - t0
    written = len([f for f in os.listdir(out) if f.lower().endswith(".jpg")])
    if r.returncode != 0:
        sys.exit(f"scrivo scan failed with exit code {r.returncode}")
    return elapsed, written


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("folder")
    ap.add_argument("--scrivo", default=os.path.join(os.path.dirname(__file__), "..", "build",
                                                     "bin", "scrivo"))
    ap.add_argument("--jobs", type=int, default=2)
    ap.add_argument("--mode", default="document", choices=sorted(METHODS))
    ap.add_argument("--runs", type=int, default=3)
    a = ap.parse_args()
    photos = sorted(os.path.join(a.folder, f) for f in os.listdir(a.folder)
                    if f.lower().endswith((".jpg", ".jpeg")))
    if not photos:
        sys.exit(f"no JPEG photographs in {a.folder}")
    ours, theirs = [], []
    for _ in range(a.runs):
        for turn in ("ours", "textbook"):
            out = tempfile.mkdtemp(prefix="scrivo-throughput-")
            try:
                if turn == "ours":
                    t, n = run_ours(a.scrivo, a.folder, out, a.jobs, a.mode)
                    ours.append(t)
                else:
                    t, n = run_textbook(photos, out, a.jobs, METHODS[a.mode])
                    theirs.append(t)
                if n != len(photos):
                    print(f"{turn}: {n} of {len(photos)} pages written", file=sys.stderr)
            finally:
                shutil.rmtree(out, ignore_errors=True)
    o, t = statistics.median(ours), statistics.median(theirs)
    n = len(photos)
    print(f"{n} photographs, {a.jobs} jobs, mode {a.mode}, median of {a.runs} runs each")
    print(f"  scrivo    {o:7.2f} s  {n / o:6.2f} photographs/s")
    print(f"  textbook  {t:7.2f} s  {n / t:6.2f} photographs/s")
    print(f"  throughput ours / textbook {t / o:.2f}")


if __name__ == "__main__":
    main()
