"""Scenes full of straight lines, and what stands behind a page held up in a hand.

Everything here except foliage is drawn as polygons in a plane's millimetres: the table (desk
objects: keyboards, laptops, ruled notebooks, rulers, books) or a wall facing the camera
(bookshelves, windows with blinds, balcony railings, posters and frames, a room with furniture).
Each polygon is clipped to the part of the plane in front of the camera and to a margin around
the frame, projected with the plane's homography and filled anti-aliased (OpenCV LINE_AA with 4
fractional bits) on an 8-bit canvas, so a book's spine or a blind's slat is as sharp as the
photograph allows and converges with the perspective as the page's own sides do. Sizes are real
ones (books 15-60 mm thick, slats 22-50 mm, keys 19 mm apart), so how large they look follows
from the camera's distance. Foliage is drawn in the photograph's own plane at half resolution
(leaves as ellipses in layers, far ones paler) and left out of focus.
"""

import math

import cv2
import numpy as np

BOOKS = [(40, 40, 150), (120, 60, 30), (40, 110, 40), (30, 150, 200), (160, 160, 160),
         (30, 30, 30), (200, 200, 195), (60, 40, 110), (20, 90, 170), (140, 110, 60),
         (90, 130, 170), (50, 60, 70)]
WALLS = [(225, 228, 230), (200, 210, 215), (170, 190, 205), (190, 200, 185), (150, 160, 170),
         (215, 215, 205), (120, 140, 160)]


def _clip(poly, a, b, c):
    """Sutherland-Hodgman: the part of a polygon where a*x + b*y + c >= 0."""
    out = []
    n = len(poly)
    for i in range(n):
        p, q = poly[i], poly[(i + 1) % n]
        fp, fq = a * p[0] + b * p[1] + c, a * q[0] + b * q[1] + c
        if fp >= 0:
            out.append(p)
        if (fp >= 0) != (fq >= 0):
            t = fp / (fp - fq)
            out.append((p[0] + t * (q[0] - p[0]), p[1] + t * (q[1] - p[1])))
    return out


class Painter:
    """Fills plane polygons (millimetres) into a photo canvas through homography G."""

    def __init__(self, canvas, G, wmin):
        self.canvas, self.G = canvas, G
        # Keep to points at least `wmin` deep (G's third row is the depth up to a factor).
        self.wmin = wmin
        H, W = canvas.shape[:2]
        m = 0.5 * max(W, H)
        self.frame = [(1, 0, m), (-1, 0, W + m), (0, 1, m), (0, -1, H + m)]

    def poly(self, pts, colour):
        g = self.G
        pts = _clip([tuple(p) for p in pts], g[2, 0], g[2, 1], g[2, 2] - self.wmin)
        if len(pts) < 3:
            return
        p = np.array(pts, np.float64)
        q = np.column_stack([p, np.ones(len(p))]) @ g.T
        xy = [tuple(r) for r in q[:, :2] / q[:, 2:3]]
        for a, b, c in self.frame:
            xy = _clip(xy, a, b, c)
            if len(xy) < 3:
                return
        cv2.fillPoly(self.canvas, [np.round(np.array(xy) * 16 - 8).astype(np.int32)],
                     tuple(float(v) for v in colour), cv2.LINE_AA, 4)

    def rect(self, x, y, w, h, colour, ang=0.0):
        """Rectangle with corner (x, y) and size (w, h), turned by ang about its centre."""
        cx, cy = x + w / 2, y + h / 2
        c, s = math.cos(ang), math.sin(ang)
        pts = [(cx + c * dx - s * dy, cy + s * dx + c * dy)
               for dx, dy in ((-w / 2, -h / 2), (w / 2, -h / 2), (w / 2, h / 2), (-w / 2, h / 2))]
        self.poly(pts, colour)

    def ellipse(self, cx, cy, rx, ry, colour, ang=0.0, n=40):
        t = np.linspace(0, 2 * math.pi, n, endpoint=False)
        c, s = math.cos(ang), math.sin(ang)
        x, y = rx * np.cos(t), ry * np.sin(t)
        self.poly(list(zip(cx + c * x - s * y, cy + s * x + c * y)), colour)


def _tone(rng, colour, spread=0.12):
    return np.clip(np.asarray(colour, np.float64) * rng.uniform(1 - spread, 1 + spread), 0, 255)


# ---------------------------------------------------------------------------------------------
# Walls


def shelves(rng, pt, ext):
    x0, y0, x1, y1 = ext
    wood = _tone(rng, [(60, 90, 130), (200, 205, 210), (40, 45, 50), (110, 150, 190)][
        int(rng.integers(4))])
    pt.rect(x0, y0, x1 - x0, y1 - y0, wood * 0.55)
    bay = rng.uniform(700, 1000)
    pitch = rng.uniform(280, 380)
    board = rng.uniform(18, 30)
    xs = np.arange(x0 - rng.uniform(0, bay), x1 + bay, bay)
    for ya in np.arange(y0 - rng.uniform(0, pitch), y1 + pitch, pitch):
        for xa in xs:
            x = xa + 20
            while x < xa + bay - 40:
                w = rng.uniform(15, 55)
                if rng.random() < 0.06:
                    x += rng.uniform(20, 120)
                    continue
                h = (pitch - board) * rng.uniform(0.6, 0.93)
                col = _tone(rng, BOOKS[int(rng.integers(len(BOOKS)))])
                ang = math.radians(rng.uniform(-14, 14)) if rng.random() < 0.05 else 0.0
                top = ya + pitch - h
                pt.rect(x, top, w, h, col, ang)
                if ang == 0.0:
                    for _ in range(int(rng.integers(0, 3))):
                        pt.rect(x, top + rng.uniform(0.1, 0.8) * h, w, rng.uniform(3, 15),
                                _tone(rng, (60, 170, 210) if rng.random() < 0.3 else col * 0.6))
                    pt.rect(x + w - 1.5, top, 1.5, h, col * 0.55)
                x += w + (rng.uniform(0.5, 3) if ang == 0 else 15)
        pt.rect(x0, ya + pitch, x1 - x0, board, wood)
        pt.rect(x0, ya + pitch + board, x1 - x0, 0.3 * board, wood * 0.35)
        pt.rect(x0, ya + pitch, x1 - x0, 3, np.minimum(wood * 1.35, 255))
    for xa in xs:
        pt.rect(xa, y0, board, y1 - y0, wood * 0.85)


def blinds(rng, pt, ext):
    x0, y0, x1, y1 = ext
    wall = _tone(rng, WALLS[int(rng.integers(len(WALLS)))])
    pt.rect(x0, y0, x1 - x0, y1 - y0, wall)
    cx, cy = rng.uniform(x0, x1), rng.uniform(y0, y1)
    ww, wh = rng.uniform(0.6, 1.4) * (x1 - x0), rng.uniform(0.6, 1.4) * (y1 - y0)
    fr = rng.uniform(45, 90)
    frame = _tone(rng, (235, 235, 232) if rng.random() < 0.7 else (60, 60, 65), 0.05)
    pt.rect(cx - ww / 2 - fr, cy - wh / 2 - fr, ww + 2 * fr, wh + 2 * fr, frame)
    sky = _tone(rng, (245, 235, 220), 0.05)
    pt.rect(cx - ww / 2, cy - wh / 2, ww, wh, sky)
    for _ in range(int(rng.integers(3, 9))):
        pt.ellipse(rng.uniform(cx - ww / 2, cx + ww / 2), cy + wh / 2 - rng.uniform(0, wh / 2),
                   rng.uniform(80, 400), rng.uniform(60, 300), _tone(rng, (80, 150, 110), 0.3))
    pitch = rng.uniform(22, 50)
    slat = _tone(rng, [(235, 235, 232), (200, 205, 210), (120, 160, 200)][int(rng.integers(3))],
                 0.06)
    openness = rng.uniform(0.1, 0.45)
    vertical = rng.random() < 0.2
    n = int((ww if vertical else wh) / pitch)
    for i in range(n):
        a = (cx - ww / 2 if vertical else cy - wh / 2) + i * pitch
        s = pitch * (1 - openness)
        if vertical:
            pt.rect(a, cy - wh / 2, s, wh, slat)
            pt.rect(a + 0.7 * s, cy - wh / 2, 0.3 * s, wh, slat * 0.78)
        else:
            pt.rect(cx - ww / 2, a, ww, s, slat)
            pt.rect(cx - ww / 2, a + 0.65 * s, ww, 0.35 * s, slat * 0.75)
    mull = rng.random() < 0.5
    if mull:
        pt.rect(cx - fr / 4, cy - wh / 2, fr / 2, wh, frame)


def railing(rng, pt, ext):
    x0, y0, x1, y1 = ext
    pt.rect(x0, y0, x1 - x0, y1 - y0, _tone(rng, (235, 215, 190), 0.06))
    for _ in range(int(rng.integers(6, 20))):
        pt.ellipse(rng.uniform(x0, x1), rng.uniform((y0 + y1) / 2, y1), rng.uniform(150, 600),
                   rng.uniform(100, 400), _tone(rng, (70, 130, 90), 0.35))
    metal = _tone(rng, (40, 40, 42) if rng.random() < 0.6 else (225, 225, 225), 0.08)
    top = rng.uniform(y0, (y0 + y1) / 2)
    rail = rng.uniform(40, 70)
    pt.rect(x0, top, x1 - x0, rail, metal)
    pt.rect(x0, top + rail, x1 - x0, 8, metal * 0.6)
    bottom = top + rng.uniform(800, 1000)
    pt.rect(x0, bottom, x1 - x0, rail * 0.7, metal)
    pitch, bw = rng.uniform(100, 130), rng.uniform(14, 30)
    for x in np.arange(x0 - rng.uniform(0, pitch), x1, pitch):
        pt.rect(x, top + rail, bw, bottom - top - rail, metal)
    pt.rect(x0, bottom + rail, x1 - x0, y1 - bottom, _tone(rng, (130, 140, 150), 0.2))


def posters(rng, pt, ext):
    x0, y0, x1, y1 = ext
    pt.rect(x0, y0, x1 - x0, y1 - y0, _tone(rng, WALLS[int(rng.integers(len(WALLS)))]))
    area = (x1 - x0) * (y1 - y0)
    for _ in range(int(min(40, max(3, area / 6e5 * rng.uniform(0.6, 1.4))))):
        w, h = rng.uniform(250, 900), rng.uniform(250, 1000)
        x, y = rng.uniform(x0 - w / 2, x1 - w / 2), rng.uniform(y0 - h / 2, y1 - h / 2)
        ang = math.radians(rng.normal(0, 1.5))
        kind = rng.integers(4)
        if kind == 0:  # framed picture on a white mat
            f = rng.uniform(15, 40)
            pt.rect(x, y, w, h, _tone(rng, [(30, 30, 30), (50, 90, 130), (230, 230, 230)][
                int(rng.integers(3))]), ang)
            pt.rect(x + f, y + f, w - 2 * f, h - 2 * f, _tone(rng, (238, 238, 236), 0.03), ang)
            m = rng.uniform(0.12, 0.25) * min(w, h)
            pt.rect(x + f + m, y + f + m, w - 2 * f - 2 * m, h - 2 * f - 2 * m,
                    _tone(rng, BOOKS[int(rng.integers(len(BOOKS)))], 0.3), ang)
        elif kind == 1:  # poster of colour blocks
            pt.rect(x, y, w, h, _tone(rng, BOOKS[int(rng.integers(len(BOOKS)))]), ang)
            for _ in range(int(rng.integers(1, 5))):
                bw, bh = rng.uniform(0.2, 0.8) * w, rng.uniform(0.1, 0.5) * h
                pt.rect(x + rng.uniform(0, w - bw), y + rng.uniform(0, h - bh), bw, bh,
                        _tone(rng, BOOKS[int(rng.integers(len(BOOKS)))]), ang)
        else:  # white notice, calendar or whiteboard: ruled or gridded
            pt.rect(x, y, w, h, (180, 180, 185) if kind == 3 else (20, 20, 20), ang)
            b = 12 if kind == 3 else 2
            pt.rect(x + b, y + b, w - 2 * b, h - 2 * b, _tone(rng, (240, 242, 242), 0.03), ang)
            step = rng.uniform(25, 70)
            for yy in np.arange(y + 3 * b + step, y + h - step, step):
                pt.rect(x + 3 * b, yy, (w - 6 * b) * rng.uniform(0.4, 1), 2.5, (60, 60, 60), ang)


def room(rng, pt, ext):
    x0, y0, x1, y1 = ext
    wall = _tone(rng, WALLS[int(rng.integers(len(WALLS)))])
    pt.rect(x0, y0, x1 - x0, y1 - y0, wall)
    floor_y = rng.uniform(y0 + 0.45 * (y1 - y0), y1 + 200)
    pt.rect(x0, floor_y, x1 - x0, y1 - floor_y + 10, _tone(rng, (70, 100, 140), 0.3))
    pt.rect(x0, floor_y - 80, x1 - x0, 80, np.minimum(wall * 1.1, 255))
    pt.rect(x0, floor_y - 6, x1 - x0, 6, wall * 0.6)
    x = x0 - rng.uniform(0, 600)
    while x < x1:
        kind = rng.integers(5)
        if kind == 0:  # sofa
            w = rng.uniform(1500, 2200)
            c = _tone(rng, BOOKS[int(rng.integers(len(BOOKS)))], 0.2)
            pt.rect(x, floor_y - 850, w, 500, c * 0.85)
            pt.rect(x - 40, floor_y - 620, w + 80, 520, c)
            for k in range(3):
                pt.rect(x + 40 + k * (w - 80) / 3, floor_y - 620, (w - 80) / 3 - 10, 180, c * 1.08)
        elif kind == 1:  # sideboard with drawers
            w, h = rng.uniform(900, 1600), rng.uniform(700, 900)
            c = _tone(rng, [(60, 90, 130), (220, 220, 220), (40, 40, 40)][int(rng.integers(3))])
            pt.rect(x, floor_y - h, w, h - 60, c)
            for k in range(1, int(rng.integers(2, 5))):
                pt.rect(x, floor_y - h + k * (h - 60) / 4, w, 6, c * 0.5)
            pt.rect(x + w / 2 - 60, floor_y - h + 60, 120, 15, (180, 180, 190))
        elif kind == 2:  # door
            w = rng.uniform(800, 950)
            pt.rect(x - 60, floor_y - 2100, w + 120, 2100, np.minimum(wall * 1.15, 255))
            pt.rect(x, floor_y - 2040, w, 2040, _tone(rng, (200, 205, 210), 0.3))
            pt.rect(x + w - 120, floor_y - 1050, 100, 25, (150, 150, 160))
        elif kind == 3:  # pictures
            w = rng.uniform(300, 800)
            for k in range(int(rng.integers(1, 4))):
                h = rng.uniform(300, 700)
                pt.rect(x + k * w / 3, floor_y - 1900 + rng.uniform(0, 500), w / 3.5, h / 2,
                        _tone(rng, BOOKS[int(rng.integers(len(BOOKS)))], 0.3))
        else:  # lamp and plant
            w = 500
            pt.rect(x + 240, floor_y - 1500, 20, 1500, (40, 40, 40))
            pt.ellipse(x + 250, floor_y - 1550, 200, 150, _tone(rng, (190, 230, 245), 0.1))
            for _ in range(12):
                pt.ellipse(x + rng.uniform(0, 500), floor_y - rng.uniform(200, 900),
                           rng.uniform(60, 160), rng.uniform(30, 60),
                           _tone(rng, (50, 120, 60), 0.3), rng.uniform(0, math.pi))
        x += w + rng.uniform(100, 900)


WALL_SCENES = {"shelves": shelves, "blinds": blinds, "railing": railing, "posters": posters,
               "room": room}


def wall(rng, kind, W, H, G, plane):
    """A wall scene of `kind` seen through homography G; 8-bit canvas."""
    canvas = np.zeros((H, W, 3), np.uint8)
    x0, y0, x1, y1 = plane.extent
    m = 0.05 * max(x1 - x0, y1 - y0)
    WALL_SCENES[kind](rng, Painter(canvas, G, _wmin(G, plane)), (x0 - m, y0 - m, x1 + m, y1 + m))
    return canvas


def _wmin(G, plane):
    return 0.05 * float(G[2] @ [plane.ref[0], plane.ref[1], 1.0])


def foliage(rng, W, H):
    """Greenery out of doors: sky through gaps, bush masses, then leaves in layers from far
    (small, pale, soft) to near (large, dark or sunlit); 8-bit canvas, out of focus."""
    w, h = max(8, W // 2), max(8, H // 2)
    s = min(w, h)
    hue = np.array([rng.uniform(25, 70), rng.uniform(100, 160), rng.uniform(40, 100)])
    sky = _tone(rng, (240, 225, 205), 0.06)
    img = np.empty((h, w, 3), np.uint8)
    ramp = np.linspace(0, 1, h)[:, None, None]
    horizon = rng.uniform(-0.3, 0.5)
    mass = hue * rng.uniform(0.45, 0.7)
    img[:] = np.clip(sky * (ramp < horizon) + mass * (ramp >= horizon), 0, 255).astype(np.uint8)
    for _ in range(int(rng.integers(8, 20))):  # bush and tree masses
        c = (float(rng.uniform(0, w)), float(rng.uniform(horizon * h, h * 1.2)))
        r = float(rng.uniform(0.15, 0.5) * s)
        cv2.ellipse(img, (c, (2 * r, 2 * r * rng.uniform(0.6, 1.0)), float(rng.uniform(0, 180))),
                    tuple(np.clip(hue * rng.uniform(0.35, 0.8), 0, 255).tolist()), -1,
                    cv2.LINE_AA)
    img = cv2.GaussianBlur(img, (0, 0), 0.03 * s)
    for depth, n, size, bright, blur in ((0, 2500, 0.012, 1.1, 0.006), (1, 1800, 0.022, 0.9, 0.003),
                                         (2, 500, 0.045, 0.75, 0.0)):
        for _ in range(int(n * rng.uniform(0.7, 1.3) * w * h / 2.0e6) + 30):
            c = hue * bright * rng.uniform(0.55, 1.35) + rng.normal(0, 8, 3)
            if rng.random() < 0.12:
                c = c * 1.35 + [0, 25, 45]  # sunlit
            a = size * s * rng.uniform(0.5, 1.6)
            y = rng.uniform(horizon * h - 0.2 * s, h) if rng.random() < 0.9 else rng.uniform(0, h)
            cv2.ellipse(img, ((float(rng.uniform(0, w)), float(y)),
                              (float(a), float(a * rng.uniform(0.35, 0.6))),
                              float(rng.uniform(0, 180))), tuple(np.clip(c, 0, 255).tolist()), -1,
                        cv2.LINE_AA)
        if blur:
            img = cv2.GaussianBlur(img, (0, 0), blur * s)
        if depth == 1 and rng.random() < 0.6:
            for _ in range(int(rng.integers(2, 6))):
                p = rng.uniform(0, 1, 2) * [w, h]
                q = p + rng.normal(0, 0.3, 2) * s
                cv2.line(img, tuple(int(v) for v in p), tuple(int(v) for v in q), (30, 45, 50),
                         max(1, int(0.01 * s * rng.uniform(0.5, 2))), cv2.LINE_AA)
    img = cv2.GaussianBlur(img, (0, 0), rng.uniform(0.5, 3) * s / 1500)
    return cv2.resize(img, (W, H), interpolation=cv2.INTER_LINEAR)


# ---------------------------------------------------------------------------------------------
# Desk objects lying on the table beside the page


def desk(rng, canvas, G, plane, page_mm):
    """Keyboard, laptop, ruled notebook, ruler, books and a mug around the page."""
    pt = Painter(canvas, G, _wmin(G, plane))
    pw, ph = page_mm
    kinds = list(rng.permutation(["keyboard", "laptop", "notebook", "ruler", "books", "mug"]))
    sides = rng.permutation(4)
    for i, kind in enumerate(kinds[:int(rng.integers(2, 5))]):
        w, h = {"keyboard": (440, 140), "laptop": (320, 220), "notebook": (150, 210),
                "ruler": (300, 32), "books": (170, 240), "mug": (90, 90)}[kind]
        turn = int(rng.integers(2))
        ang = math.radians(rng.normal(0, 8)) + turn * math.pi / 2
        ew, eh = (h, w) if turn else (w, h)
        # Against one side of the page, a little apart or with the page lying over its edge.
        side = int(sides[i % 4])
        gap = rng.uniform(-0.15, 0.6)
        along = rng.uniform(-0.6, 0.6)
        if side % 2 == 0:
            cx = (1 if side == 0 else -1) * (pw / 2 + ew / 2 + gap * ew)
            cy = along * ph
        else:
            cx = along * pw
            cy = (1 if side == 1 else -1) * (ph / 2 + eh / 2 + gap * eh)
        c, s = math.cos(ang), math.sin(ang)

        def at(dx, dy):  # a point of the object's own frame, from its top-left corner
            return (cx + c * (dx - w / 2) - s * (dy - h / 2),
                    cy + s * (dx - w / 2) + c * (dy - h / 2))

        def box(dx, dy, bw, bh, col):
            pt.poly([at(dx, dy), at(dx + bw, dy), at(dx + bw, dy + bh), at(dx, dy + bh)], col)

        if kind in ("keyboard", "laptop"):
            light = rng.random() < 0.4
            case = _tone(rng, (205, 205, 208) if light else (35, 35, 38), 0.05)
            key = _tone(rng, (235, 235, 235) if light else (55, 55, 58), 0.05)
            box(0, 0, w, h, case)
            kw = w - 20 if kind == "keyboard" else w - 40
            rows, top = (6, 10) if kind == "keyboard" else (5, 15)
            pitch = min(19.0, kw / 15)
            for r in range(rows):
                n = int(kw / pitch)
                for k in range(n):
                    kx = 10 + k * pitch + (r % 3) * 4
                    if kx + pitch > w - 8:
                        break
                    if r == rows - 1 and 4 <= k < 10:
                        if k == 4:
                            box(kx, top + r * pitch, 6 * pitch - 3, pitch - 3, key)
                        continue
                    box(kx, top + r * pitch, pitch - 3, pitch - 3, key)
            if kind == "laptop":
                box(w / 2 - 55, h - 80, 110, 70, case * 0.9)
        elif kind == "notebook":
            box(0, 0, w, h, _tone(rng, (245, 245, 243), 0.02))
            for yy in np.arange(25, h - 5, 7.0):
                box(5, yy, w - 10, 0.5, (200, 170, 140))
            box(22, 0, 0.6, h, (120, 120, 220))
            for yy in np.arange(8, h - 5, 9.0):
                box(-4, yy, 9, 4, (90, 90, 95))
        elif kind == "ruler":
            box(0, 0, w, h, _tone(rng, (215, 225, 230) if rng.random() < 0.5 else (80, 160, 200)))
            for k in range(0, int(w) - 5, 1):
                box(5 + k, 0, 0.4, 8 if k % 10 == 0 else (6 if k % 5 == 0 else 4), (30, 30, 30))
        elif kind == "books":
            for k in range(int(rng.integers(1, 4))):
                col = _tone(rng, BOOKS[int(rng.integers(len(BOOKS)))])
                d = 6 * k
                box(d, d, w - 2 * d, h - 2 * d, col)
                box(d, d, 12, h - 2 * d, col * 0.7)
        else:
            col = _tone(rng, BOOKS[int(rng.integers(len(BOOKS)))])
            pt.ellipse(cx, cy, 45, 45, col)
            pt.ellipse(cx, cy, 38, 38, (30, 45, 60))
