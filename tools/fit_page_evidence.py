#!/usr/bin/python3
"""Fits the page model of the verified page search from traces of the search.

    fit_page_evidence.py TRACE.jsonl:DIR [...] [--check TRACE.jsonl:DIR ...] [--write HEADER]

Each TRACE is what `scrivo_page_trace DIR --candidates TRACE` wrote: every candidate quadrangle
the search weighed on every photograph of DIR (a folder with truth.json), with the 34 features
DescribeCandidate gives it (src/vision/detect/page_evidence.cpp) and its Jaccard index against
the truth. Photographs tagged "empty" have no page.

One model of boosted one-split trees (stumps: histogram splits on 32 quantiles of each feature,
Newton steps with a ridge of 1 on the leaves, shrinkage 0.1, every feature allowed to move the
score one way only, see MONOTONE) gives every candidate a score: a sum of one-feature steps. The candidates of a photograph and the empty answer, whose score is 0, compete in a
softmax, fitted towards the distribution exp((J - max J) / 0.02) of the candidates' Jaccard
indices J when the photograph has a page and its best candidate reaches 0.5, and towards the
empty answer otherwise. The best candidate wins, and it is a page when its score is above 0.

Sets named after --check never enter the fit; for every set the tool prints the mean Jaccard
index of the answer (0 when not found), of the ranking alone, of the best candidate there was,
and how empty photographs fare (TAGS=1 adds the tags). --write writes the trees as the C++
header that page_model.cpp includes.
"""

import json
import os
import sys

import numpy as np

DEPTH = 1
# Which way each feature (DescribeCandidate's order) may move the score: +1 only up as it
# grows, -1 only down, 0 either. A page's evidence never counts against it: with this, the
# score is a sum of one-feature steps that a person can read and that cannot invert on
# photographs unlike those it was fitted on.
MONOTONE = [+1, +1,  # share of the sides inside the image: least, mean
            +1, +1,  # edge
            +1, +1,  # polarity
            +1, +1,  # step
            +1, +1,  # paper inside
            -1, -1,  # paper outside
            +1, +1,  # sharpness
            +1, +1, +1,  # strength: weakest, second weakest, mean
            +1,  # sides seen
            +1,  # area
            +1, +1,  # interior paper, interior print
            -1,  # ring paper
            +1, -1,  # paper light, paper saturation
            -1,  # frame sides
            +1,  # line score
            0, 0,  # from the fixed answer, from the fixed search
            +1,  # polarity agreement
            -1,  # corner angle off a right angle
            +1, +1,  # opposite sides alike
            -1, -1]  # paper again beyond the sides: most, mean
BINS = 32
RIDGE = 1.0
SHRINK = float(os.environ.get('SHRINK', '0.1'))
RANK_TREES = int(os.environ.get('RANK_TREES', '600'))
FOUND_TREES = 80
TAU = 0.02
FEATURES = 34
THRESHOLD = float(os.environ.get("THRESHOLD", "0"))
# Features the model does not split on. The area: larger candidates are right more often on
# the photographs fitted on, and steps in it outweighed a side with no paper inside it; it
# counts in proportion instead (AREA_WEIGHT).
UNUSED = {int(v) for v in os.environ.get("UNUSED", "18").split(",") if v}
# The area weighs in as a straight term instead, area share times this.
AREA = 18
AREA_WEIGHT = float(os.environ.get("AREA_WEIGHT", "4"))


def load(pair):
    path, folder = pair.split(":", 1)
    truth = {r["file"]: r for r in json.load(open(os.path.join(folder, "truth.json")))["images"]}
    photos = []
    for line in open(path):
        r = json.loads(line)
        rec = truth[r["file"]]
        empty = "empty" in rec.get("tags", [])
        X = np.array([c["f"] for c in r["cands"]], np.float64).reshape(-1, FEATURES)
        J = np.array([0.0 if empty else c["jac"] for c in r["cands"]])
        photos.append({"file": r["file"], "tags": rec.get("tags", []), "empty": empty, "X": X,
                       "J": J})
    return photos


class Forest:
    """Trees as flat node lists: (feature, threshold, left, right, value); feature -1: leaf."""

    def __init__(self, base=0.0):
        self.nodes, self.roots, self.base, self.area_weight = [], [], base, 0.0

    def predict(self, X):
        out = np.full(len(X), self.base) + self.area_weight * X[:, AREA]
        for root in self.roots:
            idx = np.full(len(X), root)
            for _ in range(DEPTH + 1):
                f = np.array([self.nodes[i][0] for i in idx])
                leaf = f < 0
                if leaf.all():
                    break
                thr = np.array([self.nodes[i][1] for i in idx])
                go_left = np.where(leaf, True, X[np.arange(len(X)), np.maximum(f, 0)] <= thr)
                nxt = np.where(go_left, [self.nodes[i][2] for i in idx],
                               [self.nodes[i][3] for i in idx])
                idx = np.where(leaf, idx, nxt)
            out += np.array([self.nodes[i][4] for i in idx])
        return out


def quantile_edges(X):
    edges = []
    for f in range(X.shape[1]):
        e = np.unique(np.quantile(X[:, f], np.linspace(0, 1, BINS + 1)[1:-1], method="lower"))
        edges.append(e)
    return edges


def grow(forest, Xb, X, edges, g, h, rows, depth):
    G, H = g[rows].sum(), h[rows].sum()
    me = len(forest.nodes)
    forest.nodes.append([-1, 0.0, -1, -1, -SHRINK * G / (H + RIDGE)])
    if depth == 0 or len(rows) < 20:
        return me
    best = None
    for f in range(Xb.shape[1]):
        if f in UNUSED:
            continue
        nb = len(edges[f]) + 1
        if nb < 2:
            continue
        gs = np.bincount(Xb[rows, f], g[rows], nb)
        hs = np.bincount(Xb[rows, f], h[rows], nb)
        gl, hl = np.cumsum(gs)[:-1], np.cumsum(hs)[:-1]
        gain = gl ** 2 / (hl + RIDGE) + (G - gl) ** 2 / (H - hl + RIDGE) - G ** 2 / (H + RIDGE)
        if MONOTONE[f]:  # the right leaf (larger values) must not go the forbidden way
            left, right = -gl / (hl + RIDGE), -(G - gl) / (H - hl + RIDGE)
            gain = np.where(MONOTONE[f] * (right - left) >= 0, gain, -np.inf)
        b = int(np.argmax(gain))
        if best is None or gain[b] > best[0]:
            best = (gain[b], f, b)
    if best is None or best[0] <= 1e-9:
        return me
    _, f, b = best
    left = rows[Xb[rows, f] <= b]
    right = rows[Xb[rows, f] > b]
    if len(left) == 0 or len(right) == 0:
        return me
    forest.nodes[me][0] = f
    forest.nodes[me][1] = float(np.float32(edges[f][b]))
    forest.nodes[me][2] = grow(forest, Xb, X, edges, g, h, left, depth - 1)
    forest.nodes[me][3] = grow(forest, Xb, X, edges, g, h, right, depth - 1)
    return me


def binned(X, edges):
    return np.stack([np.searchsorted(edges[f], X[:, f], side="left") for f in range(X.shape[1])],
                    1)


def fit_ranking(photos):
    """The softmax of every photograph runs over its candidates and the empty answer, whose
    score is 0: a photograph without a page (or whose candidates are all wrong) pulls every
    candidate under 0, one with a page pulls its best over the others and over 0."""
    groups = [p for p in photos if len(p["J"])]
    X = np.vstack([p["X"] for p in groups])
    starts = np.cumsum([0] + [len(p["J"]) for p in groups])
    targets, nulls = [], []
    for p in groups:
        if p["empty"] or p["J"].max() < 0.5:
            targets.append(np.zeros(len(p["J"])))
            nulls.append(1.0)
        else:
            q = np.exp((p["J"] - p["J"].max()) / TAU)
            targets.append(q / q.sum())
            nulls.append(0.0)
    q = np.concatenate(targets)
    edges = quantile_edges(X)
    Xb = binned(X, edges)
    forest = Forest()
    forest.area_weight = AREA_WEIGHT
    s = AREA_WEIGHT * X[:, AREA]
    rows = np.arange(len(X))
    for _ in range(RANK_TREES):
        p = np.empty_like(s)
        for a, b in zip(starts[:-1], starts[1:]):
            top = max(s[a:b].max(), 0.0)
            e = np.exp(s[a:b] - top)
            p[a:b] = e / (e.sum() + np.exp(-top))
        g, h = p - q, np.maximum(p * (1 - p), 1e-6)
        root = grow(forest, Xb, X, edges, g, h, rows, DEPTH)
        forest.roots.append(root)
        s = s + leaf_values(forest, root, X)
    return forest


def leaf_values(forest, root, X):
    f1 = Forest()  # no area term: the tree alone
    f1.nodes, f1.roots = forest.nodes, [root]
    return f1.predict(X)


def winners(photos, ranker):
    out = []
    for p in photos:
        if len(p["J"]) == 0:
            out.append((p, -1))
            continue
        out.append((p, int(np.argmax(ranker.predict(p["X"])))))
    return out


def report(name, photos, ranker):
    rows = winners(photos, ranker)
    pages = [(p, i) for p, i in rows if not p["empty"]]
    empties = [(p, i) for p, i in rows if p["empty"]]

    def says_page(p, i):
        return i >= 0 and ranker.predict(p["X"][i:i + 1])[0] > THRESHOLD

    def summary(sel):
        got = [p["J"][i] if says_page(p, i) else 0.0 for p, i in sel]
        ranked = [p["J"][i] if i >= 0 else 0.0 for p, i in sel]
        best = [p["J"].max() if len(p["J"]) else 0.0 for p, _ in sel]
        missed = sum(1 for p, i in sel if not says_page(p, i))
        return np.mean(got), np.mean(ranked), np.mean(best), missed

    if pages:
        m, r, b, missed = summary(pages)
        print("%-26s %3d photographs  mean %.4f  ranking alone %.4f  best candidates %.4f"
              "  missed %d" % (name, len(pages), m, r, b, missed))
        if os.environ.get("TAGS"):
            for t in sorted({t for p, _ in pages for t in p["tags"]}):
                sel = [(p, i) for p, i in pages if t in p["tags"]]
                m, r, b, missed = summary(sel)
                print("%26s %-16s %3d  mean %.3f  ranking %.3f  best %.3f  missed %d" %
                      ("", t, len(sel), m, r, b, missed))
    if empties:
        print("%-26s %3d empty photographs, a page reported on %d" %
              (name, len(empties), sum(1 for p, i in empties if says_page(p, i))))


def _float(v):
    text = "%.9g" % v
    return text + ("f" if any(c in text for c in ".en") else ".0f")


def write_header(path, ranker):
    def forest_text(name, forest):
        lines = ["constexpr TreeNode k%sNodes[] = {" % name]
        for f, thr, left, right, value in forest.nodes:
            lines.append("    {%d, %s, %d, %d, %s}," % (f, _float(thr), left, right, _float(value)))
        lines.append("};")
        lines.append("constexpr int k%sRoots[] = {%s};" % (name, ", ".join(map(str, forest.roots))))
        lines.append("constexpr float k%sBase = %s;" % (name, _float(forest.base)))
        lines.append("constexpr float k%sAreaWeight = %s;" % (name, _float(forest.area_weight)))
        return "\n".join(lines)

    with open(path, "w") as out:
        out.write("// Generated by tools/fit_page_evidence.py from traces of the page search on\n"
                  "// generated photographs; do not edit. See page_model.cpp.\n"
                  "#pragma once\n\n#include \"vision/detect/page_model.h\"\n\n")
        out.write(forest_text("Rank", ranker) + "\n")


def main(argv):
    train, check, header, target = [], [], None, None
    it = iter(argv)
    for a in it:
        if a == "--check":
            target = check
        elif a == "--write":
            header = next(it)
        else:
            (target if target is not None else train).append(a)
    if not train:
        print(__doc__)
        return 2
    sets = [(pair, load(pair)) for pair in train]
    photos = [p for _, ps in sets for p in ps]
    ranker = fit_ranking(photos)
    for pair, ps in sets:
        report(pair.split(":")[0], ps, ranker)
    for pair in check:
        report("check " + pair.split(":")[0], load(pair), ranker)
    if header:
        write_header(header, ranker)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
