/*
 * Internal helpers of the EXIF module: checked access to a TIFF structure
 * inside a bounded byte span, the APP1 segment walk, IFD tables, and
 * checked stream transfers.
 *
 * Every read or write goes through a function that checks the offset and
 * size against the span's end in 64-bit arithmetic first, so no offset,
 * count or count*size taken from the data can reach outside the span.
 */
#ifndef SCRIVO_IMAGING_EXIF_INTERNAL_H
#define SCRIVO_IMAGING_EXIF_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include "scrivo/exif.h"

namespace scrivo::exif {

// Big-endian 16-bit read of JPEG marker lengths; the caller checks bounds.
inline uint32_t Be16(const uint8_t* p) {
    return (static_cast<uint32_t>(p[0]) << 8) | p[1];
}

// Where the first APP1 segment of a block lies: [start, end) with end the
// end its length field claims (it may exceed the block, see SegmentEnd).
struct App1Location {
    size_t start = 0;
    size_t end = 0;
};

enum class Found { kYes, kNone, kMalformed };

// Walks the block's marker segments from its start by their lengths until an
// APP1 (0xFF 0xE1). kNone when the walk runs off the end, kMalformed for a
// segment that does not begin with 0xFF or has a length below 2.
Found FindApp1(const uint8_t* block, size_t length, App1Location* where);

// A TIFF structure: base is its header's first byte, size the bytes that
// may be touched from there (clipped to the APP1 segment and the buffer).
class Tiff {
  public:
    // Checks "Exif" at the APP1 payload and reads the byte order. Needs at
    // least the 8-byte TIFF header inside the span; false otherwise.
    bool Open(uint8_t* block, size_t length, const App1Location& app1);

    bool Get16(uint64_t off, uint32_t* v) const;
    bool Get32(uint64_t off, uint32_t* v) const;
    bool Put16(uint64_t off, uint32_t v);
    bool Put32(uint64_t off, uint32_t v);
    bool InBounds(uint64_t off, uint64_t n) const { return off <= size_ && n <= size_ - off; }

    uint8_t* base() const { return base_; }
    size_t size() const { return size_; }
    size_t offsetInBlock() const { return offsetInBlock_; }

  private:
    uint8_t* base_ = nullptr;
    size_t size_ = 0;
    size_t offsetInBlock_ = 0;
    bool little_ = false;
};

// One IFD's table: the entry count and where its entries start.
struct Ifd {
    uint32_t offset = 0;
    uint32_t count = 0;
    uint64_t Entry(uint32_t i) const { return uint64_t{offset} + 2 + uint64_t{12} * i; }
    uint64_t LinkOffset() const { return Entry(count); }
};

// Reads the table at TIFF offset off. Refuses offsets into the 8-byte header
// and tables (with their 4-byte link when needLink) that pass the end.
bool ReadIfd(const Tiff& tiff, uint32_t off, bool needLink, Ifd* ifd);

// Entry fields.
struct Entry {
    uint32_t tag = 0;
    uint32_t type = 0;
    uint32_t count = 0;
    uint64_t valuePos = 0;  // TIFF offset of the 4-byte value field
};
bool ReadEntry(const Tiff& tiff, const Ifd& ifd, uint32_t i, Entry* e);

// The value of a SHORT or LONG entry with count 1; false for anything else.
bool ReadScalar(const Tiff& tiff, const Entry& e, uint32_t* value);
// Writes v into a SHORT or LONG entry with count 1, turning a SHORT into a
// LONG when v does not fit 16 bits; false (nothing written) for others.
bool WriteScalar(Tiff& tiff, const Entry& e, uint32_t v);

// IFD1's table of a TIFF structure: kNone without IFD1 (zero link),
// kMalformed when IFD0 or the link cannot be read or points back at IFD0.
Found FindIfd1(const Tiff& tiff, Ifd* ifd1);

// What a walk over the ranges a TIFF structure refers to found, measured
// against one probe range [from, from + size) (the thumbnail, usually).
struct Extents {
    uint64_t from = 0;
    uint64_t size = 0;
    uint64_t end = 8;                  // end of the farthest range (the header at least)
    uint64_t firstStart = UINT64_MAX;  // first range starting at or behind `from`
    bool overlaps = false;             // a range shares bytes with the probe or straddles `from`

    void Add(uint64_t start, uint64_t n);
};

// Adds the table at TIFF offset `offset` (entries and 4-byte link) and the
// values that do not fit an entry's 4-byte field to *extents. With
// followSubIfds the Exif sub-IFD (0x8769), the GPS IFD (0x8825) and the
// interoperability IFD (0xA005) it points at are added too, each once. The
// thumbnail IFD1 points at is a plain offset, not a range of this walk.
// False when a table or value lies outside the span.
bool AddIfdExtents(const Tiff& tiff, uint32_t offset, bool followSubIfds, Extents* extents);

// Checked stream transfers at absolute positions: 4101 when the stream does
// not end up at pos, 4102 for a short read, 4103 for a short write.
MRESULT SeekTo(MHStream s, int64_t pos);
MRESULT ReadAt(MHStream s, int64_t pos, void* buf, int32_t n);
MRESULT WriteAt(MHStream s, int64_t pos, const void* buf, int32_t n);

// Puts a stream back at a remembered position when it goes out of scope.
class PositionGuard {
  public:
    PositionGuard(MHStream s, int32_t pos) : s_(s), pos_(pos) {}
    ~PositionGuard() { MStreamSeek(s_, MSTREAM_SEEK_BEGIN, pos_); }
    PositionGuard(const PositionGuard&) = delete;
    PositionGuard& operator=(const PositionGuard&) = delete;

  private:
    MHStream s_;
    int32_t pos_;
};

}  // namespace scrivo::exif

#endif  // SCRIVO_IMAGING_EXIF_INTERNAL_H
