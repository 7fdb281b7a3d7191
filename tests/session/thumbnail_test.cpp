// Thumbnail replacement: the size rule, the block that never grows, and a
// real photograph's output as exiftool reads it.
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

TEST(SessionThumbnail, SizeRuleAndABlockThatNeverGrows) {
    Manager m;
    QvSession* s = QvSession_Create(m.m);
    exiftest::BlockOptions o;
    o.thumbnail.assign(5000, 0x55);
    const Bytes block = exiftest::BuildExifBlock(o);
    Bytes jpeg, thumb;

    auto lines = Replace(s, block, 5000, 1000, 1400, false, &jpeg);
    EXPECT_EQ(lines[3], "RepalceExifInfoThumbnail lWidth = 114, lHeight = 160");
    EXPECT_EQ(lines[6], "RepalceExifInfoThumbnail MeReplaceThumbnailInExif res = 0");
    lines = Replace(s, block, 5000, 1400, 1000, false, &jpeg);
    EXPECT_EQ(lines[3], "RepalceExifInfoThumbnail lWidth = 160, lHeight = 114");
    ExifOf(jpeg, &thumb);
    EXPECT_LT(thumb.size(), 5000u);
    EXPECT_EQ(thumb[0], 0xFF);
    EXPECT_EQ(thumb[1], 0xD8);
    // A sliver keeps an even side of at least 2.
    lines = Replace(s, block, 5000, 2000, 4, false, &jpeg);
    EXPECT_EQ(lines[3], "RepalceExifInfoThumbnail lWidth = 160, lHeight = 2");

    // Noise does not compress, not even at the lowest quality tried: the
    // old thumbnail is blanked in place instead and the block keeps its size.
    o.thumbnail.assign(1000, 0x55);
    const Bytes small = exiftest::BuildExifBlock(o);
    lines = Replace(s, small, 1000, 320, 228, true, &jpeg);
    EXPECT_EQ(lines[6], "RepalceExifInfoThumbnail MeReplaceThumbnailInExif(Erase) res = 0");
    EXPECT_EQ(s->m_dwExifDataLen, small.size());
    EXPECT_EQ(ExifOf(jpeg, &thumb).size(), small.size());
    EXPECT_EQ(thumb, Bytes(1000, 0));

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
    // Its own thumbnail is small (under 3 KB): the page's either fits or the
    // old one is blanked in place, never left showing the photograph.
    Bytes thumb;
    ASSERT_FALSE(ExifOf(page, &thumb).empty());
    ASSERT_GT(thumb.size(), 2u);
    const bool blanked = std::all_of(thumb.begin(), thumb.end(), [](uint8_t b) { return b == 0; });
    if (!blanked) {
        EXPECT_EQ(thumb[0] << 8 | thumb[1], 0xFFD8);
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
    EXPECT_EQ(after["ThumbnailLength"], std::to_string(thumb.size()));
    if (blanked) {
        EXPECT_EQ(after["ThumbnailLength"], before["ThumbnailLength"]);
    }
}
