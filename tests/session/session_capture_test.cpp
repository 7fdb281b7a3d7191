// One whole capture through the session steps, with the exact log lines,
// and the failure paths of each step.
#include <gtest/gtest.h>

#include "session/session_internal.h"
#include "support/capture_test_util.h"

using namespace capturetest;

namespace {

const std::vector<std::string> kThumbnailLines = {
    "RepalceExifInfoThumbnail in <----",
    "RepalceExifInfoThumbnail ConvertCS time = N ms",
    "RepalceExifInfoThumbnail ConvertCS res = 0",
    "RepalceExifInfoThumbnail lWidth = 160, lHeight = 120",
    "RepalceExifInfoThumbnail MdBitmapSave res = 0",
    "RepalceExifInfoThumbnail m_ThumbStreamLength = N",
    "RepalceExifInfoThumbnail MeReplaceThumbnailInExif res = 0",
    "SetExifInfo in <----",
    "SetExifInfo out ---->",
    "RepalceExifInfoThumbnail SetExifInfo res = 0",
    "RepalceExifInfoThumbnail out ---->"};

std::vector<std::string> Cat(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A 400 x 300 photograph whose EXIF thumbnail is a 5000-byte (padded) JPEG.
Bytes Photograph(MHAMCM m) {
    exiftest::BlockOptions o;
    o.thumbnail = EncodeRgba(m, Picture(160, 120, true), 160, 120, 50);
    o.thumbnail.resize(5000, 0);
    return WithExif(EncodeRgba(m, Picture(400, 300), 400, 300), exiftest::BuildExifBlock(o));
}

}  // namespace

TEST(SessionCapture, WholeCaptureLogsExactlyAndCarriesTheExifBlock) {
    Manager m;
    LogCollector log;
    QvSession* s = QvSession_Create(m.m);
    const Bytes photo = Photograph(m.m);
    Bytes oldThumb;
    ExifOf(photo, &oldThumb);
    const size_t blockLen = ExifOf(photo).size();

    VPHandle h = QvSession_CreateEngine(s, photo.data(), int32_t(photo.size()));
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(QvSession_GetThumbLength(s), 5000);
    EXPECT_EQ(log.Take(),
              (std::vector<std::string>{
                  "JNI_CreateEngine in <----",
                  "JNI_CreateEngine jpegData length = " + std::to_string(photo.size()),
                  "QvNote performance native decode cost N",
                  "JNI_CreateEngine srcBmp width:400,height:300", "GetExifInfo in <----",
                  "GetExifInfo m_dwExifDataLen = " + std::to_string(blockLen),
                  "GetExifInfo MeGetThumbnailData res = 0",
                  "GetExifInfo MdExifGetFieldData lThumbLength = 5000", "GetExifInfo out ---->",
                  "JNI_CreateEngine GetExifInfo res = 0",
                  "QvNote performance native VPCreateDocuviaClient cost N",
                  "JNI_CreateEngine out ---->"}));

    tagVPPoint quad[4] = {{0, 0}, {0, 300}, {400, 300}, {400, 0}};
    tagVPPoint found[4] = {{1, 2}, {3, 4}, {5, 6}, {7, 8}};
    const int32_t findRes = QvSession_FindPageVertex(s, h, found, 4);
    std::vector<std::string> findLines = {"JNI_FindPageVertex in <----",
                                          "QvNote performance native VPFindPageVertex cost N"};
    if (findRes == 0) findLines.push_back("JNI_FindPageVertex out ---->");
    if (findRes == 1) {
        EXPECT_EQ(found[3].x, 7);  // left unchanged
    }
    EXPECT_EQ(log.Take(), findLines);

    int32_t w = 0, hh = 0;
    ASSERT_EQ(QvSession_GetRectifiedImageSize(s, h, quad, 4, &w, &hh), 0);
    ASSERT_EQ(w, 400);
    ASSERT_EQ(hh, 300);
    FakeBitmap bmp(w, hh);
    QvBitmapAccess access = bmp.Access();
    EXPECT_EQ(QvSession_GetRectifiedImage(s, h, quad, 4, &access), 0);
    EXPECT_LT(MeanDiff(bmp.pixels, Picture(400, 300)), 4.0);
    EXPECT_EQ(bmp.pixels[3], 255);

    uint8_t* data = nullptr;
    int32_t len = 0;
    ASSERT_EQ(QvSession_GetRectifiedImageData(s, h, quad, 4, &data, &len), 0);
    const Bytes page(data, data + len);
    QvSession_FreeData(data);
    ASSERT_EQ(QvSession_GetEnhancedImageData(s, h, VP_ENHANCE_NONE, &data, &len), 0);
    QvSession_FreeData(data);
    EXPECT_EQ(QvSession_GetEnhancedImage(s, h, VP_ENHANCE_NONE, &access), 0);
    QvSession_ReleaseEngine(s, h);
    EXPECT_EQ(QvSession_GetExifLength(s), 0u);

    EXPECT_EQ(log.Take(),
              Cat(Cat(Cat(Cat({"JNI_GetRectifiedImageSize in <----",
                               "QvNote performance native VPGetRectifiedImageSize cost N",
                               "JNI_GetRectifiedImageSize out ---->",
                               "JNI_GetRectifiedImage in <----", "JNI_GetRectifiedImage format=1",
                               "QvNote performance native VPRectifyVertexArea cost N",
                               "JNI_GetRectifiedImage out ---->", "JNI_GetRectifiedImage in <----",
                               "QvNote performance native VPRectifyVertexArea cost N"},
                              kThumbnailLines),
                          {"JNI_GetRectifiedImageData RepalceExifInfoThumbnail res = 0",
                           "QvNote performance native encode cost N",
                           "JNI_GetEnhancedImageData in <----"}),
                      kThumbnailLines),
                  {"JNI_GetEnhancedImageData RepalceExifInfoThumbnail res = 0",
                   "JNI_GetEnhancedImageData out ---->", "JNI_GetEnhancedImage in <----",
                   "JNI_GetEnhancedImage format=1", "JNI_GetEnhancedImage out ---->",
                   "QvNote performance native VPReleaseDocuviaClient cost N",
                   "ReleaseExifInfo in <----", "ReleaseExifInfo out ---->"}));

    // The page's JPEG: the photograph's block, pixel sizes of the page, and
    // a thumbnail made from the page rather than the photograph's own.
    Bytes thumb;
    const Bytes block = ExifOf(page, &thumb);
    ASSERT_FALSE(block.empty());
    EXPECT_LE(block.size(), blockLen);
    EXPECT_EQ(exiftest::ReadTiff32(block, exiftest::kExifIfd + 2 + 4 * 12 + 8, true), 400u);
    EXPECT_EQ(exiftest::ReadTiff32(block, exiftest::kExifIfd + 2 + 5 * 12 + 8, true), 300u);
    ASSERT_FALSE(thumb.empty());
    EXPECT_NE(thumb, oldThumb);
    MBITMAP decoded{};
    decoded.pixelFormat = MPAF_RGBA8888;
    ASSERT_EQ(MCodec_DecodeData(m.m, thumb.data(), int32_t(thumb.size()), &decoded), 0);
    EXPECT_EQ(decoded.width, 160);
    EXPECT_EQ(decoded.height, 120);
    const Bytes small(decoded.plane[0], decoded.plane[0] + 160 * 120 * 4);
    MdBitmapFree(nullptr, &decoded);
    EXPECT_LT(MeanDiff(small, Picture(160, 120)), 6.0);
    QvSession_Destroy(s);
}

TEST(SessionCapture, FailurePathsAnswerWithTheirCodesAndLines) {
    Manager m;
    LogCollector log;
    QvSession* s = QvSession_Create(m.m);
    const Bytes junk = {0xFF, 0xD8, 0xFF, 0xE0, 1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(QvSession_CreateEngine(s, junk.data(), int32_t(junk.size())), nullptr);
    const std::vector<std::string> lines = log.Take();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[3].rfind("JNI_CreateEngine DecodeJPEG fail res = ", 0), 0u);
    EXPECT_NE(lines[3], "JNI_CreateEngine DecodeJPEG fail res = 0");
    EXPECT_EQ(lines[4], "JNI_CreateEngine out ---->");
    EXPECT_EQ(QvSession_CreateEngine(s, nullptr, 10), nullptr);
    EXPECT_EQ(log.Take().back(), "JNI_CreateEngine MStreamOpenFromMemoryBlock fail");

    // A photograph without EXIF: accepted, and its pages are plain JPEGs.
    const Bytes plain = EncodeRgba(m.m, Picture(64, 48), 64, 48);
    VPHandle h = QvSession_CreateEngine(s, plain.data(), int32_t(plain.size()));
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(log.Take()[5], "GetExifInfo Exif info is null");

    tagVPPoint quad[4] = {{0, 0}, {0, 48}, {64, 48}, {64, 0}};
    uint8_t* data = reinterpret_cast<uint8_t*>(1);
    int32_t len = 7;
    // Enhanced bytes before anything was rectified: nothing delivered.
    EXPECT_EQ(QvSession_GetEnhancedImageData(s, h, VP_ENHANCE_NONE, &data, &len),
              QV_SESSION_NOT_RECTIFIED);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(log.Take(), (std::vector<std::string>{"JNI_GetEnhancedImageData in <----",
                                                    "JNI_GetEnhancedImageData out ---->"}));
    // Three points: a bad argument for every step that takes points.
    EXPECT_EQ(QvSession_FindPageVertex(s, h, quad, 3), 2);
    EXPECT_EQ(QvSession_GetRectifiedImageSize(s, h, quad, 3, nullptr, nullptr), 2);
    EXPECT_EQ(QvSession_GetRectifiedImage(s, h, quad, 3, nullptr), 2);
    EXPECT_EQ(QvSession_GetRectifiedImageData(s, h, quad, 3, &data, &len), 2);
    EXPECT_EQ(log.Take(), (std::vector<std::string>{
                              "JNI_FindPageVertex in <----", "JNI_GetRectifiedImageSize in <----",
                              "JNI_GetRectifiedImage in <----", "JNI_GetRectifiedImage in <----"}));
    ASSERT_EQ(QvSession_GetRectifiedImageData(s, h, quad, 4, &data, &len), 0);
    EXPECT_TRUE(ExifOf(Bytes(data, data + len)).empty());
    QvSession_FreeData(data);
    log.Take();

    // Bitmap checks, in the order they are made.
    EXPECT_EQ(QvSession_GetRectifiedImage(s, h, quad, 4, nullptr), 4);
    EXPECT_EQ(QvSession_GetEnhancedImage(s, h, 1, nullptr), 4);
    FakeBitmap bad(64, 48);
    QvBitmapAccess access = bad.Access();
    bad.infoCode = -3;
    EXPECT_EQ(QvSession_GetRectifiedImage(s, h, quad, 4, &access), -3);
    bad.infoCode = 0;
    bad.info.format = 4;
    EXPECT_EQ(QvSession_GetEnhancedImage(s, h, 1, &access), 2);
    bad.info.format = QV_BITMAP_FORMAT_RGBA_8888;
    bad.lockCode = -1;
    EXPECT_EQ(QvSession_GetRectifiedImage(s, h, quad, 4, &access), 2);
    bad.lockCode = 0;
    bad.nullPixels = true;
    EXPECT_EQ(QvSession_GetEnhancedImage(s, h, 1, &access), 2);
    EXPECT_EQ(log.Take(),
              (std::vector<std::string>{
                  "JNI_GetRectifiedImage in <----", "JNI_GetRectifiedImage [Ln631] bitmap=MNull",
                  "JNI_GetEnhancedImage in <----", "JNI_GetEnhancedImage [Ln785] bitmap=MNull",
                  "JNI_GetRectifiedImage in <----",
                  "JNI_GetRectifiedImage AndroidBitmap_getInfo Error: -3",
                  "JNI_GetEnhancedImage in <----", "JNI_GetEnhancedImage format=4",
                  "JNI_GetEnhancedImage info.format != ANDROID_BITMAP_FORMAT_RGBA_8888",
                  "JNI_GetRectifiedImage in <----", "JNI_GetRectifiedImage format=1",
                  "JNI_GetRectifiedImage AndroidBitmap_lockPixels  Error",
                  "JNI_GetEnhancedImage in <----", "JNI_GetEnhancedImage format=1",
                  "JNI_GetEnhancedImage pixels = MNull"}));
    EXPECT_EQ(QvSession_ReleaseEngine(s, h), 0);
    // Null sessions are answered, never followed.
    EXPECT_EQ(QvSession_CreateEngine(nullptr, plain.data(), 10), nullptr);
    EXPECT_EQ(QvSession_GetRectifiedImageData(nullptr, nullptr, quad, 4, &data, &len), 2);
    EXPECT_EQ(QvSession_ReleaseEngine(nullptr, nullptr), 2);
    QvSession_Destroy(s);
}
