// Reading the EXIF block from a JPEG stream, inserting a block in place, the
// extension-footer search, and an exiftool round trip of an inserted block.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>
#include <fstream>
#include <string>

#include "exif_test_util.h"
#include "scrivo/exif.h"

using namespace exiftest;

namespace {

// A growable memory stream holding bytes, closed on scope exit.
struct MemStream {
    MHStream s = MStreamOpenFromMemoryBlock(nullptr, 0);
    explicit MemStream(const Bytes& b) {
        MStreamWrite(s, b.data(), static_cast<int32_t>(b.size()));
    }
    ~MemStream() { MStreamClose(s); }
    Bytes bytes() const {
        Bytes out(static_cast<size_t>(MStreamGetSize(s)));
        const int32_t pos = MStreamTell(s);
        MStreamSeek(s, MSTREAM_SEEK_BEGIN, 0);
        MStreamRead(s, out.data(), static_cast<int32_t>(out.size()));
        MStreamSeek(s, MSTREAM_SEEK_BEGIN, pos);
        return out;
    }
};

Bytes Insert(const Bytes& jpeg, Bytes block, MRESULT* r) {
    MemStream m(jpeg);
    MStreamSeek(m.s, MSTREAM_SEEK_BEGIN, 5);
    *r = MExif_AddExifToJpegFile(m.s, block.data(), static_cast<uint32_t>(block.size()));
    EXPECT_EQ(MStreamTell(m.s), 5);
    return m.bytes();
}

Bytes ReadBlock(const Bytes& jpeg, MRESULT* r) {
    MemStream m(jpeg);
    MHExif exif = nullptr;
    EXPECT_EQ(MExif_Create(nullptr, &exif), MOK);
    *r = MExif_InitFromStream(exif, m.s);
    uint8_t* data = nullptr;
    uint32_t n = 0;
    EXPECT_EQ(MExif_LockExifData(exif, &data, &n), MOK);
    Bytes out(data, data + n);
    MExif_UnLockExifData(exif);
    MExif_Destroy(exif);
    return out;
}

std::string RunCommand(const std::string& cmd) {
    std::string out;
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr) return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    pclose(p);
    return out;
}

}  // namespace

TEST(ExifInsert, ReplacesSegmentsInPlace) {
    const Bytes jpeg = EncodeJpeg(33, 17);  // SOI, APP0 JFIF (18 bytes), DQT...
    // No EXIF: the JFIF segment is replaced and the file grows by the rest.
    const Bytes big = BuildExifBlock({true, 3, true, Bytes(1200 - 272, 0x11)});
    ASSERT_EQ(big.size(), 1200u);
    MRESULT r = 1;
    const Bytes withExif = Insert(jpeg, big, &r);
    ASSERT_EQ(r, MOK);
    ASSERT_EQ(withExif.size(), jpeg.size() - 18 + 1200);
    EXPECT_EQ(Bytes(withExif.begin() + 1202, withExif.end()), Bytes(jpeg.begin() + 20, jpeg.end()));
    EXPECT_EQ(ReadTiff16(withExif, kExifIfd + 2 + 4 * 12 + 10, true), 33u);  // +2: SOI
    Bytes read = ReadBlock(withExif, &r);
    EXPECT_EQ(r, MOK);
    EXPECT_EQ(read, Bytes(withExif.begin() + 2, withExif.begin() + 1202));

    // A 1000-byte block into the 1200-byte EXIF segment: same file length,
    // the segment stretched to 1198 with 200 bytes of 0xFF padding.
    const Bytes small = BuildExifBlock({false, 4, true, Bytes(1000 - 272, 0x22)});
    const Bytes replaced = Insert(withExif, small, &r);
    ASSERT_EQ(r, MOK);
    ASSERT_EQ(replaced.size(), withExif.size());
    EXPECT_EQ(replaced[4] << 8 | replaced[5], 1198);
    EXPECT_EQ(Bytes(replaced.begin() + 1002, replaced.begin() + 1202), Bytes(200, 0xFF));
    EXPECT_EQ(Bytes(replaced.begin() + 1202, replaced.end()), Bytes(jpeg.begin() + 20, jpeg.end()));
    int w = 0, h = 0;
    EXPECT_TRUE(DecodeJpeg(replaced, &w, &h));
    EXPECT_EQ(w * 100 + h, 3317);

    // Refusals keep the file and the position: SOS before the frame header,
    // not a JPEG, a segment running past the end, a fixed stream that
    // cannot grow.
    Bytes sosFirst = {0xFF, 0xD8, 0xFF, 0xDA, 0x00, 0x02, 0xFF, 0xC0, 0x00, 0x0B, 8, 0, 1, 0, 1};
    EXPECT_EQ(Insert(sosFirst, small, &r), sosFirst);
    EXPECT_EQ(r, MERR_UNSUPPORTED);
    Insert(Bytes(40, 0), small, &r);
    EXPECT_EQ(r, MERR_UNSUPPORTED);
    Bytes truncated(jpeg.begin(), jpeg.begin() + 10);
    Insert(truncated, small, &r);
    EXPECT_EQ(r, MERR_UNSUPPORTED);
    Bytes fixed = jpeg;
    MHStream f = MStreamOpenFromMemoryBlock(fixed.data(), static_cast<int32_t>(fixed.size()));
    Bytes bigCopy = big;
    EXPECT_EQ(MeAddExifToJpegFile(f, bigCopy.data(), 1200), MERR_WRITE_FAILED);
    EXPECT_EQ(MStreamTell(f), 0);
    MStreamClose(f);
    EXPECT_EQ(MeAddExifToJpegFile(nullptr, bigCopy.data(), 1200), MERR_INVALID_PARAM);

    // The reader: no EXIF gives an empty block, not-a-JPEG gives 3.
    EXPECT_TRUE(ReadBlock(jpeg, &r).empty());
    EXPECT_EQ(r, MOK);
    ReadBlock(Bytes(30, 0x55), &r);
    EXPECT_EQ(r, MERR_UNSUPPORTED);
}

namespace {
void CountLine(int, const char*, const char*, void* user) {
    ++*static_cast<int*>(user);
}
}  // namespace

// Failures are reported by result code only: the caller logs its own line
// for them, so a library line would print every failure twice.
TEST(ExifFailures, AreNotLoggedByTheLibrary) {
    int lines = 0;
    MLogSetSink(CountLine, &lines);
    EXPECT_EQ(MExif_Create(nullptr, nullptr), MERR_INVALID_PARAM);
    EXPECT_EQ(MExif_InitFromStream(nullptr, nullptr), MERR_INVALID_PARAM);
    EXPECT_EQ(MExif_LockExifData(nullptr, nullptr, nullptr), MERR_INVALID_PARAM);
    Bytes notJpeg(40, 0);
    MemStream m(notJpeg);
    uint8_t block[4] = {};
    EXPECT_EQ(MExif_AddExifToJpegFile(m.s, block, 4), MERR_UNSUPPORTED);
    MLogSetSink(nullptr, nullptr);
    EXPECT_EQ(lines, 0);
}

TEST(ExifFooter, FindsJpegEndBeforeExtensionBlock) {
    const Bytes jpeg = EncodeJpeg(8, 8);
    const int32_t n = static_cast<int32_t>(jpeg.size());
    // 30 bytes of contents, then tag, version, 10 bytes, block length.
    auto check = [&](const char* tag, uint8_t version, uint32_t length, MRESULT want, int32_t end) {
        Bytes b = jpeg;
        b.insert(b.end(), 30, 0xEE);
        b.insert(b.end(), tag, tag + 4);
        b.insert(b.end(), {version, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(length >> (8 * i)));
        MemStream m(b);
        int32_t got = -1;
        EXPECT_EQ(MeGetJpegDataEnd(m.s, &got), want) << tag << " " << length;
        EXPECT_EQ(got, end);
        EXPECT_EQ(MStreamTell(m.s), 0);
    };
    check("ZQTM", 16, 50, MOK, n);
    check("ZQTX", 16, 50, MERR_UNSUPPORTED, n + 50);
    check("ZQTM", 17, 50, MERR_UNSUPPORTED, n + 50);
    check("ZQTM", 16, 0xFFFFFFF0u, MERR_UNSUPPORTED, n + 50);  // longer than the file
    // A length under the footer's own 20 bytes is believed like any other
    // that leaves JPEG bytes in front; 0 puts the end at the stream's end.
    check("ZQTM", 16, 4, MOK, n + 46);
    check("ZQTM", 16, 0, MOK, n + 50);
    EXPECT_EQ(MeGetJpegDataEnd(nullptr, nullptr), MERR_INVALID_PARAM);
}

TEST(ExifInterop, ExiftoolReadsInsertedBlockCleanly) {
    if (access("/usr/bin/exiftool", X_OK) != 0) GTEST_SKIP() << "exiftool missing";
    // First a little-endian block grows a fresh JPEG; then a big-endian one
    // whose thumbnail was replaced by a smaller one goes into the result,
    // which pads the old segment; then one with its EXIF sub-IFD behind the
    // thumbnail, whose larger new thumbnail goes behind everything.
    Bytes out = EncodeJpeg(123, 77);
    const Bytes thumbs[2] = {EncodeJpeg(40, 30), EncodeJpeg(20, 14, true)};
    for (int pass = 0; pass < 3; ++pass) {
        SCOPED_TRACE(pass);
        const bool little = pass != 1;
        const Bytes& thumb = thumbs[pass == 1 ? 1 : 0];
        Bytes built = BuildExifBlock({little, 3, true, thumbs[pass == 2 ? 1 : 0]});
        if (pass == 2) built = WithExifIfdLast(built, little);
        uint8_t* block = static_cast<uint8_t*>(MMemAlloc(nullptr, built.size()));
        MMemCpy(block, built.data(), built.size());
        uint32_t length = static_cast<uint32_t>(built.size());
        ASSERT_EQ(MeReplaceThumbnailInExif(&block, &length, thumb.data(),
                                           static_cast<uint32_t>(thumb.size())),
                  MOK);
        MRESULT r = 1;
        out = Insert(out, Bytes(block, block + length), &r);
        MeFreeExifData(block);
        ASSERT_EQ(r, MOK);
        const std::string path = testing::TempDir() + "exif_interop.jpg";
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(out.data()), static_cast<long>(out.size()));
        const std::string report =
            RunCommand("/usr/bin/exiftool -validate -warning -a -G1 " + path);
        EXPECT_EQ(report.find("Warning"), std::string::npos) << report;
        EXPECT_NE(report.find("Validate                        : OK"), std::string::npos) << report;
        const std::string dims = RunCommand(
            "/usr/bin/exiftool -s3 -ExifIFD:ExifImageWidth -ExifIFD:ExifImageHeight " + path);
        EXPECT_EQ(dims, "123\n77\n");
        const std::string extracted = RunCommand("/usr/bin/exiftool -b -ThumbnailImage " + path);
        EXPECT_EQ(Bytes(extracted.begin(), extracted.end()), thumb);
        int w = 0, h = 0;
        EXPECT_TRUE(DecodeJpeg(Bytes(extracted.begin(), extracted.end()), &w, &h));
        EXPECT_EQ(w * 100 + h, little ? 4030 : 2014);
        std::remove(path.c_str());
    }
}
