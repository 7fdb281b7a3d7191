/*
 * The IFD1 thumbnail: copying it out, replacing it and removing it.
 *
 * All three start alike: the first APP1 segment of the block, its "Exif"
 * identifier and TIFF header, IFD0's table and its link to IFD1, then IFD1's
 * entries: 0x0201 (JPEGInterchangeFormat) is the thumbnail's TIFF offset and
 * 0x0202 (JPEGInterchangeFormatLength) its length. No APP1 or no IFD1 means
 * there is nothing to do (result 0).
 *
 * The edits move nothing but the thumbnail, so every other offset in the
 * block (IFDs, values, a maker note's own pointers) stays true whatever the
 * order in which the camera wrote them. Before anything is written the
 * ranges the other fields use are measured (tiff_extents.cpp); a block whose
 * tables or values do not lie inside the segment, or whose thumbnail shares
 * bytes with them, is refused with 3 and left exactly as it was.
 *
 * Replacement, by where the old thumbnail lies:
 *  - behind everything else (the usual camera layout): the segment is cut at
 *    its start and the new one appended, so the block shrinks or grows by
 *    the difference; whatever unreferenced bytes followed it are dropped;
 *  - in front of other fields, and the new one fits the room up to the next
 *    of them: written in place, the rest of the old one zeroed, the block's
 *    length unchanged;
 *  - in front of other fields and too long for that room: appended behind
 *    the segment's last byte (at an even offset), the old one zeroed and
 *    0x0201 pointed at the new place.
 * The APP1 length field must hold the new segment length: a block whose
 * segment would pass 65535 bytes is refused (3). A 0x0202 entry that is not
 * a SHORT or LONG with count 1 is rewritten as one LONG, so the new length
 * reads back correctly. Without a 0x0201 entry only the 0x0202 length is
 * patched.
 *
 * Removal unlinks IFD1 from IFD0 (a link of 0), so no reader looks for a
 * thumbnail. When IFD1's table, its values and the thumbnail lie behind
 * everything else the segment is cut where the first of them starts;
 * otherwise they stay as unreferenced bytes, the thumbnail zeroed.
 */
#include <algorithm>

#include "imaging/exif/exif_internal.h"

namespace scrivo::exif {
namespace {

constexpr uint32_t kTagThumbStart = 0x0201;
constexpr uint32_t kTagThumbLength = 0x0202;

struct ThumbFields {
    bool hasStart = false;
    uint32_t start = 0;
    Entry startEntry;
    bool hasLength = false;
    Entry lengthEntry;
};

// The parts of a block the thumbnail edits look at.
struct Located {
    App1Location app1;
    Tiff tiff;
    uint32_t ifd0Offset = 0;
    Ifd ifd1;
    ThumbFields fields;
    bool hasIfd1 = false;
};

// Locates the block's thumbnail fields. MOK with hasIfd1 false when there is
// nothing to look at; 3 for a malformed layout.
MRESULT Locate(uint8_t* block, size_t length, Located* at) {
    const Found app = FindApp1(block, length, &at->app1);
    if (app == Found::kNone) return MOK;
    if (app == Found::kMalformed || !at->tiff.Open(block, length, at->app1)) {
        return MERR_UNSUPPORTED;
    }
    const Found found = FindIfd1(at->tiff, &at->ifd1);
    if (found == Found::kNone) return MOK;
    if (found == Found::kMalformed || !at->tiff.Get32(4, &at->ifd0Offset)) {
        return MERR_UNSUPPORTED;
    }
    ThumbFields& f = at->fields;
    for (uint32_t i = 0; i < at->ifd1.count; ++i) {
        Entry e;
        if (!ReadEntry(at->tiff, at->ifd1, i, &e)) return MERR_UNSUPPORTED;
        if (e.tag == kTagThumbStart && !f.hasStart) {
            if (!ReadScalar(at->tiff, e, &f.start)) return MERR_UNSUPPORTED;
            f.startEntry = e;
            f.hasStart = true;
        } else if (e.tag == kTagThumbLength && !f.hasLength) {
            f.lengthEntry = e;
            f.hasLength = true;
        }
    }
    at->hasIfd1 = true;
    return MOK;
}

// The old thumbnail's length when its 0x0202 entry can be read.
bool OldLength(const Located& at, uint32_t* n) {
    return at.fields.hasLength && ReadScalar(at.tiff, at.fields.lengthEntry, n);
}

void WriteLength(Tiff& tiff, const Entry& e, uint32_t value) {
    if (WriteScalar(tiff, e, value)) return;
    const uint64_t entryPos = e.valuePos - 8;
    tiff.Put16(entryPos + 2, 4);
    tiff.Put32(entryPos + 4, 1);
    tiff.Put32(e.valuePos, value);
}

// The rebuilt block and a TIFF view of it.
struct Rebuilt {
    uint8_t* data = nullptr;
    uint32_t length = 0;
    Tiff tiff;
};

// A new block holding the old one's bytes up to TIFF offset `keep`, zeros up
// to `tiffSize`, then whatever followed the APP1 segment; its APP1 length
// field covers the new TIFF size. 3 when that passes 65535, 4 when memory
// runs out; the old block is never touched.
MRESULT Rebuild(const uint8_t* old, size_t oldLength, const Located& at, uint64_t keep,
                uint64_t tiffSize, Rebuilt* out) {
    const uint64_t tiffStart = at.tiff.offsetInBlock();
    const uint64_t segment = tiffStart - at.app1.start - 2 + tiffSize;
    if (segment > 0xFFFF) return MERR_UNSUPPORTED;
    const uint64_t tail = oldLength - at.app1.end;
    const uint64_t newLength = tiffStart + tiffSize + tail;
    if (newLength > UINT32_MAX || newLength > SIZE_MAX) return MERR_NO_MEMORY;
    auto* fresh = static_cast<uint8_t*>(MMemAlloc(nullptr, static_cast<size_t>(newLength)));
    if (fresh == nullptr) return MERR_NO_MEMORY;
    MMemCpy(fresh, old, static_cast<size_t>(tiffStart + keep));
    MMemSet(fresh + tiffStart + keep, 0, static_cast<size_t>(tiffSize - keep));
    if (tail > 0) MMemCpy(fresh + tiffStart + tiffSize, old + at.app1.end, tail);
    fresh[at.app1.start + 2] = static_cast<uint8_t>(segment >> 8);
    fresh[at.app1.start + 3] = static_cast<uint8_t>(segment);
    out->data = fresh;
    out->length = static_cast<uint32_t>(newLength);
    App1Location app1{at.app1.start, static_cast<size_t>(at.app1.start + 2 + segment)};
    out->tiff.Open(fresh, out->length, app1);
    return MOK;
}

void Zero(Tiff& tiff, uint64_t from, uint64_t to) {
    if (to > tiff.size()) to = tiff.size();
    if (from < to) MMemSet(tiff.base() + from, 0, static_cast<size_t>(to - from));
}

void HandOver(uint8_t** block, uint32_t* length, const Rebuilt& fresh) {
    MMemFree(nullptr, *block);
    *block = fresh.data;
    *length = fresh.length;
}

}  // namespace
}  // namespace scrivo::exif

using namespace scrivo::exif;

void MeFreeExifData(uint8_t* block) {
    MMemFree(nullptr, block);
}

void MeFreeThumbnailData(uint8_t* thumbnail) {
    MMemFree(nullptr, thumbnail);
}

MRESULT MeGetThumbnailData(const uint8_t* block, uint32_t length, uint8_t** thumbnail,
                           uint32_t* thumbnailLength) {
    if (block == nullptr || thumbnail == nullptr || thumbnailLength == nullptr) {
        return MERR_INVALID_PARAM;
    }
    *thumbnail = nullptr;
    *thumbnailLength = 0;
    Located at;
    // Only read through the span here; the cast is for the shared locator.
    const MRESULT r = Locate(const_cast<uint8_t*>(block), length, &at);
    if (r != MOK || !at.hasIfd1 || !at.fields.hasStart || !at.fields.hasLength) return r;
    uint32_t size = 0;
    if (!OldLength(at, &size)) return MERR_UNSUPPORTED;
    if (at.fields.start < 8 || !at.tiff.InBounds(at.fields.start, size)) return MERR_UNSUPPORTED;
    if (size == 0) return MOK;
    auto* copy = static_cast<uint8_t*>(MMemAlloc(nullptr, size));
    if (copy == nullptr) return MERR_NO_MEMORY;
    MMemCpy(copy, at.tiff.base() + at.fields.start, size);
    *thumbnail = copy;
    *thumbnailLength = size;
    return MOK;
}

MRESULT MeReplaceThumbnailInExif(uint8_t** block, uint32_t* length, const uint8_t* thumbnail,
                                 uint32_t thumbnailLength) {
    if (block == nullptr || length == nullptr || *block == nullptr ||
        (thumbnail == nullptr && thumbnailLength != 0)) {
        return MERR_INVALID_PARAM;
    }
    Located at;
    const MRESULT r = Locate(*block, *length, &at);
    if (r != MOK || !at.hasIfd1 || at.ifd1.count == 0) return r;
    if (!at.fields.hasStart) {
        if (at.fields.hasLength) WriteLength(at.tiff, at.fields.lengthEntry, thumbnailLength);
        return MOK;
    }
    const uint64_t start = at.fields.start;
    const uint64_t size = at.tiff.size();
    if (at.app1.end > *length || start < 8 || start > size) return MERR_UNSUPPORTED;
    uint32_t oldLength = 0;
    const bool knownLength = OldLength(at, &oldLength);
    Extents ext;
    ext.from = start;
    ext.size = std::min<uint64_t>(oldLength, size - start);
    if (!AddIfdExtents(at.tiff, at.ifd0Offset, true, &ext) ||
        !AddIfdExtents(at.tiff, at.ifd1.offset, false, &ext) || ext.overlaps) {
        return MERR_UNSUPPORTED;
    }
    uint64_t keep = start;  // the thumbnail is the last thing: cut there
    uint64_t place = start;
    if (ext.firstStart != UINT64_MAX) {
        if (!knownLength) return MERR_UNSUPPORTED;  // its bytes cannot be told apart
        keep = size;
        if (thumbnailLength > ext.firstStart - start) place = size + (size & 1);
    }
    Rebuilt fresh;
    const MRESULT built =
        Rebuild(*block, *length, at, keep, std::max(keep, place + thumbnailLength), &fresh);
    if (built != MOK) return built;
    Tiff& t = fresh.tiff;
    if (thumbnailLength > 0) MMemCpy(t.base() + place, thumbnail, thumbnailLength);
    if (keep != start) Zero(t, place == start ? start + thumbnailLength : start, start + ext.size);
    if (at.fields.hasLength) WriteLength(t, at.fields.lengthEntry, thumbnailLength);
    if (place != start) WriteScalar(t, at.fields.startEntry, static_cast<uint32_t>(place));
    HandOver(block, length, fresh);
    return MOK;
}

MRESULT MeRemoveThumbnailFromExif(uint8_t** block, uint32_t* length) {
    if (block == nullptr || length == nullptr || *block == nullptr) return MERR_INVALID_PARAM;
    Located at;
    const MRESULT r = Locate(*block, *length, &at);
    if (r != MOK || !at.hasIfd1) return r;
    const uint64_t size = at.tiff.size();
    if (at.app1.end > *length) return MERR_UNSUPPORTED;
    // The thumbnail's bytes, when they can be told: [start, start + n).
    uint32_t n = 0;
    const bool knownThumb = at.fields.hasStart && OldLength(at, &n) && at.fields.start >= 8 &&
                            at.tiff.InBounds(at.fields.start, n);
    Extents main;
    main.from = knownThumb ? at.fields.start : size;
    main.size = knownThumb ? n : 0;
    Extents own;  // IFD1's table and values
    if (!AddIfdExtents(at.tiff, at.ifd0Offset, true, &main) ||
        !AddIfdExtents(at.tiff, at.ifd1.offset, false, &own)) {
        return MERR_UNSUPPORTED;
    }
    uint64_t cut = own.firstStart;
    if (at.fields.hasStart) cut = std::min<uint64_t>(cut, at.fields.start);
    const bool behind = cut >= main.end && cut <= size;
    Rebuilt fresh;
    const MRESULT built =
        Rebuild(*block, *length, at, behind ? cut : size, behind ? cut : size, &fresh);
    if (built != MOK) return built;
    Ifd ifd0;
    ReadIfd(fresh.tiff, at.ifd0Offset, true, &ifd0);  // read before: inside `main`
    fresh.tiff.Put32(ifd0.LinkOffset(), 0);
    if (!behind && knownThumb && !main.overlaps) {
        Zero(fresh.tiff, at.fields.start, uint64_t{at.fields.start} + n);
    }
    HandOver(block, length, fresh);
    return MOK;
}
