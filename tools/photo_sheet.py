"""A sheet of paper that need not lie flat: folded once or twice, edges curled, gently bowed.

The sheet is described in its own millimetres (u across, v down; 0..w x 0..h). Along each axis a
profile gives the paper's slope angle theta(s): flat panels meeting at creases (a soft step about
a millimetre wide), a quadratic rise towards a curled edge, a linear change for a bow.
Integrating cos(theta) and sin(theta) gives the paper's position along the table and its height,
so along either axis the paper bends without stretching; the height is the sum of both profiles
(exact when one axis bends, a close approximation when both do). The lowest point rests on the
table; world z is minus the height (the camera of photo_scene.place_page looks along +z).

The photograph is rendered backwards: every coarse grid sample near the sheet is mapped onto the
sheet by Newton's method on the 2x2 system projection(u, v) = pixel, started from the flat page,
and the page picture is read through the interpolated map with cv2.remap; its coverage mask, read
from a constant picture, gives anti-aliased edges. Beyond the sheet the profiles continue flat,
so samples beside the sheet land outside 0..w x 0..h and are not page. Shading is Lambertian for
one light above the table (ambient + direct), normalised to 1 for a flat sheet, so panels turned
towards or away from the light differ by a brightness step at the crease, which also gets a thin
darker line. The truth corners are the projections of the sheet's own four corners, so a folded
or curled outline bends between them.
"""

import math

import cv2
import numpy as np

DS = 0.25  # profile table step, millimetres


class Axis:
    """Slope, position and height of the paper along one of its axes (length L mm)."""

    def __init__(self, L, theta=None):
        self.L, self.flat, self.top = L, theta is None, 0.0
        if self.flat:
            return
        s = np.arange(-L, 2 * L + DS, DS)
        inside = (s >= 0) & (s <= L)
        th = np.where(inside, theta(np.clip(s, 0, L)), 0.0)
        c, sn = np.cos(th), np.sin(th)
        pos = np.concatenate([[0], np.cumsum((c[1:] + c[:-1]) * (DS / 2))])
        hgt = np.concatenate([[0], np.cumsum((sn[1:] + sn[:-1]) * (DS / 2))])
        pos -= (np.interp(0, s, pos) + np.interp(L, s, pos)) / 2
        hgt -= hgt[inside].min()
        self.s0, self.n = float(s[0]), len(s)
        self.tabs = [t.astype(np.float32) for t in (pos, hgt, c, sn)]
        self.top = float(hgt[inside].max())

    def at(self, u):
        """Position along the table (centred), height, cos and sin of the slope at u."""
        if self.flat:
            return u - np.float32(self.L / 2), 0.0, 1.0, 0.0
        f = (np.asarray(u, np.float32) - np.float32(self.s0)) * np.float32(1 / DS)
        i = np.clip(f.astype(np.int32), 0, self.n - 2)
        fr = np.clip(f - i, 0, 1)
        out = []
        for t in self.tabs:
            a = t.take(i)
            out.append(a + (t.take(i + 1) - a) * fr)
        return out


def _panels(creases, angles, width=1.0):
    """Slope made of flat panels (angles, radians) meeting at crease positions (mm)."""
    def theta(s):
        t = np.full(s.shape, angles[0], np.float64)
        for c, a0, a1 in zip(creases, angles[:-1], angles[1:]):
            t += (a1 - a0) * 0.5 * (1 + np.tanh((s - c) / width))
        return t
    return theta


class Sheet:
    """A page of w x h millimetres bent along its axes, lit by one light above the table."""

    def __init__(self, w, h, theta_u=None, theta_v=None, creases=(), light=None, amb=0.55):
        self.w, self.h = w, h
        self.au, self.av = Axis(w, theta_u), Axis(h, theta_v)
        self.creases = list(creases)  # (axis 0 = u / 1 = v, position mm)
        self.light = np.asarray(light if light is not None else (0.0, 0.0, 1.0), np.float64)
        self.light /= np.linalg.norm(self.light)
        self.amb = amb

    @property
    def flat(self):
        return self.au.flat and self.av.flat

    def project(self, P, u, v):
        P = P.astype(np.float64)
        u, v = np.asarray(u, np.float32), np.asarray(v, np.float32)
        X, hu, _, _ = self.au.at(u)
        Y, hv, _, _ = self.av.at(v)
        Z = -(hu + hv)
        q = [P[r, 0] * X + P[r, 1] * Y + P[r, 2] * Z + P[r, 3] for r in range(3)]
        return (q[0] / q[2]).astype(np.float64), (q[1] / q[2]).astype(np.float64)

    def corners(self, P):
        """Top-left, bottom-left, bottom-right, top-right of the sheet in the photograph."""
        u = np.array([0.0, 0.0, self.w, self.w])
        v = np.array([0.0, self.h, self.h, 0.0])
        return np.column_stack(self.project(P, u, v))

    def outline(self, P, n=24):
        t = np.linspace(0, 1, n, endpoint=False)
        u = np.concatenate([0 * t, t * self.w, 0 * t + self.w, (1 - t) * self.w])
        v = np.concatenate([t * self.h, 0 * t + self.h, (1 - t) * self.h, 0 * t])
        return np.column_stack(self.project(P, u, v))

    def invert(self, P, px, py, iters=4):
        """Sheet coordinates (u, v) seen at photo points (px, py), by Newton's method.

        Four steps from the flat page bring the residual below 1e-3 pixel for the bends made
        here (float32 throughout)."""
        hm = -(self.au.top + self.av.top) / 2
        A = np.column_stack([P[:, 0], P[:, 1], P[:, 2] * hm + P[:, 3]])
        Ai = np.linalg.inv(A)
        q = [Ai[r, 0] * px + Ai[r, 1] * py + Ai[r, 2] for r in range(3)]
        u, v = q[0] / q[2] + self.w / 2, q[1] / q[2] + self.h / 2
        if self.flat:
            return u, v
        P = [[float(e) for e in row] for row in P]
        u, v = u.astype(np.float32), v.astype(np.float32)
        px, py = px.astype(np.float32), py.astype(np.float32)
        for _ in range(iters):
            X, hu, cu, su = self.au.at(u)
            Y, hv, cv, sv = self.av.at(v)
            Z = -(hu + hv)
            q = [P[r][0] * X + P[r][1] * Y + P[r][2] * Z + P[r][3] for r in range(3)]
            x, y = q[0] / q[2], q[1] / q[2]
            du = [P[r][0] * cu - P[r][2] * su for r in range(3)]
            dv = [P[r][1] * cv - P[r][2] * sv for r in range(3)]
            a, c = (du[0] - x * du[2]) / q[2], (du[1] - y * du[2]) / q[2]
            b, d = (dv[0] - x * dv[2]) / q[2], (dv[1] - y * dv[2]) / q[2]
            rx, ry = x - px, y - py
            det = a * d - b * c
            det = np.where(np.abs(det) < 1e-9, np.float32(1e-9), det)
            lim_u, lim_v = 0.2 * self.w, 0.2 * self.h
            u = np.clip(u - np.clip((d * rx - b * ry) / det, -lim_u, lim_u), -self.w, 2 * self.w)
            v = np.clip(v - np.clip((a * ry - c * rx) / det, -lim_v, lim_v), -self.h, 2 * self.h)
        return u, v

    def shade(self, u, v):
        """Lambertian brightness of the paper at (u, v), 1 where it lies flat."""
        if self.flat:
            return np.ones(np.shape(u), np.float32)
        _, _, cu, su = self.au.at(u)
        _, _, cv, sv = self.av.at(v)
        lx, ly, lz = self.light
        ndl = -su * cv * lx - cu * sv * ly + cu * cv * lz
        f = self.amb + (1 - self.amb) * np.maximum(ndl, 0) / lz
        for axis, pos in self.creases:
            t = ((u if axis == 0 else v) - pos) / 0.8
            f = f * (1 - 0.12 * np.exp(-t * t))
        return f.astype(np.float32)

    def render(self, page, ss, page_px, P, grid):
        """Colour, coverage mask and box (x0, y0, x1, y1) of the sheet in the photograph."""
        W, H, s = grid.W, grid.H, grid.s
        ol = self.outline(P)
        x0, y0 = np.floor(ol.min(0) - 3 * s).astype(int)
        x1, y1 = np.ceil(ol.max(0) + 3 * s).astype(int)
        x0, y0, x1, y1 = max(0, x0), max(0, y0), min(W, x1), min(H, y1)
        if x0 >= x1 or y0 >= y1:
            return None, None, (0, 0, 0, 0)
        # Solve only at grid samples on or next to the sheet's outline polygon.
        near = np.zeros(grid.x.shape, np.uint8)
        cv2.fillPoly(near, [np.round((ol / s + 0.5) * 16).astype(np.int32)], 1, cv2.LINE_8, 4)
        near = cv2.dilate(near, np.ones((7, 7), np.uint8)).astype(bool)
        u = np.full(grid.x.shape, -1e4, np.float32)
        v = np.full(grid.x.shape, -1e4, np.float32)
        u[near], v[near] = self.invert(P, grid.x[near], grid.y[near])
        sh = np.ones(u.shape, np.float32)
        sh[near] = self.shade(u[near], v[near])
        pw, ph = page_px
        quad = self.corners(P)
        scale = math.sqrt(cv2.contourArea(quad.astype(np.float32)) / (pw * ph))
        k = min(1.0, 1.25 * scale / ss)
        if k < 1.0:
            page = cv2.resize(page, None, fx=k, fy=k, interpolation=cv2.INTER_AREA)
        rh, rw = page.shape[:2]
        box = (x0, y0, x1, y1)
        mx = grid.up(u, box) * (rw / self.w) - 0.5
        my = grid.up(v, box) * (rh / self.h) - 0.5
        colour = cv2.remap(page, mx, my, cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE)
        ones = np.full((rh, rw), 255, np.uint8)
        mask = cv2.remap(ones, mx, my, cv2.INTER_LINEAR, borderMode=cv2.BORDER_CONSTANT,
                         borderValue=0).astype(np.float32) * (1 / 255.0)
        colour = colour.astype(np.float32)
        if not self.flat:
            colour *= grid.up(sh, box)[:, :, None]
        return colour, mask, box


def random_sheet(rng, size_mm, folded, curled, held, max_deg):
    """A sheet for one photograph and a record of how it is bent."""
    w, h = size_mm
    rec = {}
    terms = {0: [], 1: []}
    creases = []
    cap = math.radians(max_deg)

    def ang(lo, hi):
        return math.radians(rng.uniform(lo, hi))

    if folded:
        long_axis = 0 if w > h else 1
        if rng.random() < 0.5:
            axis = long_axis if rng.random() < 0.7 else 1 - long_axis
            L = (w, h)[axis]
            pos = L * rng.uniform(0.42, 0.58)
            style = str(rng.choice(["lift", "tent", "valley"]))
            # One panel lifted off the table, or both resting on their ends (tent) or on the
            # crease (valley); a tent's bulge grows fast with its angle, so it stays low.
            if style == "lift":
                a = ang(5, 20)
                angles = [0.0, a] if rng.random() < 0.5 else [-a, 0.0]
            elif style == "tent":
                angles = [ang(3, 10), -ang(3, 10)]
            else:
                angles = [-ang(3, 12), ang(3, 12)]
            terms[axis].append(_panels([pos], angles))
            creases.append((axis, pos))
            rec = {"folds": 1, "fold_style": style}
        elif rng.random() < 0.6:
            L = (w, h)[long_axis]
            pos = [L * (1 / 3 + rng.normal(0, 0.01)), L * (2 / 3 + rng.normal(0, 0.01))]
            style = str(rng.choice(["letter", "zigzag"]))
            a, b, c = ang(5, 18), ang(3, 10), ang(5, 18)
            angles = [-a, 0.0, c] if style == "letter" else [a, -b, c]
            terms[long_axis].append(_panels(pos, angles))
            creases += [(long_axis, p) for p in pos]
            rec = {"folds": 2, "fold_style": style}
        else:
            for axis in (0, 1):
                L = (w, h)[axis]
                pos = L * rng.uniform(0.45, 0.55)
                a = ang(3, 9)
                terms[axis].append(_panels([pos], [a, -a] if rng.random() < 0.5 else [0.0, a]))
                creases.append((axis, pos))
            rec = {"folds": 2, "fold_style": "quarters"}
    if curled:
        style = str(rng.choice(["edge", "edges", "corners", "bow"]))
        axis = int(rng.integers(2))
        for ax in ((axis,) if style != "corners" else (0, 1)):
            L = (w, h)[ax]
            r = L * rng.uniform(0.12, 0.35)
            if style == "bow":
                b = ang(8, 20) * rng.choice([-1, 1])
                terms[ax].append(lambda s, L=L, b=b: b * (2 * s / L - 1))
                continue
            ends = {"edge": [int(rng.integers(2))], "edges": [0, 1], "corners": [0, 1]}[style]
            for end in ends:
                t = ang(10, 35) if style != "corners" else ang(8, 22)
                if end == 0:
                    terms[ax].append(lambda s, r=r, t=t: -t * np.clip((r - s) / r, 0, 1) ** 2)
                else:
                    terms[ax].append(lambda s, L=L, r=r, t=t:
                                     t * np.clip((s - (L - r)) / r, 0, 1) ** 2)
        rec["curl"] = style
    elif held:
        # A sheet held up sags a little between the fingers.
        L = (w, h)[1]
        b = ang(1, 6) * rng.choice([-1, 1])
        terms[1].append(lambda s, L=L, b=b: b * (2 * s / L - 1))
        rec["bow"] = True

    def combine(ts):
        if not ts:
            return None
        return lambda s: np.clip(sum(t(s) for t in ts), -cap, cap)

    la = rng.uniform(0, 2 * math.pi)
    lxy = rng.uniform(0.35, 0.75)
    light = (lxy * math.cos(la), lxy * math.sin(la), math.sqrt(1 - lxy * lxy))
    sheet = Sheet(w, h, combine(terms[0]), combine(terms[1]), creases, light,
                  rng.uniform(0.45, 0.65))
    return sheet, rec
