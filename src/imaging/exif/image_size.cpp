/*
 * Writing the real pixel size into an EXIF block.
 *
 * Where the size lives: a JPEG's EXIF block states the image's pixel size in
 * the EXIF sub-IFD as PixelXDimension (0xA002) and PixelYDimension (0xA003);
 * the sub-IFD is reached through IFD0's ExifIFDPointer (0x8769). Some
 * cameras also put ImageWidth (0x0100) and ImageLength (0x0101) into IFD0.
 * All four are updated where present; IFD1 describes the thumbnail and is
 * left alone. The fields are SHORT or LONG with count 1 (value inline); a
 * SHORT that must hold more than 65535 becomes a LONG in place. Fields of
 * other types or counts are not touched.
 *
 * The walk is bounded: one IFD0 table and at most one sub-IFD table, each
 * checked to fit inside the APP1 segment, and a sub-IFD pointer that leads
 * back to IFD0 is refused (3). A block without APP1 has nothing to patch
 * (0); a malformed one gives 3. Entries are patched only after both tables
 * have been read, so a refused block is unchanged.
 */
#include "imaging/exif/exif_internal.h"

using namespace scrivo::exif;

namespace {

constexpr uint32_t kTagImageWidth = 0x0100;
constexpr uint32_t kTagImageLength = 0x0101;
constexpr uint32_t kTagExifIfd = 0x8769;
constexpr uint32_t kTagPixelX = 0xA002;
constexpr uint32_t kTagPixelY = 0xA003;

struct Patch {
    Entry entry;
    uint32_t value;
};

// The fields to patch; repeats of a tag beyond this many are ignored.
struct PatchList {
    Patch items[8];
    int count = 0;
    void Add(const Entry& e, uint32_t v) {
        if (count < 8) items[count++] = {e, v};
    }
};

}  // namespace

MRESULT MeReplaceImageSize(uint8_t* block, uint32_t length, uint32_t width, uint32_t height) {
    if (block == nullptr) return MERR_INVALID_PARAM;
    App1Location app1;
    const Found app = FindApp1(block, length, &app1);
    if (app == Found::kNone) return MOK;
    Tiff tiff;
    if (app == Found::kMalformed || !tiff.Open(block, length, app1)) return MERR_UNSUPPORTED;

    uint32_t ifd0Offset = 0;
    Ifd ifd0;
    if (!tiff.Get32(4, &ifd0Offset) || !ReadIfd(tiff, ifd0Offset, false, &ifd0)) {
        return MERR_UNSUPPORTED;
    }
    PatchList patches;
    uint32_t exifOffset = 0;
    bool hasExif = false;
    for (uint32_t i = 0; i < ifd0.count; ++i) {
        Entry e;
        if (!ReadEntry(tiff, ifd0, i, &e)) return MERR_UNSUPPORTED;
        if (e.tag == kTagImageWidth) patches.Add(e, width);
        if (e.tag == kTagImageLength) patches.Add(e, height);
        if (e.tag == kTagExifIfd && !hasExif) {
            if (!ReadScalar(tiff, e, &exifOffset)) return MERR_UNSUPPORTED;
            hasExif = true;
        }
    }
    if (hasExif) {
        Ifd sub;
        if (exifOffset == ifd0Offset || !ReadIfd(tiff, exifOffset, false, &sub)) {
            return MERR_UNSUPPORTED;
        }
        for (uint32_t i = 0; i < sub.count; ++i) {
            Entry e;
            if (!ReadEntry(tiff, sub, i, &e)) return MERR_UNSUPPORTED;
            if (e.tag == kTagPixelX) patches.Add(e, width);
            if (e.tag == kTagPixelY) patches.Add(e, height);
        }
    }
    for (int i = 0; i < patches.count; ++i) {
        WriteScalar(tiff, patches.items[i].entry, patches.items[i].value);
    }
    return MOK;
}
