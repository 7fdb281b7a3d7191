// Every stream the encoder writes must decode cleanly in libjpeg-turbo and
// lose no more than libjpeg-turbo's own encoder does with the same tables
// and sampling. The reference uses the accurate integer DCT (JDCT_ISLOW):
// our fast coder is a float AAN transform, at least as exact.
#include <gtest/gtest.h>

#include "jpeg_test_util.h"

using namespace jpegtest;

namespace {

struct Outcome {
    double ours = 0, ref = 0;
    size_t oursBytes = 0, refBytes = 0;
};

// Encodes RGB or grey pixels both ways, decodes both, compares to the input.
Outcome RoundTrip(std::vector<uint8_t>& px, int w, int h, int comps, const EncodeOptions& o) {
    const uint32_t fmt = comps == 1 ? 0x64000000u : 0x16001777u;
    MRESULT r = 1;
    const std::vector<uint8_t> ours = Encode(Packed(px, w, h, fmt, comps), o, &r);
    EXPECT_EQ(r, 0u);
    const std::vector<uint8_t> ref = EncodeReference(px.data(), w, h, comps, o.quality, o.sampling);
    std::vector<uint8_t> a, b;
    int aw = 0, ah = 0, ac = 0, warn = -1, bw = 0, bh = 0, bc = 0, bwarn = -1;
    EXPECT_TRUE(Decode(ours, &a, &aw, &ah, &ac, &warn));
    EXPECT_TRUE(Decode(ref, &b, &bw, &bh, &bc, &bwarn));
    EXPECT_EQ(warn, 0) << w << "x" << h << " q" << o.quality;
    EXPECT_EQ(aw, w);
    EXPECT_EQ(ah, h);
    EXPECT_EQ(ac, comps);
    Outcome out;
    if (a.size() != px.size() || b.size() != px.size()) return out;
    out.ours = Psnr(a.data(), px.data(), px.size());
    out.ref = Psnr(b.data(), px.data(), px.size());
    out.oursBytes = ours.size();
    out.refBytes = ref.size();
    return out;
}

}  // namespace

TEST(JpegInterop, LayoutsAndOddSizes) {
    const int sizes[][2] = {{1, 1}, {17, 9}, {33, 31}, {64, 48}, {203, 97}};
    for (const auto& sz : sizes) {
        const int w = sz[0], h = sz[1];
        std::vector<uint8_t> rgb = MakePhoto(w, h, uint32_t(w * 31 + h));
        std::vector<uint8_t> grey(size_t(w) * h);
        for (size_t i = 0; i < grey.size(); ++i) grey[i] = rgb[i * 3 + 1];
        for (int mode = 0; mode < 2; ++mode) {
            for (int sampling : {JPG_SAMPLING_420, JPG_SAMPLING_444, JPG_SAMPLING_422}) {
                EncodeOptions o;
                o.sampling = sampling;
                o.mode = mode;
                const Outcome c = RoundTrip(rgb, w, h, 3, o);
                EXPECT_NEAR(c.ours, c.ref, 0.1)
                    << w << "x" << h << " s" << sampling << " m" << mode;
            }
            EncodeOptions o;
            o.sampling = JPG_SAMPLING_GREY;
            o.mode = mode;
            const Outcome g = RoundTrip(grey, w, h, 1, o);
            EXPECT_NEAR(g.ours, g.ref, 0.1) << w << "x" << h << " grey m" << mode;
        }
    }
}

TEST(JpegInterop, QualitySweep) {
    const int w = 48, h = 40;
    std::vector<uint8_t> rgb = MakePhoto(w, h, 7);
    for (int q = 1; q <= 100; ++q) {
        EncodeOptions o;
        o.quality = q;
        const Outcome c = RoundTrip(rgb, w, h, 3, o);
        EXPECT_NEAR(c.ours, c.ref, 0.1) << "quality " << q;
        // Same tables, same standard Huffman codes: sizes nearly equal.
        EXPECT_NEAR(double(c.oursBytes), double(c.refBytes), 0.03 * double(c.refBytes) + 16)
            << "quality " << q;
    }
}

TEST(JpegInterop, InputFormatsAgree) {
    const int w = 37, h = 23;
    std::vector<uint8_t> rgb = MakePhoto(w, h, 3);
    std::vector<uint8_t> rgba(size_t(w) * h * 4), bgra(rgba.size()), bgr(rgb.size());
    for (int i = 0; i < w * h; ++i) {
        for (int k = 0; k < 3; ++k) {
            rgba[i * 4 + k] = bgra[i * 4 + 2 - k] = bgr[i * 3 + 2 - k] = rgb[i * 3 + k];
        }
        rgba[i * 4 + 3] = bgra[i * 4 + 3] = uint8_t(i);
    }
    EncodeOptions o;
    const std::vector<uint8_t> a = Encode(Packed(rgb, w, h, 0x16001777u, 3), o);
    EXPECT_EQ(Encode(Packed(rgba, w, h, 0x37001777u, 4), o), a);
    EXPECT_EQ(Encode(Packed(bgra, w, h, 0x37000777u, 4), o), a);
    EXPECT_EQ(Encode(Packed(bgr, w, h, 0x16000777u, 3), o), a);

    // Grey input asked for 4:2:0 gets neutral chroma.
    std::vector<uint8_t> grey(size_t(w) * h, 90), out;
    int dw, dh, dc, warn = -1;
    ASSERT_TRUE(Decode(Encode(Packed(grey, w, h, MPAF_GRAY8, 1), o), &out, &dw, &dh, &dc, &warn));
    EXPECT_EQ(warn, 0);
    EXPECT_EQ(out, std::vector<uint8_t>(size_t(w) * h * 3, 90));
    // Bands of any height give the same stream as one call.
    o.band = 5;
    EXPECT_EQ(Encode(Packed(rgba, w, h, 0x37001777u, 4), o), a);

    // I420 input: luminance survives as well as from RGB.
    std::vector<uint8_t> y(size_t(w) * h), u(size_t((w + 1) / 2) * ((h + 1) / 2), 100),
        v(u.size(), 160);
    for (int i = 0; i < w * h; ++i) y[i] = rgb[i * 3 + 1];
    MBITMAP bm{};
    bm.pixelFormat = 0x50000811u;
    bm.width = w;
    bm.height = h;
    bm.pitch[0] = w;
    bm.pitch[1] = bm.pitch[2] = (w + 1) / 2;
    bm.plane[0] = y.data();
    bm.plane[1] = u.data();
    bm.plane[2] = v.data();
    for (int sampling : {JPG_SAMPLING_420, JPG_SAMPLING_444}) {
        for (int band : {0, 4}) {
            o.sampling = sampling;
            o.band = band;
            ASSERT_TRUE(Decode(Encode(bm, o), &out, &dw, &dh, &dc, &warn, true));
            EXPECT_EQ(warn, 0);
            ASSERT_EQ(out.size(), y.size() * 3);
            std::vector<uint8_t> dy(y.size());
            int chromaErr = 0;
            for (size_t i = 0; i < y.size(); ++i) {
                dy[i] = out[i * 3];
                chromaErr = std::max(
                    {chromaErr, std::abs(out[i * 3 + 1] - 100), std::abs(out[i * 3 + 2] - 160)});
            }
            EXPECT_GT(Psnr(dy.data(), y.data(), y.size()), 35.0);
            EXPECT_LE(chromaErr, 2);
        }
    }
}

TEST(JpegInterop, LargeOddImage) {
    const int w = 4001, h = 2999;
    std::vector<uint8_t> rgb = MakePhoto(w, h, 11);
    EncodeOptions o;
    const Outcome c = RoundTrip(rgb, w, h, 3, o);
    EXPECT_NEAR(c.ours, c.ref, 0.1);
    EXPECT_NEAR(double(c.oursBytes), double(c.refBytes), 0.03 * double(c.refBytes));
}
