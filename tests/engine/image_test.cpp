// Records and working images: reading padded and 32-bit records, copying out
// (size checks, padding, alpha, grey, centring), views, rotation against its
// pixel mapping and resampling into caller records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "engine/image.h"

namespace {

cv::Mat Noise(int rows, int cols, int type, uint64_t seed) {
    cv::Mat m(rows, cols, type);
    cv::RNG rng(seed);
    rng.fill(m, cv::RNG::UNIFORM, 0, 256);
    return m;
}

// Destination (x', y') of each code, straight from the mapping's definition.
cv::Mat RotateReference(const cv::Mat& s, int code) {
    const int W = s.cols, H = s.rows;
    cv::Mat d = code == 2 ? cv::Mat(H, W, s.type()) : cv::Mat(W, H, s.type());
    for (int y = 0; y < d.rows; ++y) {
        for (int x = 0; x < d.cols; ++x) {
            const cv::Point p = code == 1   ? cv::Point(W - 1 - y, x)
                                : code == 2 ? cv::Point(W - 1 - x, H - 1 - y)
                                            : cv::Point(y, H - 1 - x);
            std::memcpy(d.ptr(y, x), s.ptr(p.y, p.x), s.elemSize());
        }
    }
    return d;
}

bool Same(const cv::Mat& a, const cv::Mat& b) {
    return a.size() == b.size() && a.type() == b.type() &&
           cv::norm(a.reshape(1), b.reshape(1), cv::NORM_INF) == 0;
}

}  // namespace

TEST(ImageRecord, ReadsRecords) {
    // 24-bit rows are read at their padded length (101 -> 304 bytes).
    std::vector<uint8_t> buf(304 * 3);
    for (size_t i = 0; i < buf.size(); ++i) buf[i] = static_cast<uint8_t>(i % 251);
    tagVPImage rec = {0, 3, 8, 101, 304, 3, buf.data()};
    cv::Mat m = CreateCvImageFromVPImage(&rec);
    ASSERT_EQ(CV_8UC3, m.type());
    EXPECT_EQ(cv::Vec3b(buf[608 + 300], buf[609 + 300], buf[610 + 300]), m.at<cv::Vec3b>(2, 100));
    // A view of the same buffer shares it.
    EXPECT_EQ(buf.data() + 304, CreateCvImageHeadFromVPImage(&rec).ptr(1));

    // 32-bit: the fourth byte is dropped.
    std::vector<uint8_t> rgba = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    tagVPImage rec4 = {0, 4, 8, 3, 12, 1, rgba.data()};
    m = CreateCvImageFromVPImage(&rec4);
    EXPECT_EQ(cv::Vec3b(9, 10, 11), m.at<cv::Vec3b>(0, 2));

    // YUV 3 x 3 goes through the padded converter into a continuous image.
    std::vector<uint8_t> yuv(17, 128), rgb(36);
    yuv[4] = 200;
    tagVPImage recY = {1, 3, 8, 3, 3, 3, yuv.data()};
    m = CreateCvImageFromVPImage(&recY);
    ASSERT_EQ(1, YUV420toRGB24_convert(yuv.data(), rgb.data(), 3, 3));
    EXPECT_EQ(cv::Vec3b(rgb[15], rgb[16], rgb[17]), m.at<cv::Vec3b>(1, 1));

    // Bad records give nothing.
    EXPECT_TRUE(CreateCvImageFromVPImage(nullptr).empty());
    for (tagVPImage bad :
         {tagVPImage{0, 3, 8, 101, 303, 3, buf.data()},  // short pitch
          tagVPImage{0, 3, 16, 101, 304, 3, buf.data()}, tagVPImage{0, 3, 8, 0, 304, 3, buf.data()},
          tagVPImage{2, 3, 8, 101, 304, 3, buf.data()}}) {
        EXPECT_TRUE(CreateCvImageFromVPImage(&bad).empty());
    }
}

TEST(ImageRecord, CopiesOut) {
    const cv::Mat img = Noise(3, 101, CV_8UC3, 1);
    std::vector<uint8_t> out(304 * 3, 0xEE);
    tagVPImage rec = {0, 3, 8, 101, 304, 3, out.data()};
    ASSERT_EQ(1, CopyCvImage2VPImageBuffer(img, &rec));
    EXPECT_EQ(0xEE, out[303]);  // padding untouched
    EXPECT_TRUE(Same(img, CreateCvImageFromVPImage(&rec)));

    // Size or depth mismatch copies nothing; YUV records are skipped.
    std::vector<uint8_t> spare(out.size(), 0x11);
    for (tagVPImage r : {tagVPImage{0, 3, 8, 100, 304, 3, spare.data()},
                         tagVPImage{0, 3, 16, 101, 304, 3, spare.data()},
                         tagVPImage{0, 3, 8, 101, 300, 3, spare.data()}}) {
        EXPECT_EQ(0, CopyCvImage2VPImageBuffer(img, &r));
    }
    tagVPImage yuvRec = {1, 3, 8, 101, 304, 3, spare.data()};
    EXPECT_EQ(1, CopyCvImage2VPImageBuffer(img, &yuvRec));
    EXPECT_EQ(std::vector<uint8_t>(out.size(), 0x11), spare);

    // 32-bit with alpha 255; grey goes out as three equal bytes.
    cv::Mat grey(1, 2, CV_8UC1, cv::Scalar(0));
    grey.at<uint8_t>(0, 1) = 77;
    std::vector<uint8_t> argb(8);
    tagVPImage rec4 = {0, 4, 8, 2, 8, 1, argb.data()};
    ASSERT_EQ(1, CopyCvImage2VPImageBuffer(grey, &rec4));
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0, 0xFF, 77, 77, 77, 0xFF}), argb);

    // The 32-bit head owns its block but keeps the 3-channel step.
    const cv::Mat small = Noise(5, 7, CV_8UC3, 2);
    std::unique_ptr<tagVPImage, void (*)(tagVPImage*)> head(CreateVPImage32HeadFromCvImage(small),
                                                            FreeVPImage32Head);
    ASSERT_TRUE(head);
    EXPECT_EQ(21, head->pitch);
    EXPECT_EQ(1, CopyCvImage2VPImageBuffer(small, head.get()));
    std::unique_ptr<tagVPImage, void (*)(tagVPImage*)> view(CreateVPImageHeadFromCvImage(small),
                                                            FreeVPImageHead);
    EXPECT_EQ(small.data, view->data);
    EXPECT_EQ(1, CopyCvImage2VPImageBuffer(small, view.get()));  // onto itself

    // Centring a smaller image in a larger record.
    std::vector<uint8_t> wide(Align4Row(9) * 7, 0);
    tagVPImage rec9 = {0, 3, 8, 9, Align4Row(9), 7, wide.data()};
    ASSERT_EQ(1, CopyCvImage2VPImageBuffer2(small, &rec9));  // at (1, 1)
    EXPECT_EQ(small.at<cv::Vec3b>(4, 6), CreateCvImageFromVPImage(&rec9).at<cv::Vec3b>(5, 7));
    EXPECT_EQ(0, wide[0]);
}

TEST(ImageRotation, FollowsThePixelMapping) {
    const cv::Mat tiny = Noise(2, 3, CV_8UC3, 3);
    EXPECT_EQ(cv::Size(2, 3), RotateImageWithfixDegree(tiny, 1).size());
    EXPECT_TRUE(RotateImageWithfixDegree(tiny, 4).empty());
    const cv::Mat copy = RotateImageWithfixDegree(tiny, 0);
    EXPECT_TRUE(Same(tiny, copy) && tiny.data != copy.data);

    // The fast path must match the definition for every pixel size; five
    // channels take the per-pixel path.
    for (int type : {CV_8UC1, CV_8UC3, CV_8UC4, CV_16UC3, CV_8UC(5)}) {
        const cv::Mat big = Noise(37, 53, type, static_cast<uint64_t>(type) + 1);
        const cv::Mat src = big(cv::Rect(2, 1, 41, 29));  // not continuous
        for (int code = 1; code <= 3; ++code) {
            EXPECT_TRUE(Same(RotateReference(src, code), RotateImageWithfixDegree(src, code)))
                << "type " << type << " code " << code;
        }
    }
}

TEST(ImageResample, AreaResizeIntoRecord) {
    // 4 x 2 of two flat halves -> 2 x 1: area averaging keeps each half.
    std::vector<uint8_t> src(12 * 2, 0);
    for (int y = 0; y < 2; ++y) std::fill_n(src.begin() + y * 12 + 6, 6, 200);
    tagVPImage in = {0, 3, 8, 4, 12, 2, src.data()};
    std::vector<uint8_t> dst(8, 0xEE);
    tagVPImage out = {0, 4, 8, 2, 8, 1, dst.data()};
    tagVPImage *pin = &in, *pout = &out;
    ASSERT_EQ(1u, VPResampleImage(&pin, &pout, 2, 1, 0));
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0, 0xFF, 200, 200, 200, 0xFF}), dst);

    // Smoothing (aperture 3) mixes the halves across their edge.
    std::vector<uint8_t> big(24);
    tagVPImage out4 = {0, 3, 8, 4, 12, 2, big.data()};
    tagVPImage* pout4 = &out4;
    ASSERT_EQ(1u, VPResampleImage(&pin, &pout4, 4, 2, 1));
    EXPECT_GT(big[3], 0);
    EXPECT_LT(big[6], 200);

    EXPECT_EQ(0u, VPResampleImage(nullptr, &pout, 2, 1, 0));
    EXPECT_EQ(0u, VPResampleImage(&pin, &pout, 0, 1, 0));
    EXPECT_EQ(0u, VPResampleImage(&pin, &pout, 2, 1, -1));
}

TEST(ImageResample, CubicAtOwnSizeAndTheInterpolationCode) {
    // At its own size the cubic pass changes nothing; smoothing then blurs it.
    std::vector<uint8_t> src(12 * 2, 0);
    for (int y = 0; y < 2; ++y) std::fill_n(src.begin() + y * 12 + 6, 6, 200);
    tagVPImage in = {0, 3, 8, 4, 12, 2, src.data()};
    std::vector<uint8_t> dst(24, 0xEE);
    tagVPImage out = {0, 3, 8, 4, 12, 2, dst.data()};
    tagVPImage *pin = &in, *pout = &out;
    ASSERT_EQ(1u, FitAndFilteImage(&pin, &pout, 0));
    EXPECT_EQ(src, dst);
    ASSERT_EQ(1u, FitAndFilteImage(&pin, &pout, 1));
    EXPECT_GT(dst[3], 0);
    EXPECT_LT(dst[6], 200);
    EXPECT_EQ(0u, FitAndFilteImage(nullptr, &pout, 0));
    EXPECT_EQ(0u, FitAndFilteImage(&pin, nullptr, 0));
    EXPECT_EQ(0u, FitAndFilteImage(&pin, &pout, -1));

    // The RGB24 resize only names its interpolation; no pixel moves.
    const std::vector<uint8_t> before = dst;
    EXPECT_EQ(3, VPImageResizeRGB24(&pin, &pout, 2, 1, 1));
    EXPECT_EQ(2, VPImageResizeRGB24(&pin, &pout, 2, 1, 0));
    EXPECT_EQ(2, VPImageResizeRGB24(nullptr, nullptr, 0, 0, 7));
    EXPECT_EQ(before, dst);
}
