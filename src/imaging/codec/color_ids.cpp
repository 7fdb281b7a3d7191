/*
 * Colour-ID schemes and result translation.
 *
 * Bitmap records carry "new" colour IDs; codec components take "old" IDs in
 * their pixel-format properties. One fixed table of 57 rows (old ID, new
 * ID, alternative flag) converts both ways, always by the first matching
 * row in table order: new to old takes the first row with that new ID
 * (so the duplicated YUV rows 11..14 are never returned), old to new takes
 * the first row with that old ID whose flag is 0. IDs in no row pass
 * through unchanged.
 */
#include "scrivo/codec.h"

namespace {

struct ColorRow {
    uint32_t oldId;
    uint32_t newId;
    uint32_t alternative;
};

constexpr ColorRow kColorRows[] = {
    {1, 0x16001777, 0},  {2, 0x16000777, 0},  {3, 0x16000555, 0},  {4, 0x16001555, 0},
    {5, 0x15000454, 0},  {6, 0x15001454, 0},  {7, 0x50001210, 0},  {7, 0x50000210, 1},
    {8, 0x50001010, 0},  {8, 0x50000010, 1},  {9, 0x50001410, 0},  {9, 0x50000410, 1},
    {10, 0x50001610, 0}, {10, 0x50000610, 1}, {11, 0x50001210, 0}, {11, 0x50000210, 1},
    {12, 0x50001010, 0}, {12, 0x50000010, 1}, {13, 0x50001610, 0}, {13, 0x50000610, 1},
    {14, 0x50001410, 0}, {14, 0x50000410, 1}, {15, 0x50001811, 0}, {15, 0x50000811, 1},
    {17, 0x15000333, 0}, {33, 0x15001333, 0}, {19, 0x50001801, 0}, {19, 0x50000801, 1},
    {20, 0x50001810, 0}, {20, 0x50000810, 1}, {21, 0x50001800, 0}, {21, 0x50000800, 1},
    {22, 0x41000000, 0}, {23, 0x42000000, 0}, {24, 0x43000000, 0}, {25, 0x44000000, 0},
    {26, 0x61000000, 0}, {27, 0x62000000, 0}, {28, 0x63000000, 0}, {29, 0x64001000, 0},
    {29, 0x64000000, 1}, {30, 0x65000000, 0}, {32, 0x15000444, 0}, {31, 0x15001444, 0},
    {36, 0x37001777, 0}, {37, 0x37000777, 0}, {36, 0x37005777, 0}, {39, 0x50001a11, 0},
    {39, 0x50000a11, 1}, {40, 0x50001510, 0}, {40, 0x50000510, 1}, {41, 0x50001710, 0},
    {41, 0x50000710, 1}, {42, 0x50001830, 0}, {42, 0x50000830, 1}, {43, 0x50001803, 0},
    {43, 0x50000803, 1},
};
static_assert(sizeof(kColorRows) / sizeof(kColorRows[0]) == 57, "57 colour rows");

}  // namespace

extern "C" uint32_t MdUtilsNewColorID2Old(uint32_t newId) {
    for (const ColorRow& r : kColorRows)
        if (r.newId == newId) return r.oldId;
    return newId;
}

extern "C" uint32_t MdUtilsOldColorID2New(uint32_t oldId) {
    for (const ColorRow& r : kColorRows)
        if (r.oldId == oldId && r.alternative == 0) return r.newId;
    return oldId;
}

extern "C" MRESULT MdUtilsConvertResult(MRESULT res, int32_t encoding) {
    switch (res) {
        case MD_CERR_INVALID_PARAM:
        case MD_CERR_INVALID_PARAM2:
            return 2;
        case MD_CERR_NO_MEMORY:
            return 4;
        case MD_CERR_UNSUPPORTED:
            return 3;
        case MD_CERR_STREAM:
            return encoding ? 4103 : 4102;
        case MD_CERR_WRITE:
            return 4103;
        case MD_CERR_GENERAL:
            return 1;
        default:
            return res;
    }
}

extern "C" MRESULT MdUtilConvertErrorCode(MRESULT code, const MRESULT* keep, int32_t count) {
    if (code == 0) return 0;
    for (int32_t i = 0; keep && i < count; ++i)
        if (keep[i] == code) return code;
    return 2;
}
