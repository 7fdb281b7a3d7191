/*
 * Quantisation: the published tables of T.81 Annex K, quality -> tables,
 * and the per-table scale data of the two block coders.
 *
 * Quality q becomes a percentage S: 0 for q >= 100, 2 * (100 - q) for
 * 50..99 and 5000 / q for 1..49 (q below 1 acts as 1). Luminance entries
 * are (K.1 * S + 50) / 100, chrominance entries (K.2 * min(S, 240) + 50) /
 * 100, both clamped to 1..255 so that every table is a baseline (8-bit)
 * table. The quality level (0..5) is a coarse summary of q kept for the
 * caller; it does not change the coding.
 *
 * Scale data: the floating-point coder's DCT leaves coefficient (u, v)
 * multiplied by 8 * a(u) * a(v) (the AAN factors a(0) = 1, a(k) =
 * sqrt(2) cos(k pi / 16)); its reciprocal table folds that factor and the
 * quantiser into one multiplier, stored transposed because that coder
 * produces transposed blocks. The integer coder leaves coefficients
 * multiplied by 8 and divides by 8 * entry with rounding.
 */
#include <cmath>

#include "imaging/jpeg/jpeg_internal.h"

namespace scrivo::jpeg {

const uint8_t jpg_std_luminance_quant_tbl[64] = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};

const uint8_t jpg_std_chrominance_quant_tbl[64] = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99,
    99, 99, 47, 66, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

const uint8_t jpg_bits_dc_luminance[17] = {0, 0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
const uint8_t jpg_val_dc_luminance[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
const uint8_t jpg_bits_dc_chrominance[17] = {0, 0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0};
const uint8_t jpg_val_dc_chrominance[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
const uint8_t jpg_bits_ac_luminance[17] = {0, 0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 125};
const uint8_t jpg_val_ac_luminance[162] = {
    1,   2,   3,   0,   4,   17,  5,   18,  33,  49,  65,  6,   19,  81,  97,  7,   34,  113,
    20,  50,  129, 145, 161, 8,   35,  66,  177, 193, 21,  82,  209, 240, 36,  51,  98,  114,
    130, 9,   10,  22,  23,  24,  25,  26,  37,  38,  39,  40,  41,  42,  52,  53,  54,  55,
    56,  57,  58,  67,  68,  69,  70,  71,  72,  73,  74,  83,  84,  85,  86,  87,  88,  89,
    90,  99,  100, 101, 102, 103, 104, 105, 106, 115, 116, 117, 118, 119, 120, 121, 122, 131,
    132, 133, 134, 135, 136, 137, 138, 146, 147, 148, 149, 150, 151, 152, 153, 154, 162, 163,
    164, 165, 166, 167, 168, 169, 170, 178, 179, 180, 181, 182, 183, 184, 185, 186, 194, 195,
    196, 197, 198, 199, 200, 201, 202, 210, 211, 212, 213, 214, 215, 216, 217, 218, 225, 226,
    227, 228, 229, 230, 231, 232, 233, 234, 241, 242, 243, 244, 245, 246, 247, 248, 249, 250};
const uint8_t jpg_bits_ac_chrominance[17] = {0, 0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 119};
const uint8_t jpg_val_ac_chrominance[162] = {
    0,   1,   2,   3,   17,  4,   5,   33,  49,  6,   18,  65,  81,  7,   97,  113, 19,  34,
    50,  129, 8,   20,  66,  145, 161, 177, 193, 9,   35,  51,  82,  240, 21,  98,  114, 209,
    10,  22,  36,  52,  225, 37,  241, 23,  24,  25,  26,  38,  39,  40,  41,  42,  53,  54,
    55,  56,  57,  58,  67,  68,  69,  70,  71,  72,  73,  74,  83,  84,  85,  86,  87,  88,
    89,  90,  99,  100, 101, 102, 103, 104, 105, 106, 115, 116, 117, 118, 119, 120, 121, 122,
    130, 131, 132, 133, 134, 135, 136, 137, 138, 146, 147, 148, 149, 150, 151, 152, 153, 154,
    162, 163, 164, 165, 166, 167, 168, 169, 170, 178, 179, 180, 181, 182, 183, 184, 185, 186,
    194, 195, 196, 197, 198, 199, 200, 201, 202, 210, 211, 212, 213, 214, 215, 216, 217, 218,
    226, 227, 228, 229, 230, 231, 232, 233, 234, 242, 243, 244, 245, 246, 247, 248, 249, 250};

const uint8_t jpg_natural_order[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

const uint8_t jpg_transposed_order[64] = {
    0,  8,  1,  2,  9,  16, 24, 17, 10, 3,  4,  11, 18, 25, 32, 40, 33, 26, 19, 12, 5,  6,
    13, 20, 27, 34, 41, 48, 56, 49, 42, 35, 28, 21, 14, 7,  15, 22, 29, 36, 43, 50, 57, 58,
    51, 44, 37, 30, 23, 31, 38, 45, 52, 59, 60, 53, 46, 39, 47, 54, 61, 62, 55, 63};

int QualityLevel(int32_t quality) {
    if (quality == 100) return 5;
    if (quality > 100 || quality >= 96) return 4;
    if (quality >= 94) return 3;
    if (quality >= 90) return 2;
    if (quality >= 40) return 1;
    return 0;
}

int QualityScale(int32_t quality) {
    if (quality < 1) quality = 1;
    if (quality >= 100) return 0;
    if (quality >= 50) return 2 * (100 - quality);
    return 5000 / quality;
}

void ScaleQuantTable(const uint8_t* base, int scale, uint16_t* out) {
    for (int i = 0; i < 64; ++i) {
        long v = (long(base[i]) * scale + 50) / 100;
        if (v < 1) v = 1;
        if (v > 255) v = 255;
        out[i] = uint16_t(v);
    }
}

void BuildQuantScale(const uint16_t* table, QuantScale* out) {
    static const double kAan[8] = {1.0, 1.387039845, 1.306562965, 1.175875602,
                                   1.0, 0.785694958, 0.541196100, 0.275899379};
    for (int u = 0; u < 8; ++u) {
        for (int v = 0; v < 8; ++v) {
            const int n = u * 8 + v;
            out->recip[v * 8 + u] = float(1.0 / (double(table[n]) * kAan[u] * kAan[v] * 8.0));
            out->recipPair[v * 16 + u] = out->recipPair[v * 16 + 8 + u] = out->recip[v * 8 + u];
            out->divisor[n] = uint16_t(table[n] * 8);
            // With 2^(L-1) < d <= 2^L, s = 15 + L and m = ceil(2^s / d),
            // floor(x m / 2^s) = floor(x / d) for every x < 2^15: m d - 2^s
            // < d, so the error x (m d - 2^s) / (d 2^s) stays below 1 / d.
            // The integer coder's dividends, |c| + d / 2 with |c| <= 8 *
            // 1024 plus rounding, are far below 2^15, and x m < 2^15 (2^16
            // + 1) fits 32 unsigned bits.
            const uint32_t d = out->divisor[n];
            int bits = 0;
            while ((1u << bits) < d) ++bits;
            out->divShift[n] = uint32_t(15 + bits);
            out->divMul[n] = uint32_t(((uint64_t(1) << (15 + bits)) + d - 1) / d);
        }
    }
}

}  // namespace scrivo::jpeg

using namespace scrivo::jpeg;

extern "C" MRESULT JpgSetQuality(void* encoder, int32_t quality) {
    if (!encoder) return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    e->quality = quality;
    e->qualityLevel = QualityLevel(quality);
    const int s = QualityScale(quality);
    ScaleQuantTable(jpg_std_luminance_quant_tbl, s, e->quant[0]);
    ScaleQuantTable(jpg_std_chrominance_quant_tbl, s < 240 ? s : 240, e->quant[1]);
    for (int t = 0; t < 2; ++t) {
        e->quantPending[t] = true;
        BuildQuantScale(e->quant[t], &e->scale[t]);
    }
    return 0;
}
