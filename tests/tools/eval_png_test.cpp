// The measuring tools' PNG writer, read back chunk by chunk with zlib.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include <zlib.h>

#include "../../tools/eval_png.h"

namespace {

uint32_t Big32(const uint8_t* p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

// Checks the signature, every chunk's CRC and the header against `img`,
// then inflates the data and undoes each row's filter (only None and Sub
// are expected).
cv::Mat Decode(const std::vector<uint8_t>& png, const cv::Mat& img) {
    const std::vector<uint8_t> signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    EXPECT_TRUE(std::equal(signature.begin(), signature.end(), png.begin()));
    std::vector<uint8_t> packed;
    std::vector<std::string> types;
    for (size_t at = 8; at + 12 <= png.size();) {
        const uint32_t length = Big32(&png[at]);
        const uint8_t* type = &png[at + 4];
        types.emplace_back(type, type + 4);
        EXPECT_EQ(crc32(0L, type, length + 4), Big32(type + 4 + length)) << types.back();
        if (types.back() == "IHDR") {
            EXPECT_EQ(Big32(type + 4), static_cast<uint32_t>(img.cols));
            EXPECT_EQ(Big32(type + 8), static_cast<uint32_t>(img.rows));
            EXPECT_EQ(type[12], 8);                            // bits a sample
            EXPECT_EQ(type[13], img.channels() == 1 ? 0 : 2);  // grey or RGB
        }
        if (types.back() == "IDAT") packed.insert(packed.end(), type + 4, type + 4 + length);
        at += 12 + length;
    }
    EXPECT_EQ(types, (std::vector<std::string>{"IHDR", "IDAT", "IEND"}));

    const int bpp = img.channels();
    const size_t row = static_cast<size_t>(img.cols) * bpp;
    std::vector<uint8_t> raw((row + 1) * img.rows);
    uLongf rawSize = raw.size();
    EXPECT_EQ(uncompress(raw.data(), &rawSize, packed.data(), packed.size()), Z_OK);
    EXPECT_EQ(rawSize, raw.size());
    cv::Mat out(img.rows, img.cols, img.type());
    for (int y = 0; y < img.rows; ++y) {
        const uint8_t* in = &raw[y * (row + 1)];
        uint8_t* px = out.ptr<uint8_t>(y);
        EXPECT_LE(in[0], 1);
        for (size_t i = 0; i < row; ++i)
            px[i] = static_cast<uint8_t>(in[1 + i] +
                                         (in[0] == 1 && i >= size_t(bpp) ? px[i - bpp] : 0));
    }
    return out;
}

TEST(EvalPng, ReadsBackWhatWasWritten) {
    cv::Mat rgb(7, 5, CV_8UC3), grey(3, 9, CV_8UC1);
    cv::randu(rgb, cv::Scalar::all(0), cv::Scalar::all(256));  // differences wrap round
    cv::randu(grey, cv::Scalar::all(0), cv::Scalar::all(256));
    for (const cv::Mat& img : {rgb, grey, cv::Mat(rgb, cv::Rect(1, 1, 3, 4))}) {
        const cv::Mat back = Decode(scrivo_eval::EncodePng(img), img);
        EXPECT_EQ(cv::norm(back, img, cv::NORM_INF), 0.0);
    }
}

}  // namespace
