"""Business-document layouts for photo_page: invoices as offices print them.

Why these pages: the print of a real invoice has long, straight, high-contrast edges of its own:
a table header row filled in a dark colour, a coloured band behind the title, a shaded TOTAL
box, a strip of colour along the paper's edge, a table ruled across most of the page. A page
search that takes such an edge for the border of the sheet is wrong on exactly the photographs
people take most, so the wild mix prints pages that have them, in the proportions real ones do.

Layout, top to bottom (every part varies or may be missing):
  - a strip of colour touching the paper's top edge (across the sheet or running in from one
    side), or the title, INVOICE or a kin, in white on a coloured band that spans the whole
    sheet, the margins, or 60-100 % of the text width, at times touching the top edge;
    otherwise the title is large type opposite the sender;
  - the sender (a logo of filled circles, rounded squares or stars in saturated colours, name,
    address), the invoice number and dates; bill-to and ship-to blocks, sometimes boxed or with
    a tinted label strip; sometimes a boxed row of invoice number and dates;
  - the items table: a header row filled in a dark or brand colour (brown, navy, teal,
    charcoal, maroon; blue, green, orange...) with white type, or a light tint with dark type;
    rows ruled or shaded in alternation, at times a full grid or an outer box and blank ruled
    rows after the items; the table spans 60 % of the text width up to the whole sheet;
  - subtotal, tax and a filled TOTAL box (right of the text, running out to the paper's edge,
    or as wide as the table); a thank-you line, payment terms, sometimes a signature;
  - blank paper, and sometimes a strip along the bottom edge with contact details in white.
Text truth: every printed line, block by block from the top; of two blocks side by side the left
one comes first; a table row is its cells joined by single spaces.
"""

import cv2
import numpy as np

import photo_page as pp

# BGR. Dark colours of table headers and bands, brighter brand colours, and logo colours.
DARK = [(38, 60, 105), (90, 45, 25), (105, 95, 10), (62, 60, 58), (50, 28, 112), (80, 62, 45)]
BRAND = [(200, 130, 25), (60, 125, 40), (30, 105, 215), (125, 50, 95), (45, 45, 190),
         (150, 120, 0)]
LOGO = BRAND + [(20, 175, 240), (180, 60, 230), (40, 200, 120)]
TITLES = ["INVOICE", "INVOICE", "Invoice", "TAX INVOICE", "SALES INVOICE", "BILL", "QUOTATION",
          "PACKING LIST", "STATEMENT"]
MONTHS = "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec".split()
STREETS = ["Street", "Road", "Avenue", "Lane", "Parkway", "Drive"]


def _pick(rng, seq):
    return seq[int(rng.integers(len(seq)))]


def _jitter(rng, c, d=14):
    return tuple(int(v) for v in np.clip(np.array(c) + rng.uniform(-d, d, 3), 0, 255))


def _mix(c, paper, t):
    """`t` of colour `c` over the paper: a tint."""
    return tuple(int(round(a * t + b * (1 - t))) for a, b in zip(c, paper))


def _fill(img, x0, y0, x1, y1, colour):
    cv2.rectangle(img, (int(round(x0)), int(round(y0))), (int(round(x1)) - 1, int(round(y1)) - 1),
                  colour, -1)


def _word(rng):
    return str(_pick(rng, pp._WORDS)).capitalize()


def _company(rng):
    a, b = _word(rng), _word(rng)
    return _pick(rng, ["%s %s Ltd" % (a, b), "%s & %s" % (a, b), "%s %s Supply Co." % (a, b),
                       "%s Studio" % a, "%s, %s and %s" % (a, b, _word(rng)),
                       "%s %s Inc." % (a, b)])


def _address(rng, n):
    town = _word(rng)
    lines = ["%d %s %s" % (rng.integers(1, 9999), _word(rng), _pick(rng, STREETS)),
             "%s, %s %05d" % (town, "".join(chr(65 + int(v)) for v in rng.integers(0, 26, 2)),
                              rng.integers(1000, 99999)),
             "+1 %03d %03d %04d" % (rng.integers(200, 999), rng.integers(100, 999),
                                    rng.integers(0, 9999)),
             "%s@%s.com" % (_pick(rng, pp._WORDS), _pick(rng, pp._WORDS))]
    return lines[:n]


def _date(rng):
    d, m, y = int(rng.integers(1, 29)), int(rng.integers(1, 13)), int(rng.integers(2005, 2025))
    return "%02d/%02d/%d" % (m, d, y) if rng.random() < 0.5 else "%d %s, %d" % (d, MONTHS[m - 1], y)


def _span(rng, wr, W, p_bleed):
    """Horizontal extent of a bar: the whole sheet, margin to margin, or 60-100 % of the text
    width, flush with one margin or running in from the paper's edge on that side."""
    u = rng.random()
    if u < p_bleed:
        return 0.0, float(W)
    if u < p_bleed + 0.35:
        return wr.left, wr.right
    w = (wr.right - wr.left) * rng.uniform(0.6, 1.0)
    side = int(rng.integers(4))
    return [(wr.left, wr.left + w), (wr.right - w, wr.right), (0.0, wr.left + w),
            (wr.right - w, float(W))][side]


def _block(wr, x, y, rows, right=False):
    """Lines (text, font, colour) from top `y`, left-aligned at x or right-aligned to it."""
    for t, f, c in rows:
        y += f.px * 1.35
        f.draw(wr.img, t, x - f.width(t) if right else x, y - 0.3 * f.px, c)
        wr.lines.append(t)
    return y


def _logo(img, rng, x, y, s):
    """A mark of filled shapes in an s x s box at (x, y)."""
    c1, c2 = _jitter(rng, _pick(rng, LOGO), 10), _jitter(rng, _pick(rng, LOGO), 10)
    cx, cy, r = x + s / 2, y + s / 2, s / 2
    kind = int(rng.integers(4))
    if kind == 0:  # two overlapping discs
        cv2.circle(img, (int(cx - r * 0.3), int(cy)), int(r * 0.7), c1, -1, cv2.LINE_AA)
        cv2.circle(img, (int(cx + r * 0.3), int(cy)), int(r * 0.7), c2, -1, cv2.LINE_AA)
    elif kind == 1:  # rounded square with a disc cut in
        k = int(r * 0.35)
        x0, y0, x1, y1 = int(x), int(y), int(x + s), int(y + s)
        _fill(img, x0 + k, y0, x1 - k, y1, c1)
        _fill(img, x0, y0 + k, x1, y1 - k, c1)
        for px, py in ((x0 + k, y0 + k), (x1 - k, y0 + k), (x0 + k, y1 - k), (x1 - k, y1 - k)):
            cv2.circle(img, (px, py), k, c1, -1, cv2.LINE_AA)
        cv2.circle(img, (int(cx), int(cy)), int(r * 0.45), (250, 250, 250), -1, cv2.LINE_AA)
    else:  # a star, or a disc with a triangle on it
        if kind == 2:
            a = np.pi / 2 + np.arange(10) * np.pi / 5
            rad = np.where(np.arange(10) % 2 == 0, r, r * 0.45)
            pts = np.stack([cx + rad * np.cos(a), cy - rad * np.sin(a)], 1)
        else:
            cv2.circle(img, (int(cx), int(cy)), int(r), c1, -1, cv2.LINE_AA)
            pts = np.array([[cx - r * 0.5, cy + r * 0.4], [cx + r * 0.5, cy + r * 0.4],
                            [cx, cy - r * 0.5]])
            c2 = (250, 250, 250)
        cv2.fillPoly(img, [np.round(pts * 16).astype(np.int32)], c2, cv2.LINE_AA, 4)


def _header(wr, rng, fonts, accent, paper, W):
    """Edge strip or title band, sender with logo, invoice details, addressees."""
    body, bold, big = fonts[:3]
    img, mm = wr.img, wr.mm
    title, white = str(_pick(rng, TITLES)), _mix((255, 255, 255), paper, 0.6)
    most = (wr.right - wr.left) * 0.42  # the title leaves room for the sender beside it
    if big.width(title) > most:
        big = pp.Font(fonts[4] + "-Bold.ttf", big.px * most / big.width(title),
                      cv2.FONT_HERSHEY_DUPLEX, True)
    banded = rng.random() < 0.5
    logo = rng.random() < 0.7
    if banded:
        x0, x1 = _span(rng, wr, W, 0.35)
        h = big.px * rng.uniform(1.6, 2.4)
        y0 = 0.0 if rng.random() < 0.4 else wr.y
        y1 = max(y0 + h, wr.y + big.px * 1.2) if y0 == 0 else y0 + h
        _fill(img, x0, y0, x1, y1, accent)
        tx0, tx1 = max(x0, wr.left) + big.px * 0.4, min(x1, wr.right) - big.px * 0.4
        right = rng.random() < 0.3
        base = y1 - (y1 - max(y0, wr.y - big.px * 0.6)) / 2 + big.px * 0.35
        big.draw(img, title, tx1 - big.width(title) if right else tx0, base, white)
        wr.lines.append(title)
        wr.y = y1 + body.px * 1.2
    elif rng.random() < 0.45:  # a strip of colour along the top edge
        x0, x1 = _span(rng, wr, W, 0.6)
        _fill(img, x0, 0, x1, rng.uniform(2, 12) * mm, _jitter(rng, _pick(rng, DARK + BRAND)))
    s = body.px * rng.uniform(3, 5)
    y = wr.y
    x = wr.left
    if logo:
        _logo(img, rng, x, y + body.px * 0.3, s)
        x += s + body.px
    name_c = accent if rng.random() < 0.5 else wr.ink
    sender = [(_company(rng), bold, name_c)] + [(t, body, wr.ink)
                                               for t in _address(rng, int(rng.integers(2, 5)))]
    yl = _block(wr, x, y, sender)
    details = [] if banded else [(title, big, accent if rng.random() < 0.6 else wr.ink)]
    number = "INV-%05d" % rng.integers(1, 99999) if rng.random() < 0.5 else "#%d" % rng.integers(
        1000, 999999)
    details += [("Invoice No: " + number, body, wr.ink), ("Date: " + _date(rng), body, wr.ink)]
    if rng.random() < 0.6:
        details.append(("Due: " + _date(rng), body, wr.ink))
    yr = _block(wr, wr.right, y, details, right=True)
    wr.y = max(yl, yr, y + s + body.px * 0.6) + body.px * 1.5
    if rng.random() < 0.75:
        boxed, strip = rng.random() < 0.35, rng.random() < 0.3
        half = (wr.right - wr.left) / 2
        bottom = wr.y
        for i, label in enumerate(["BILL TO", "SHIP TO"][:1 + int(rng.random() < 0.6)]):
            bx = wr.left + i * half
            rows = [(label, bold, accent if rng.random() < 0.6 else wr.ink),
                    (_company(rng), body, wr.ink)] + [(t, body, wr.ink) for t in _address(rng, 3)]
            pad = body.px * 0.6 if boxed else 0
            if strip:
                _fill(img, bx, wr.y, bx + half - body.px, wr.y + bold.px * 1.6,
                      _mix(accent, paper, 0.15))
            yb = _block(wr, bx + pad, wr.y, rows)
            if boxed:
                cv2.rectangle(img, (int(bx), int(wr.y)), (int(bx + half - body.px), int(yb + pad)),
                              wr.ink, max(1, int(round(mm * 0.25))), cv2.LINE_AA)
            bottom = max(bottom, yb + pad)
        wr.y = bottom + body.px * 1.5
    if rng.random() < 0.35:  # a boxed row of number and dates
        h, cw = body.px * 2, (wr.right - wr.left) / 3
        cells = ["Invoice Number: " + number, "Issue Date: " + _date(rng),
                 "Due Date: " + _date(rng)]
        if max(body.width(t) for t in cells) > cw - body.px:
            cells = ["No. " + number] + [t.split(": ")[1] for t in cells[1:]]
        rule = max(1, int(round(mm * 0.2)))
        for i, t in enumerate(cells):
            x0 = wr.left + i * cw
            cv2.rectangle(img, (int(x0), int(wr.y)), (int(x0 + cw), int(wr.y + h)), wr.ink, rule)
            body.draw(img, t, x0 + body.px * 0.5, wr.y + h / 2 + body.px * 0.35, wr.ink)
        wr.lines.append(" ".join(cells))
        wr.y += h + body.px * 1.5


def _items(wr, rng, fonts, accent, paper, W):
    """The items table; returns (text span x0, x1, subtotal) or None where it does not fit."""
    body, bold = fonts[:2]
    img, mm = wr.img, wr.mm
    heads = ["Description", _pick(rng, ["Qty", "Quantity", "Hours"]),
             _pick(rng, ["Unit Price", "Rate", "Price"]), _pick(rng, ["Total", "Amount"])]
    frac = [0.44, 0.14, 0.2, 0.2]
    if rng.random() < 0.5:
        heads, frac = ["Item #"] + heads, [0.12] + frac
    u = rng.random()
    if u < 0.2:
        x0, x1 = 0.0, float(W)
    elif u < 0.6:
        x0, x1 = wr.left, wr.right
    else:
        w = (wr.right - wr.left) * rng.uniform(0.6, 1.0)
        x0 = wr.left + (wr.right - wr.left - w) * float(_pick(rng, [0.0, 0.5]))
        x1 = x0 + w
    tx0, tx1 = max(x0, wr.left), min(x1, wr.right)
    edges = tx0 + np.concatenate([[0], np.cumsum(frac)]) / sum(frac) * (tx1 - tx0)
    row_h = body.px * rng.uniform(1.7, 2.3)
    head_h = row_h * rng.uniform(1.0, 1.3)
    n = int(rng.integers(2, 10))
    blank = int(rng.integers(1, 8)) if rng.random() < 0.4 else 0
    while n > 1 and not wr.fits(head_h + (n + blank) * row_h + body.px * 13):
        blank, n = (blank - 1, n) if blank else (0, n - 1)
    if not wr.fits(head_h + (n + blank) * row_h + body.px * 13):
        return None
    dark = rng.random() < 0.85
    hc = accent if dark else _mix(accent, paper, 0.18)
    _fill(img, x0, wr.y, x1, wr.y + head_h, hc)
    pad = body.px * 0.5
    right = [t != "Description" and t != "Item #" for t in heads]

    def cells(texts, font, y, h, colour):
        for i, t in enumerate(texts):
            x = edges[i + 1] - pad - font.width(t) if right[i] else edges[i] + pad
            font.draw(img, t, x, y + h / 2 + 0.35 * font.px, colour)
        wr.lines.append(" ".join(texts))

    cells(heads, bold, wr.y, head_h, _mix((255, 255, 255), paper, 0.6) if dark else wr.ink)
    top = wr.y
    wr.y += head_h
    shade = (_mix(accent, paper, 0.1) if rng.random() < 0.5 else
             (tuple(int(v) for v in paper - rng.uniform(8, 22))))
    alternate, ruled = rng.random() < 0.4, rng.random() < 0.75
    grid, boxed = rng.random() < 0.3, rng.random() < 0.35
    rule_c = wr.ink if rng.random() < 0.3 else tuple(int(v) for v in paper - rng.uniform(40, 90))
    rule = max(1, int(round(mm * rng.uniform(0.12, 0.3))))
    subtotal = 0.0
    for r in range(1, n + blank, 2) if alternate else ():  # under the rules, not over them
        _fill(img, x0, wr.y + r * row_h, x1, wr.y + (r + 1) * row_h, shade)
    room = edges[len(heads) - 3] - edges[len(heads) - 4] - 2 * pad
    for r in range(n + blank):
        y = wr.y + r * row_h
        if r < n:
            q, p = int(rng.integers(1, 13)), float(rng.uniform(0.5, 250))
            subtotal += round(q * p, 2)
            words = [_word(rng) for _ in range(int(rng.integers(2, 5)))]
            while len(words) > 1 and body.width(" ".join(words)) > room:
                words.pop()
            texts = [" ".join(words), "%d" % q, "%.2f" % p, "%.2f" % (q * p)]
            if len(heads) == 5:
                texts = ["%d" % rng.integers(100, 9999)] + texts
            cells(texts, body, y, row_h, wr.ink)
        if ruled or grid:
            yy = int(round(y + row_h))
            cv2.line(img, (int(x0), yy), (int(x1), yy), rule_c, rule, cv2.LINE_AA)
    bottom = wr.y + (n + blank) * row_h
    if grid:
        for e in edges[1:-1]:
            cv2.line(img, (int(e), int(top)), (int(e), int(bottom)), rule_c, rule, cv2.LINE_AA)
    if boxed:
        cv2.rectangle(img, (int(x0), int(top)), (int(x1) - 1, int(bottom)), rule_c, rule)
    wr.y = bottom + body.px * 1.2
    return tx0, tx1, subtotal


def _totals(wr, rng, fonts, accent, paper, W, span):
    body = fonts[0]
    img = wr.img
    tx0, tx1, subtotal = span
    tax = subtotal * float(_pick(rng, [0.05, 0.075, 0.1, 0.2]))
    rows = [("Subtotal", subtotal), ("Tax", tax)]
    if rng.random() < 0.3:
        rows.append(("Discount", -subtotal * 0.05))
    vx = tx1 - body.px * 0.5
    lx = tx1 - (tx1 - tx0) * rng.uniform(0.3, 0.45)
    for label, v in rows:
        wr.y += body.px * 1.6
        body.draw(img, label, lx, wr.y, wr.ink)
        t = "%.2f" % v
        body.draw(img, t, vx - body.width(t), wr.y, wr.ink)
        wr.lines.append("%s %s" % (label, t))
    f = fonts[3]
    h = f.px * rng.uniform(1.6, 2.2)
    u = rng.random()
    bx0, bx1 = ((lx - body.px, tx1) if u < 0.6 else (lx - body.px, float(W)) if u < 0.8 else
                (tx0, tx1))
    label = str(_pick(rng, ["TOTAL", "TOTAL", "Total Due", "Balance Due", "Amount Due"]))
    value = "%s%.2f" % ("$" if rng.random() < 0.5 else "", sum(v for _, v in rows))
    bx0 = min(bx0, vx - f.width(value) - f.width(label) - 2 * body.px)  # room for both
    y0 = wr.y + body.px * 0.8
    _fill(img, bx0, y0, bx1, y0 + h, accent)
    white = _mix((255, 255, 255), paper, 0.6)
    base = y0 + h / 2 + 0.35 * f.px
    f.draw(img, label, bx0 + body.px * 0.6, base, white)
    f.draw(img, value, vx - f.width(value), base, white)
    wr.lines.append("%s %s" % (label, value))
    wr.y = y0 + h + body.px * 2


def invoice(wr, rng):
    """Draws an invoice on an A4 or letter sheet. Returns (body face name, handwriting?)."""
    img, mm = wr.img, wr.mm
    H, W = img.shape[:2]
    paper = img[0, 0].astype(np.float64)
    face = _pick(rng, ["DejaVuSans", "DejaVuSans", "DejaVuSerif", "DejaVuSansCondensed"])
    hershey = cv2.FONT_HERSHEY_COMPLEX if "Serif" in face else cv2.FONT_HERSHEY_SIMPLEX
    body = pp.Font(face + ".ttf", rng.uniform(2.8, 3.5) * mm, hershey)
    bold = pp.Font(face + "-Bold.ttf", body.px, cv2.FONT_HERSHEY_DUPLEX, True)
    big = pp.Font(face + "-Bold.ttf", body.px * rng.uniform(2.2, 3.4), cv2.FONT_HERSHEY_DUPLEX,
                  True)
    fonts = (body, bold, big, pp.Font(face + "-Bold.ttf", body.px * rng.uniform(1.1, 1.5),
                                      cv2.FONT_HERSHEY_DUPLEX, True), face)
    accent = _jitter(rng, _pick(rng, DARK if rng.random() < 0.65 else BRAND))
    foot = None
    if rng.random() < 0.4:  # a strip along the bottom edge, drawn last
        fh = rng.uniform(3, 22) * mm
        foot = _span(rng, wr, W, 0.6) + (fh,)
        wr.bottom = min(wr.bottom, H - fh - 6 * mm)
    _header(wr, rng, fonts, accent, paper, W)
    span = _items(wr, rng, fonts, accent, paper, W)
    if span is not None and wr.fits(body.px * 12):
        _totals(wr, rng, fonts, accent, paper, W, span)
    notes = []
    if rng.random() < 0.6:
        notes.append(("Thank you for your business!",
                      accent if rng.random() < 0.5 else wr.ink))
    if rng.random() < 0.4:
        notes.append(("Payment is due within %d days." % _pick(rng, [7, 14, 30, 60]), wr.ink))
    for t, c in notes:
        if wr.fits(body.px * 1.6):
            wr.y += body.px * 1.6
            body.draw(img, t, wr.left, wr.y, c)
            wr.lines.append(t)
    hand = False
    if rng.random() < 0.2 and wr.fits(body.px * 6):
        y = wr.y + body.px * 5
        x1 = wr.left + (wr.right - wr.left) * 0.35
        pp._signature(img, rng, wr.left + body.px, y - body.px, int(body.px * 1.2),
                      (140, 40, 20))
        cv2.line(img, (int(wr.left), int(y)), (int(x1), int(y)), wr.ink, 1, cv2.LINE_AA)
        t = "Authorised signature"
        body.draw(img, t, wr.left, y + body.px * 1.4, wr.ink)
        wr.lines.append(t)
        hand = True
    if foot is not None:
        x0, x1, fh = foot
        _fill(img, x0, H - fh, x1, H, _jitter(rng, _pick(rng, [accent] * 2 + DARK + BRAND)))
        t = "www.%s.com  |  +1 %03d %03d %04d" % (_pick(rng, pp._WORDS), rng.integers(200, 999),
                                                  rng.integers(100, 999), rng.integers(0, 9999))
        f = pp.Font(face + ".ttf", min(body.px, fh * 0.45), hershey)
        if fh > 7 * mm and f.width(t) < (min(x1, wr.right) - max(x0, wr.left)) * 0.95:
            cx = (max(x0, wr.left) + min(x1, wr.right)) / 2
            f.draw(img, t, cx - f.width(t) / 2, H - fh / 2 + 0.35 * f.px,
                   _mix((255, 255, 255), paper, 0.6))
            wr.lines.append(t)
    return body.name, hand
