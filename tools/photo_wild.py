"""Harder scenes for make_photo.py --wild: what phone photographs of pages look like outside a
tidy desk.

Mix. Each photograph draws one lead, evenly, from the scene kinds: backgrounds fabric (checks,
gingham, tartan, windowpane, stripes with folds), tiles, rug, lines (desk objects, a table edge
with shelves or blinds beyond, light through blinds), saturated (yellow most often) and paper
(white crumpled paper), and features hand (held up before foliage, a room, shelves, blinds,
railings or posters), folded, curled, perspective (tilt 35-50 degrees), motion_blur, low_light
and coloured_light. Other features join with a small probability each, the older hard cases
(shadow band, fingertip, another sheet) among them, and when the lead is a feature the
background comes from the new kinds or the old tables (wood, dark, mid, light, cloth, clutter).
A list of names restricts the mix: listed backgrounds are the only backgrounds, listed features
the only features (each photograph has one at least). About a fifth of the pages touch or cross
the frame. Half of the A4 and letter sheets are printed as invoices (photo_layouts: filled table
headers, colour bands and strips along the paper's edge, ruled tables across the page), whose
own straight edges are the ones a page search most often takes for the sheet's border.

Scene. The camera of photo_scene.place_page sees the sheet of photo_sheet (flat, folded,
curled, or gently sagging when held). A table surface is drawn in the sheet's own plane
(photo_surfaces, photo_backdrops.desk; wood becomes planks there), so its lines converge with the
page's; the older plain tables and cloth stay flat in the photograph as in the plain mix. Where
the table ends (a table edge, always before the horizon in steep views) a wall scene or a floor
well below stands beyond it, out of focus, sometimes behind the table's own edge face. Light
through blinds lays soft parallel stripes over table and page alike. A held page stands before
a wall plane of its own a few times further away (photo_backdrops, or a surface hung on it: a
curtain, a tiled or painted wall), with photo_hand's arm behind the sheet and thumb or
fingertips in front; it casts no shadow on that far wall. Then light: photo_scene's gradient,
vignetting and shadow band, a strong colour cast from coloured lamps (mixing two colours across
the frame at times), or dim warm light (darker, lower contrast with a veil of flare, and grain
and colour blotches from the gain); a directional motion blur (length 0.4-1.5 % of the long
side, done along rows of a turned copy); and photo_scene's sensor (lens blur, noise,
sharpening).
"""

import math

import cv2
import numpy as np

import photo_backdrops
import photo_hand
import photo_page
import photo_scene
import photo_sheet
import photo_surfaces as surf

NEW_BGS = ["fabric", "tiles", "rug", "lines", "saturated", "paper"]
HELD_BGS = ["foliage", "room"]
OLD_BGS = ["wood", "dark", "mid", "light", "cloth", "clutter"]
FEATURES = ["hand", "folded", "curled", "perspective", "motion_blur", "low_light",
            "coloured_light"]
OLD_FEATURES = ["shadow", "finger", "other_sheet"]
NAMES = NEW_BGS + HELD_BGS + OLD_BGS + FEATURES + OLD_FEATURES
EXTRA = {"hand": 0.07, "folded": 0.12, "curled": 0.12, "perspective": 0.1, "motion_blur": 0.12,
         "low_light": 0.08, "coloured_light": 0.08, "shadow": 0.08, "finger": 0.05,
         "other_sheet": 0.05}
KINDS = ["a4", "letter", "receipt", "index_card"]
KIND_P = [0.38, 0.38, 0.12, 0.12]
INVOICE_P = 0.5  # share of A4 and letter pages printed as invoices (photo_layouts)
CASTS = {"pink": (0.95, 0.6, 1.0), "violet": (1.0, 0.55, 0.82), "green": (0.62, 1.0, 0.68),
         "cyan": (1.0, 0.95, 0.55), "blue": (1.0, 0.72, 0.5), "amber": (0.42, 0.72, 1.0),
         "red": (0.5, 0.5, 1.0)}


def choose(rng, names=None):
    """(background, set of features) for one photograph, from the whole mix or from `names`:
    listed backgrounds are then the only backgrounds, listed features the only features, and
    each photograph has at least one of the listed features (or none if none is listed)."""
    feats_all = FEATURES + OLD_FEATURES
    if names:
        allowed = [n for n in names if n in feats_all]
        bgs = [n for n in names if n in NEW_BGS + HELD_BGS + OLD_BGS]
        leads = allowed or bgs
    else:
        allowed, bgs, leads = feats_all, [], NEW_BGS + FEATURES
    lead = leads[int(rng.integers(len(leads)))]
    feats = {lead} if lead in FEATURES + OLD_FEATURES else set()
    for f in FEATURES + OLD_FEATURES:
        if f in allowed and f not in feats and rng.random() < EXTRA[f]:
            feats.add(f)
    for a, b in (("low_light", "coloured_light"), ("coloured_light", "low_light")):
        if a in feats and b in feats and lead != b:
            feats.discard(b)
    bg = lead if lead not in feats else None
    if bg is None:
        if "hand" in feats:
            pool = bgs or HELD_BGS * 3 + ["lines"] * 3 + ["fabric", "tiles", "saturated", "paper",
                                                           "wood", "light"]
        else:
            pool = [b for b in bgs if b not in HELD_BGS] or bgs or NEW_BGS + OLD_BGS
        bg = pool[int(rng.integers(len(pool)))]
    if bg in HELD_BGS:
        feats.add("hand")
    if "hand" in feats:
        feats -= {"finger", "other_sheet"}
    return bg, feats


def _wall_camera(rng, P, W, H, fov, depth):
    """A wall facing the camera (turned a little), `depth` mm away: plane mm -> photo px."""
    f = (max(W, H) / 2) / math.tan(math.radians(fov) / 2)
    cx, cy = float(P[0, :3] @ P[2, :3]), float(P[1, :3] @ P[2, :3])
    TK = np.array([[f, 0, cx], [0, f, cy], [0, 0, 1]])
    a, b, r = (math.radians(v) for v in rng.uniform(-18, 18, 2).tolist() + [rng.normal(0, 2)])
    Rx = np.array([[1, 0, 0], [0, math.cos(a), -math.sin(a)], [0, math.sin(a), math.cos(a)]])
    Ry = np.array([[math.cos(b), 0, math.sin(b)], [0, 1, 0], [-math.sin(b), 0, math.cos(b)]])
    Rz = np.array([[math.cos(r), -math.sin(r), 0], [math.sin(r), math.cos(r), 0], [0, 0, 1]])
    R = Rz @ Rx @ Ry
    return TK @ np.column_stack([R[:, 0], R[:, 1], [0, 0, depth]])


def _defocus(img, sigma):
    if sigma > 0.3:
        cv2.GaussianBlur(img, (0, 0), sigma, dst=img)
    return img


def _surface(rng, bg, plane, W, H, page_mm):
    """A surface of kind `bg` in `plane`; float32 image and the variant drawn."""
    short = min(W, H)
    if bg == "fabric":
        return surf.fabric(rng, plane, short)
    if bg == "tiles":
        return surf.tiles(rng, plane, short)
    if bg == "rug":
        floor = (surf.planks(rng, plane) if rng.random() < 0.6 else
                 surf.gloss(rng, plane)[:, :, None] * np.float32(rng.uniform(60, 140)))
        return surf.rug(rng, plane, short, page_mm, floor), "rug"
    if bg == "saturated":
        return surf.saturated(rng, plane)
    if bg == "paper":
        return surf.paper(rng, plane, page_mm), "crumpled"
    if bg == "wood":
        return surf.planks(rng, plane), "planks"
    return photo_scene.table(rng, bg, W, H), bg


def _backdrop(rng, bg, grid, P, W, H, fov, page_mm, for_hand):
    """What stands behind a held page, or beyond the table's edge; float32, variant."""
    depth = float(P[2, 3]) * (rng.uniform(2, 5) if bg == "room" else rng.uniform(3, 8))
    G = _wall_camera(rng, P, W, H, fov, depth)
    wall = surf.Plane(grid, G, (W / 2, H / 2))
    blur = rng.uniform(0, 2.5 if for_hand else 4) * max(W, H) / 3000
    if bg == "foliage":
        return _defocus(photo_backdrops.foliage(rng, W, H).astype(np.float32), blur), "foliage"
    if bg in ("room", "lines"):
        kind = "room" if bg == "room" else str(rng.choice(["shelves", "blinds", "railing",
                                                              "posters"]))
        img = photo_backdrops.wall(rng, kind, W, H, G, wall).astype(np.float32)
        return _defocus(img, blur), kind
    if bg in ("clutter", "rug"):
        bg = "mid"
    img, variant = _surface(rng, bg, wall, W, H, page_mm)
    return _defocus(img.astype(np.float32), blur), variant


def _table_edge(rng, plane, corners_mm, persp):
    """A table edge (unit normal n, offset e: the table is n.x <= e) or None."""
    P2 = plane.G[2]
    far = np.array([P2[0], P2[1]]) / max(1e-12, math.hypot(P2[0], P2[1]))
    sign = 1 if persp or rng.random() < 0.7 else -1
    t = math.radians(rng.uniform(-25, 25))
    n = sign * np.array([far[0] * math.cos(t) - far[1] * math.sin(t),
                         far[0] * math.sin(t) + far[1] * math.cos(t)])
    need = float((corners_mm @ n).max()) + 25
    ok = plane.valid & (plane.X * n[0] + plane.Y * n[1] > need)
    iy, ix = np.nonzero(ok)
    if not len(iy):
        return None
    k = int(rng.integers(len(iy)))
    return n, float(plane.X[iy[k], ix[k]] * n[0] + plane.Y[iy[k], ix[k]] * n[1])


def drop_shadow(img, mask, box, rng, strength):
    """The page's soft shadow on the table, blurred at a quarter of the resolution."""
    H, W = img.shape[:2]
    sig = 0.004 * W
    dx, dy = rng.uniform(-0.003, 0.003, 2) * W
    pad = int(3 * sig + abs(dx) + abs(dy)) + 8
    x0, y0 = max(0, box[0] - pad), max(0, box[1] - pad)
    x1, y1 = min(W, box[2] + pad), min(H, box[3] + pad)
    m = np.zeros((y1 - y0, x1 - x0), np.float32)
    m[box[1] - y0:box[3] - y0, box[0] - x0:box[2] - x0] = mask
    k = 4 if sig > 6 else 1
    small = cv2.resize(m, ((x1 - x0) // k + 1, (y1 - y0) // k + 1), interpolation=cv2.INTER_AREA)
    M = np.float32([[1, 0, dx / k], [0, 1, dy / k]])
    small = cv2.GaussianBlur(cv2.warpAffine(small, M, small.shape[::-1]), (0, 0), sig / k)
    sh = cv2.resize(small, (((x1 - x0) // k + 1) * k, ((y1 - y0) // k + 1) * k),
                    interpolation=cv2.INTER_LINEAR)[:y1 - y0, :x1 - x0]
    img[y0:y1, x0:x1] *= (1 - strength * sh)[:, :, None]


def motion_blur(img, length, angle):
    """Directional box blur: along rows of a copy turned so that the motion is horizontal."""
    H, W = img.shape[:2]
    c, s = abs(math.cos(angle)), abs(math.sin(angle))
    w2, h2 = int(W * c + H * s) + 4, int(W * s + H * c) + 4
    M = cv2.getRotationMatrix2D((W / 2, H / 2), math.degrees(angle), 1.0)
    M[:, 2] += ((w2 - W) / 2, (h2 - H) / 2)
    turned = cv2.warpAffine(img, M, (w2, h2), flags=cv2.INTER_LINEAR,
                            borderMode=cv2.BORDER_REFLECT)
    k = max(1, int(round(length)))
    cv2.blur(turned, (k, 1), dst=turned, borderType=cv2.BORDER_REFLECT)
    cv2.warpAffine(turned, M, (W, H), dst=img, flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP,
                   borderMode=cv2.BORDER_REFLECT)


def _light(rng, W, H, feats, rec):
    """Coarse light over the frame (gradient, vignetting, band, colour), upsampled once."""
    w8, h8 = max(16, W // 8), max(16, H // 8)
    field = photo_scene.light_field(rng, w8, h8, "shadow" in feats)
    if "coloured_light" in feats:
        names = list(CASTS)
        a = names[int(rng.integers(len(names)))]
        ca = np.array(CASTS[a], np.float32)
        yy, xx = np.mgrid[0:h8, 0:w8].astype(np.float32)
        if rng.random() < 0.4:
            b = names[int(rng.integers(len(names)))]
            th = rng.uniform(0, 2 * math.pi)
            t = (xx / w8 - 0.5) * math.cos(th) + (yy / h8 - 0.5) * math.sin(th)
            t = np.clip(t * rng.uniform(1, 2.5) + 0.5, 0, 1)[:, :, None]
            cast = ca * (1 - t) + np.array(CASTS[b], np.float32) * t
            a += "+" + b
        else:
            cast = np.broadcast_to(ca, (h8, w8, 3))
        strength = rng.uniform(0.7, 1.0)
        cast = 1 - strength * (1 - cast)
        field = field * cast / math.sqrt(float(cast.mean()))
        rec["light"] = a
    if "low_light" in feats:
        warm = np.array([rng.uniform(0.5, 0.72), rng.uniform(0.78, 0.9), 1.0], np.float32)
        field = field * warm * rng.uniform(0.45, 0.7)
        rec["light"] = "dim"
    return cv2.resize(field.astype(np.float32), (W, H), interpolation=cv2.INTER_CUBIC)


def compose(rng, W, H, border, names=None, empty=False):
    """One photograph of the wild mix: (8-bit BGR image, dict of what the record needs).

    With `empty` the scene is drawn without its sheet (and without the hand that would hold it):
    a photograph in which a page search must find nothing."""
    bg, feats = choose(rng, names)
    held, persp = "hand" in feats, "perspective" in feats
    kind = str(rng.choice(KINDS, p=KIND_P))
    dpi = int(rng.integers(150, 201))
    size_mm = photo_page.page_format(rng, kind)
    page_px = photo_page.page_pixels(size_mm, dpi)
    tilt = rng.uniform(35, 50) if persp else rng.uniform(0, 20) if held else rng.uniform(2, 26)
    coverage = (rng.uniform(0.2, 0.5) if persp else
                rng.uniform(0.25, 0.6 if held or bg == "lines" else 0.85))
    roll = rng.uniform(-10, 10) if held else rng.uniform(-20, 20)
    fov = rng.uniform(62, 75)
    sheet, sheet_rec = photo_sheet.random_sheet(rng, size_mm, "folded" in feats,
                                                "curled" in feats, held, 25 if persp else 38)
    m = 0.012 * min(W, H)
    for _ in range(8):
        Hc, quad, cov, P = photo_scene.place_page(rng, W, H, size_mm, page_px, coverage, tilt,
                                                  roll, fov, border, camera=True)
        ol = sheet.outline(P)
        fits = bool(np.all(ol.min(0) >= m) and np.all(ol.max(0) <= (W - m, H - m)))
        if border or fits:
            break
        coverage *= 0.88
    corners = sheet.corners(P)
    edge_px = np.linalg.norm(corners - np.roll(corners, -1, 0), axis=1)
    scale = float(max(edge_px[0] / page_px[1], edge_px[1] / page_px[0], edge_px[2] / page_px[1],
                      edge_px[3] / page_px[0]))
    ss = 2 if scale > 1.1 else 1
    layout = "invoice" if kind in ("a4", "letter") and rng.random() < INVOICE_P else None
    page, page_px, page_rec, lines = photo_page.render_page(rng, kind, size_mm, dpi, ss, layout)
    grid = surf.Grid(W, H, max(1, int(round(max(W, H) / 1000))))
    centre = corners.mean(0)
    scene = {}
    if held:
        img, variant = _backdrop(rng, bg, grid, P, W, H, fov, size_mm, True)
        grips = photo_hand.plan(rng, corners, size_mm, W, H)
        if not empty:
            photo_hand.behind(img, grips)
    else:
        plane = surf.Plane(grid, P[:, [0, 1, 3]], centre)
        if bg == "lines":
            base = rng.random()
            img = (surf.planks(rng, plane) if base < 0.4 else
                   surf.gloss(rng, plane)[:, :, None] *
                   np.float32(rng.uniform(40, 220)) * (1 + rng.uniform(-0.08, 0.08, 3)).astype(
                       np.float32))
            parts = [p for p in ("desk", "edge", "blinds") if rng.random() < 0.55] or ["desk"]
            if "desk" in parts:
                canvas = np.clip(img, 0, 255).astype(np.uint8)
                photo_backdrops.desk(rng, canvas, plane.G, plane, size_mm)
                img = canvas.astype(np.float32)
            variant = "+".join(parts)
        else:
            img, variant = _surface(rng, bg, plane, W, H, size_mm)
            parts = []
        if bg == "clutter":
            photo_scene.clutter(rng, img, corners, W, H)
        cm = np.array([[-size_mm[0] / 2, -size_mm[1] / 2], [size_mm[0] / 2, size_mm[1] / 2],
                       [-size_mm[0] / 2, size_mm[1] / 2], [size_mm[0] / 2, -size_mm[1] / 2]])
        edge = None
        if "edge" in parts or not plane.valid.all() or rng.random() < (0.5 if persp else 0.08):
            edge = _table_edge(rng, plane, cm, persp)
        if edge is not None:
            n, e = edge
            what = str(rng.choice(["lines", "lines", "room", "floor"]))
            if what == "floor":  # a floor well below, clearly darker or lighter than the table
                t = float(img[::16, ::16].mean())
                level = t - rng.uniform(60, 110) if t > 110 else t + rng.uniform(60, 110)
                beyond = photo_scene._plain(rng, W, H, level, level + 1)
                bv = "floor"
            else:
                beyond, bv = _backdrop(rng, what, grid, P, W, H, fov, size_mm, False)
            on = plane.alpha(e - (plane.X * n[0] + plane.Y * n[1]))
            if rng.random() < 0.5:  # the table's own edge face
                lip = plane.alpha(e + rng.uniform(15, 40) - (plane.X * n[0] + plane.Y * n[1]))
                beyond += (img * np.float32(rng.uniform(0.35, 0.7)) - beyond) * (lip - on)[
                    :, :, None]
            img = beyond + (img - beyond) * on[:, :, None]
            del beyond
            scene["beyond"] = bv
        if "blinds" in parts:
            b = rng.uniform(0, math.pi)
            t = (plane.X * math.cos(b) + plane.Y * math.sin(b)) / rng.uniform(35, 90)
            soft = rng.uniform(0.08, 0.25)
            stripe = np.clip((np.abs((t % 1.0) - 0.5) - 0.2) / soft + 0.5, 0, 1)
            patch = np.clip(1.5 - np.hypot(plane.X - rng.normal(0, 150),
                                           plane.Y - rng.normal(0, 150)) / rng.uniform(300, 700),
                            0, 1)
            scene["blind_light"] = grid.up((1 - rng.uniform(0.3, 0.55) * stripe * patch) *
                                           np.where(plane.valid, 1, 0.0) +
                                           np.where(plane.valid, 0, 1.0))
    if "other_sheet" in feats and not empty:
        photo_scene.other_sheet(rng, img, corners)
    colour, mask, box = sheet.render(page, ss, page_px, P, grid)
    del page
    x0, y0, x1, y1 = box
    if colour is not None and not empty:
        if held:
            colour *= np.float32(rng.uniform(0.72, 1.08))
        else:
            drop_shadow(img, mask, box, rng, rng.uniform(0.2, 0.45) + (0.1 if not sheet.flat
                                                                         else 0))
        roi = img[y0:y1, x0:x1]
        roi += (colour - roi) * mask[:, :, None]
    del colour, mask
    if held and not empty:
        photo_hand.front(img, grips, sheet.light[:2])
    if "finger" in feats and not empty:
        photo_scene.finger(rng, img, corners)
    if "blind_light" in scene:
        img *= scene.pop("blind_light")[:, :, None]
        scene["blind_light"] = True
    img *= _light(rng, W, H, feats, scene)
    if "low_light" in feats:
        veil = rng.uniform(0.72, 0.9)
        img *= np.float32(veil)
        img += np.float32(rng.uniform(6, 18)) * np.array([0.7, 0.9, 1.0], np.float32)
        grain = rng.standard_normal((H, W), dtype=np.float32) * np.float32(rng.uniform(3, 7))
        img += grain[:, :, None]
        del grain
        blot = rng.normal(0, rng.uniform(2, 5), (max(1, H // 6), max(1, W // 6), 3))
        img += cv2.resize(blot.astype(np.float32), (W, H), interpolation=cv2.INTER_LINEAR)
    if "motion_blur" in feats:
        length = rng.uniform(0.004, 0.015) * max(W, H)
        ang = rng.uniform(0, math.pi)
        motion_blur(img, length, ang)
        scene["motion_px"], scene["motion_deg"] = round(length, 1), round(math.degrees(ang), 1)
    contrast = photo_scene.edge_contrast(img, corners)
    out = photo_scene.sensor(rng, img)
    del img
    scene.update({"coverage": round(cov, 4), "edge_contrast": round(contrast, 1),
                  "fov_deg": round(fov, 2), "roll_deg": round(roll, 2), "tilt_deg": round(tilt, 2),
                  "variant": variant, "sheet": sheet_rec})
    ol = sheet.outline(P)
    inside = bool(np.all(ol.min(0) >= 0.5) and np.all(ol.max(0) <= (W - 0.5, H - 0.5)))
    return out, {"bg": bg, "feats": feats, "corners": corners, "page_px": page_px,
                 "page": page_rec, "text": lines, "scene": scene, "border": border or not inside}
