/*
 * The IFD1 thumbnail: copying it out and replacing it.
 *
 * Both start like this: the first APP1 segment of the block, its "Exif"
 * identifier and TIFF header, IFD0's table and its link to IFD1, then IFD1's
 * entries: 0x0201 (JPEGInterchangeFormat) is the thumbnail's TIFF offset and
 * 0x0202 (JPEGInterchangeFormatLength) its length. No APP1, no IFD1, an empty
 * IFD1 or no 0x0201 entry means there is nothing to do (result 0).
 *
 * Replacement builds a new buffer: the bytes up to the old thumbnail's start,
 * the new thumbnail, then everything after the old APP1 segment. Whatever
 * stood in the segment behind the old thumbnail is dropped; cameras put the
 * thumbnail last. The APP1 length field becomes (bytes from the marker to the
 * thumbnail) + new length - 2, of which only the low 16 bits fit; callers keep
 * the thumbnail small enough. The whole layout is checked before anything is
 * written, so a refused block (result 3) is left exactly as it was: the APP1
 * segment must lie inside the buffer and the thumbnail must start behind
 * IFD1's own table, inside the segment. A 0x0202 entry that is not a SHORT or
 * LONG with count 1 is rewritten as one LONG, so the new length always reads
 * back correctly. Without a 0x0201 entry the 0x0202 length is still patched.
 */
#include "imaging/exif/exif_internal.h"

namespace scrivo::exif {
namespace {

constexpr uint32_t kTagThumbStart = 0x0201;
constexpr uint32_t kTagThumbLength = 0x0202;

struct ThumbFields {
    bool hasStart = false;
    uint32_t start = 0;
    bool hasLength = false;
    Entry lengthEntry;
};

// Locates the block's thumbnail fields. MOK with *present false when there
// is nothing to look at; 3 for a malformed layout.
MRESULT LocateThumbnail(uint8_t* block, size_t length, App1Location* app1, Tiff* tiff, Ifd* ifd1,
                        ThumbFields* fields, bool* present) {
    *present = false;
    const Found app = FindApp1(block, length, app1);
    if (app == Found::kNone) return MOK;
    if (app == Found::kMalformed || !tiff->Open(block, length, *app1)) return MERR_UNSUPPORTED;
    const Found found = FindIfd1(*tiff, ifd1);
    if (found == Found::kNone) return MOK;
    if (found == Found::kMalformed) return MERR_UNSUPPORTED;
    for (uint32_t i = 0; i < ifd1->count; ++i) {
        Entry e;
        if (!ReadEntry(*tiff, *ifd1, i, &e)) return MERR_UNSUPPORTED;
        if (e.tag == kTagThumbStart && !fields->hasStart) {
            if (!ReadScalar(*tiff, e, &fields->start)) return MERR_UNSUPPORTED;
            fields->hasStart = true;
        } else if (e.tag == kTagThumbLength && !fields->hasLength) {
            fields->lengthEntry = e;
            fields->hasLength = true;
        }
    }
    *present = ifd1->count > 0;
    return MOK;
}

void WriteLength(Tiff& tiff, const Entry& e, uint32_t value) {
    if (WriteScalar(tiff, e, value)) return;
    const uint64_t entryPos = e.valuePos - 8;
    tiff.Put16(entryPos + 2, 4);
    tiff.Put32(entryPos + 4, 1);
    tiff.Put32(e.valuePos, value);
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
    App1Location app1;
    Tiff tiff;
    Ifd ifd1;
    ThumbFields fields;
    bool present = false;
    // Only read through the span here; the cast is for the shared locator.
    const MRESULT r = LocateThumbnail(const_cast<uint8_t*>(block), length, &app1, &tiff, &ifd1,
                                      &fields, &present);
    if (r != MOK || !present || !fields.hasStart || !fields.hasLength) return r;
    uint32_t size = 0;
    if (!ReadScalar(tiff, fields.lengthEntry, &size)) return MERR_UNSUPPORTED;
    if (fields.start < 8 || !tiff.InBounds(fields.start, size)) return MERR_UNSUPPORTED;
    if (size == 0) return MOK;
    auto* copy = static_cast<uint8_t*>(MMemAlloc(nullptr, size));
    if (copy == nullptr) return MERR_NO_MEMORY;
    MMemCpy(copy, tiff.base() + fields.start, size);
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
    uint8_t* old = *block;
    const size_t oldLength = *length;
    App1Location app1;
    Tiff tiff;
    Ifd ifd1;
    ThumbFields fields;
    bool present = false;
    const MRESULT r = LocateThumbnail(old, oldLength, &app1, &tiff, &ifd1, &fields, &present);
    if (r != MOK || !present) return r;
    if (!fields.hasStart) {
        if (fields.hasLength) WriteLength(tiff, fields.lengthEntry, thumbnailLength);
        return MOK;
    }
    // The thumbnail must sit behind IFD1's table and inside the segment, and
    // the segment inside the buffer, before anything is cut or patched.
    if (app1.end > oldLength || fields.start < ifd1.Entry(ifd1.count) ||
        fields.start > tiff.size()) {
        return MERR_UNSUPPORTED;
    }
    const uint64_t prefix = uint64_t{tiff.offsetInBlock()} + fields.start;
    const uint64_t tail = oldLength - app1.end;
    const uint64_t newLength = prefix + thumbnailLength + tail;
    if (newLength > UINT32_MAX || newLength > SIZE_MAX) return MERR_NO_MEMORY;
    auto* fresh = static_cast<uint8_t*>(MMemAlloc(nullptr, static_cast<size_t>(newLength)));
    if (fresh == nullptr) return MERR_NO_MEMORY;

    if (fields.hasLength) WriteLength(tiff, fields.lengthEntry, thumbnailLength);
    MMemCpy(fresh, old, static_cast<size_t>(prefix));
    if (thumbnailLength > 0) MMemCpy(fresh + prefix, thumbnail, thumbnailLength);
    if (tail > 0) MMemCpy(fresh + prefix + thumbnailLength, old + app1.end, tail);
    const uint32_t segmentLength =
        static_cast<uint32_t>(prefix - app1.start + thumbnailLength - 2) & 0xFFFF;
    fresh[app1.start + 2] = static_cast<uint8_t>(segmentLength >> 8);
    fresh[app1.start + 3] = static_cast<uint8_t>(segmentLength);

    MMemFree(nullptr, old);
    *block = fresh;
    *length = static_cast<uint32_t>(newLength);
    return MOK;
}
