// Quality -> quantisation tables, the published tables, and the block
// coders against each other.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "jpeg_test_util.h"

using namespace scrivo::jpeg;

namespace {

struct Tables {
    uint16_t q[2][64];
    int32_t level;
};

Tables ForQuality(int32_t quality) {
    void* enc = nullptr;
    EXPECT_EQ(ajlJpgEncoderCreate(nullptr, &enc), 0u);
    EXPECT_EQ(JpgSetQuality(enc, quality), 0u);
    Tables t{};
    std::memcpy(t.q, static_cast<Encoder*>(enc)->quant, sizeof(t.q));
    EXPECT_EQ(ajlJpgEncoderGetProp(enc, JPG_PROP_QUALITY_LEVEL, &t.level, 4), 0u);
    ajlJpgEncoderDestroy(enc);
    return t;
}

}  // namespace

TEST(JpegTables, QualityAnchors) {
    const Tables q50 = ForQuality(50);
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(q50.q[0][i], jpg_std_luminance_quant_tbl[i]);
        EXPECT_EQ(q50.q[1][i], jpg_std_chrominance_quant_tbl[i]);
    }
    for (int32_t q : {100, 101, 1000}) {
        const Tables t = ForQuality(q);
        for (int i = 0; i < 64; ++i) EXPECT_TRUE(t.q[0][i] == 1 && t.q[1][i] == 1) << q;
    }
    for (int32_t q : {0, -5, 1}) {
        const Tables t = ForQuality(q);
        for (int i = 0; i < 64; ++i) {
            EXPECT_EQ(t.q[0][i], 255) << q;
            EXPECT_EQ(t.q[1][i],
                      std::min(255, (jpg_std_chrominance_quant_tbl[i] * 240 + 50) / 100));
        }
    }
    // Quality 10: luminance scale 500 (clamped at 255), chrominance capped
    // at 240; 49 and 75 check the two scale formulas and the rounding.
    const Tables q10 = ForQuality(10), q49 = ForQuality(49), q75 = ForQuality(75);
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(q10.q[0][i], std::min(255, jpg_std_luminance_quant_tbl[i] * 5));
        EXPECT_EQ(q10.q[1][i], (jpg_std_chrominance_quant_tbl[i] * 240 + 50) / 100);
        EXPECT_EQ(q49.q[0][i], (jpg_std_luminance_quant_tbl[i] * 102 + 50) / 100);
        EXPECT_EQ(q75.q[1][i], (jpg_std_chrominance_quant_tbl[i] * 50 + 50) / 100);
    }
    EXPECT_EQ(q75.q[0][1], 6);  // 5.5 rounds up
    const std::pair<int32_t, int32_t> levels[] = {{100, 5}, {101, 4}, {99, 4}, {96, 4}, {95, 3},
                                                  {94, 3},  {93, 2},  {90, 2}, {89, 1}, {40, 1},
                                                  {39, 0},  {1, 0},   {-3, 0}};
    for (auto [q, level] : levels) EXPECT_EQ(ForQuality(q).level, level) << q;

    EXPECT_EQ(JpgSetQuality(nullptr, 50), 0x8001u);
}

TEST(JpegTables, PublishedTablesMatchLibjpeg) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    c.in_color_space = JCS_RGB;
    c.input_components = 3;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, 50, TRUE);
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(c.quant_tbl_ptrs[0]->quantval[i], jpg_std_luminance_quant_tbl[i]);
        EXPECT_EQ(c.quant_tbl_ptrs[1]->quantval[i], jpg_std_chrominance_quant_tbl[i]);
    }
    const uint8_t* bits[4] = {jpg_bits_dc_luminance, jpg_bits_dc_chrominance, jpg_bits_ac_luminance,
                              jpg_bits_ac_chrominance};
    const uint8_t* vals[4] = {jpg_val_dc_luminance, jpg_val_dc_chrominance, jpg_val_ac_luminance,
                              jpg_val_ac_chrominance};
    JHUFF_TBL* ref[4] = {c.dc_huff_tbl_ptrs[0], c.dc_huff_tbl_ptrs[1], c.ac_huff_tbl_ptrs[0],
                         c.ac_huff_tbl_ptrs[1]};
    for (int t = 0; t < 4; ++t) {
        int n = 0;
        for (int i = 1; i <= 16; ++i) {
            EXPECT_EQ(bits[t][i], ref[t]->bits[i]);
            n += bits[t][i];
        }
        for (int i = 0; i < n; ++i) EXPECT_EQ(vals[t][i], ref[t]->huffval[i]);
    }
    jpeg_destroy_compress(&c);

    // The zig-zag orders visit every position once; the transposed one is
    // the natural one mirrored.
    uint64_t seen = 0;
    for (int k = 0; k < 64; ++k) {
        seen |= 1ull << jpg_natural_order[k];
        const int n = jpg_natural_order[k];
        EXPECT_EQ(jpg_transposed_order[k], (n % 8) * 8 + n / 8);
    }
    EXPECT_EQ(seen, ~0ull);
}

TEST(JpegTables, BlockCodersAgree) {
    std::mt19937 rng(5);
    QuantScale qs[2];
    uint16_t ones[64], fine[64];
    for (int i = 0; i < 64; ++i) ones[i] = 1;
    ScaleQuantTable(jpg_std_luminance_quant_tbl, 20, fine);
    BuildQuantScale(ones, &qs[0]);
    BuildQuantScale(fine, &qs[1]);
    uint8_t block[8 * 11];
    for (int iter = 0; iter < 2000; ++iter) {
        const int kind = iter % 4;
        for (int i = 0; i < 8 * 11; ++i)
            block[i] = kind == 0   ? uint8_t(rng())
                       : kind == 1 ? uint8_t(i * 3)
                       : kind == 2 ? 255
                                   : 0;
        for (const QuantScale& q : qs) {
            int16_t scalar[64], exact[64];
            const uint64_t m = BlockCodeFloatScalar(block, 11, q.recip, scalar);
            for (int level = 1; level <= BlockCoderLevel(); ++level) {
                int16_t fast[64];
                ASSERT_EQ(BlockCodeFloatAt(level, block, 11, q.recip, fast), m) << level;
                ASSERT_EQ(std::memcmp(fast, scalar, sizeof(fast)), 0) << level << " " << iter;
            }
            const uint64_t mi = BlockCodeIntScalar(block, 11, q.divisor, exact);
            for (int level = 1; level <= BlockCoderLevel(); ++level) {
                int16_t fast[64];
                ASSERT_EQ(BlockCodeIntAt(level, block, 11, q, fast), mi) << level;
                ASSERT_EQ(std::memcmp(fast, exact, sizeof(fast)), 0) << level << " " << iter;
            }
            for (int k = 0; k < 64; ++k) {
                ASSERT_EQ((m >> k) & 1, uint64_t(k > 0 && scalar[k] != 0)) << k;
                ASSERT_EQ((mi >> k) & 1, uint64_t(k > 0 && exact[k] != 0)) << k;
                // The two transforms differ by rounding only.
                ASSERT_NEAR(scalar[k], exact[k], 2) << iter << " " << k;
            }
        }
    }
    // A flat block has only its DC term: 8 * (v - 128) / 8 with table 1.
    int16_t out[64];
    std::memset(block, 200, sizeof(block));
    EXPECT_EQ(BlockCodeFloat(block, 11, qs[0].recip, out), 0u);
    EXPECT_EQ(out[0], 8 * 72);
    for (int i = 1; i < 64; ++i) EXPECT_EQ(out[i], 0);
}

TEST(JpegTables, ColourConversionPaths) {
    std::mt19937 rng(9);
    std::vector<uint8_t> px(4 * 301);
    for (uint8_t& b : px) b = uint8_t(rng());
    px[0] = px[1] = px[2] = 255;  // extremes stay in range
    px[4] = px[5] = px[6] = 0;
    for (int bpp : {3, 4}) {
        for (bool bgr : {false, true}) {
            for (int w : {1, 15, 17, 33, 47, 300}) {
                std::vector<uint8_t> a(3 * size_t(w)), b(3 * size_t(w));
                RgbToYcc(px.data(), w, bpp, bgr, a.data(), a.data() + w, a.data() + 2 * w, 0);
                for (int level = 1; level <= BlockCoderLevel(); ++level) {
                    RgbToYcc(px.data(), w, bpp, bgr, b.data(), b.data() + w, b.data() + 2 * w,
                             level);
                    EXPECT_EQ(a, b) << bpp << bgr << w << " " << level;
                }
                const uint8_t* p = px.data() + (w - 1) * bpp;
                const int r = p[bgr ? 2 : 0], g = p[1], bl = p[bgr ? 0 : 2];
                EXPECT_NEAR(a[w - 1], 0.299 * r + 0.587 * g + 0.114 * bl, 0.51);
                EXPECT_NEAR(a[3 * w - 1], 128 + 0.5 * r - 0.418688 * g - 0.081312 * bl, 0.51);
            }
        }
    }
}
