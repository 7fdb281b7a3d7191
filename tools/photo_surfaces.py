"""Surfaces seen through the camera: patterned fabric, floor tiles, rugs, planks, coloured boards
and crumpled paper, each drawn in its own plane in millimetres.

Geometry. A plane (the table the page lies on, or a wall behind a page held up) reaches the
photograph through a homography G (plane millimetres -> continuous photo pixels). Its inverse is
evaluated exactly on a coarse grid (every `step` pixels, one sample beyond each border) and
interpolated linearly to full resolution, which for a homography is exact to a small fraction of
a pixel. The grid also gives each pixel's footprint on the plane (the extent of its pixel box
there) and tells where the plane lies beyond the horizon.

Textures. A pattern is a small picture whose texels have a known size in millimetres: one repeat
of a fabric, a block of tiles, a rug's field. It is drawn anti-aliased (supersampled bands) and
read with cv2.remap from a mip pyramid, blending the two levels around each pixel's footprint,
so that stripes fade to their mean colour where the plane recedes instead of turning into moire;
texels are about 0.75 photo pixels at the page (read from the sharper level until a pixel spans
1.4 texels), so edges near the page stay sharp. Region edges (a rug's border, its bands) are
anti-aliased from their signed distance in photo pixels. Crumpled paper is a texture of its own
shading; low-frequency effects (cloth folds, mottle, gloss) are computed on the coarse grid.
"""

import math

import cv2
import numpy as np

TEXEL = 0.75  # texel size at the page, photo pixels
WHITE = (246, 246, 244)
# BGR colours: strong ones for saturated patterns, soft ones for muted patterns.
VIVID = [(40, 40, 200), (150, 60, 20), (40, 130, 30), (30, 190, 235), (20, 100, 230),
         (130, 40, 120), (30, 30, 35), (90, 30, 30), (35, 35, 140), (160, 120, 30)]
MUTED = [(110, 130, 150), (90, 100, 90), (140, 150, 160), (70, 90, 120), (120, 110, 100),
         (80, 80, 85), (150, 170, 190), (100, 120, 110), (60, 70, 90), (170, 175, 180)]


class Grid:
    """Samples every `step` pixels, one beyond each border, and their interpolation to full size.

    Sample (i, j) sits at the continuous point ((j - 0.5) step, (i - 0.5) step)."""

    def __init__(self, W, H, step):
        self.W, self.H, self.s = W, H, step
        nx, ny = -(-W // step) + 2, -(-H // step) + 2
        self.x, self.y = np.meshgrid((np.arange(nx) - 0.5) * step, (np.arange(ny) - 0.5) * step)

    def up(self, a, box=None):
        """Coarse array -> float32 at full resolution (or inside box = (x0, y0, x1, y1))."""
        s = self.s
        x0, y0, x1, y1 = box or (0, 0, self.W, self.H)
        j0, i0 = x0 // s, y0 // s
        j1, i1 = -(-x1 // s) + 1, -(-y1 // s) + 1
        sub = np.ascontiguousarray(a[i0:i1 + 1, j0:j1 + 1], np.float32)
        big = cv2.resize(sub, (sub.shape[1] * s, sub.shape[0] * s),
                         interpolation=cv2.INTER_LINEAR)
        ox, oy = x0 - (j0 - 1) * s, y0 - (i0 - 1) * s
        return big[oy:oy + y1 - y0, ox:ox + x1 - x0]


class Plane:
    """Where each coarse sample of the photograph meets a plane, and its footprint there."""

    def __init__(self, grid, G, ref):
        self.grid, self.G = grid, G
        Gi = np.linalg.inv(G)
        a = Gi[0, 0] * grid.x + Gi[0, 1] * grid.y + Gi[0, 2]
        b = Gi[1, 0] * grid.x + Gi[1, 1] * grid.y + Gi[1, 2]
        w = Gi[2, 0] * grid.x + Gi[2, 1] * grid.y + Gi[2, 2]
        wref = float(Gi[2] @ [ref[0], ref[1], 1.0])
        w = w / wref
        self.valid = w > 0.03  # nearer than 30 times the reference point
        w = np.where(self.valid, w, 1.0)
        self.X, self.Y = a / wref / w, b / wref / w
        s = grid.s
        self.dX = np.gradient(self.X, s, axis=1), np.gradient(self.X, s, axis=0)
        self.dY = np.gradient(self.Y, s, axis=1), np.gradient(self.Y, s, axis=0)
        self.foot = np.maximum(np.abs(self.dX[0]) + np.abs(self.dX[1]),
                               np.abs(self.dY[0]) + np.abs(self.dY[1]))
        self.foot[~self.valid] = 1e6
        j, i = int(ref[0] // s) + 1, int(ref[1] // s) + 1
        j, i = min(max(j, 0), grid.x.shape[1] - 1), min(max(i, 0), grid.x.shape[0] - 1)
        self.mm_px = float(self.foot[i, j])  # millimetres per photo pixel at ref
        self.ref = (float(self.X[i, j]), float(self.Y[i, j]))
        self.extent = (self.X[self.valid].min(), self.Y[self.valid].min(),
                       self.X[self.valid].max(), self.Y[self.valid].max())

    def local(self, origin, angle):
        """Coarse plane coordinates turned by `angle` about `origin` (for a rotated pattern)."""
        c, s = math.cos(angle), math.sin(angle)
        x, y = self.X - origin[0], self.Y - origin[1]
        return c * x + s * y, -s * x + c * y

    def distance_px(self, f):
        """A coarse plane function (millimetres, linear where it matters) -> photo pixels."""
        gx = np.gradient(f, self.grid.s, axis=1)
        gy = np.gradient(f, self.grid.s, axis=0)
        d = f / np.maximum(np.hypot(gx, gy), 1e-9)
        return np.where(self.valid, d, -1e4)

    def alpha(self, f):
        """Anti-aliased coverage of {f >= 0} at full resolution."""
        return np.clip(self.grid.up(self.distance_px(f)) + 0.5, 0, 1)


class Texture:
    """A picture with texels `mm` millimetres wide, repeated (wrap) or alone, with its pyramid."""

    def __init__(self, img, mm, wrap=True):
        self.levels, self.mm, self.wrap = [np.ascontiguousarray(img)], mm, wrap
        while len(self.levels) < 12 and max(self.levels[-1].shape[:2]) > 2:
            h, w = self.levels[-1].shape[:2]
            self.levels.append(cv2.resize(self.levels[-1], (max(1, w // 2), max(1, h // 2)),
                                          interpolation=cv2.INTER_AREA))

    def sample(self, tx, ty, lev, strip=64):
        """Full-resolution texel coordinates (level 0, continuous) and level -> float32 image.

        Works in strips of rows, reading only the levels a strip needs; each level read is
        blended over the ones before it with weight clip(lev - (level - 1), 0, 1), which leaves
        every pixel the linear blend of the two levels around its own."""
        L = np.clip(lev, 0, len(self.levels) - 1)
        h0, w0 = self.levels[0].shape[:2]
        border = cv2.BORDER_WRAP if self.wrap else cv2.BORDER_CONSTANT
        out = None
        for r0 in range(0, tx.shape[0], strip):
            r1 = min(tx.shape[0], r0 + strip)
            Ls = L[r0:r1]
            acc = None
            for lv in range(int(math.floor(Ls.min())), int(math.ceil(Ls.max())) + 1):
                img = self.levels[lv]
                kx, ky = np.float32(img.shape[1] / w0), np.float32(img.shape[0] / h0)
                got = cv2.remap(img, tx[r0:r1] * kx - 0.5, ty[r0:r1] * ky - 0.5,
                                cv2.INTER_LINEAR, borderMode=border, borderValue=0)
                if acc is None:
                    acc = got
                else:
                    w = np.clip(Ls - (lv - 1), 0, 1)
                    acc = cv2.blendLinear(got, acc, w, 1 - w)
            if out is None:
                out = np.empty(tx.shape + acc.shape[2:], acc.dtype)
            out[r0:r1] = acc
        return out.astype(np.float32).reshape(tx.shape + (-1,))

    def on(self, plane, u, v):
        """Samples the texture where coarse plane coordinates (u, v) (mm) fall, at full size."""
        g = plane.grid
        lev = g.up(np.log2(np.maximum(plane.foot, 1e-9) / self.mm) - 0.5)
        return self.sample(g.up(u / self.mm), g.up(v / self.mm), lev)


def bands(n, edges, colours, sub=8):
    """n texels of one repeat cut at fractions `edges` into bands of `colours` (anti-aliased)."""
    x = (np.arange(n * sub) + 0.5) / (n * sub)
    col = np.asarray(colours, np.float32)[np.searchsorted(edges, x, side="right")]
    return col.reshape(n, sub, -1).mean(1)


def smooth(rng, plane, scale_mm, amp, octaves=2):
    """Smooth random field on the plane (coarse grid), features about scale_mm across."""
    x0, y0, x1, y1 = plane.extent
    out = np.zeros(plane.X.shape, np.float32)
    for k in range(octaves):
        sc = scale_mm / 2 ** k
        nx, ny = int(min(64, (x1 - x0) / sc + 3)), int(min(64, (y1 - y0) / sc + 3))
        small = rng.normal(0, amp / 2 ** k, (ny, nx)).astype(np.float32)
        small = cv2.resize(small, (nx * 8, ny * 8), interpolation=cv2.INTER_CUBIC)
        mx = ((plane.X - x0) / (x1 - x0 + 1e-9) * (nx - 1) * 8 + 3.5).astype(np.float32)
        my = ((plane.Y - y0) / (y1 - y0 + 1e-9) * (ny - 1) * 8 + 3.5).astype(np.float32)
        out += cv2.remap(small, mx, my, cv2.INTER_LINEAR, borderMode=cv2.BORDER_REFLECT)
    return out


def _finish(tile, rng, grain):
    """Thread or fibre noise over a tile (a 256-texel noise patch repeated), as uint8."""
    h, w = tile.shape[:2]
    n = np.pad(rng.normal(1, grain, (256, 256)).astype(np.float32), 4, mode="wrap")
    n = cv2.GaussianBlur(n, (0, 0), 0.7)[4:-4, 4:-4]
    n = np.tile(n, (-(-h // 256), -(-w // 256)))[:h, :w]
    return np.clip(tile * n[:, :, None], 0, 255).astype(np.uint8)


def _texel(plane, period_mm, limit=2048):
    """Texel size for a repeat of period_mm: 0.75 photo pixels at the page, at most `limit`."""
    n = int(min(limit, max(8, round(period_mm / (TEXEL * plane.mm_px)))))
    return n, period_mm / n


# ---------------------------------------------------------------------------------------------
# Fabric


def fabric(rng, plane, short):
    """Woven checks, gingham, tartan, windowpane or stripes with folds; returns (image, name)."""
    kind = str(rng.choice(["gingham", "plaid", "stripes", "check", "windowpane"]))
    pal = VIVID if rng.random() < 0.55 else MUTED
    pick = [np.array(pal[i], np.float32) * rng.uniform(0.85, 1.15)
            for i in rng.permutation(len(pal))[:4]]
    light = np.array(WHITE, np.float32) * rng.uniform(0.88, 1.0)
    period = short * math.exp(rng.uniform(math.log(0.01), math.log(0.08))) * plane.mm_px
    n, mm = _texel(plane, period)
    if kind == "gingham":
        warp = weft = bands(n, [0.5], [light, pick[0]])
    elif kind == "check":
        warp = weft = bands(n, [0.5], [pick[0], pick[1] * 0.4])
    elif kind == "windowpane":
        d = rng.uniform(0.04, 0.12)
        warp = weft = bands(n, [0.5 - d / 2, 0.5 + d / 2], [pick[0], pick[1], pick[0]])
    else:
        k = int(rng.integers(3, 8))
        edges = np.sort(rng.uniform(0, 1, k - 1))
        cols = [pick[int(i)] if rng.random() < 0.8 else light for i in rng.integers(0, 4, k)]
        warp = bands(n, edges, cols)
        weft = warp if kind == "plaid" else None
    tile = warp[None, :, :] * np.ones((n, 1, 1), np.float32)
    if weft is not None:
        tile = 0.5 * (tile + weft[:, None, :])
    thread = 0.7 / mm  # texels per thread
    if thread >= 2.5:
        yy, xx = np.mgrid[0:n, 0:n].astype(np.float32)
        tile *= (1 + 0.05 * np.sin((xx + yy) * (math.pi / thread)))[:, :, None]
    tex = Texture(_finish(tile, rng, 0.04), mm)
    if rng.random() < 0.4:  # laid square to the page, as a cloth often is
        ang = rng.integers(4) * math.pi / 2 + math.radians(rng.normal(0, 2))
    else:
        ang = rng.uniform(0, math.pi)
    u, v = plane.local(plane.ref, ang)
    # Folds: a few long ridges roughly along one direction shift the pattern and shade it.
    fold = np.zeros(u.shape, np.float32)
    shade = np.ones(u.shape, np.float32)
    main = rng.uniform(0, math.pi)
    la = rng.uniform(0, 2 * math.pi)
    lx, ly = math.cos(la), math.sin(la)
    amp = rng.uniform(0.0, 1.0) ** 0.7
    for _ in range(int(rng.integers(2, 6))):
        b = main + rng.normal(0, 0.35)
        lam = rng.uniform(0.4, 1.6) * 300
        ph = rng.uniform(0, 2 * math.pi)
        t = (plane.X * math.cos(b) + plane.Y * math.sin(b)) * (2 * math.pi / lam) + ph
        t += smooth(rng, plane, lam, 1.0, 1)
        fold += np.sin(t) * lam * 0.02 * amp
        shade += (np.cos(t) * (math.cos(b) * lx + math.sin(b) * ly) * 0.12 * amp).astype(
            np.float32)
    img = tex.on(plane, u + fold * 0.7, v + fold * 0.5)
    img *= plane.grid.up(shade)[:, :, None]
    return img, kind


# ---------------------------------------------------------------------------------------------
# Tiles, planks, rugs


def tiles(rng, plane, short):
    """Square or oblong floor tiles with grout, some in running bond; returns (image, name)."""
    side = short * math.exp(rng.uniform(math.log(0.04), math.log(0.35))) * plane.mm_px
    aspect = float(rng.choice([1, 1, 1, 2, 0.5, 1.5]))
    tx, ty = side, side * aspect
    bond = 0.5 if aspect != 1 and rng.random() < 0.5 else 0.0
    grout = min(12.0, max(2.0, rng.uniform(0.015, 0.06) * min(tx, ty)))
    style = str(rng.choice(["glazed", "checker", "stone", "terracotta"]))
    k = 4 if 4 * max(tx, ty) / (TEXEL * plane.mm_px) <= 4096 else 2
    mm = max(TEXEL * plane.mm_px, k * max(tx, ty) / 4096)
    nx, ny = int(round(k * tx / mm)), int(round(k * ty / mm))
    mm_x, mm_y = k * tx / nx, k * ty / ny
    if style == "glazed":
        a = np.array(VIVID[int(rng.integers(len(VIVID)))] if rng.random() < 0.3 else
                     rng.uniform(150, 235) + rng.uniform(-10, 10, 3), np.float32)
    elif style == "checker":
        a = np.array([235, 235, 232], np.float32)
    elif style == "stone":
        a = np.array(rng.uniform(110, 190) + rng.uniform(-12, 12, 3), np.float32)
    else:
        a = np.array([70, 105, 170], np.float32) * rng.uniform(0.8, 1.15)
    dark = np.array([35, 35, 38], np.float32)
    gcol = np.float32(rng.uniform(40, 90) if a.mean() > 140 else rng.uniform(170, 220))
    joints = [[1.0], [0.0]] * k + [[1.0]]
    rows = bands(ny, _grout_edges(k, grout / (k * ty)), joints)[:, 0]
    cols = bands(nx, _grout_edges(k, grout / (k * tx)), joints)[:, 0]
    out = np.empty((ny, nx, 3), np.uint8)
    for r in range(k):
        y0, y1 = r * ny // k, (r + 1) * ny // k
        sh = int(round((r * bond) % 1.0 * nx / k))
        ids = ((np.arange(nx) - sh) * k // nx) % k
        block = np.empty((y1 - y0, nx, 3), np.float32)
        for c in range(k):
            base = dark if style == "checker" and (r + c) % 2 else a
            var = 1 + rng.normal(0, 0.025 if style == "glazed" else 0.05)
            block[:, ids == c] = base * var + rng.normal(0, 3, 3).astype(np.float32)
        if style == "stone":
            for _ in range(int(rng.integers(1, 4))):
                pts = np.cumsum(rng.normal(0, 1, (8, 2)) * (nx / 12), 0) + rng.uniform(0, nx, 2)
                pts[:, 1] = pts[:, 1] % (y1 - y0)
                cv2.polylines(block, [pts.astype(np.int32)], False, (float(a.mean()) * 0.82,) * 3,
                              max(1, nx // 500), cv2.LINE_8)
        g = 1 - (1 - np.roll(cols, sh)[None, :]) * (1 - rows[y0:y1, None])
        block += (gcol - block) * g[:, :, None]
        out[y0:y1] = _finish(block, rng, 0.05 if style == "stone" else 0.02)
    tex = Texture(out, mm_x)
    ang = (rng.integers(4) * math.pi / 2 + math.radians(rng.normal(0, 3)) if rng.random() < 0.5
           else rng.uniform(0, math.pi))
    u, v = plane.local((plane.ref[0] + rng.uniform(0, tx), plane.ref[1] + rng.uniform(0, ty)),
                       ang)
    img = tex.on(plane, u, v * (mm_x / mm_y))
    img *= gloss(rng, plane)[:, :, None]
    return img, style


def _grout_edges(k, g):
    """Band edges of k tiles per repeat with grout of width g (fraction) centred on each joint."""
    e = []
    for i in range(k):
        e += [i / k + g / 2, (i + 1) / k - g / 2]
    return e


def planks(rng, plane):
    """A plank floor or desk top: grain along each plank, dark seams, staggered ends."""
    width = rng.uniform(70, 190)
    k = 4
    mm = max(TEXEL * plane.mm_px, k * width / 4096)
    ny = int(round(k * width / mm))
    nx = int(min(4096, round(width * rng.uniform(5, 10) / mm)))
    base = np.array([[60, 95, 140], [45, 70, 105], [95, 140, 185], [70, 110, 160],
                     [150, 170, 190]][int(rng.integers(5))], np.float32) * rng.uniform(0.8, 1.2)
    out = np.empty((ny, nx, 3), np.uint8)
    xx = np.arange(nx, dtype=np.float32)[None, :]
    for r in range(k):
        y0, y1 = r * ny // k, (r + 1) * ny // k
        yy = np.arange(y1 - y0, dtype=np.float32)[:, None]
        spacing = rng.uniform(1.5, 4.0) / mm
        wob = np.sin(xx * (2 * math.pi / nx) * int(rng.integers(1, 3)) + rng.uniform(0, 6))
        wob = wob * rng.uniform(2, 8) / mm
        if spacing >= 2.5:
            grain = (0.5 + 0.5 * np.sin((yy + wob) * (2 * math.pi / spacing))) ** 4
        else:
            grain = np.zeros((y1 - y0, nx), np.float32) + 0.2
        block = base * rng.uniform(0.85, 1.12) * (0.94 - 0.12 * grain)[:, :, None]
        block[:max(1, int(round(1.5 / mm)))] *= 0.55  # seam between planks
        end = int(rng.uniform(0, nx))
        block[:, end:end + max(1, int(round(1.2 / mm)))] *= 0.6
        out[y0:y1] = _finish(block.astype(np.float32), rng, 0.03)
    tex = Texture(out, mm)
    u, v = plane.local(plane.ref, rng.uniform(0, math.pi))
    return tex.on(plane, u, v)


def rug(rng, plane, short, page_mm, floor):
    """A rug with nested border bands and a field of repeated motifs, over `floor`."""
    pw, ph = page_mm
    RW, RH = pw * rng.uniform(1.4, 3.0), ph * rng.uniform(1.3, 2.8)
    ang = math.radians(rng.normal(0, 4)) if rng.random() < 0.5 else rng.uniform(0, math.pi)
    centre = (rng.uniform(-0.3, 0.3) * pw, rng.uniform(-0.3, 0.3) * ph)
    u, v = plane.local(centre, ang)
    d = np.minimum(RW / 2 - np.abs(u), RH / 2 - np.abs(v))  # mm inside the rug's edge
    pal = [np.array(c, np.float32) for c in
           [(40, 40, 150), (90, 40, 30), (150, 190, 220), (40, 150, 200), (50, 50, 55),
            (110, 120, 40), (200, 210, 225), (60, 90, 160)]]
    order = rng.permutation(len(pal))
    ground, ink, accent, band = (pal[i] * rng.uniform(0.85, 1.1) for i in order[:4])
    # Border: nested bands (1-D in the distance from the edge).
    bw = rng.uniform(0.1, 0.2) * min(RW, RH)
    n, mm = _texel(plane, bw, 4096)
    cuts = np.sort(rng.uniform(0.05, 0.95, int(rng.integers(3, 7))))
    cols = [band if i % 2 == 0 else (ink if i % 4 == 1 else accent) for i in range(len(cuts) + 1)]
    strip = Texture(_finish(bands(n, cuts, cols)[None, :, :].repeat(2, 0), rng, 0.05), mm,
                    wrap=False)
    g = plane.grid
    dd = g.up(d)
    lev = g.up(np.log2(np.maximum(plane.foot, 1e-9) / mm) - 0.5)
    border_img = strip.sample(np.clip(dd / mm, 0.5, n - 0.5), np.ones_like(dd), lev)
    # Field: a lattice of lozenges with a smaller motif inside.
    m = rng.uniform(0.12, 0.3) * min(RW, RH)
    nm, mmm = _texel(plane, m)
    tile = np.empty((nm, nm, 3), np.float32)
    tile[:] = ground
    c = nm / 2
    for r, col in ((0.48, ink), (0.32, accent), (0.14, ground if rng.random() < 0.5 else band)):
        pts = np.array([[c, c - r * nm], [c + r * nm, c], [c, c + r * nm], [c - r * nm, c]])
        cv2.fillConvexPoly(tile, np.round(pts * 16).astype(np.int32), col.tolist(), cv2.LINE_8, 4)
    tile = cv2.GaussianBlur(tile, (0, 0), max(0.6, nm / 300))
    field = Texture(_finish(tile, rng, 0.06), mmm).on(plane, u, v)
    af = plane.alpha(d - bw)[:, :, None]
    img = border_img * (1 - af) + field * af
    del field, border_img
    ar = plane.alpha(d)[:, :, None]
    return floor * (1 - ar) + img * ar


# ---------------------------------------------------------------------------------------------
# Plain coloured boards and paper


def gloss(rng, plane):
    """A broad soft highlight and a faint mottle, as a coarse-grid factor upsampled."""
    f = 1 + smooth(rng, plane, 400, 0.035)
    if rng.random() < 0.5:
        cx, cy = plane.ref[0] + rng.normal(0, 200), plane.ref[1] + rng.normal(0, 200)
        r = rng.uniform(150, 500)
        f += rng.uniform(0.05, 0.2) * np.exp(-((plane.X - cx) ** 2 + (plane.Y - cy) ** 2) /
                                              (r * r)).astype(np.float32)
    return plane.grid.up(f)


SATURATED = [(20, 205, 245), (10, 215, 250), (40, 190, 230), (35, 35, 205), (160, 70, 20),
             (50, 150, 40), (20, 120, 240), (140, 40, 150), (200, 150, 30)]


def saturated(rng, plane):
    """A strongly coloured desk or board, yellow most often; returns (image, colour name)."""
    i = int(rng.integers(len(SATURATED)))
    col = np.array(SATURATED[i], np.float32) * rng.uniform(0.8, 1.05)
    img = gloss(rng, plane)[:, :, None] * col
    name = ["yellow", "yellow", "yellow", "red", "blue", "green", "orange", "violet", "teal"][i]
    return img, name


def paper(rng, plane, page_mm):
    """White or cream paper under the page, crumpled: facets at two scales and short creases.

    The relief is a picture of its shading around the page (flat facets from a Voronoi split,
    each tipped a little towards or away from the light; each crease a bright and a dark line
    side by side), read like any texture so that creases stay sharp."""
    side = 2048
    mm = 3.0 * math.hypot(*page_mm) / side
    shade = np.zeros((side, side), np.float32)
    la = rng.uniform(0, 2 * math.pi)
    for k, amp in ((int(rng.integers(150, 400)), rng.uniform(0.03, 0.07)),
                   (int(rng.integers(900, 2500)), rng.uniform(0.015, 0.04))):
        seeds = np.full((side, side), 255, np.uint8)
        pts = rng.integers(0, side, (k, 2))
        seeds[pts[:, 1], pts[:, 0]] = 0
        _, lab = cv2.distanceTransformWithLabels(seeds, cv2.DIST_L2, 5,
                                                 labelType=cv2.DIST_LABEL_PIXEL)
        tilt = rng.normal(0, 1, (k + 1, 2)).astype(np.float32)
        shade += amp * (tilt[lab, 0] * math.cos(la) + tilt[lab, 1] * math.sin(la))
    for _ in range(int(rng.integers(15, 60))):
        p = rng.uniform(0, side, 2)
        d = rng.normal(0, 1, 2)
        d /= np.linalg.norm(d)
        q = p + d * rng.uniform(0.05, 0.4) * side
        n = np.array([-d[1], d[0]])
        a = float(rng.uniform(0.03, 0.08))
        for off, sgn in ((1.0, 1), (-1.0, -1)):
            cv2.line(shade, tuple(int(v) for v in p + n * off), tuple(int(v) for v in q + n * off),
                     a * sgn, 1, cv2.LINE_AA)
    shade = cv2.GaussianBlur(shade, (0, 0), 0.8)
    tex = Texture(np.clip(128 + 400 * shade, 0, 255).astype(np.uint8), mm)
    u, v = plane.local((plane.ref[0] - side * mm / 2, plane.ref[1] - side * mm / 2), 0.0)
    rel = (tex.on(plane, u, v)[:, :, 0] - 128) * (1 / 400.0) + gloss(rng, plane)
    col = np.clip(rng.uniform(228, 250) + rng.uniform(-6, 4, 3) + [rng.uniform(0, 6), 0, 0],
                  0, 255).astype(np.float32)
    return rel[:, :, None] * col
