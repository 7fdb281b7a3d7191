// The encoder's vectorised kernels against their plain reference kernels,
// byte for byte, on random and extreme inputs and awkward widths.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "jpeg_test_util.h"

using namespace scrivo::jpeg;

TEST(JpegKernels, CoefficientSymbols) {
    std::mt19937 rng(3);
    const int16_t edges[] = {0, 1, -1, 2, -2, 1023, -1023, 1024, -1024, 2047, -2048, 32767, -32768};
    for (int iter = 0; iter < 3000; ++iter) {
        alignas(64) int16_t zz[64];
        const int range = 1 << (iter % 16);
        for (int16_t& v : zz)
            v = iter % 5 == 0 ? edges[rng() % 13] : int16_t(int(rng() % (2 * range + 1)) - range);
        CoefSymbols ref, fast;
        CoefSymbolsScalar(zz, &ref);
        for (int level = 1; level <= BlockCoderLevel(); ++level) {
            CoefSymbolsAt(level, zz, &fast);
            ASSERT_EQ(std::memcmp(ref.nbits, fast.nbits, 64), 0) << iter;
            ASSERT_EQ(std::memcmp(ref.bits, fast.bits, sizeof(ref.bits)), 0) << iter;
        }
    }
    // Category and one's-complement bits, values beyond +-1023 clamped.
    alignas(64) int16_t zz[64] = {5, -3, 1024, -32768, 1, -1};
    CoefSymbols s;
    CoefSymbolsAt(BlockCoderLevel(), zz, &s);
    const int nb[] = {3, 2, 10, 10, 1, 1, 0}, bits[] = {5, 0, 1023, 0, 1, 0, 0};
    for (int k = 0; k < 7; ++k) {
        EXPECT_EQ(s.nbits[k], nb[k]) << k;
        EXPECT_EQ(s.bits[k], bits[k]) << k;
    }
}

TEST(JpegKernels, ChromaDownsampling) {
    std::mt19937 rng(4);
    for (int outW : {1, 15, 31, 32, 33, 64, 100}) {
        for (int fill : {-1, 0, 255}) {
            std::vector<uint8_t> a(2 * outW), b(2 * outW);
            for (size_t i = 0; i < a.size(); ++i) {
                a[i] = fill < 0 ? uint8_t(rng()) : uint8_t(fill);
                b[i] = fill < 0 ? uint8_t(rng()) : uint8_t(fill);
            }
            for (int mode = 0; mode < 3; ++mode) {
                const uint8_t* second = mode == 1 ? nullptr : b.data();
                const int hs = mode == 2 ? 1 : 2;
                std::vector<uint8_t> ref(outW + 1, 7), fast(outW + 1, 7);
                DownsampleRowScalar(a.data(), second, hs, outW, ref.data());
                for (int level = 1; level <= BlockCoderLevel(); ++level) {
                    DownsampleRowAt(level, a.data(), second, hs, outW, fast.data());
                    ASSERT_EQ(ref, fast) << outW << " " << fill << " " << mode;
                }
                if (fill >= 0) {
                    EXPECT_EQ(ref[outW - 1], fill);
                }
            }
        }
    }
    // The bias alternates along the row: 1 + 2 + 1 + 2 averages to 1.5.
    const uint8_t a[4] = {1, 2, 1, 2}, b[4] = {1, 2, 1, 2};
    uint8_t o[2];
    DownsampleRowAt(BlockCoderLevel(), a, b, 2, 2, o);
    EXPECT_EQ(o[0], 1);
    EXPECT_EQ(o[1], 2);
}

// The integer coder's vector kernels divide by multiplying: the quotient
// must be exact for every divisor a table can give and every dividend the
// transform can give (|c| + d / 2 < 2^15).
TEST(JpegKernels, DivisionByMultiplyIsExact) {
    uint16_t table[64];
    for (int entry = 1; entry <= 255; entry += 64) {
        for (int i = 0; i < 64; ++i) table[i] = uint16_t(entry + i < 256 ? entry + i : 255);
        QuantScale qs;
        BuildQuantScale(table, &qs);
        for (int i = 0; i < 64; ++i) {
            const uint32_t d = qs.divisor[i];
            for (uint32_t x = 0; x < (1u << 15); ++x)
                ASSERT_EQ((x * qs.divMul[i]) >> qs.divShift[i], x / d) << d << " " << x;
        }
    }
}

// Two blocks coded at once equal the two blocks coded one by one.
TEST(JpegKernels, FloatCoderPairs) {
    std::mt19937 rng(6);
    uint16_t ones[64], fine[64];
    for (int i = 0; i < 64; ++i) ones[i] = 1;
    ScaleQuantTable(jpg_std_luminance_quant_tbl, 20, fine);
    QuantScale qs[2];
    BuildQuantScale(ones, &qs[0]);
    BuildQuantScale(fine, &qs[1]);
    // Random bytes, photograph-like noise around a level (where products
    // land near the rounding boundaries), and 0 / 255 mixtures.
    uint8_t px[8 * 19];
    for (int iter = 0; iter < 20000; ++iter) {
        const int kind = iter % 3, base = int(rng() % 200);
        for (uint8_t& p : px)
            p = uint8_t(kind == 0 ? rng() : kind == 1 ? base + rng() % 24 : (rng() & 1) * 255);
        for (const QuantScale& q : qs) {
            alignas(64) int16_t ref[128], pair[128];
            uint64_t refMasks[2], masks[2];
            refMasks[0] = BlockCodeFloatScalar(px, 19, q.recip, ref);
            refMasks[1] = BlockCodeFloatScalar(px + 11, 19, q.recip, ref + 64);
            for (int level = 0; level <= BlockCoderLevel(); ++level) {
                BlockCodeFloatPairAt(level, px, px + 11, 19, q, pair, masks);
                ASSERT_EQ(std::memcmp(ref, pair, sizeof(ref)), 0) << level << " " << iter;
                ASSERT_EQ(masks[0], refMasks[0]);
                ASSERT_EQ(masks[1], refMasks[1]);
            }
        }
    }
}
