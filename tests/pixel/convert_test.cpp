// Raw-buffer pixel conversions and colour planes on known pixels: padding,
// alpha, the deliberately mismatched YUV pair, odd sizes, the 14-bit planes.
#include <gtest/gtest.h>

#include <vector>

#include "pixel/pixel.h"
#include "scrivo/engine.h"

namespace {

std::vector<uint8_t> Bytes(const cv::Mat& m) {
    return std::vector<uint8_t>(m.begin<uint8_t>(), m.end<uint8_t>());
}

}  // namespace

TEST(PixelConvert, RawBuffers) {
    // Alpha is forced; a pitch of 0 means the side's own convention.
    const std::vector<uint8_t> rgb = {0, 0, 0, 1, 2, 3, 250, 251, 252, 9, 9, 9, 4, 5, 6};
    std::vector<uint8_t> argb(8, 0xAA);
    ASSERT_EQ(1u, VPConvertRGB24ToARGB32(rgb.data(), argb.data(), 2, 1, 0, 0));
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0, 0xFF, 1, 2, 3, 0xFF}), argb);
    ASSERT_EQ(1u, VPConvertRGB24ToARGB32(rgb.data(), argb.data(), 1, 2, 12, 4));
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0, 0xFF, 4, 5, 6, 0xFF}), argb);
    EXPECT_EQ(0u, VPConvertRGB24ToARGB32(nullptr, argb.data(), 1, 1, 0, 0));
    EXPECT_EQ(1u, VPConvertRGB24ToARGB32(rgb.data(), argb.data(), 1, 0, 0, 0));

    // Width 101: 303 colour bytes padded to 304, padding left alone.
    EXPECT_EQ(304, Align4Row(101));
    std::vector<uint8_t> rgba(101 * 2 * 4), out(304 * 2, 0xEE);
    for (size_t i = 0; i < rgba.size(); ++i) rgba[i] = static_cast<uint8_t>(i * 7);
    ASSERT_EQ(1, Convert4ChannelsTo3Channels(rgba.data(), out.data(), 101, 2));
    EXPECT_EQ(rgba[404 + 4 * 100 + 2], out[304 + 300 + 2]);
    EXPECT_EQ(0xEE, out[303]);
    EXPECT_EQ(0xEE, out[607]);
    // Every width around the vector kernels' steps, both ways: bytes 0..2 of
    // each pixel in order (255 added), and not a byte past the row.
    for (int32_t w = 1; w <= 40; ++w) {
        std::vector<uint8_t> row(size_t(w) * 3 + 16, 0xEE);
        ASSERT_EQ(1, Convert4ChannelsTo3Channels(rgba.data(), row.data(), w, 1));
        for (int32_t x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c) ASSERT_EQ(row[3 * x + c], rgba[4 * x + c]) << w << " " << x;
        EXPECT_EQ(row[size_t(w) * 3], 0xEE) << w;
        std::vector<uint8_t> back(size_t(w) * 4 + 16, 0xEE);
        ASSERT_EQ(1u, VPConvertRGB24ToARGB32(row.data(), back.data(), w, 1, w * 3, w * 4));
        for (int32_t x = 0; x < w; ++x)
            for (int c = 0; c < 4; ++c)
                ASSERT_EQ(back[4 * x + c], c < 3 ? rgba[4 * x + c] : 0xFF) << w << " " << x;
        EXPECT_EQ(back[size_t(w) * 4], 0xEE) << w;
    }
}

TEST(PixelConvert, YuvPairOnKnownPixels) {
    // 3 x 3: chroma planes of 2 x 2; the lone last column and row use the
    // last chroma sample. Byte 0 carries the blue difference, byte 2 red.
    std::vector<uint8_t> yuv(9 + 4 + 4, 128);
    yuv[9] = 255;                                     // U of the first block
    yuv[2] = 235;                                     // neutral: truncates to 254
    yuv[8] = 60, yuv[9 + 3] = 200, yuv[13 + 3] = 30;  // pixel (2,2)
    std::vector<uint8_t> rgb(12 * 3, 0xEE);
    ASSERT_EQ(1, YUV420toRGB24_convert(yuv.data(), rgb.data(), 3, 3));
    EXPECT_EQ((std::vector<uint8_t>{255, 80, 130, 255, 80, 130, 254, 254, 254}),
              std::vector<uint8_t>(rgb.begin(), rgb.begin() + 9));
    EXPECT_EQ((std::vector<uint8_t>{196, 102, 0}),
              std::vector<uint8_t>(rgb.begin() + 24 + 6, rgb.begin() + 24 + 9));
    EXPECT_EQ(0xEE, rgb[35]);  // padding of the last row untouched

    // Encoder: byte 0 is red, V (from the bottom-left pixel) comes first,
    // U from the top-left. Rows of 8 bytes: row 0 "blue", row 1 green.
    const std::vector<uint8_t> px = {0, 0, 255, 0, 0, 255, 0, 0, 0, 255, 0, 0, 255, 0, 0, 0};
    std::vector<uint8_t> planes(6, 0);
    ASSERT_EQ(1, RGB24toYUV420_convert(px.data(), planes.data(), 2, 2));
    EXPECT_EQ((std::vector<uint8_t>{41, 41, 144, 144, 34, 240}), planes);
    // A block cut to one row takes V from that row: 2 x 3, last row blue.
    std::vector<uint8_t> px3(8 * 3, 0), planes3(6 + 2 + 2, 0);
    px3[16 + 2] = px3[16 + 5] = 255;
    ASSERT_EQ(1, RGB24toYUV420_convert(px3.data(), planes3.data(), 2, 3));
    EXPECT_EQ((std::vector<uint8_t>{128, 110, 128, 240}),
              std::vector<uint8_t>(planes3.begin() + 6, planes3.end()));
}

TEST(PixelConvert, LumaChromaPlanes) {
    cv::Mat img(1, 3, CV_8UC3);
    img.at<cv::Vec3b>(0, 0) = {255, 255, 255};
    img.at<cv::Vec3b>(0, 1) = {0, 0, 255};  // red in byte 2
    img.at<cv::Vec3b>(0, 2) = {255, 0, 0};
    cv::Mat Y, Cr, Cb;
    ASSERT_EQ(1, RGB24ToYCbCr(img, Y, Cr, Cb));
    EXPECT_EQ((std::vector<uint8_t>{255, 76, 29}), Bytes(Y));
    EXPECT_EQ((std::vector<uint8_t>{128, 255, 107}), Bytes(Cr));
    EXPECT_EQ((std::vector<uint8_t>{128, 85, 255}), Bytes(Cb));

    // The round trip is close, not exact; non-continuous input is fine.
    cv::Mat big(40, 50, CV_8UC3);
    cv::randu(big, 0, 256);
    const cv::Mat roi = big(cv::Rect(3, 2, 41, 33));
    ASSERT_EQ(1, RGB24ToYCbCr(roi, Y, Cr, Cb));
    cv::Mat back;
    ASSERT_EQ(1, YCbCrToRGB24(back, Y, Cr, Cb));
    EXPECT_LE(cv::norm(roi, back, cv::NORM_INF), 1.0);
    EXPECT_GT(cv::norm(roi, back, cv::NORM_L1), 0.0);
    EXPECT_EQ(0, RGB24ToYCbCr(cv::Mat(2, 2, CV_8UC1), Y, Cr, Cb));
    EXPECT_EQ(0, YCbCrToRGB24(back, Y, Cr, cv::Mat(1, 1, CV_8UC1)));
}
