/*
 * Putting an EXIF block into a JPEG in a read-write stream, in place.
 *
 * 1. The file must start with SOI (else 3).
 * 2. The region to replace: walking the segments after SOI, each APPn
 *    (0xE0..0xEF) or COM (0xFE) segment joins the region; an APP1 whose
 *    payload starts with "Exif" and two zero bytes restarts the region at
 *    its own start. The region thus covers the old EXIF segment and the
 *    application and comment segments after it, or, without EXIF, all of
 *    them after SOI (it starts at offset 2). The walk stops at the first
 *    other marker (normally DQT) or at a byte that is not a marker: the
 *    region is always one contiguous run of application segments, so it can
 *    never swallow a table or frame header that happens to stand between
 *    them. Segment lengths below 2 or past the end of the file give 3.
 * 3. The frame header (SOF0..3, 5..7, 9..11, 13..15) is found by skipping
 *    segments by their lengths; SOS or EOI first gives 3. Its height and
 *    width go into the block through MeReplaceImageSize (a malformed block
 *    is refused there with 3 before anything is written).
 * 4. A block longer than the region: the file grows by the difference at
 *    its end, the bytes behind the region move back by the difference
 *    (copied from the end backwards through a 64 KiB buffer, so nothing is
 *    overwritten before it is moved), and the block is written at the
 *    region's start.
 * 5. Otherwise the file keeps its length: for a region under 65536 bytes the
 *    block's APP1 length field is set so that the segment reaches the
 *    region's end (a block without APP1 is then not written at all, result
 *    0); the block is written and the rest of the region filled with 0xFF,
 *    which becomes padding inside the APP1 segment.
 *
 * Stream results: 4101 seek, 4102 short read, 4103 short write. The stream's
 * position is put back on every exit.
 */
#include <algorithm>
#include <new>
#include <vector>

#include "imaging/exif/exif_internal.h"

using namespace scrivo::exif;

namespace {

constexpr int32_t kTransferSize = 65536;

bool IsAppOrComment(uint8_t m) {
    return (m >= 0xE0 && m <= 0xEF) || m == 0xFE;
}

bool IsFrameHeader(uint8_t m) {
    return m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC;
}

struct Region {
    int64_t start = 2;
    int64_t end = 2;
};

MRESULT FindRegion(MHStream s, int64_t size, Region* region) {
    int64_t pos = 2;
    uint8_t two[2];
    while (pos + 2 <= size) {
        MRESULT r = ReadAt(s, pos, two, 2);
        if (r != MOK) return r;
        if (two[0] != 0xFF) break;
        if (two[1] == 0xFF) {
            ++pos;
            continue;
        }
        if (!IsAppOrComment(two[1])) break;
        if ((r = ReadAt(s, pos + 2, two + 0, 2)) != MOK) return r;
        const uint32_t len = Be16(two);
        const int64_t end = pos + 2 + len;
        if (len < 2 || end > size) return MERR_UNSUPPORTED;
        uint8_t id[6] = {0};
        if (len >= 8 && (r = ReadAt(s, pos + 4, id, 6)) != MOK) return r;
        if (len >= 8 && MMemCmp(id, "Exif\0\0", 6) == 0) region->start = pos;
        region->end = end;
        pos = end;
    }
    return MOK;
}

MRESULT FindFrameSize(MHStream s, uint32_t* width, uint32_t* height) {
    int64_t pos = 2;
    uint8_t two[2];
    for (;;) {
        MRESULT r = ReadAt(s, pos, two, 2);
        if (r != MOK) return r;
        if (two[0] != 0xFF) return MERR_UNSUPPORTED;
        const uint8_t m = two[1];
        if (m == 0xFF) {
            ++pos;
            continue;
        }
        if (m == 0xDA || m == 0xD9) return MERR_UNSUPPORTED;
        if (m == 0x01 || (m >= 0xD0 && m <= 0xD8)) {
            pos += 2;
            continue;
        }
        if ((r = ReadAt(s, pos + 2, two, 2)) != MOK) return r;
        const uint32_t len = Be16(two);
        if (len < 2) return MERR_UNSUPPORTED;
        if (IsFrameHeader(m)) {
            uint8_t f[5];
            if (len < 7) return MERR_UNSUPPORTED;
            if ((r = ReadAt(s, pos + 4, f, 5)) != MOK) return r;
            *height = Be16(f + 1);
            *width = Be16(f + 3);
            return MOK;
        }
        pos += 2 + len;
    }
}

MRESULT Fill(MHStream s, int64_t pos, int64_t n, uint8_t value, std::vector<uint8_t>& buf) {
    std::fill(buf.begin(), buf.end(), value);
    while (n > 0) {
        const int32_t k = static_cast<int32_t>(std::min<int64_t>(n, kTransferSize));
        const MRESULT r = WriteAt(s, pos, buf.data(), k);
        if (r != MOK) return r;
        pos += k;
        n -= k;
    }
    return MOK;
}

// Moves [from, size) to [from + diff, size + diff), last chunk first.
MRESULT MoveTail(MHStream s, int64_t from, int64_t size, int64_t diff, std::vector<uint8_t>& buf) {
    int64_t end = size;
    while (end > from) {
        const int32_t k = static_cast<int32_t>(std::min<int64_t>(end - from, kTransferSize));
        MRESULT r = ReadAt(s, end - k, buf.data(), k);
        if (r == MOK) r = WriteAt(s, end - k + diff, buf.data(), k);
        if (r != MOK) return r;
        end -= k;
    }
    return MOK;
}

MRESULT Insert(MHStream s, uint8_t* block, uint32_t length) {
    const int32_t size = MStreamGetSize(s);
    if (size < 0) return MERR_STREAM_SHORT;
    uint8_t soi[2];
    MRESULT r = ReadAt(s, 0, soi, 2);
    if (r != MOK) return r;
    if (soi[0] != 0xFF || soi[1] != 0xD8) return MERR_UNSUPPORTED;
    Region region;
    if ((r = FindRegion(s, size, &region)) != MOK) return r;
    uint32_t width = 0;
    uint32_t height = 0;
    if ((r = FindFrameSize(s, &width, &height)) != MOK) return r;
    if ((r = MeReplaceImageSize(block, length, width, height)) != MOK) return r;

    std::vector<uint8_t> buf;
    try {
        buf.resize(kTransferSize);
    } catch (const std::bad_alloc&) {
        return MERR_NO_MEMORY;
    }
    const int64_t regionSize = region.end - region.start;
    if (length > regionSize) {
        const int64_t diff = length - regionSize;
        if (size + diff > INT32_MAX) return MERR_WRITE_FAILED;
        if ((r = Fill(s, size, diff, 0, buf)) != MOK) return r;
        if ((r = MoveTail(s, region.end, size, diff, buf)) != MOK) return r;
        return WriteAt(s, region.start, block, static_cast<int32_t>(length));
    }
    if (regionSize < 65536) {
        App1Location app1;
        if (FindApp1(block, length, &app1) != Found::kYes) return MOK;  // nothing written
        const int64_t segment = regionSize - 2 - static_cast<int64_t>(app1.start);
        block[app1.start + 2] = static_cast<uint8_t>(segment >> 8);
        block[app1.start + 3] = static_cast<uint8_t>(segment);
    }
    if (length > 0 && (r = WriteAt(s, region.start, block, static_cast<int32_t>(length))) != MOK) {
        return r;
    }
    return Fill(s, region.start + length, regionSize - length, 0xFF, buf);
}

}  // namespace

MRESULT MeAddExifToJpegFile(MHStream stream, uint8_t* block, uint32_t length) {
    if (stream == nullptr || block == nullptr || length > INT32_MAX) return MERR_INVALID_PARAM;
    const int32_t start = MStreamTell(stream);
    if (start < 0) return MERR_SEEK_FAILED;
    PositionGuard guard(stream, start);
    return Insert(stream, block, length);
}

MRESULT MExif_AddExifToJpegFile(MHStream stream, uint8_t* block, uint32_t length) {
    return MeAddExifToJpegFile(stream, block, length);
}
