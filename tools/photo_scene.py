"""The table, the camera and the light that turn a flat page into a phone photograph.

Coordinates are continuous pixels: pixel (i, j) covers [i, i+1) x [j, j+1), so a W x H image
spans (0,0)-(W,H). OpenCV's warps address pixel centres, so every homography built here in
continuous coordinates is conjugated by a half-pixel shift before it is handed to OpenCV.

Camera: a pinhole with its principal point at the frame centre and a horizontal field of view
of 62-75 degrees on the longer side. The page lies in the plane z = 0 (millimetres, centred on
the origin); the camera sees it through rotation R = Rz(roll) Rx(tilt cos phi) Ry(tilt sin phi)
and translation (0, 0, d), so page -> photo is K [r1 r2 t] S. The distance d is solved for the
requested coverage (page area / frame area); the quadrangle is then shifted in the image plane
(an off-centre crop of a larger sensor) either to a random place inside the frame with a margin,
or, when asked, so that it touches or crosses one border.

Light and sensor: table textures are synthesised (planked wood grain, plain dark/mid/light
surfaces with a faint mottle, woven cloth, desk clutter); the page is reduced with area
averaging to about the photo's scale, warped with bilinear interpolation together with a
coverage mask (anti-aliased edges, exact in expectation), and laid over a soft drop shadow.
Hard cases add another sheet under the page, a shadow band and a fingertip over an edge. The
whole frame is multiplied by a light field (linear gradient x vignetting x colour cast), blurred
slightly as a lens does, given signal-dependent noise and sharpened as a phone's processing
does.
"""

import math

import cv2
import numpy as np


def _smooth_noise(rng, w, h, cells, amp):
    small = rng.normal(0, amp, (cells[1], cells[0])).astype(np.float32)
    return cv2.resize(small, (w, h), interpolation=cv2.INTER_CUBIC)


def _half_pixel(Hc):
    """Continuous-to-continuous homography -> OpenCV's centre-indexed convention."""
    t_in = np.array([[1, 0, 0.5], [0, 1, 0.5], [0, 0, 1]])
    t_out = np.array([[1, 0, -0.5], [0, 1, -0.5], [0, 0, 1]])
    return t_out @ Hc @ t_in


def project(Hc, pts):
    p = np.hstack([np.asarray(pts, np.float64), np.ones((len(pts), 1))]) @ Hc.T
    return p[:, :2] / p[:, 2:3]


# ---------------------------------------------------------------------------------------------
# Table surfaces

WOODS = [(60, 95, 140), (45, 70, 105), (95, 140, 185), (70, 110, 160), (35, 50, 75)]
CLOTHS = [(140, 80, 40), (50, 50, 150), (60, 120, 60), (150, 170, 190), (110, 110, 115)]


def _wood(rng, W, H):
    w, h = W // 2, H // 2
    ang = rng.uniform(0, math.pi)
    yy, xx = np.mgrid[0:h, 0:w].astype(np.float32)
    v = -xx * math.sin(ang) + yy * math.cos(ang)
    u = xx * math.cos(ang) + yy * math.sin(ang)
    plank_w = max(w, h) / rng.uniform(3, 6)
    shift = v + rng.uniform(0, plank_w)
    plank = np.floor(shift / plank_w)
    turb = _smooth_noise(rng, w, h, (5, 5), 1.0)
    periods = rng.uniform(10, 30, 64).astype(np.float32)
    pid = plank.astype(np.int64) % 64
    phase = v * (2 * math.pi) / periods[pid] + turb * 2.5 + plank * 1.7 + 0.004 * u * np.sin(plank)
    grain = (0.5 + 0.5 * np.sin(phase)) ** 4  # thin dark late-wood lines
    fibre_tab = cv2.GaussianBlur(rng.normal(0, 1, (1, 4096)).astype(np.float32), (0, 0), 1.2)[0]
    fibre = fibre_tab[(v * 1.5).astype(np.int64) % 4096]
    tints = rng.normal(0, 0.07, 64).astype(np.float32)
    shade = 0.95 - 0.14 * grain + 0.06 * fibre + tints[pid] + 0.05 * turb
    gap = plank_w / 2 - np.abs(shift - (plank + 0.5) * plank_w)
    shade *= 1 - 0.55 * np.clip(1.6 - gap, 0, 1)  # anti-aliased seam between planks
    base = np.array(WOODS[int(rng.integers(len(WOODS)))], np.float32) * rng.uniform(0.85, 1.15)
    img = shade[:, :, None] * base
    return cv2.resize(img, (W, H), interpolation=cv2.INTER_LINEAR)


def _plain(rng, W, H, lo, hi):
    level = rng.uniform(lo, hi)
    hue = rng.uniform(-0.08, 0.08, 3) if hi < 180 else rng.uniform(-0.02, 0.02, 3)
    base = level * (1 + hue)
    mottle = 1 + _smooth_noise(rng, W, H, (5, 4), 0.04)
    img = mottle[:, :, None] * base.astype(np.float32)
    fine = _smooth_noise(rng, W, H, (W // 6, H // 6), 0.02 * level)
    return img + fine[:, :, None]


def _cloth(rng, W, H):
    p = rng.uniform(3, 6)
    cx = np.sin(np.arange(W, dtype=np.float32) * (2 * math.pi / p))
    cy = np.sin(np.arange(H, dtype=np.float32) * (2 * math.pi / p) + 1.0)
    weave = 1 + 0.06 * np.outer(cy, cx) + 0.03 * (cx[None, :] + cy[:, None])
    folds = 1 + _smooth_noise(rng, W, H, (4, 4), 0.09)
    base = np.array(CLOTHS[int(rng.integers(len(CLOTHS)))], np.float32) * rng.uniform(0.8, 1.2)
    return (weave * folds)[:, :, None] * base


def clutter(rng, img, quad, W, H):
    """Desk objects (keyboard, mug, pen, phone, sticky note) kept mostly clear of the page."""
    s = min(W, H)
    kinds = list(rng.permutation(["keyboard", "mug", "pen", "phone", "note"]))
    for kind in kinds[:int(rng.integers(2, 5))]:
        for _ in range(30):
            c = (float(rng.uniform(0, W)), float(rng.uniform(0, H)))
            if cv2.pointPolygonTest(quad.astype(np.float32), c, True) < -0.15 * s:
                break
        ang = rng.uniform(-40, 40)
        if kind == "keyboard":
            box = ((c[0], c[1]), (0.9 * s, 0.3 * s), ang)
            pts = cv2.boxPoints(box)
            cv2.fillConvexPoly(img, pts.astype(np.int32), (28, 28, 30), cv2.LINE_AA)
            for i in range(12):
                for j in range(4):
                    k = ((c[0] + (i - 5.5) * 0.07 * s * math.cos(math.radians(ang)) -
                          (j - 1.5) * 0.07 * s * math.sin(math.radians(ang)),
                          c[1] + (i - 5.5) * 0.07 * s * math.sin(math.radians(ang)) +
                          (j - 1.5) * 0.07 * s * math.cos(math.radians(ang))),
                         (0.055 * s, 0.055 * s), ang)
                    cv2.fillConvexPoly(img, cv2.boxPoints(k).astype(np.int32), (45, 45, 48),
                                       cv2.LINE_AA)
        elif kind == "mug":
            r = int(0.11 * s)
            col = tuple(float(v) for v in rng.uniform(40, 220, 3))
            cv2.circle(img, (int(c[0] + r), int(c[1])), int(r * 0.45), col, int(r * 0.15),
                       cv2.LINE_AA)
            cv2.circle(img, (int(c[0]), int(c[1])), r, col, -1, cv2.LINE_AA)
            cv2.circle(img, (int(c[0]), int(c[1])), int(r * 0.85), (30, 45, 60), -1, cv2.LINE_AA)
        elif kind == "pen":
            pts = cv2.boxPoints(((c[0], c[1]), (0.4 * s, 0.018 * s), ang))
            col = tuple(float(v) for v in rng.uniform(20, 200, 3))
            cv2.fillConvexPoly(img, pts.astype(np.int32), col, cv2.LINE_AA)
        elif kind == "phone":
            pts = cv2.boxPoints(((c[0], c[1]), (0.2 * s, 0.42 * s), ang))
            cv2.fillConvexPoly(img, pts.astype(np.int32), (20, 20, 22), cv2.LINE_AA)
            pts = cv2.boxPoints(((c[0], c[1]), (0.18 * s, 0.38 * s), ang))
            cv2.fillConvexPoly(img, pts.astype(np.int32), (60, 50, 45), cv2.LINE_AA)
        else:
            pts = cv2.boxPoints(((c[0], c[1]), (0.2 * s, 0.2 * s), ang))
            cv2.fillConvexPoly(img, pts.astype(np.int32), (110, 230, 245), cv2.LINE_AA)


def table(rng, kind, W, H):
    if kind == "wood":
        return _wood(rng, W, H)
    if kind == "dark":
        return _plain(rng, W, H, 25, 65)
    if kind in ("mid", "clutter"):
        return _plain(rng, W, H, 85, 150)
    if kind == "light":
        return _plain(rng, W, H, 185, 220)
    return _cloth(rng, W, H)


# ---------------------------------------------------------------------------------------------
# Camera geometry


def place_page(rng, W, H, page_mm, page_px, coverage, tilt_deg, roll_deg, fov_deg, border,
               camera=False):
    """Page (continuous page pixels) -> photo (continuous pixels) homography and the corners.

    With camera=True the 3x4 projection P of the page's world (millimetres, page centred on the
    origin, z = 0 the table) into the photo is returned too, for sheets that do not lie flat."""
    f = (max(W, H) / 2) / math.tan(math.radians(fov_deg) / 2)
    K = np.array([[f, 0, W / 2], [0, f, H / 2], [0, 0, 1]])
    (wmm, hmm), (pw, ph) = page_mm, page_px
    S = np.array([[wmm / pw, 0, -wmm / 2], [0, hmm / ph, -hmm / 2], [0, 0, 1]])
    phi = rng.uniform(0, 2 * math.pi)
    a, b, r = (math.radians(tilt_deg) * math.cos(phi), math.radians(tilt_deg) * math.sin(phi),
               math.radians(roll_deg))
    Rz = np.array([[math.cos(r), -math.sin(r), 0], [math.sin(r), math.cos(r), 0], [0, 0, 1]])
    Rx = np.array([[1, 0, 0], [0, math.cos(a), -math.sin(a)], [0, math.sin(a), math.cos(a)]])
    Ry = np.array([[math.cos(b), 0, math.sin(b)], [0, 1, 0], [-math.sin(b), 0, math.cos(b)]])
    R = Rz @ Rx @ Ry
    corners_px = np.array([[0, 0], [0, ph], [pw, ph], [pw, 0]], np.float64)
    while True:
        d = f * math.sqrt(wmm * hmm / (coverage * W * H))
        for _ in range(4):
            Hc = K @ np.column_stack([R[:, 0], R[:, 1], [0, 0, d]]) @ S
            q = project(Hc, corners_px)
            area = cv2.contourArea(q.astype(np.float32))
            d *= math.sqrt(area / (coverage * W * H))
        Hc = K @ np.column_stack([R[:, 0], R[:, 1], [0, 0, d]]) @ S
        q = project(Hc, corners_px)
        m = 0.015 * min(W, H)
        lo, hi = np.array([m, m]) - q.min(0), np.array([W - m, H - m]) - q.max(0)
        if border or np.all(lo <= hi):
            break
        coverage *= 0.93
    if np.all(lo <= hi):
        shift = rng.uniform(lo, hi)
    else:
        shift = (lo + hi) / 2
    if border:
        # Push the page across one border by up to a few percent of its own size.
        axis, side = int(rng.integers(2)), int(rng.integers(2))
        ext = q.max(0)[axis] - q.min(0)[axis]
        over = rng.uniform(-0.005, 0.05) * ext
        shift[axis] = (-q.min(0)[axis] - over) if side == 0 else ((W, H)[axis] - q.max(0)[axis] +
                                                                   over)
    T = np.array([[1, 0, shift[0]], [0, 1, shift[1]], [0, 0, 1]])
    Hc = T @ Hc
    quad = project(Hc, corners_px)
    cov = cv2.contourArea(quad.astype(np.float32)) / (W * H)
    if camera:
        return Hc, quad, cov, T @ K @ np.column_stack([R, [0, 0, d]])
    return Hc, quad, cov


def warp_page(page, ss, page_px, Hc, W, H):
    """Warps the rendered page into the frame; returns (colour, coverage mask), float32."""
    pw, ph = page_px
    quad = project(Hc, [[0, 0], [0, ph], [pw, ph], [pw, 0]])
    scale = math.sqrt(cv2.contourArea(quad.astype(np.float32)) / (pw * ph))  # photo px per page px
    k = min(1.0, 1.25 * scale / ss)
    if k < 1.0:
        page = cv2.resize(page, None, fx=k, fy=k, interpolation=cv2.INTER_AREA)
    rh, rw = page.shape[:2]
    to_base = np.diag([pw / rw, ph / rh, 1.0])
    M = _half_pixel(Hc @ to_base)
    colour = cv2.warpPerspective(page, M, (W, H), flags=cv2.INTER_LINEAR,
                                 borderMode=cv2.BORDER_REPLICATE)
    ones = np.full((rh, rw), 255, np.uint8)
    mask = cv2.warpPerspective(ones, M, (W, H), flags=cv2.INTER_LINEAR,
                               borderMode=cv2.BORDER_CONSTANT, borderValue=0)
    return colour.astype(np.float32), mask.astype(np.float32) * (1 / 255.0)


def poly_mask(W, H, pts):
    m = np.zeros((H, W), np.uint8)
    cv2.fillConvexPoly(m, np.round(np.asarray(pts) * 16 - 8).astype(np.int32), 255, cv2.LINE_AA,
                       4)
    return m.astype(np.float32) * (1 / 255.0)


def drop_shadow(img, mask, rng, strength):
    W = img.shape[1]
    sig = 0.004 * W
    dx, dy = rng.uniform(-0.003, 0.003, 2) * W
    M = np.float32([[1, 0, dx], [0, 1, dy]])
    sh = cv2.warpAffine(mask, M, (mask.shape[1], mask.shape[0]))
    sh = cv2.GaussianBlur(sh, (0, 0), sig)
    img *= (1 - strength * sh)[:, :, None]


def other_sheet(rng, img, quad):
    """Another sheet of paper lying partly under the page."""
    c = quad.mean(0)
    ang = math.radians(rng.uniform(8, 25) * rng.choice([-1, 1]))
    rot = np.array([[math.cos(ang), -math.sin(ang)], [math.sin(ang), math.cos(ang)]])
    off = (quad[2] - quad[0]) * rng.uniform(0.12, 0.25) * rng.choice([-1, 1], 2)
    pts = (quad - c) @ rot.T + c + off
    H, W = img.shape[:2]
    m = poly_mask(W, H, pts)
    drop_shadow(img, m, rng, 0.25)
    col = rng.uniform(225, 245) + rng.uniform(-4, 4, 3)
    img[:] = img * (1 - m[:, :, None]) + m[:, :, None] * col.astype(np.float32)


def finger(rng, img, quad):
    """A fingertip resting over one page edge, coming from outside the page."""
    H, W = img.shape[:2]
    e = int(rng.integers(4))
    p0, p1 = quad[e], quad[(e + 1) % 4]
    t = rng.uniform(0.25, 0.75)
    p = p0 + t * (p1 - p0)
    edge = (p1 - p0) / np.linalg.norm(p1 - p0)
    out = np.array([edge[1], -edge[0]])
    if np.dot(out, p - quad.mean(0)) < 0:
        out = -out
    width = 0.07 * np.linalg.norm(quad[2] - quad[0])
    length = 6 * width
    centre = p + out * (length / 2 - 0.35 * width)
    ang = math.degrees(math.atan2(out[1], out[0]))
    m = np.zeros((H, W), np.uint8)
    cv2.ellipse(m, ((float(centre[0]), float(centre[1])), (float(length), float(width)), ang),
                255, -1, cv2.LINE_AA)
    m = cv2.GaussianBlur(m.astype(np.float32) * (1 / 255.0), (0, 0), 1.5)
    drop_shadow(img, m, rng, 0.35)
    skin = np.array([105, 140, 200], np.float32) * rng.uniform(0.8, 1.1)
    img[:] = img * (1 - m[:, :, None]) + m[:, :, None] * skin
    tip = p - out * 0.15 * width
    cv2.ellipse(img, ((float(tip[0]), float(tip[1])), (float(width * 0.7), float(width * 0.55)),
                      ang), tuple(float(v) for v in skin * 1.2), -1, cv2.LINE_AA)


def light_field(rng, W, H, shadow_band):
    """Multiplicative illumination: gradient x vignetting (x a soft shadow band), per channel."""
    w, h = max(8, W // 8), max(8, H // 8)
    yy, xx = np.mgrid[0:h, 0:w].astype(np.float32)
    xx, yy = (xx + 0.5) / w - 0.5, (yy + 0.5) / h - 0.5
    a = rng.uniform(0, 2 * math.pi)
    g = rng.uniform(0.15, 0.4)
    field = 1 + g * (xx * math.cos(a) + yy * math.sin(a))
    r2 = (xx * xx + yy * yy) / 0.5
    field *= 1 - rng.uniform(0.2, 0.4) * r2
    if shadow_band:
        b = rng.uniform(0, math.pi)
        dist = xx * math.cos(b) + yy * math.sin(b) - rng.uniform(-0.15, 0.15)
        half = rng.uniform(0.06, 0.15)
        band = np.clip((half - np.abs(dist)) / 0.03, 0, 1)
        field *= 1 - rng.uniform(0.3, 0.45) * band
    cast = 1 + rng.uniform(-0.025, 0.025, 3)
    field = cv2.resize(field, (W, H), interpolation=cv2.INTER_CUBIC)
    return field[:, :, None] * cast.astype(np.float32)


def sensor(rng, img):
    """Lens blur, signal-dependent noise and the phone's sharpening, in place on float32."""
    H, W = img.shape[:2]
    blur = rng.uniform(0.5, 0.9) * max(W, H) / 3000
    cv2.GaussianBlur(img, (0, 0), blur, dst=img)
    sigma = np.sqrt(rng.uniform(1.5, 4.0) + rng.uniform(0.01, 0.04) * img.mean(2))
    luma = rng.standard_normal((H, W), dtype=np.float32) * sigma
    chroma = cv2.resize(rng.normal(0, 1.5, (H // 2, W // 2, 3)).astype(np.float32), (W, H))
    img += luma[:, :, None] + chroma
    soft = cv2.GaussianBlur(img, (0, 0), 1.6 * max(W, H) / 3000)
    amount = rng.uniform(0.4, 0.9)
    img *= 1 + amount
    img -= amount * soft
    np.clip(img, 0, 255, out=img)
    return img.astype(np.uint8)


def edge_contrast(img, quad):
    """Mean grey difference between a band just inside and just outside the page edge."""
    H, W = img.shape[:2]
    k = max(1, min(W, H) // 500)
    small = cv2.resize(cv2.cvtColor(np.clip(img, 0, 255).astype(np.uint8), cv2.COLOR_BGR2GRAY),
                       (W // k, H // k), interpolation=cv2.INTER_AREA)
    m = np.zeros(small.shape, np.uint8)
    cv2.fillConvexPoly(m, np.round(quad / k).astype(np.int32), 1)
    ker = np.ones((9, 9), np.uint8)
    inner = m.astype(bool) & ~cv2.erode(m, ker).astype(bool)
    outer = cv2.dilate(m, ker).astype(bool) & ~m.astype(bool)
    if not inner.any() or not outer.any():
        return 0.0
    return float(abs(small[inner].mean() - small[outer].mean()))
