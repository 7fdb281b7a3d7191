/*
 * The byte ranges a TIFF structure refers to.
 *
 * Editing a block without moving anything but the thumbnail needs to know
 * which bytes the other fields use: every IFD table (its entry count, 12
 * bytes per entry and the 4-byte link to the next IFD) and every value
 * longer than the 4 bytes of an entry's value field, which then holds the
 * value's TIFF offset. A value's length is its count times the size of its
 * type; values of types outside 1..13 are not measured (no reader can size
 * them either). The walk starts at IFD0 and follows the pointers to the Exif
 * sub-IFD, the GPS IFD and the interoperability IFD, so that the order in
 * which a camera or an editor wrote them does not matter. Each pointer is
 * followed once at most; a table or value that does not lie inside the
 * span makes the walk fail, so an edit never relies on a broken layout.
 */
#include <algorithm>

#include "imaging/exif/exif_internal.h"

namespace scrivo::exif {
namespace {

constexpr uint32_t kTagExifIfd = 0x8769;
constexpr uint32_t kTagGpsIfd = 0x8825;
constexpr uint32_t kTagInteropIfd = 0xA005;
constexpr uint32_t kTypeIfd = 13;
// IFD0 and its sub-IFDs; a block that points at more distinct tables than
// this is not one a camera wrote, and the walk gives up on it.
constexpr int kMaxIfds = 8;

// Bytes per value of each TIFF type; 0 for types this walk cannot size.
uint32_t TypeSize(uint32_t type) {
    static constexpr uint8_t kSizes[14] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};
    return type < 14 ? kSizes[type] : 0;
}

bool IsSubIfdPointer(uint32_t tag) {
    return tag == kTagExifIfd || tag == kTagGpsIfd || tag == kTagInteropIfd;
}

// A sub-IFD pointer: one LONG or IFD (type 13) value, or a SHORT.
bool ReadPointer(const Tiff& tiff, const Entry& e, uint32_t* offset) {
    if (e.count == 1 && e.type == kTypeIfd) return tiff.Get32(e.valuePos, offset);
    return ReadScalar(tiff, e, offset);
}

struct Walk {
    const Tiff& tiff;
    Extents* extents;
    uint32_t visited[kMaxIfds] = {};
    int visitedCount = 0;

    bool Visit(uint32_t offset, bool follow) {
        for (int i = 0; i < visitedCount; ++i)
            if (visited[i] == offset) return true;  // met before: already measured
        if (visitedCount == kMaxIfds) return false;
        visited[visitedCount++] = offset;
        Ifd ifd;
        if (!ReadIfd(tiff, offset, false, &ifd)) return false;
        const uint64_t table = 2 + uint64_t{12} * ifd.count;
        extents->Add(offset, table + (tiff.InBounds(offset + table, 4) ? 4 : 0));
        for (uint32_t i = 0; i < ifd.count; ++i) {
            Entry e;
            if (!ReadEntry(tiff, ifd, i, &e)) return false;
            const uint64_t bytes = uint64_t{TypeSize(e.type)} * e.count;
            if (bytes > 4) {
                uint32_t at = 0;
                if (!tiff.Get32(e.valuePos, &at) || at < 8 || !tiff.InBounds(at, bytes)) {
                    return false;
                }
                extents->Add(at, bytes);
            }
            uint32_t sub = 0;
            if (follow && IsSubIfdPointer(e.tag) && ReadPointer(tiff, e, &sub) &&
                !Visit(sub, true)) {
                return false;
            }
        }
        return true;
    }
};

}  // namespace

void Extents::Add(uint64_t start, uint64_t n) {
    end = std::max(end, start + n);
    if (start >= from) firstStart = std::min(firstStart, start);
    // With an empty probe this is a range that straddles `from`.
    if (start < from + size && start + n > from) overlaps = true;
}

bool AddIfdExtents(const Tiff& tiff, uint32_t offset, bool followSubIfds, Extents* extents) {
    Walk walk{tiff, extents};
    return walk.Visit(offset, followSubIfds);
}

}  // namespace scrivo::exif
