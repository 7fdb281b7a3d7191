/*
 * Bounded access to the TIFF structure of an EXIF block.
 *
 * The block is walked as JPEG marker segments (big-endian lengths, 0xFF fill
 * bytes and the length-less markers SOI, TEM and RSTn stepped over) until the
 * first APP1. Its TIFF header lies 10 bytes after the marker; every TIFF
 * offset counts from there, and the bytes that may be touched end where the
 * APP1 segment ends, or the buffer if that comes first. Values are read and
 * written in the header's byte order: "II" little-endian, anything else
 * big-endian.
 *
 * IFD tables are accepted only when their offset lies past the 8-byte header
 * and the whole table (count * 12 bytes, plus the 4-byte link when asked)
 * fits, checked in 64-bit arithmetic, so a count or offset from the data can
 * never lead outside the span. IFD1 must not be IFD0 again (a link that
 * points at its own table would otherwise make a loop).
 */
#include <algorithm>

#include "imaging/exif/exif_internal.h"

namespace scrivo::exif {

Found FindApp1(const uint8_t* block, size_t length, App1Location* where) {
    if (block == nullptr) return Found::kNone;
    size_t pos = 0;
    while (pos + 2 <= length) {
        if (block[pos] != 0xFF) return Found::kMalformed;
        const uint8_t marker = block[pos + 1];
        if (marker == 0xFF) {  // fill byte in front of a marker
            ++pos;
            continue;
        }
        if (marker == 0xD8 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {
            pos += 2;
            continue;
        }
        if (pos + 4 > length) return marker == 0xE1 ? Found::kMalformed : Found::kNone;
        const uint32_t len = Be16(block + pos + 2);
        if (len < 2) return Found::kMalformed;
        if (marker == 0xE1) {
            where->start = pos;
            where->end = pos + 2 + len;
            return Found::kYes;
        }
        pos += 2 + static_cast<size_t>(len);
    }
    return Found::kNone;
}

bool Tiff::Open(uint8_t* block, size_t length, const App1Location& app1) {
    const size_t spanEnd = std::min(app1.end, length);
    if (app1.start + 8 > spanEnd) return false;
    if (MMemCmp(block + app1.start + 4, "Exif", 4) != 0) return false;
    const size_t tiffStart = app1.start + 10;
    if (tiffStart + 8 > spanEnd) return false;
    base_ = block + tiffStart;
    size_ = spanEnd - tiffStart;
    offsetInBlock_ = tiffStart;
    little_ = base_[0] == 'I' && base_[1] == 'I';
    return true;
}

bool Tiff::Get16(uint64_t off, uint32_t* v) const {
    if (!InBounds(off, 2)) return false;
    const uint8_t* p = base_ + off;
    *v = little_ ? (p[0] | (static_cast<uint32_t>(p[1]) << 8))
                 : ((static_cast<uint32_t>(p[0]) << 8) | p[1]);
    return true;
}

bool Tiff::Get32(uint64_t off, uint32_t* v) const {
    if (!InBounds(off, 4)) return false;
    const uint8_t* p = base_ + off;
    if (little_) {
        *v = p[0] | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
             (static_cast<uint32_t>(p[3]) << 24);
    } else {
        *v = (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
             (static_cast<uint32_t>(p[2]) << 8) | p[3];
    }
    return true;
}

bool Tiff::Put16(uint64_t off, uint32_t v) {
    if (!InBounds(off, 2)) return false;
    uint8_t* p = base_ + off;
    const int hi = little_ ? 1 : 0;
    p[hi] = static_cast<uint8_t>(v >> 8);
    p[1 - hi] = static_cast<uint8_t>(v);
    return true;
}

bool Tiff::Put32(uint64_t off, uint32_t v) {
    if (!InBounds(off, 4)) return false;
    uint8_t* p = base_ + off;
    for (int i = 0; i < 4; ++i) {
        const int shift = little_ ? 8 * i : 8 * (3 - i);
        p[i] = static_cast<uint8_t>(v >> shift);
    }
    return true;
}

bool ReadIfd(const Tiff& tiff, uint32_t off, bool needLink, Ifd* ifd) {
    uint32_t count = 0;
    if (off < 8 || !tiff.Get16(off, &count)) return false;
    const uint64_t tableBytes = uint64_t{12} * count + (needLink ? 4 : 0);
    if (!tiff.InBounds(uint64_t{off} + 2, tableBytes)) return false;
    ifd->offset = off;
    ifd->count = count;
    return true;
}

bool ReadEntry(const Tiff& tiff, const Ifd& ifd, uint32_t i, Entry* e) {
    if (i >= ifd.count) return false;
    const uint64_t pos = ifd.Entry(i);
    if (!tiff.Get16(pos, &e->tag) || !tiff.Get16(pos + 2, &e->type) ||
        !tiff.Get32(pos + 4, &e->count) || !tiff.InBounds(pos + 8, 4)) {
        return false;
    }
    e->valuePos = pos + 8;
    return true;
}

namespace {
constexpr uint32_t kShort = 3;
constexpr uint32_t kLong = 4;
}  // namespace

bool ReadScalar(const Tiff& tiff, const Entry& e, uint32_t* value) {
    if (e.count != 1) return false;
    if (e.type == kShort) return tiff.Get16(e.valuePos, value);
    if (e.type == kLong) return tiff.Get32(e.valuePos, value);
    return false;
}

bool WriteScalar(Tiff& tiff, const Entry& e, uint32_t v) {
    if (e.count != 1 || (e.type != kShort && e.type != kLong)) return false;
    if (e.type == kShort && v <= 0xFFFF) {
        return tiff.Put16(e.valuePos, v) && tiff.Put16(e.valuePos + 2, 0);
    }
    // A LONG, or a SHORT that has outgrown 16 bits: one LONG fills the
    // 4-byte value field exactly, so the entry can change type in place.
    return tiff.Put16(e.valuePos - 6, kLong) && tiff.Put32(e.valuePos, v);
}

Found FindIfd1(const Tiff& tiff, Ifd* ifd1) {
    uint32_t ifd0Offset = 0;
    Ifd ifd0;
    if (!tiff.Get32(4, &ifd0Offset) || !ReadIfd(tiff, ifd0Offset, true, &ifd0)) {
        return Found::kMalformed;
    }
    uint32_t link = 0;
    if (!tiff.Get32(ifd0.LinkOffset(), &link)) return Found::kMalformed;
    if (link == 0) return Found::kNone;
    if (link == ifd0Offset || !ReadIfd(tiff, link, false, ifd1)) return Found::kMalformed;
    return Found::kYes;
}

MRESULT SeekTo(MHStream s, int64_t pos) {
    if (pos < 0 || pos > INT32_MAX) return MERR_SEEK_FAILED;
    if (MStreamSeek(s, MSTREAM_SEEK_BEGIN, static_cast<int32_t>(pos)) != MOK) {
        return MERR_SEEK_FAILED;
    }
    return MStreamTell(s) == pos ? MOK : MERR_SEEK_FAILED;
}

MRESULT ReadAt(MHStream s, int64_t pos, void* buf, int32_t n) {
    const int32_t size = MStreamGetSize(s);
    if (size < 0 || pos < 0 || n < 0 || pos + n > size) return MERR_STREAM_SHORT;
    const MRESULT r = SeekTo(s, pos);
    if (r != MOK) return r;
    return MStreamRead(s, buf, n) == n ? MOK : MERR_STREAM_SHORT;
}

MRESULT WriteAt(MHStream s, int64_t pos, const void* buf, int32_t n) {
    const MRESULT r = SeekTo(s, pos);
    if (r != MOK) return r;
    return MStreamWrite(s, buf, n) == n ? MOK : MERR_WRITE_FAILED;
}

}  // namespace scrivo::exif
