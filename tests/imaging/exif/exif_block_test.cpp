// Thumbnail extraction and replacement, and image-size patching, on blocks
// built in both byte orders.
#include <gtest/gtest.h>

#include <algorithm>

#include "exif_test_util.h"
#include "scrivo/exif.h"

using namespace exiftest;

namespace {

// Copies bytes into a heap block the EXIF functions may reallocate.
struct HeapBlock {
    uint8_t* data = nullptr;
    uint32_t length = 0;
    explicit HeapBlock(const Bytes& b) : length(static_cast<uint32_t>(b.size())) {
        data = static_cast<uint8_t*>(MMemAlloc(nullptr, b.size()));
        MMemCpy(data, b.data(), b.size());
    }
    ~HeapBlock() { MeFreeExifData(data); }
    Bytes bytes() const { return Bytes(data, data + length); }
};

Bytes Thumbnail(const uint8_t* block, uint32_t length, MRESULT* r) {
    uint8_t* t = nullptr;
    uint32_t n = 0;
    *r = MeGetThumbnailData(block, length, &t, &n);
    Bytes out(t, t + n);
    MeFreeThumbnailData(t);
    return out;
}

}  // namespace

TEST(ExifThumbnail, ExtractAndReplaceInBothByteOrders) {
    const Bytes oldThumb = EncodeJpeg(16, 12);
    const Bytes newThumb = EncodeJpeg(10, 6, true);
    const Bytes trailer = {0xFF, 0xFE, 0x00, 0x04, 'h', 'i'};  // a COM segment after APP1
    for (bool little : {true, false}) {
        SCOPED_TRACE(little ? "II" : "MM");
        Bytes built = BuildExifBlock({little, 3, true, oldThumb});
        const size_t app1Size = built.size();
        built.insert(built.end(), trailer.begin(), trailer.end());
        HeapBlock block(built);
        MRESULT r = 1;
        EXPECT_EQ(Thumbnail(block.data, block.length, &r), oldThumb);
        EXPECT_EQ(r, MOK);

        ASSERT_EQ(MeReplaceThumbnailInExif(&block.data, &block.length, newThumb.data(),
                                           static_cast<uint32_t>(newThumb.size())),
                  MOK);
        const Bytes now = block.bytes();
        ASSERT_EQ(now.size(), built.size() - app1Size + 10 + kThumbOffset + newThumb.size());
        EXPECT_EQ((now[2] << 8 | now[3]) + 2u, 10 + kThumbOffset + newThumb.size());
        // The length entry (IFD1 entry 5) holds the new length in block order.
        EXPECT_EQ(ReadTiff32(now, kIfd1 + 2 + 5 * 12 + 8, little), newThumb.size());
        EXPECT_EQ(Bytes(now.end() - trailer.size(), now.end()), trailer);
        EXPECT_EQ(Thumbnail(block.data, block.length, &r), newThumb);

        // Length 0 erases the thumbnail but keeps its entries.
        ASSERT_EQ(MeReplaceThumbnailInExif(&block.data, &block.length, nullptr, 0), MOK);
        EXPECT_EQ(block.length, 10 + kThumbOffset + trailer.size());
        EXPECT_TRUE(Thumbnail(block.data, block.length, &r).empty());
        EXPECT_EQ(r, MOK);
    }
}

TEST(ExifThumbnail, OddBlocksAreLeftAloneOrRefused) {
    // No IFD1: nothing to do, the block is unchanged.
    const Bytes noIfd1 = BuildExifBlock({true, 3, false, {}});
    HeapBlock a(noIfd1);
    const Bytes thumb(100, 0xAB);
    EXPECT_EQ(MeReplaceThumbnailInExif(&a.data, &a.length, thumb.data(), 100), MOK);
    EXPECT_EQ(a.bytes(), noIfd1);

    // IFD1 linked back to IFD0 (a loop), and a thumbnail offset pointing into
    // IFD1's own table: refused, unchanged.
    Bytes loop = BuildExifBlock({true, 3, true, Bytes(50, 1)});
    loop[10 + 74 - 4] = kIfd0;
    Bytes intoSelf = BuildExifBlock({false, 3, true, Bytes(50, 1)});
    intoSelf[10 + kIfd1 + 2 + 4 * 12 + 11] = kIfd1 + 10;
    for (const Bytes& bad : {loop, intoSelf}) {
        HeapBlock b(bad);
        EXPECT_EQ(MeReplaceThumbnailInExif(&b.data, &b.length, thumb.data(), 100),
                  MERR_UNSUPPORTED);
        EXPECT_EQ(b.bytes(), bad);
    }

    // Every truncation of a good block is refused or harmless, never read
    // past (the sanitizers watch the exact-size heap copies).
    const Bytes good = BuildExifBlock({false, 3, true, Bytes(40, 7)});
    for (size_t n = 1; n < good.size(); ++n) {
        HeapBlock c(Bytes(good.begin(), good.begin() + static_cast<long>(n)));
        MRESULT r = 0;
        Thumbnail(c.data, c.length, &r);
        EXPECT_TRUE(r == MOK || r == MERR_UNSUPPORTED) << n;
        r = MeReplaceThumbnailInExif(&c.data, &c.length, thumb.data(), 100);
        EXPECT_TRUE(r == MOK || r == MERR_UNSUPPORTED) << n;
        r = MeReplaceImageSize(c.data, c.length, 5, 6);
        EXPECT_TRUE(r == MOK || r == MERR_UNSUPPORTED) << n;
    }
}

TEST(ExifThumbnail, OtherIfdsSurviveReplacementAndRemovalInAnyLayout) {
    const Bytes oldThumb = EncodeJpeg(16, 12);
    const Bytes smaller = EncodeJpeg(8, 6, true), larger = EncodeJpeg(40, 30);
    ASSERT_LT(smaller.size(), oldThumb.size());
    ASSERT_GT(larger.size(), oldThumb.size());
    const uint32_t link = kIfd0 + 2 + 5 * 12, exifPointer = link - 4;
    for (bool little : {true, false}) {
        SCOPED_TRACE(little ? "II" : "MM");
        const Bytes standard = BuildExifBlock({little, 4, true, oldThumb});
        const Bytes last = WithExifIfdLast(standard, little);
        // The segment length matches, the old picture is gone and the EXIF
        // sub-IFD is still where IFD0 says (its size fields can be patched).
        auto check = [&](const HeapBlock& b, const Bytes& thumb) {
            const Bytes now = b.bytes();
            EXPECT_EQ((now[2] << 8 | now[3]) + 2u, now.size());
            EXPECT_EQ(std::search(now.begin(), now.end(), oldThumb.begin(), oldThumb.end()),
                      now.end());
            MRESULT r = 1;
            EXPECT_EQ(Thumbnail(b.data, b.length, &r), thumb);
            EXPECT_EQ(r, MOK);
            ASSERT_EQ(MeReplaceImageSize(b.data, b.length, 321, 123), MOK);
            const uint32_t exif = ReadTiff32(now, exifPointer, little);
            EXPECT_EQ(ReadTiff32(b.bytes(), exif + 2 + 4 * 12 + 8, little), 321u);
        };
        for (const Bytes* t : {&smaller, &larger}) {
            HeapBlock b(last);
            ASSERT_EQ(MeReplaceThumbnailInExif(&b.data, &b.length, t->data(),
                                               static_cast<uint32_t>(t->size())),
                      MOK);
            check(b, *t);
            // A smaller one stays in place; a larger one goes behind the end.
            const uint32_t at = ReadTiff32(b.bytes(), kExifIfd + 2 + 4 * 12 + 8, little);
            EXPECT_EQ(at, t == &smaller ? kThumbOffset - (kIfd1 - kExifIfd) : last.size() - 10);
            EXPECT_EQ(b.length, t == &smaller ? last.size() : last.size() + t->size());
        }
        // Removal unlinks IFD1; it is cut off only where it lies last.
        for (const Bytes* layout : {&last, &standard}) {
            HeapBlock b(*layout);
            ASSERT_EQ(MeRemoveThumbnailFromExif(&b.data, &b.length), MOK);
            check(b, {});
            EXPECT_EQ(ReadTiff32(b.bytes(), link, little), 0u);
            EXPECT_EQ(b.length, layout == &last ? last.size() : 10 + kIfd1);
            EXPECT_EQ(MeRemoveThumbnailFromExif(&b.data, &b.length), MOK);  // nothing left
        }
    }
    // A thumbnail that would carry the segment past 65535 bytes is refused.
    const Bytes block = BuildExifBlock({true, 3, true, oldThumb});
    const Bytes huge(65536 - 8 - kThumbOffset, 1);
    HeapBlock b(block);
    EXPECT_EQ(MeReplaceThumbnailInExif(&b.data, &b.length, huge.data(),
                                       static_cast<uint32_t>(huge.size())),
              MERR_UNSUPPORTED);
    EXPECT_EQ(b.bytes(), block);
    EXPECT_EQ(MeReplaceThumbnailInExif(&b.data, &b.length, huge.data(),
                                       static_cast<uint32_t>(huge.size() - 1)),
              MOK);
    EXPECT_EQ(b.data[2] << 8 | b.data[3], 0xFFFF);
}

TEST(ExifImageSize, PatchesShortAndLongDimensions) {
    const uint32_t xPos = kExifIfd + 2 + 4 * 12, yPos = xPos + 12;
    for (bool little : {true, false}) {
        for (uint16_t type : {uint16_t{3}, uint16_t{4}}) {
            Bytes b = BuildExifBlock({little, type, true, Bytes(8, 0)});
            ASSERT_EQ(MeReplaceImageSize(b.data(), static_cast<uint32_t>(b.size()), 4000, 3000),
                      MOK);
            EXPECT_EQ(ReadTiff16(b, xPos + 2, little), type);
            const uint32_t x =
                type == 3 ? ReadTiff16(b, xPos + 8, little) : ReadTiff32(b, xPos + 8, little);
            EXPECT_EQ(x, 4000u);
            // A SHORT that must hold more than 16 bits becomes a LONG.
            ASSERT_EQ(MeReplaceImageSize(b.data(), static_cast<uint32_t>(b.size()), 4000, 70000),
                      MOK);
            EXPECT_EQ(ReadTiff16(b, yPos + 2, little), 4u);
            EXPECT_EQ(ReadTiff32(b, yPos + 8, little), 70000u);
        }
    }
    // An EXIF pointer back at IFD0 is refused without writing.
    Bytes loop = BuildExifBlock({true, 3, true, {}});
    loop[10 + kIfd0 + 2 + 4 * 12 + 8] = kIfd0;
    const Bytes before = loop;
    EXPECT_EQ(MeReplaceImageSize(loop.data(), static_cast<uint32_t>(loop.size()), 1, 1),
              MERR_UNSUPPORTED);
    EXPECT_EQ(loop, before);
    EXPECT_EQ(MeReplaceImageSize(nullptr, 0, 1, 1), MERR_INVALID_PARAM);
}

TEST(ExifOrientation, ReadsAndWritesInBothByteOrders) {
    const uint32_t entry = kIfd0 + 2 + 2 * 12;  // IFD0's SHORT 0x0128, retagged below
    for (bool little : {true, false}) {
        SCOPED_TRACE(little ? "II" : "MM");
        Bytes b = BuildExifBlock({little, 3, true, Bytes(8, 0)});
        const uint32_t n = static_cast<uint32_t>(b.size());
        auto put = [&](uint32_t off, uint32_t v, int bytes) {
            for (int i = 0; i < bytes; ++i)
                b[10 + off + (little ? i : bytes - 1 - i)] = static_cast<uint8_t>(v >> 8 * i);
        };
        int32_t o = 0;
        // Without the tag the block reads upright and setting it adds nothing.
        const Bytes untagged = b;
        EXPECT_EQ(MeGetOrientation(b.data(), n, &o), MOK);
        EXPECT_EQ(o, 1);
        EXPECT_EQ(MeSetOrientation(b.data(), n, 6), MOK);
        EXPECT_EQ(b, untagged);

        put(entry, 0x0112, 2);
        put(entry + 8, 8, 2);
        ASSERT_EQ(MeGetOrientation(b.data(), n, &o), MOK);
        EXPECT_EQ(o, 8);
        ASSERT_EQ(MeSetOrientation(b.data(), n, 3), MOK);
        EXPECT_EQ(ReadTiff16(b, entry + 8, little), 3u);
        EXPECT_EQ(MeGetOrientation(b.data(), n, &o), MOK);
        EXPECT_EQ(o, 3);
        // A LONG field is read, and written back as one SHORT.
        put(entry + 2, 4, 2);
        put(entry + 8, 7, 4);
        ASSERT_EQ(MeGetOrientation(b.data(), n, &o), MOK);
        EXPECT_EQ(o, 7);
        ASSERT_EQ(MeSetOrientation(b.data(), n, 5), MOK);
        EXPECT_EQ(ReadTiff16(b, entry + 2, little), 3u);
        EXPECT_EQ(ReadTiff32(b, entry + 8, little), little ? 5u : 5u << 16);
        // Values outside 1..8 read as upright; out-of-range requests are refused.
        put(entry + 8, 9, 2);
        EXPECT_EQ(MeGetOrientation(b.data(), n, &o), MOK);
        EXPECT_EQ(o, 1);
        const Bytes before = b;
        EXPECT_EQ(MeSetOrientation(b.data(), n, 0), MERR_INVALID_PARAM);
        EXPECT_EQ(MeSetOrientation(b.data(), n, 9), MERR_INVALID_PARAM);
        EXPECT_EQ(b, before);
    }
    // A broken block, a truncated one and null pointers give 2 and upright.
    Bytes bad = BuildExifBlock({true, 3, true, {}});
    bad[10 + 7] = 0xF0;  // IFD0 offset far past the end
    int32_t o = 0;
    EXPECT_EQ(MeGetOrientation(bad.data(), static_cast<uint32_t>(bad.size()), &o),
              MERR_INVALID_PARAM);
    EXPECT_EQ(o, 1);
    EXPECT_EQ(MeSetOrientation(bad.data(), static_cast<uint32_t>(bad.size()), 1),
              MERR_INVALID_PARAM);
    EXPECT_EQ(MeGetOrientation(bad.data(), 12, &o), MERR_INVALID_PARAM);
    EXPECT_EQ(MeGetOrientation(nullptr, 0, &o), MERR_INVALID_PARAM);
    EXPECT_EQ(MeGetOrientation(bad.data(), 0, nullptr), MERR_INVALID_PARAM);
}
