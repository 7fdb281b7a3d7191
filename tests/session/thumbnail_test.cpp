// Thumbnail replacement: the size rule, a thumbnail that is valid or gone,
// the desktop's full thumbnail, every IFD kept, and a real photograph's
// output as exiftool reads it.
#include <gtest/gtest.h>
#include <algorithm>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>

#include "session/session_internal.h"
#include "support/capture_test_util.h"

using namespace capturetest;

namespace {

// Encodes a page into a growable stream and runs the replacement on it with
// the given block kept; returns the log lines and the page's JPEG.
std::vector<std::string> Replace(QvSession* s, const Bytes& block, int32_t thumbLength, int w,
                                 int h, bool noise, Bytes* jpeg) {
    LogCollector log;
    s->DropExif();
    s->m_pExifData = static_cast<uint8_t*>(MMemAlloc(nullptr, block.size()));
    std::copy(block.begin(), block.end(), s->m_pExifData);
    s->m_dwExifDataLen = uint32_t(block.size());
    s->lThumbLength = thumbLength;
    Bytes px = Picture(w, h, noise);
    MBITMAP page{MPAF_RGBA8888, w, h, {w * 4}, {px.data()}};
    MHStream st = MStreamOpenFromMemoryBlock(nullptr, 0);
    EXPECT_EQ(MdBitmapSave(s->m_hAMCM, st, MD_FILETYPE_JPEG, &page), 0u);
    EXPECT_EQ(RepalceExifInfoThumbnail(s, st, &page), 0u);
    jpeg->resize(size_t(MStreamGetSize(st)));
    MStreamSeek(st, 0, 0);
    MStreamRead(st, jpeg->data(), int32_t(jpeg->size()));
    MStreamClose(st);
    return log.Take();
}

bool Logged(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// The page's block: its thumbnail is a JPEG that decodes cleanly (its size
// returned), or there is none and IFD0 no longer links to IFD1.
std::pair<int, int> CheckThumbnail(const Bytes& jpeg, bool little, Bytes* block) {
    Bytes thumb;
    *block = ExifOf(jpeg, &thumb);
    EXPECT_FALSE(block->empty());
    int w = 0, h = 0;
    if (thumb.empty())
        EXPECT_EQ(exiftest::ReadTiff32(*block, exiftest::kIfd0 + 2 + 5 * 12, little), 0u);
    else
        EXPECT_TRUE(exiftest::DecodeJpeg(thumb, &w, &h));
    return {w, h};
}

std::map<std::string, std::string> ExifTool(const std::string& path) {
    std::map<std::string, std::string> tags;
    const std::string cmd =
        "/usr/bin/exiftool -S -Warning -Make -Model -DateTimeOriginal "
        "-ExifImageWidth -ExifImageHeight -ThumbnailLength '" +
        path + "'";
    FILE* p = popen(cmd.c_str(), "r");
    char line[512];
    while (p && std::fgets(line, sizeof line, p)) {
        std::string l(line);
        const size_t colon = l.find(": ");
        if (colon != std::string::npos)
            tags[l.substr(0, colon)] = l.substr(colon + 2, l.find_last_not_of("\r\n") - colon - 1);
    }
    if (p) pclose(p);
    return tags;
}

}  // namespace

TEST(SessionThumbnail, SizeRuleAndAThumbnailThatIsValidOrGone) {
    Manager m;
    QvSession* s = QvSession_Create(m.m);
    exiftest::BlockOptions o;
    o.thumbnail.assign(5000, 0x55);
    const Bytes block = exiftest::BuildExifBlock(o);
    Bytes jpeg, out;

    auto lines = Replace(s, block, 5000, 1000, 1400, false, &jpeg);
    EXPECT_EQ(lines[3], "RepalceExifInfoThumbnail lWidth = 114, lHeight = 160");
    EXPECT_EQ(lines[6], "RepalceExifInfoThumbnail MeReplaceThumbnailInExif res = 0");
    lines = Replace(s, block, 5000, 1400, 1000, false, &jpeg);
    EXPECT_EQ(lines[3], "RepalceExifInfoThumbnail lWidth = 160, lHeight = 114");
    EXPECT_EQ(CheckThumbnail(jpeg, true, &out), std::pair(160, 114));
    // A sliver keeps an even side of at least 2.
    lines = Replace(s, block, 5000, 2000, 4, false, &jpeg);
    EXPECT_EQ(lines[3], "RepalceExifInfoThumbnail lWidth = 160, lHeight = 2");

    // Noise does not compress: in a photograph's 2000 bytes a smaller, lower
    // quality thumbnail takes the place; in 300 none fits and the thumbnail
    // is removed. Never zero bytes, and the block never grows.
    for (uint32_t room : {2000u, 300u}) {
        o.thumbnail.assign(room, 0x55);
        const Bytes small = exiftest::BuildExifBlock(o);
        lines = Replace(s, small, int32_t(room), 320, 228, true, &jpeg);
        EXPECT_EQ(Logged(lines, "RepalceExifInfoThumbnail MeReplaceThumbnailInExif(Erase) res = 0"),
                  room == 300);
        const auto [w, h] = CheckThumbnail(jpeg, true, &out);
        EXPECT_EQ(w > 0, room == 2000);
        EXPECT_LT(w, 160);
        EXPECT_LE(out.size(), small.size());
    }
    // A session whose block may grow carries the full thumbnail.
    QvSession_SetThumbnailMayGrow(s, 1);
    lines = Replace(s, block, 300, 320, 228, true, &jpeg);
    EXPECT_EQ(CheckThumbnail(jpeg, true, &out), std::pair(160, 114));
    EXPECT_GT(out.size(), block.size());
    QvSession_SetThumbnailMayGrow(s, 0);

    // A new photograph drops the previous one's block even without EXIF.
    const Bytes photo = WithExif(EncodeRgba(m.m, Picture(64, 48), 64, 48), block);
    VPHandle h = QvSession_CreateEngine(s, photo.data(), int32_t(photo.size()));
    EXPECT_EQ(QvSession_GetExifLength(s), block.size());
    const Bytes plain = EncodeRgba(m.m, Picture(64, 48), 64, 48);
    VPHandle h2 = QvSession_CreateEngine(s, plain.data(), int32_t(plain.size()));
    EXPECT_EQ(QvSession_GetExifLength(s), 0u);
    EXPECT_EQ(QvSession_GetThumbLength(s), 0);
    QvSession_ReleaseEngine(s, h);
    QvSession_ReleaseEngine(s, h2);
    QvSession_Destroy(s);
}

TEST(SessionThumbnail, EveryIfdSurvivesAndAnUnrewritableBlockIsKept) {
    Manager m;
    QvSession* s = QvSession_Create(m.m);
    const uint32_t exifPointer = exiftest::kIfd0 + 2 + 4 * 12 + 8;
    Bytes jpeg, out;
    for (bool little : {true, false}) {
        SCOPED_TRACE(little ? "II" : "MM");
        // The EXIF sub-IFD behind the thumbnail: replaced in place, or the
        // thumbnail removed; the page's width reaches PixelXDimension.
        exiftest::BlockOptions o{little, 4, true, Bytes(3000, 0x55)};
        const Bytes last = exiftest::WithExifIfdLast(exiftest::BuildExifBlock(o), little);
        for (int32_t room : {3000, 200}) {
            Replace(s, last, room, 320, 228, room == 200, &jpeg);
            CheckThumbnail(jpeg, little, &out);
            ASSERT_EQ(out.size(), last.size());
            const uint32_t exif = exiftest::ReadTiff32(out, exifPointer, little);
            EXPECT_EQ(exiftest::ReadTiff32(out, exif + 2 + 4 * 12 + 8, little), 320u);
        }
    }
    // IFD0's XResolution pointing past the segment: no byte of the block can
    // be told to be free, so it goes in as it was, old thumbnail and all.
    Bytes bad = exiftest::BuildExifBlock({true, 4, true, Bytes(50, 1)});
    bad[10 + exiftest::kIfd0 + 2 + 8 + 1] = 0x40;
    const auto lines = Replace(s, bad, 50, 320, 228, false, &jpeg);
    EXPECT_TRUE(Logged(lines,
                       "RepalceExifInfoThumbnail EXIF block kept unchanged, with the "
                       "photograph's thumbnail"));
    ASSERT_EQ(MeReplaceImageSize(bad.data(), uint32_t(bad.size()), 320, 228), MOK);
    EXPECT_EQ(ExifOf(jpeg), bad);
    QvSession_Destroy(s);
}

TEST(SessionThumbnail, CameraPhotographReadsCleanlyInExiftool) {
    const std::string src = std::string(SCRIVO_TEST_DATA_DIR) + "/synth-dev/0001.jpg";
    std::ifstream in(src, std::ios::binary);
    if (!in) GTEST_SKIP() << "no sample photographs";
    const Bytes photo((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Manager m;
    QvSession* s = QvSession_Create(m.m);
    QvSession_SetJpegQuality(s, 80);
    VPHandle h = QvSession_CreateEngine(s, photo.data(), int32_t(photo.size()));
    ASSERT_NE(h, nullptr);
    tagVPPoint quad[4] = {{200, 100}, {150, 1000}, {1700, 1050}, {1800, 50}};
    int32_t w = 0, hh = 0;
    ASSERT_EQ(QvSession_GetRectifiedImageSize(s, h, quad, 4, &w, &hh), 0);
    uint8_t* data = nullptr;
    int32_t len = 0;
    ASSERT_EQ(QvSession_GetRectifiedImageData(s, h, quad, 4, &data, &len), 0);
    const Bytes page(data, data + len);
    QvSession_FreeData(data);
    QvSession_ReleaseEngine(s, h);
    QvSession_Destroy(s);
    // Its own thumbnail is small (under 7 KB): the page's fits, smaller if
    // need be, or is removed; it is never left invalid.
    Bytes thumb;
    ASSERT_FALSE(ExifOf(page, &thumb).empty());
    int tw = 0, th = 0;
    if (!thumb.empty()) {
        EXPECT_TRUE(exiftest::DecodeJpeg(thumb, &tw, &th));
    }

    if (!std::ifstream("/usr/bin/exiftool")) GTEST_SKIP() << "no exiftool";
    const std::string out = ::testing::TempDir() + "session_exif_page.jpg";
    std::ofstream(out, std::ios::binary)
        .write(reinterpret_cast<const char*>(page.data()), std::streamsize(page.size()));
    auto before = ExifTool(src), after = ExifTool(out);
    std::remove(out.c_str());
    EXPECT_EQ(after.count("Warning"), 0u) << after["Warning"];
    for (const char* tag : {"Make", "Model", "DateTimeOriginal"}) {
        EXPECT_FALSE(before[tag].empty()) << tag;
        EXPECT_EQ(after[tag], before[tag]) << tag;
    }
    // The photograph may carry no pixel-size fields; those it has follow the page.
    for (auto [tag, value] : {std::pair{"ExifImageWidth", w}, std::pair{"ExifImageHeight", hh}})
        EXPECT_TRUE(!after.count(tag) || after[tag] == std::to_string(value)) << after[tag];
    EXPECT_EQ(after.count("ThumbnailLength"), thumb.empty() ? 0u : 1u);
    if (!thumb.empty()) {
        EXPECT_EQ(after["ThumbnailLength"], std::to_string(thumb.size()));
    }
}
