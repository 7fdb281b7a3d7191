"""A hand holding the page up: an arm from the frame's border, the palm behind the sheet, and a
thumb (or two to four fingertips) in front of it, over one edge.

The hand takes an edge whose outside leads quickly to a frame border (seldom the page's top) and
a point 20-80 % along it; sizes are a real hand's in millimetres (thumb 20-26 mm wide, palm about
90 x 75 mm, wrist 55 mm widening towards the elbow), converted with the page's own scale at that
edge. The arm runs from the palm out of the frame, sometimes in a sleeve. Parts behind the page
are painted before it (the sheet then covers them); the parts in front after it, with a soft
shadow on the paper. Each part is an anti-aliased mask (8-bit LINE_AA), shaded darker towards
its rim so that it looks round; a lighter nail sits near each tip. The page's truth corners do
not change: the hand covers part of an edge, never a corner.
"""

import math

import cv2
import numpy as np

SKIN = [(170, 190, 235), (140, 165, 220), (110, 140, 200), (85, 110, 170), (60, 80, 125),
        (45, 60, 95)]
SLEEVES = [(40, 40, 45), (130, 80, 40), (200, 200, 200), (50, 50, 140), (70, 110, 70),
           (150, 150, 160)]


def _edge_choice(rng, quad, W, H):
    """Edges (index, outward normal) weighted by how close the frame border is outside them."""
    c = quad.mean(0)
    short = min(W, H)
    weights, outs = [], []
    for e in range(4):
        a, b = quad[e], quad[(e + 1) % 4]
        d = (b - a) / np.linalg.norm(b - a)
        o = np.array([d[1], -d[0]])
        if np.dot(o, (a + b) / 2 - c) < 0:
            o = -o
        m = (a + b) / 2
        t = min((W - m[0]) / o[0] if o[0] > 1e-6 else 1e9, -m[0] / o[0] if o[0] < -1e-6 else 1e9,
                (H - m[1]) / o[1] if o[1] > 1e-6 else 1e9, -m[1] / o[1] if o[1] < -1e-6 else 1e9)
        weights.append((0.3 if e == 3 else 1.0) / (max(t, 0) + 0.05 * short) ** 2)
        outs.append(o)
    w = np.array(weights) / sum(weights)
    return int(rng.choice(4, p=w)), outs


class _Mask:
    """An anti-aliased mask built up inside a box of the frame."""

    def __init__(self, box):
        self.box = box
        x0, y0, x1, y1 = box
        self.m = np.zeros((y1 - y0, x1 - x0), np.uint8)

    def _pts(self, pts):
        return np.round((np.asarray(pts) - self.box[:2] - 0.5) * 16).astype(np.int32)

    def poly(self, pts):
        cv2.fillPoly(self.m, [self._pts(pts)], 255, cv2.LINE_AA, 4)

    def finger(self, p, q, w0, w1, bend):
        """A finger from base p to tip q, tapering from width w0 to w1, bowed sideways by
        `bend` (a fraction of its length), with a round tip."""
        t = np.linspace(0, 1, 16)[:, None]
        d = (q - p) / max(np.linalg.norm(q - p), 1e-9)
        n = np.array([-d[1], d[0]])
        mid = (p + q) / 2 + n * bend * np.linalg.norm(q - p)
        c = (1 - t) ** 2 * p + 2 * t * (1 - t) * mid + t * t * q
        tang = np.gradient(c, axis=0)
        tang /= np.linalg.norm(tang, axis=1, keepdims=True)
        nn = np.column_stack([-tang[:, 1], tang[:, 0]])
        w = (w0 + (w1 - w0) * t) / 2
        a = np.linspace(-math.pi / 2, math.pi / 2, 10)[1:-1, None]
        tip = q + tang[-1] * np.cos(a) * w1 / 2 + nn[-1] * np.sin(a) * w1 / 2
        self.poly(np.vstack([c - nn * w, tip, (c + nn * w)[::-1]]))
        return c, tang

    def ellipse(self, c, axes, ang):
        t = np.linspace(0, 2 * math.pi, 40, endpoint=False)
        ca, sa = math.cos(ang), math.sin(ang)
        x, y = axes[0] * np.cos(t), axes[1] * np.sin(t)
        self.poly(np.column_stack([c[0] + ca * x - sa * y, c[1] + sa * x + ca * y]))


def _tight(mask, pad):
    """The part of a mask's box that holds its pixels, grown by pad: (x0, y0, x1, y1, a)."""
    x, y, w, h = cv2.boundingRect(mask.m)
    if w == 0:
        return None
    H, W = mask.m.shape
    x0, y0, x1, y1 = max(0, x - pad), max(0, y - pad), min(W, x + w + pad), min(H, y + h + pad)
    a = mask.m[y0:y1, x0:x1].astype(np.float32) * (1 / 255.0)
    return x0 + mask.box[0], y0 + mask.box[1], x1 + mask.box[0], y1 + mask.box[1], a


def _soft(a, sigma):
    """Gaussian blur of a mask, done at a reduced size when it is wide."""
    k = max(1, int(sigma / 3))
    if k == 1:
        return cv2.GaussianBlur(a, (0, 0), max(0.5, sigma))
    small = cv2.resize(a, (max(1, a.shape[1] // k), max(1, a.shape[0] // k)),
                       interpolation=cv2.INTER_AREA)
    small = cv2.GaussianBlur(small, (0, 0), sigma / k)
    return cv2.resize(small, (a.shape[1], a.shape[0]), interpolation=cv2.INTER_LINEAR)


def _paint(img, mask, colour, round_px, rng):
    """Composite a shaded, slightly mottled part through its mask."""
    t = _tight(mask, int(round_px) + 2)
    if t is None:
        return
    x0, y0, x1, y1, a = t
    body = _soft(a, round_px / 2.5)
    shade = 0.62 + 0.45 * np.clip(body * 1.6 - 0.3, 0, 1)
    mott = cv2.resize(rng.normal(1, 0.04, (8, 8)).astype(np.float32), (a.shape[1], a.shape[0]))
    col = np.asarray(colour, np.float32)[None, None, :] * (shade * mott)[:, :, None]
    roi = img[y0:y1, x0:x1]
    roi += (col - roi) * a[:, :, None]


def _shadow(img, mask, offset, strength, sigma):
    t = _tight(mask, int(3 * sigma + abs(offset[0]) + abs(offset[1])) + 2)
    if t is None:
        return
    x0, y0, x1, y1, a = t
    M = np.float32([[1, 0, offset[0]], [0, 1, offset[1]]])
    sh = _soft(cv2.warpAffine(a, M, (a.shape[1], a.shape[0])), sigma)
    img[y0:y1, x0:x1] *= (1 - strength * sh * (1 - a))[:, :, None]


def plan(rng, quad, page_mm, W, H):
    """Where the hand or hands hold the page; a list of grips."""
    e, outs = _edge_choice(rng, quad, W, H)
    edges = [e] if rng.random() < 0.7 else [e, (e + 2) % 4]
    grips = []
    style = "thumb" if rng.random() < 0.7 else "fingers"
    skin = np.array(SKIN[int(rng.integers(len(SKIN)))], np.float32) * rng.uniform(0.9, 1.08)
    for e in edges:
        a, b = quad[e], quad[(e + 1) % 4]
        mm = page_mm[1] if e % 2 == 0 else page_mm[0]
        px = np.linalg.norm(b - a) / mm  # photo pixels per millimetre along this edge
        t = rng.uniform(0.25, 0.75)
        grips.append({"p": a + t * (b - a), "o": outs[e], "d": (b - a) / np.linalg.norm(b - a),
                      "px": px, "style": style, "skin": skin,
                      "turn": math.radians(rng.uniform(-30, 30)),
                      "arm": math.radians(rng.uniform(-30, 30)),
                      "sleeve": (SLEEVES[int(rng.integers(len(SLEEVES)))]
                                 if rng.random() < 0.6 else None),
                      "cuff": rng.uniform(60, 220), "seed": int(rng.integers(1 << 30))})
    return grips


def _box(pts, W, H, pad):
    pts = np.asarray(pts)
    x0, y0 = np.floor(pts.min(0) - pad).astype(int)
    x1, y1 = np.ceil(pts.max(0) + pad).astype(int)
    return np.array([max(0, x0), max(0, y0), min(W, x1), min(H, y1)])


def behind(img, grips):
    """Arm, sleeve and palm, painted before the page."""
    H, W = img.shape[:2]
    for g in grips:
        rng = np.random.default_rng(g["seed"])
        p, o, px = g["p"], g["o"], g["px"]
        ca, sa = math.cos(g["arm"]), math.sin(g["arm"])
        a = np.array([ca * o[0] - sa * o[1], sa * o[0] + ca * o[1]])
        palm = p + o * 45 * px
        far = palm + a * 3 * max(W, H)
        n = np.array([-a[1], a[0]])
        wrist = palm + a * 45 * px
        # Forearm from inside the palm (so the two join smoothly), widening to the elbow.
        arm = [palm + n * 34 * px, wrist + n * 30 * px, far + n * 65 * px, far - n * 65 * px,
               wrist - n * 30 * px, palm - n * 34 * px]
        box = _box([palm, wrist] + [np.clip(q, -W, 2 * W) for q in arm], W, H, 80 * px)
        if box[0] >= box[2] or box[1] >= box[3]:
            continue
        m = _Mask(box)
        m.poly(arm)
        m.ellipse(palm, (48 * px, 40 * px), math.atan2(o[1], o[0]))
        _paint(img, m, g["skin"], 30 * px, rng)
        if g["sleeve"] is not None:
            s = _Mask(box)
            cuff = wrist + a * g["cuff"] * px
            s.poly([cuff + n * 38 * px, far + n * 70 * px, far - n * 70 * px, cuff - n * 38 * px])
            _paint(img, s, g["sleeve"], 40 * px, rng)


def front(img, grips, light):
    """Thumb or fingertips over the page edge, with their shadow on the paper."""
    H, W = img.shape[:2]
    for g in grips:
        rng = np.random.default_rng(g["seed"] + 1)
        p, o, d, px = g["p"], g["o"], g["d"], g["px"]
        ct, st = math.cos(g["turn"]), math.sin(g["turn"])
        inward = -np.array([ct * o[0] - st * o[1], st * o[0] + ct * o[1]])
        if g["style"] == "thumb":
            parts = [(p + o * 24 * px, p + inward * rng.uniform(20, 38) * px,
                      rng.uniform(20, 26) * px)]
        else:
            k = int(rng.integers(2, 5))
            w = rng.uniform(16, 20) * px
            parts = [(p + d * (i - (k - 1) / 2) * w * 1.05 + o * 25 * px,
                      p + d * (i - (k - 1) / 2) * w * 1.05 + inward * rng.uniform(8, 24) * px, w)
                     for i in range(k)]
        pts = [q for a, b, _ in parts for q in (a, b)]
        box = _box(pts, W, H, 40 * px)
        if box[0] >= box[2] or box[1] >= box[3]:
            continue
        m = _Mask(box)
        crease = _Mask(box)
        nails = _Mask(box)
        rims = _Mask(box)
        for a, b, w in parts:
            c, tang = m.finger(a, b, w * 1.12, w * 0.9, rng.uniform(-0.08, 0.08))
            j = int(len(c) * rng.uniform(0.45, 0.6))
            nn = np.array([-tang[j, 1], tang[j, 0]])
            crease.finger(c[j] - nn * 0.38 * w, c[j] + nn * 0.38 * w, 0.03 * w, 0.03 * w, 0.15)
            u = tang[-1]
            at = b - u * 0.28 * w
            rims.ellipse(at, (0.34 * w, 0.3 * w), math.atan2(u[1], u[0]))
            nails.ellipse(at, (0.3 * w, 0.26 * w), math.atan2(u[1], u[0]))
        _shadow(img, m, np.asarray(light) * 5 * px, 0.35, 3 * px)
        _paint(img, m, g["skin"], 8 * px, rng)
        _paint(img, crease, np.asarray(g["skin"]) * 0.85, px, rng)
        _paint(img, rims, np.asarray(g["skin"]) * 0.85, px, rng)
        _paint(img, nails, np.minimum(np.asarray(g["skin"]) * [1.04, 1.04, 1.06] + 18, 255),
               3 * px, rng)
