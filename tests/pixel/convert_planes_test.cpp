// The luma/chroma kernels against the reference kernel: every input value,
// row lengths around the vector widths, and views into larger images.
#include <gtest/gtest.h>

#include <initializer_list>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "pixel/pixel.h"
#include "scrivo/engine.h"

namespace {

struct Named {
    PlaneKernel kernel;
    const char* name;
};

// The kernels that run here besides the reference (kAuto is one of them).
std::vector<Named> Candidates() {
    std::vector<Named> out;
    for (const Named& k : {Named{PlaneKernel::kPortable, "portable"},
                           Named{PlaneKernel::kSse2, "sse2"}, Named{PlaneKernel::kAvx2, "avx2"}}) {
        if (PlaneKernelAvailable(k.kernel)) out.push_back(k);
    }
    return out;
}

// Outputs filled beforehand, so that a kernel that skips pixels cannot pass
// on what an earlier one left in the same memory.
void Blank(std::initializer_list<cv::Mat*> mats, cv::Size size, int type) {
    for (cv::Mat* m : mats) {
        m->create(size, type);
        m->setTo(cv::Scalar::all(0x5A));
    }
}

bool Same(const cv::Mat& a, const cv::Mat& b) {
    return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

}  // namespace

// All 2^24 pixels each way, in slices of 2^20: the split sees every colour
// (so every reachable (colour byte, luma) pair, the clamps included) and the
// join every (Y, Cr, Cb) triple, the 0/255 corners among them. The kernels
// see each slice as one row of 2^20 pixels, a multiple of every vector
// width: this checks the arithmetic, the next test the ends of rows.
TEST(PlaneKernels, EveryInputValue) {
    cv::Mat rgb(256, 4096, CV_8UC3), y(256, 4096, CV_8UC1), cr(y.size(), CV_8UC1),
        cb(y.size(), CV_8UC1);
    cv::Mat ry, rcr, rcb, rback, ky, kcr, kcb, kback;
    for (int slice = 0; slice < 16; ++slice) {
        for (int r = 0; r < rgb.rows; ++r) {
            uint8_t *px = rgb.ptr<uint8_t>(r), *py = y.ptr<uint8_t>(r), *pcr = cr.ptr<uint8_t>(r),
                    *pcb = cb.ptr<uint8_t>(r);
            for (int c = 0; c < rgb.cols; ++c, px += 3) {
                const int v = slice << 20 | r << 12 | c;
                px[0] = py[c] = static_cast<uint8_t>(v);
                px[1] = pcr[c] = static_cast<uint8_t>(v >> 8);
                px[2] = pcb[c] = static_cast<uint8_t>(v >> 16);
            }
        }
        ASSERT_EQ(1, RGB24ToYCbCr(rgb, ry, rcr, rcb, PlaneKernel::kReference));
        ASSERT_EQ(1, YCbCrToRGB24(rback, y, cr, cb, PlaneKernel::kReference));
        for (const Named& k : Candidates()) {
            SCOPED_TRACE(std::string(k.name) + " slice " + std::to_string(slice));
            Blank({&ky, &kcr, &kcb}, y.size(), CV_8UC1);
            Blank({&kback}, y.size(), CV_8UC3);
            ASSERT_EQ(1, RGB24ToYCbCr(rgb, ky, kcr, kcb, k.kernel));
            ASSERT_TRUE(Same(ry, ky) && Same(rcr, kcr) && Same(rcb, kcb));
            ky.setTo(0x5A);
            ASSERT_EQ(1, RGB24ToY(rgb, ky, k.kernel));
            ASSERT_TRUE(Same(ry, ky));
            ASSERT_EQ(1, YCbCrToRGB24(kback, y, cr, cb, k.kernel));
            ASSERT_TRUE(Same(rback, kback));
        }
    }
}

// Random pixels in rows around the 16- and 32-pixel blocks, continuous and
// as views into larger images on both sides: the kernels must match the
// reference and leave the bytes around a view alone.
TEST(PlaneKernels, AwkwardWidthsAndViews) {
    cv::RNG rng(20240611);
    for (int width : {1, 2, 3, 15, 16, 17, 31, 32, 33, 47, 48, 63, 65, 95, 97, 1001}) {
        cv::Mat rgb(5, width, CV_8UC3);
        rng.fill(rgb, cv::RNG::UNIFORM, 0, 256);
        cv::Mat ry, rcr, rcb, rback;
        ASSERT_EQ(1, RGB24ToYCbCr(rgb, ry, rcr, rcb, PlaneKernel::kReference));
        ASSERT_EQ(1, YCbCrToRGB24(rback, ry, rcr, rcb, PlaneKernel::kReference));
        // Views one row and 3 pixels inside buffers filled with a guard value.
        const cv::Rect inner(3, 1, width, rgb.rows);
        cv::Mat bigRgb(rgb.rows + 2, width + 7, CV_8UC3, cv::Scalar::all(0xA5));
        rgb.copyTo(bigRgb(inner));
        for (const Named& k : Candidates()) {
            SCOPED_TRACE(std::string(k.name) + " width " + std::to_string(width));
            cv::Mat y, cr, cb, back;
            Blank({&y, &cr, &cb}, rgb.size(), CV_8UC1);
            Blank({&back}, rgb.size(), CV_8UC3);
            ASSERT_EQ(1, RGB24ToYCbCr(rgb, y, cr, cb, k.kernel));
            EXPECT_TRUE(Same(ry, y) && Same(rcr, cr) && Same(rcb, cb));
            ASSERT_EQ(1, YCbCrToRGB24(back, ry, rcr, rcb, k.kernel));
            EXPECT_TRUE(Same(rback, back));

            std::vector<cv::Mat> big;
            for (int i = 0; i < 3; ++i) big.emplace_back(bigRgb.size(), CV_8UC1, cv::Scalar(0x5A));
            cv::Mat vy = big[0](inner), vcr = big[1](inner), vcb = big[2](inner);
            ASSERT_EQ(1, RGB24ToYCbCr(bigRgb(inner), vy, vcr, vcb, k.kernel));
            EXPECT_EQ(big[0].data, vy.datastart);  // written in place, not reallocated
            EXPECT_TRUE(Same(ry, vy) && Same(rcr, vcr) && Same(rcb, vcb));
            cv::Mat ly = big[0](inner);
            ly.setTo(0x5A);
            ASSERT_EQ(1, RGB24ToY(bigRgb(inner), ly, k.kernel));
            EXPECT_TRUE(Same(ry, ly));

            cv::Mat outRgb(rgb.rows + 2, width + 7, CV_8UC3, cv::Scalar::all(0xA5));
            cv::Mat view = outRgb(inner);
            ASSERT_EQ(1, YCbCrToRGB24(view, vy, vcr, vcb, k.kernel));
            EXPECT_TRUE(Same(rback, view));
            for (cv::Mat& b : big) b(inner).setTo(0x5A);
            for (const cv::Mat& b : big) EXPECT_EQ(0, cv::countNonZero(b != 0x5A));
            view.setTo(cv::Scalar::all(0xA5));
            EXPECT_TRUE(Same(outRgb, cv::Mat(outRgb.size(), CV_8UC3, cv::Scalar::all(0xA5))));
        }
    }
}
