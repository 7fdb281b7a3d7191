"""Renders the flat printed page that make_photo.py later photographs.

A page is drawn at its own resolution (dpi x the supersampling factor) onto paper of a real
format: A4 and US letter carry a document layout (heading, date line, paragraphs, sometimes a
ruled table, a picture box with a caption, a coloured stamp or highlight and a handwritten
signature), a receipt carries a narrow monospaced till slip, an index card carries a few lines on
blue rules under a red header rule. Asked for it, an A4 or letter sheet is printed as an invoice
instead (photo_layouts: filled table headers, colour bands and strips up to the paper's edge,
ruled tables, a TOTAL box, a logo); only the wild mix asks. Text comes from a small built-in
vocabulary so that the tool needs no word list; every printed line is returned in reading order
as the OCR ground truth (handwriting, stamps and logos are not printed text and are left out).

Fonts: DejaVu TrueType faces through OpenCV's FreeType module when both are present (they look
like real print); otherwise OpenCV's Hershey vector fonts. Both draw at a baseline origin, so the
layout code does not care which one it got. The record names the face that was used because the
output then differs.
"""

import os

import cv2
import numpy as np

# Paper formats in millimetres (portrait unless the layout says otherwise).
FORMATS = {
    "a4": (210.0, 297.0),
    "letter": (215.9, 279.4),
    "receipt": (80.0, None),  # length chosen per slip
    "index_card": (127.0, 76.2),
}

_WORDS = """
account address agenda allowance annual archive balance basket battery border branch budget
builder bundle cabinet camera capital carbon careful channel chapter circuit client climate
column comfort committee common compact copper corner council county credit current custom
daily dealer decade delivery deposit design detail digital direct distance district document
domestic draft early economy edition effort element energy engine estate evening evidence
exchange factory faculty feature figure final finance formal forward freight garden general
gentle global harbour harvest heading health history holiday honest household imaging import
income index industry inside invoice island journal junior kitchen ladder language lateral
leader ledger letter limited linear liquid local lumber manual margin market master measure
medium member method middle minute modest module motion native network neutral notice number
object office orange orchard output packet paper parcel partner patent pattern payment period
permit picture planet plastic pocket policy portal postal powder premium printed private profit
project public quarter railway random rapid record region remote report request resource retail
review river routine safety sample schedule season second section select senior series service
shelter signal silver simple single sketch smooth source spring square stable standard station
steady storage street studio subject summer supply surface survey system table target teacher
tender terrace thread timber total tower trade travel treaty triangle tunnel uniform update urban
useful valley vector velvet vendor version village visual volume voyage wander weekly welcome
window winter wooden worker yellow yield
""".split()

_SHOPS = ["CORNER MARKET", "HARBOUR CAFE", "CITY HARDWARE", "GREEN GROCER", "BOOK NOOK"]

_FONT_DIRS = ["/usr/share/fonts/truetype/dejavu"]


def _find_font(name):
    for d in _FONT_DIRS:
        p = os.path.join(d, name)
        if os.path.isfile(p):
            return p
    return None


class Font:
    """One face at one pixel size, drawn at a baseline origin."""

    _ft_cache = {}

    def __init__(self, face, px, hershey=cv2.FONT_HERSHEY_SIMPLEX, bold=False):
        self.px = max(6, int(round(px)))
        path = _find_font(face) if hasattr(cv2, "freetype") else None
        self.ft = None
        if path:
            ft = Font._ft_cache.get(path)
            if ft is None:
                ft = cv2.freetype.createFreeType2()
                ft.loadFontData(path, 0)
                Font._ft_cache[path] = ft
            self.ft = ft
            self.name = "dejavu/" + face
        else:
            self.face = hershey
            (_, h), _ = cv2.getTextSize("H", hershey, 1.0, 1)
            self.scale = 0.72 * self.px / h
            self.thick = max(1, int(round(self.px / (10.0 if bold else 16.0))))
            self.name = "hershey/%d" % hershey

    def width(self, text):
        if self.ft is not None:
            return self.ft.getTextSize(text, self.px, -1)[0][0]
        return cv2.getTextSize(text, self.face, self.scale, self.thick)[0][0]

    def draw(self, img, text, x, baseline, color):
        org = (int(round(x)), int(round(baseline)))
        if self.ft is not None:
            self.ft.putText(img, text, org, self.px, color, -1, cv2.LINE_AA, True)
        else:
            cv2.putText(img, text, org, self.face, self.scale, color, self.thick, cv2.LINE_AA)


class _Writer:
    """Cursor over the printable area; collects the printed lines in reading order."""

    def __init__(self, img, mm, margins, ink):
        self.img, self.mm, self.ink = img, mm, ink
        h, w = img.shape[:2]
        self.left, self.right = margins[0] * mm, w - margins[0] * mm
        self.y, self.bottom = margins[1] * mm, h - margins[1] * mm
        self.lines = []

    def fits(self, height):
        return self.y + height <= self.bottom

    def wrap(self, words, font, width):
        out, cur = [], []
        for w in words:
            if cur and font.width(" ".join(cur + [w])) > width:
                out.append(" ".join(cur))
                cur = []
            cur.append(w)
        if cur:
            out.append(" ".join(cur))
        return out

    def line(self, text, font, x=None, color=None, lead=1.4):
        if not self.fits(font.px * lead):
            return False
        self.y += font.px * lead
        font.draw(self.img, text, self.left if x is None else x, self.y - 0.3 * font.px,
                  color or self.ink)
        self.lines.append(text)
        return True

    def paragraph(self, words, font):
        for t in self.wrap(words, font, self.right - self.left):
            if not self.line(t, font):
                return False
        return True


def _sentence(rng, n):
    ws = [str(rng.choice(_WORDS)) for _ in range(n)]
    if rng.random() < 0.2:
        ws[int(rng.integers(n))] = "%d" % rng.integers(10, 2000)
    ws[0] = ws[0].capitalize()
    if n > 6 and rng.random() < 0.4:
        k = int(rng.integers(2, n - 2))
        ws[k] += ","
    ws[-1] += "."
    return ws


def _paragraph_words(rng):
    words = []
    for _ in range(int(rng.integers(2, 5))):
        words += _sentence(rng, int(rng.integers(6, 14)))
    return words


def _title(rng, n):
    return " ".join(str(rng.choice(_WORDS)).capitalize() for _ in range(n))


def _picture(rng, w, h):
    """A blurry colour 'photograph' for the picture box."""
    grey = rng.uniform(60, 200, (4, 5, 1))
    small = (grey + rng.uniform(-25, 25, (4, 5, 3))).astype(np.float32)
    img = cv2.resize(small, (w, h), interpolation=cv2.INTER_CUBIC)
    horizon = int(h * rng.uniform(0.4, 0.7))
    img[horizon:] *= 0.6
    return np.clip(img, 0, 255).astype(np.uint8)


def _table(wr, rng, font, bold):
    cols = int(rng.integers(3, 6))
    rows = int(rng.integers(3, 7))
    colw = (wr.right - wr.left) / cols
    rule = max(1, int(round(wr.mm * 0.25)))
    if not wr.fits(font.px * 1.5 * (rows + 1) + font.px):
        return
    y0 = int(wr.y + 0.4 * font.px)
    cv2.line(wr.img, (int(wr.left), y0), (int(wr.right), y0), wr.ink, rule, cv2.LINE_AA)
    for r in range(rows + 1):
        cells = []
        for c in range(cols):
            if r == 0:
                cells.append(str(rng.choice(_WORDS)).capitalize())
            elif c > 0 and rng.random() < 0.6:
                cells.append("%.2f" % rng.uniform(1, 999))
            else:
                cells.append(str(rng.choice(_WORDS)))
        f = bold if r == 0 else font
        wr.y += font.px * 1.5
        for c, t in enumerate(cells):
            f.draw(wr.img, t, wr.left + c * colw + 0.3 * font.px, wr.y - 0.35 * font.px, wr.ink)
        wr.lines.append(" ".join(cells))
        if r == 0 or r == rows:
            yy = int(wr.y + 0.1 * font.px)
            cv2.line(wr.img, (int(wr.left), yy), (int(wr.right), yy), wr.ink, rule, cv2.LINE_AA)
    wr.y += font.px * 0.8


def _signature(img, rng, x, y, px, color):
    t = np.linspace(0, 1, 120)
    amp = px * rng.uniform(0.5, 0.9)
    xs = x + t * px * rng.uniform(8, 14)
    ys = y + amp * np.sin(t * rng.uniform(18, 30)) * (0.5 + 0.5 * np.sin(t * 7))
    pts = np.stack([xs, ys], 1).astype(np.int32)
    cv2.polylines(img, [pts], False, color, max(1, px // 10), cv2.LINE_AA)


def _stamp(img, rng, cx, cy, r, color):
    overlay = img.copy()
    cv2.circle(overlay, (int(cx), int(cy)), int(r), color, max(2, int(r / 14)), cv2.LINE_AA)
    cv2.circle(overlay, (int(cx), int(cy)), int(r * 0.8), color, max(1, int(r / 25)), cv2.LINE_AA)
    cv2.addWeighted(overlay, 0.75, img, 0.25, 0, img)


def _document(wr, rng):
    mm = wr.mm
    body = Font("DejaVuSerif.ttf" if rng.random() < 0.5 else "DejaVuSans.ttf",
                rng.uniform(3.4, 4.0) * mm, cv2.FONT_HERSHEY_COMPLEX)
    bold = Font("DejaVuSans-Bold.ttf", body.px, cv2.FONT_HERSHEY_DUPLEX, True)
    head = Font("DejaVuSans-Bold.ttf", body.px * rng.uniform(1.6, 2.0), cv2.FONT_HERSHEY_DUPLEX,
                True)
    small = Font("DejaVuSans-Oblique.ttf", body.px * 0.85, cv2.FONT_HERSHEY_SIMPLEX)
    for t in wr.wrap(_title(rng, int(rng.integers(3, 7))).split(), head, wr.right - wr.left):
        wr.line(t, head, lead=1.3)
    if rng.random() < 0.6:
        wr.line("%s %d, %d" % (_title(rng, 1), rng.integers(1, 29), rng.integers(1995, 2025)),
                small)
    wr.y += body.px
    extras = ["table", "picture", "mark"]
    rng.shuffle(extras)
    extras = [e for e in extras if rng.random() < 0.6]
    while wr.fits(body.px * 3):
        if extras and rng.random() < 0.35:
            kind = extras.pop()
            if kind == "table":
                _table(wr, rng, body, bold)
            elif kind == "picture":
                w = int((wr.right - wr.left) * rng.uniform(0.4, 0.6))
                h = int(w * rng.uniform(0.45, 0.7))
                if wr.fits(h + 3 * body.px):
                    x = int((wr.left + wr.right - w) / 2)
                    y = int(wr.y + body.px * 0.6)
                    wr.img[y:y + h, x:x + w] = _picture(rng, w, h)
                    cv2.rectangle(wr.img, (x, y), (x + w, y + h), wr.ink, 1, cv2.LINE_AA)
                    wr.y = y + h
                    cap = "Figure %d. %s." % (rng.integers(1, 9), _title(rng, 3))
                    wr.line(cap, small, (wr.left + wr.right - small.width(cap)) / 2)
                    wr.y += body.px * 0.5
            else:
                # A highlighter stroke behind the next line of text.
                y = int(wr.y + body.px * 0.35)
                x1 = int(wr.left + (wr.right - wr.left) * rng.uniform(0.3, 0.9))
                color = [(120, 250, 250), (160, 250, 160), (250, 200, 230)][int(rng.integers(3))]
                cv2.rectangle(wr.img, (int(wr.left), y), (x1, y + int(body.px * 1.2)), color, -1)
            continue
        if not wr.paragraph(_paragraph_words(rng), body):
            break
        wr.y += body.px * 0.5
    handwriting = rng.random() < 0.35
    h, w = wr.img.shape[:2]
    if handwriting:
        _signature(wr.img, rng, w * 0.6, h - 0.6 * wr.mm * 20, int(body.px * 1.3), (140, 40, 20))
    if rng.random() < 0.3:
        _stamp(wr.img, rng, w * rng.uniform(0.6, 0.8), h * rng.uniform(0.15, 0.8), 12 * mm,
               (40, 40, 200))
    return body.name, handwriting


def _receipt(wr, rng):
    mono = Font("DejaVuSansMono.ttf", wr.mm * rng.uniform(2.8, 3.2), cv2.FONT_HERSHEY_PLAIN)
    bold = Font("DejaVuSansMono-Bold.ttf", mono.px * 1.3, cv2.FONT_HERSHEY_DUPLEX, True)
    cols = int((wr.right - wr.left) * 20 / mono.width("0" * 20)) - 1
    centre = (wr.left + wr.right) / 2
    shop = str(rng.choice(_SHOPS))
    wr.line(shop, bold, centre - bold.width(shop) / 2)
    for t in ("%d %s STREET" % (rng.integers(1, 300), str(rng.choice(_WORDS)).upper()),
              "%02d/%02d/%d %02d:%02d" % (rng.integers(1, 29), rng.integers(1, 13),
                                          rng.integers(2015, 2025), rng.integers(7, 22),
                                          rng.integers(0, 60))):
        wr.line(t, mono, centre - mono.width(t) / 2)
    wr.line("-" * cols, mono)
    total = 0.0
    for _ in range(int(rng.integers(4, 14))):
        price = float(rng.uniform(0.5, 40))
        total += price
        name = " ".join(str(rng.choice(_WORDS)).upper() for _ in range(int(rng.integers(1, 3))))
        p = "%.2f" % price
        name = name[:cols - len(p) - 1]
        if not wr.line(name + " " * (cols - len(name) - len(p)) + p, mono):
            break
    wr.line("-" * cols, mono)
    t = "%.2f" % total
    wr.line("TOTAL" + " " * (cols - 5 - len(t)) + t, mono)
    wr.line("THANK YOU", mono, centre - mono.width("THANK YOU") / 2)
    return mono.name, False


def _card(wr, rng):
    mm = wr.mm
    h, w = wr.img.shape[:2]
    pitch = 6.35 * mm  # quarter-inch rules
    y = 19 * mm
    cv2.line(wr.img, (0, int(y - 1.5 * mm)), (w, int(y - 1.5 * mm)), (90, 90, 220), 2, cv2.LINE_AA)
    rules = []
    while y + pitch < h - 2 * mm:
        y += pitch
        rules.append(y)
        cv2.line(wr.img, (0, int(y)), (w, int(y)), (225, 190, 150), 1, cv2.LINE_AA)
    head = Font("DejaVuSans-Bold.ttf", 4.0 * mm, cv2.FONT_HERSHEY_DUPLEX, True)
    body = Font("DejaVuSans.ttf", 3.0 * mm, cv2.FONT_HERSHEY_SIMPLEX)
    title = _title(rng, int(rng.integers(2, 4)))
    head.draw(wr.img, title, wr.left, 19 * mm - 3 * mm, wr.ink)
    wr.lines.append(title)
    words = _paragraph_words(rng)
    for t, yb in zip(wr.wrap(words, body, wr.right - wr.left), rules[:int(rng.integers(3, 7))]):
        body.draw(wr.img, t, wr.left, yb - 0.8 * mm, wr.ink)
        wr.lines.append(t)
    return body.name, False


def page_format(rng, kind):
    """The sheet's size in millimetres (a receipt's length varies from slip to slip)."""
    wmm, hmm = FORMATS[kind]
    return (wmm, float(rng.uniform(150, 260)) if hmm is None else hmm)


def page_pixels(size_mm, dpi):
    return (int(round(size_mm[0] / 25.4 * dpi)), int(round(size_mm[1] / 25.4 * dpi)))


def render_page(rng, kind, size_mm, dpi, ss, layout=None):
    """Draws one page. Returns (BGR image at dpi*ss, page size at dpi, record, printed lines).

    The page's own pixels are those at `dpi`; the image is `ss` times larger so that the camera
    stage can reduce it with area averaging where the photograph magnifies the page. `layout`
    "invoice" prints an A4 or letter sheet as an invoice (photo_layouts); without it the random
    draws are those of the document, receipt and card layouts alone, so that a mix that never
    asks for an invoice renders the same pages as before invoices existed.
    """
    size = page_pixels(size_mm, dpi)
    mm = dpi * ss / 25.4
    W, H = size[0] * ss, size[1] * ss
    tint = rng.uniform(-4, 2, 3)
    paper = np.clip(np.array([250, 250, 247]) + tint, 236, 255)
    if kind == "receipt":
        paper = np.clip(paper - [2, 4, 8], 0, 255)
    img = np.empty((H, W, 3), np.uint8)
    img[:] = paper.astype(np.uint8)
    ink = tuple(int(v) for v in rng.uniform(20, 45) + rng.uniform(-5, 5, 3))
    if kind == "receipt":
        margins, layout = (4, 5), "receipt"
    elif kind == "index_card":
        margins, layout = (8, 6), "card"
    elif layout == "invoice":
        margins = (rng.uniform(14, 24), rng.uniform(12, 20))
    else:
        margins, layout = (rng.uniform(17, 26), rng.uniform(16, 24)), "document"
    wr = _Writer(img, mm, margins, ink)
    if layout == "invoice":
        import photo_layouts  # imports this module: loaded on first use, not at the top
        font, hand = photo_layouts.invoice(wr, rng)
    elif layout == "document":
        font, hand = _document(wr, rng)
    elif layout == "receipt":
        font, hand = _receipt(wr, rng)
    else:
        font, hand = _card(wr, rng)
    # Paper is never perfectly even: a faint low-frequency mottle.
    mottle = cv2.resize(rng.normal(0, 1.2, (6, 6)).astype(np.float32), (W, H),
                        interpolation=cv2.INTER_CUBIC)
    img = np.clip(img.astype(np.float32) + mottle[:, :, None], 0, 255).astype(np.uint8)
    record = {
        "dpi": int(dpi),
        "font": font,
        "handwriting": bool(hand),
        "kind": kind,
        "layout": layout,
        "paper": [int(v) for v in paper[::-1]],  # RGB
        "supersample": int(ss),
    }
    return img, size, record, wr.lines
