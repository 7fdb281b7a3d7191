"""A camera-like EXIF APP1 block, written and read back with struct.

Layout of the TIFF body (offsets from the TIFF header; every value area starts on an even
offset, every IFD lists its tags in ascending order, as readers expect):

    header (II*\\0 or MM\\0*, IFD0 at 8) | IFD0 + its values | Exif IFD + its values |
    IFD1 + its values | thumbnail JPEG

IFD0 carries Make, Model, Orientation = 1, the resolution triple, DateTime, YCbCrPositioning and
the Exif IFD pointer; the Exif IFD the capture settings and PixelX/YDimension; IFD1 describes
the JPEG thumbnail (Compression = 6, JPEGInterchangeFormat/Length). The block replaces the JFIF
APP0 segment that OpenCV writes, so the file looks like a camera's: SOI, APP1, then the rest.
"""

import struct

ASCII, SHORT, LONG, RATIONAL, UNDEFINED = 2, 3, 4, 5, 7
_SIZES = {ASCII: 1, SHORT: 2, LONG: 4, RATIONAL: 8, UNDEFINED: 1}


def _ifd(bo, entries, start, next_ifd):
    """One IFD at TIFF offset `start`: entries are (tag, type, value); returns its bytes."""
    entries = sorted(entries)
    data_at = start + 2 + 12 * len(entries) + 4
    head, data = [struct.pack(bo + "H", len(entries))], b""
    for tag, typ, val in entries:
        if typ == ASCII:
            raw, count = val.encode("ascii") + b"\0", len(val) + 1
        elif typ == UNDEFINED:
            raw, count = bytes(val), len(val)
        elif typ == SHORT:
            raw, count = struct.pack(bo + "H", val), 1
        elif typ == LONG:
            raw, count = struct.pack(bo + "I", val), 1
        else:
            raw, count = struct.pack(bo + "II", *val), 1
        if len(raw) <= 4:
            field = raw.ljust(4, b"\0")
        else:
            field = struct.pack(bo + "I", data_at + len(data))
            data += raw + (b"\0" if len(raw) % 2 else b"")
        head.append(struct.pack(bo + "HHI", tag, typ, count) + field)
    head.append(struct.pack(bo + "I", next_ifd))
    return b"".join(head) + data


def _size(entries):
    return len(_ifd("<", entries, 0, 0))


def build_app1(info, width, height, thumbnail, big_endian):
    """info: make, model, datetime ('YYYY:MM:DD HH:MM:SS'), exposure (n, d), fnumber (n, d),
    iso, focal (n, d). Returns the whole APP1 segment, marker included."""
    bo = ">" if big_endian else "<"
    res = (72, 1)
    ifd0 = [(0x010F, ASCII, info["make"]), (0x0110, ASCII, info["model"]), (0x0112, SHORT, 1),
            (0x011A, RATIONAL, res), (0x011B, RATIONAL, res), (0x0128, SHORT, 2),
            (0x0132, ASCII, info["datetime"]), (0x0213, SHORT, 1), (0x8769, LONG, 0)]
    exif = [(0x829A, RATIONAL, info["exposure"]), (0x829D, RATIONAL, info["fnumber"]),
            (0x8827, SHORT, info["iso"]), (0x9000, UNDEFINED, b"0232"),
            (0x9003, ASCII, info["datetime"]), (0x9004, ASCII, info["datetime"]),
            (0x9101, UNDEFINED, b"\1\2\3\0"), (0x920A, RATIONAL, info["focal"]),
            (0xA000, UNDEFINED, b"0100"), (0xA001, SHORT, 1), (0xA002, LONG, width),
            (0xA003, LONG, height)]
    ifd1 = [(0x0103, SHORT, 6), (0x011A, RATIONAL, res), (0x011B, RATIONAL, res),
            (0x0128, SHORT, 2), (0x0201, LONG, 0), (0x0202, LONG, len(thumbnail))]
    at0 = 8
    at_exif = at0 + _size(ifd0)
    at1 = at_exif + _size(exif)
    at_thumb = at1 + _size(ifd1)
    ifd0[-1] = (0x8769, LONG, at_exif)
    ifd1[4] = (0x0201, LONG, at_thumb)
    tiff = ((b"MM\0*" if big_endian else b"II*\0") + struct.pack(bo + "I", at0) +
            _ifd(bo, ifd0, at0, at1) + _ifd(bo, exif, at_exif, 0) + _ifd(bo, ifd1, at1, 0) +
            thumbnail)
    body = b"Exif\0\0" + tiff
    if len(body) + 2 > 0xFFFF:
        raise ValueError("EXIF block too large for one APP1 segment")
    return b"\xff\xe1" + struct.pack(">H", len(body) + 2) + body


def strip_app0(jpeg):
    """Drops a leading JFIF APP0 segment (SOI is kept)."""
    if jpeg[:2] != b"\xff\xd8":
        raise ValueError("not a JPEG")
    if jpeg[2:4] == b"\xff\xe0":
        n = struct.unpack(">H", jpeg[4:6])[0]
        return jpeg[:2] + jpeg[4 + n:]
    return jpeg


def insert_app1(jpeg, app1):
    jpeg = strip_app0(jpeg)
    return jpeg[:2] + app1 + jpeg[2:]


def read_exif(jpeg):
    """Parses the APP1 EXIF block of a JPEG: {'byte_order', 'ifd0', 'exif', 'ifd1',
    'thumbnail'} with tag -> value (str, int, (n, d) or bytes). Raises ValueError if absent."""
    pos = 2
    while pos + 4 <= len(jpeg) and jpeg[pos] == 0xFF:
        marker, n = jpeg[pos + 1], struct.unpack(">H", jpeg[pos + 2:pos + 4])[0]
        if marker == 0xE1 and jpeg[pos + 4:pos + 10] == b"Exif\0\0":
            return _parse_tiff(jpeg[pos + 10:pos + 2 + n])
        if marker == 0xDA:
            break
        pos += 2 + n
    raise ValueError("no EXIF block")


def _parse_tiff(t):
    bo = {b"II": "<", b"MM": ">"}[t[:2]]

    def ifd(off):
        n = struct.unpack(bo + "H", t[off:off + 2])[0]
        tags = {}
        for i in range(n):
            at = off + 2 + 12 * i
            tag, typ, count, field = struct.unpack(bo + "HHI4s", t[at:at + 12])
            size = _SIZES.get(typ, 1) * count
            raw = field[:size] if size <= 4 else t[struct.unpack(bo + "I", field)[0]:][:size]
            if typ == ASCII:
                tags[tag] = raw.rstrip(b"\0").decode("ascii")
            elif typ == SHORT:
                tags[tag] = struct.unpack(bo + "H", raw[:2])[0]
            elif typ == LONG:
                tags[tag] = struct.unpack(bo + "I", raw)[0]
            elif typ == RATIONAL:
                tags[tag] = struct.unpack(bo + "II", raw)
            else:
                tags[tag] = raw
        return tags, struct.unpack(bo + "I", t[off + 2 + 12 * n:off + 6 + 12 * n])[0]

    ifd0, next_off = ifd(struct.unpack(bo + "I", t[4:8])[0])
    out = {"byte_order": bo, "ifd0": ifd0, "exif": ifd(ifd0[0x8769])[0] if 0x8769 in ifd0 else {}}
    out["ifd1"] = ifd(next_off)[0] if next_off else {}
    if 0x0201 in out["ifd1"]:
        a = out["ifd1"][0x0201]
        out["thumbnail"] = t[a:a + out["ifd1"][0x0202]]
    return out
