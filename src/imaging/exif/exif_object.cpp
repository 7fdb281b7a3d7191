/*
 * The EXIF reader object: finds and keeps the raw EXIF block of a JPEG.
 *
 * InitFromStream walks the JPEG's marker segments from the stream's start
 * (SOI first, else 3): 0xFF fill bytes and the length-less markers TEM and
 * RSTn are stepped over, every other segment is skipped by its big-endian
 * length, which must be at least 2 (else 3) and must not run past the
 * stream's end (4102). The first APP1 whose payload starts with "Exif" and
 * two zero bytes is copied whole, marker included; SOS or EOI ends the walk
 * without one, which is not an error (the reader stays empty). Every step
 * moves forward by at least two bytes, so the walk ends on any input. The
 * stream's position is put back afterwards, whatever the result.
 *
 * Lock hands out the kept bytes (null, 0 when there are none); they stay
 * the reader's. Failures are reported by result code alone: the caller
 * logs its own line for each.
 */
#include <new>
#include <vector>

#include "imaging/exif/exif_internal.h"

struct MExifObject {
    MHandle memory = nullptr;
    std::vector<uint8_t> block;
    bool locked = false;
};

using namespace scrivo::exif;

namespace {

bool IsStandalone(uint8_t marker) {
    return marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7);
}

MRESULT ReadExifSegment(MHStream stream, std::vector<uint8_t>* out) {
    const int32_t size = MStreamGetSize(stream);
    if (size < 0) return MERR_STREAM_SHORT;
    uint8_t two[2];
    MRESULT r = ReadAt(stream, 0, two, 2);
    if (r != MOK) return r;
    if (two[0] != 0xFF || two[1] != 0xD8) return MERR_UNSUPPORTED;
    int64_t pos = 2;
    for (;;) {
        if ((r = ReadAt(stream, pos, two, 2)) != MOK) return r;
        if (two[0] != 0xFF) return MERR_UNSUPPORTED;
        const uint8_t marker = two[1];
        if (marker == 0xFF) {
            ++pos;
            continue;
        }
        if (marker == 0xDA || marker == 0xD9) return MOK;  // no EXIF before the scan
        if (IsStandalone(marker)) {
            pos += 2;
            continue;
        }
        if ((r = ReadAt(stream, pos + 2, two, 2)) != MOK) return r;
        const uint32_t len = Be16(two);
        if (len < 2) return MERR_UNSUPPORTED;
        const int64_t end = pos + 2 + len;
        if (end > size) return MERR_STREAM_SHORT;
        if (marker == 0xE1 && len >= 8) {
            uint8_t id[6];
            if ((r = ReadAt(stream, pos + 4, id, 6)) != MOK) return r;
            if (MMemCmp(id, "Exif\0\0", 6) == 0) {
                try {
                    out->resize(static_cast<size_t>(end - pos));
                } catch (const std::bad_alloc&) {
                    return MERR_NO_MEMORY;
                }
                return ReadAt(stream, pos, out->data(), static_cast<int32_t>(out->size()));
            }
        }
        pos = end;
    }
}

}  // namespace

MRESULT MExif_Create(MHandle handle, MHExif* exif) {
    if (exif == nullptr) return MERR_INVALID_PARAM;
    *exif = new (std::nothrow) MExifObject;
    if (*exif == nullptr) return MERR_NO_MEMORY;
    (*exif)->memory = handle;
    return MOK;
}

MRESULT MExif_Destroy(MHExif exif) {
    if (exif == nullptr) return MERR_INVALID_PARAM;
    delete exif;
    return MOK;
}

MRESULT MExif_InitFromStream(MHExif exif, MHStream stream) {
    MRESULT r = MERR_INVALID_PARAM;
    if (exif != nullptr && stream != nullptr) {
        const int32_t start = MStreamTell(stream);
        if (start < 0) {
            r = MERR_SEEK_FAILED;
        } else {
            PositionGuard guard(stream, start);
            std::vector<uint8_t> block;
            r = ReadExifSegment(stream, &block);
            if (r == MOK) exif->block.swap(block);
        }
    }
    return r;
}

MRESULT MExif_LockExifData(MHExif exif, uint8_t** data, uint32_t* length) {
    if (exif == nullptr || data == nullptr || length == nullptr) return MERR_INVALID_PARAM;
    if (exif->locked) return MERR_UNKNOWN;
    exif->locked = true;
    *data = exif->block.empty() ? nullptr : exif->block.data();
    *length = static_cast<uint32_t>(exif->block.size());
    return MOK;
}

MRESULT MExif_UnLockExifData(MHExif exif) {
    if (exif == nullptr) return MERR_INVALID_PARAM;
    exif->locked = false;
    return MOK;
}
