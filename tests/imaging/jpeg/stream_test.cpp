// The bytes of the stream: segment order and fields, application segments,
// restart markers, size patching and the failure codes.
#include <gtest/gtest.h>

#include <cstring>

#include "jpeg_test_util.h"

using namespace jpegtest;

namespace {

struct Segment {
    int marker;
    std::vector<uint8_t> body;  // after the length field
};

// Segments from after SOI up to and including SOS; *scan is where the
// entropy-coded data starts.
std::vector<Segment> Parse(const std::vector<uint8_t>& b, size_t* scan) {
    std::vector<Segment> out;
    size_t i = 2;
    while (i + 4 <= b.size() && b[i] == 0xFF) {
        const int m = b[i + 1];
        const size_t len = size_t(b[i + 2] << 8 | b[i + 3]);
        out.push_back(
            {m, std::vector<uint8_t>(b.begin() + long(i) + 4, b.begin() + long(i + 2 + len))});
        i += 2 + len;
        if (m == 0xDA) break;
    }
    *scan = i;
    return out;
}

std::vector<int> Markers(const std::vector<Segment>& s) {
    std::vector<int> m;
    for (const Segment& x : s) m.push_back(x.marker);
    return m;
}

}  // namespace

TEST(JpegStream, HeaderSegments) {
    std::vector<uint8_t> rgb = MakePhoto(35, 19);
    EncodeOptions o;
    o.quality = 75;
    const std::vector<uint8_t> b = Encode(Packed(rgb, 35, 19, 0x16001777u, 3), o);
    ASSERT_GT(b.size(), 200u);
    EXPECT_EQ(b[0], 0xFF);
    EXPECT_EQ(b[1], 0xD8);
    EXPECT_EQ(b[b.size() - 2], 0xFF);
    EXPECT_EQ(b[b.size() - 1], 0xD9);
    size_t scan = 0;
    const std::vector<Segment> s = Parse(b, &scan);
    const std::vector<int> want = {0xE0, 0xDB, 0xDB, 0xC0, 0xC4, 0xC4, 0xC4, 0xC4, 0xDA};
    ASSERT_EQ(Markers(s), want);
    const uint8_t jfif[14] = {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0};
    ASSERT_EQ(s[0].body.size(), 14u);
    EXPECT_EQ(std::memcmp(s[0].body.data(), jfif, 14), 0);
    // DQT: length 67, table number, entries in zig-zag order.
    for (int t = 0; t < 2; ++t) {
        ASSERT_EQ(s[1 + t].body.size(), 65u);
        EXPECT_EQ(s[1 + t].body[0], t);
        EXPECT_EQ(s[1 + t].body[1], t == 0 ? 8 : 9);  // (16|17 * 50 + 50) / 100
        EXPECT_EQ(s[1 + t].body[2], t == 0 ? 6 : 9);  // zig-zag 1: entry (0, 1)
        EXPECT_EQ(s[1 + t].body[3], t == 0 ? 6 : 9);  // zig-zag 2: entry (1, 0)
    }
    const uint8_t sof[15] = {8, 0, 19, 0, 35, 3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1};
    ASSERT_EQ(s[3].body.size(), 15u);
    EXPECT_EQ(std::memcmp(s[3].body.data(), sof, 15), 0);
    const int dhtIds[4] = {0x00, 0x10, 0x01, 0x11};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(s[4 + i].body[0], dhtIds[i]);
    EXPECT_EQ(s[4].body.size(), 1u + 16 + 12);
    EXPECT_EQ(s[5].body.size(), 1u + 16 + 162);
    const uint8_t sos[10] = {3, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0};
    ASSERT_EQ(s[8].body.size(), 10u);
    EXPECT_EQ(std::memcmp(s[8].body.data(), sos, 10), 0);

    // Grey: one DQT, one DC and one AC table, one component.
    std::vector<uint8_t> grey(40 * 8, 77);
    o.sampling = JPG_SAMPLING_AUTO;
    const std::vector<uint8_t> g = Encode(Packed(grey, 40, 8, MPAF_GRAY8, 1), o);
    const std::vector<Segment> gs = Parse(g, &scan);
    EXPECT_EQ(Markers(gs), (std::vector<int>{0xE0, 0xDB, 0xC0, 0xC4, 0xC4, 0xDA}));
    EXPECT_EQ(gs[2].body[5], 1);
    EXPECT_EQ(gs[2].body[7], 0x11);

    // Supplied application segments replace JFIF, byte for byte.
    o.app = {0xFF, 0xE1, 0, 6, 'E', 'x', 'i', 'f', 0xFF, 0xFE, 0, 3, 'z'};
    const std::vector<uint8_t> a = Encode(Packed(grey, 40, 8, MPAF_GRAY8, 1), o);
    EXPECT_EQ(std::memcmp(a.data() + 2, o.app.data(), o.app.size()), 0);
    EXPECT_EQ(Markers(Parse(a, &scan)),
              (std::vector<int>{0xE1, 0xFE, 0xDB, 0xC0, 0xC4, 0xC4, 0xDA}));
    std::vector<uint8_t> px;
    int w, h, c, warn = -1;
    EXPECT_TRUE(Decode(a, &px, &w, &h, &c, &warn));
    EXPECT_EQ(warn, 0);
}

TEST(JpegStream, RestartMarkers) {
    const int w = 100, h = 50;  // 4:2:0: 7 x 4 = 28 MCUs
    std::vector<uint8_t> rgb = MakePhoto(w, h);
    for (int mode = 0; mode < 2; ++mode) {
        EncodeOptions o;
        o.restart = 3;
        o.mode = mode;
        const std::vector<uint8_t> b = Encode(Packed(rgb, w, h, 0x16001777u, 3), o);
        size_t scan = 0;
        const std::vector<Segment> s = Parse(b, &scan);
        ASSERT_EQ(s[8].marker, 0xDD);
        EXPECT_EQ(s[8].body, (std::vector<uint8_t>{0, 3}));
        std::vector<int> rst;
        for (size_t i = scan; i + 1 < b.size(); ++i) {
            if (b[i] != 0xFF) continue;
            if (b[i + 1] >= 0xD0 && b[i + 1] <= 0xD7)
                rst.push_back(b[i + 1] - 0xD0);
            else
                EXPECT_TRUE(b[i + 1] == 0 || (b[i + 1] == 0xD9 && i + 2 == b.size())) << i;
        }
        ASSERT_EQ(rst.size(), 9u);  // after MCU 3, 6, ..., 27
        for (size_t i = 0; i < rst.size(); ++i) EXPECT_EQ(rst[i], int(i % 8));
        // Same pixels as without restarts.
        std::vector<uint8_t> p1, p2;
        int dw, dh, dc, warn = -1;
        ASSERT_TRUE(Decode(b, &p1, &dw, &dh, &dc, &warn));
        EXPECT_EQ(warn, 0);
        o.restart = 0;
        ASSERT_TRUE(
            Decode(Encode(Packed(rgb, w, h, 0x16001777u, 3), o), &p2, &dw, &dh, &dc, &warn));
        EXPECT_EQ(p1, p2);
    }
}

TEST(JpegStream, SizeRewriteAndFailures) {
    // Start with a guessed height, stop early, then patch the frame header.
    const int w = 30, h = 21;
    std::vector<uint8_t> rgb = MakePhoto(w, h);
    MBITMAP bm = Packed(rgb, w, h, 0x16001777u, 3);
    MHStream s = MStreamOpenFromMemoryBlock(nullptr, 0);
    const uint8_t lead[3] = {1, 2, 3};  // the JPEG need not start at offset 0
    MStreamWrite(s, lead, 3);
    void* enc = nullptr;
    ASSERT_EQ(ajlJpgEncoderCreate(nullptr, &enc), 0u);
    EXPECT_EQ(JpgEncReWriteImageSize(enc, w, h), 0x8010u);  // no header yet
    ASSERT_EQ(ajlJpgEncoderAttachStream(enc, s), 0u);
    const int32_t size[2] = {w, 1000};
    ASSERT_EQ(ajlJpgEncoderSetProp(enc, MD_PROP_IMAGE_SIZE, size, 8), 0u);
    const int32_t fmt = 1;  // old ID of 0x16001777
    ASSERT_EQ(ajlJpgEncoderSetProp(enc, MD_PROP_PIXARRAY_FORMAT, &fmt, 4), 0u);
    ASSERT_EQ(ajlJpgEncoderScanlines(enc, &bm, h), 0u);
    int32_t done = 0;
    EXPECT_EQ(ajlJpgEncoderGetProp(enc, JPG_PROP_LINES_DONE, &done, 4), 0u);
    EXPECT_EQ(done, h);
    EXPECT_EQ(JpgEncWriteFileTrailer(enc), 0u);
    EXPECT_EQ(JpgEncReWriteImageSize(enc, w, h), 0u);
    EXPECT_EQ(MStreamTell(s), MStreamGetSize(s));  // position restored
    ajlJpgEncoderDestroy(enc);
    std::vector<uint8_t> b(size_t(MStreamGetSize(s)) - 3);
    MStreamSeek(s, MSTREAM_SEEK_BEGIN, 3);
    MStreamRead(s, b.data(), int32_t(b.size()));
    MStreamClose(s);
    std::vector<uint8_t> px;
    int dw, dh, dc, warn = -1;
    ASSERT_TRUE(Decode(b, &px, &dw, &dh, &dc, &warn));
    EXPECT_EQ(warn, 0);
    EXPECT_EQ(dw, w);
    EXPECT_EQ(dh, h);
    EncodeOptions o;
    EXPECT_EQ(Encode(bm, o), b);  // the same as knowing the height upfront

    // Failure codes.
    EXPECT_EQ(ajlJpgEncoderCreate(nullptr, nullptr), 0x8001u);
    ASSERT_EQ(ajlJpgEncoderCreate(nullptr, &enc), 0u);
    EXPECT_EQ(JpgEncSetQualityMode(enc, 2), 0x8001u);
    EXPECT_EQ(JpgEncSetQualityMode(nullptr, 0), 0x8001u);
    EXPECT_EQ(JpgEncSetImageSize(enc, 0, 5), 0x8001u);
    EXPECT_EQ(JpgEncSetImageSize(enc, w, h), 0u);
    EXPECT_EQ(ajlJpgEncoderScanlines(enc, &bm, h), 0x8010u);  // no stream
    int32_t bad = 0x12345678;
    EXPECT_EQ(ajlJpgEncoderSetProp(enc, MD_PROP_PIXARRAY_FORMAT, &bad, 4), 0x8008u);
    EXPECT_EQ(ajlJpgEncoderSetProp(enc, MD_PROP_JPEG_QUALITY, &bad, 2), 0x8001u);
    EXPECT_EQ(ajlJpgEncoderSetProp(enc, 77, &bad, 4), 0x8008u);
    const uint8_t notApp[4] = {0xFF, 0xDB, 0, 2};
    EXPECT_EQ(JpgEncSetAppSegments(enc, notApp, 4), 0x8001u);
    const uint8_t overrun[4] = {0xFF, 0xE1, 0, 9};
    EXPECT_EQ(JpgEncSetAppSegments(enc, overrun, 4), 0x8001u);
    MBITMAP odd = bm;
    odd.pixelFormat = 0x15000555u;
    s = MStreamOpenFromMemoryBlock(nullptr, 0);
    ajlJpgEncoderAttachStream(enc, s);
    EXPECT_EQ(ajlJpgEncoderScanlines(enc, &odd, h), 0x8008u);
    EXPECT_EQ(ajlJpgEncoderScanlines(enc, nullptr, h), 0x8001u);
    EXPECT_EQ(ajlJpgEncoderScanlines(enc, &bm, h + 1), 0x8001u);
    ajlJpgEncoderDestroy(enc);
    MStreamClose(s);

    // A stream that refuses writes: 0x8010.
    uint8_t tiny[16];
    s = MStreamOpenFromMemoryBlock(tiny, sizeof(tiny));
    ASSERT_EQ(ajlJpgEncoderCreate(nullptr, &enc), 0u);
    ajlJpgEncoderAttachStream(enc, s);
    JpgEncSetImageSize(enc, w, h);
    EXPECT_EQ(ajlJpgEncoderScanlines(enc, &bm, h), 0x8010u);
    ajlJpgEncoderDestroy(enc);
    MStreamClose(s);
}
