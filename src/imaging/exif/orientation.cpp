/*
 * IFD0's Orientation (tag 0x0112): which way up the camera held the sensor.
 *
 * The value is a SHORT, 1 (upright) to 8, as the EXIF standard numbers the
 * eight turns and mirrors. Reading it walks only IFD0's table; a block with
 * no APP1 segment or no Orientation entry reads as 1, like a value outside
 * 1..8 or a field that is not one SHORT or LONG (a reader shows such an
 * image as stored, so turning it would be wrong). A block whose APP1, TIFF
 * header or IFD0 table cannot be read is refused with 2 and *orientation 1.
 *
 * Writing patches the entry in place and never adds one: a block without
 * the tag already reads as upright. The entry is always left as one SHORT
 * with the value inline, whatever type and count it had before, so the
 * value reads back exactly.
 */
#include "imaging/exif/exif_internal.h"

using namespace scrivo::exif;

namespace {

constexpr uint32_t kTagOrientation = 0x0112;
constexpr uint32_t kShort = 3;

enum class Lookup { kFound, kNone, kBad };

// Finds IFD0's Orientation entry.
Lookup FindOrientation(uint8_t* block, uint32_t length, Tiff* tiff, Entry* entry) {
    App1Location app1;
    const Found app = FindApp1(block, length, &app1);
    if (app == Found::kNone) return Lookup::kNone;
    if (app == Found::kMalformed || !tiff->Open(block, length, app1)) return Lookup::kBad;
    uint32_t ifd0Offset = 0;
    Ifd ifd0;
    if (!tiff->Get32(4, &ifd0Offset) || !ReadIfd(*tiff, ifd0Offset, false, &ifd0)) {
        return Lookup::kBad;
    }
    for (uint32_t i = 0; i < ifd0.count; ++i) {
        if (!ReadEntry(*tiff, ifd0, i, entry)) return Lookup::kBad;
        if (entry->tag == kTagOrientation) return Lookup::kFound;
    }
    return Lookup::kNone;
}

}  // namespace

MRESULT MeGetOrientation(const uint8_t* block, uint32_t length, int32_t* orientation) {
    if (orientation == nullptr) return MERR_INVALID_PARAM;
    *orientation = 1;
    if (block == nullptr) return MERR_INVALID_PARAM;
    Tiff tiff;
    Entry entry;
    // Only read through the span here; the cast is for the shared walk.
    const Lookup found = FindOrientation(const_cast<uint8_t*>(block), length, &tiff, &entry);
    if (found == Lookup::kBad) return MERR_INVALID_PARAM;
    uint32_t value = 0;
    if (found == Lookup::kFound && ReadScalar(tiff, entry, &value) && value >= 1 && value <= 8) {
        *orientation = static_cast<int32_t>(value);
    }
    return MOK;
}

MRESULT MeSetOrientation(uint8_t* block, uint32_t length, int32_t orientation) {
    if (block == nullptr || orientation < 1 || orientation > 8) return MERR_INVALID_PARAM;
    Tiff tiff;
    Entry entry;
    const Lookup found = FindOrientation(block, length, &tiff, &entry);
    if (found == Lookup::kBad) return MERR_INVALID_PARAM;
    if (found == Lookup::kNone) return MOK;
    // Type and count lie 6 and 4 bytes before the value field, all inside
    // the entry ReadEntry has checked.
    tiff.Put16(entry.valuePos - 6, kShort);
    tiff.Put32(entry.valuePos - 4, 1);
    tiff.Put16(entry.valuePos, static_cast<uint32_t>(orientation));
    tiff.Put16(entry.valuePos + 2, 0);
    return MOK;
}
