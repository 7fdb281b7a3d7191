// The ink-saving rendering: the integer square root, the threshold's exact
// arithmetic (including the wrapping square), the tile overlap and margin,
// and the one-pass rendering against the literal tile-by-tile one.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "test_pages.h"
#include "vision/enhance/binarize.h"

namespace {

constexpr tem_SauvolaPara kEconomic{5, 0.1f};

std::vector<int32_t> SquareRoots() {
    std::vector<int32_t> t(kSquareRootTableSize, -1);
    GetSquareRootTable(t.data());
    return t;
}

// The centre pixel's rendering on a 64 x 64 tile of one grey with a single
// different pixel in the middle.
int CentreOf(int background, int centre) {
    cv::Mat tile(64, 64, CV_8UC1, cv::Scalar(background));
    tile.at<uint8_t>(32, 32) = static_cast<uint8_t>(centre);
    cv::Mat out(tile.size(), CV_8UC1, cv::Scalar(0));
    const std::vector<int32_t> roots = SquareRoots();
    EXPECT_EQ(binarize6(tile, out, kEconomic, roots.data()), 1);
    return out.at<uint8_t>(32, 32);
}

cv::Mat Rendered(const cv::Mat& src, tem_SauvolaPara para, bool reference, int fill,
                 BinarizeKernel kernel = BinarizeKernel::kAuto) {
    cv::Mat dst(src.size(), CV_8UC1, cv::Scalar(fill));
    if (reference) {
        BinaryBlockReference(src, dst, para);
    } else {
        EXPECT_TRUE(BinaryBlock(src, dst, para, kernel));
    }
    return dst;
}

// Levels rising across the page under noise growing down it, so that the
// windows' means and deviations sweep both sides of the flat tests.
cv::Mat Sweep(cv::Size size, uint64_t seed) {
    cv::Mat page(size, CV_8UC1);
    cv::RNG rng(seed);
    for (int y = 0; y < size.height; ++y) {
        const int amplitude = 1 << (8 * y / size.height);
        for (int x = 0; x < size.width; ++x) {
            const int v = 255 * x / size.width + rng.uniform(-amplitude, amplitude + 1);
            page.at<uint8_t>(y, x) = cv::saturate_cast<uint8_t>(v);
        }
    }
    return page;
}

}  // namespace

TEST(Binarize, SquareRootTableIsTheCeilingRoot) {
    const std::vector<int32_t> t = SquareRoots();
    for (int i = 0; i < kSquareRootTableSize; ++i) {
        const int s = t[i];
        ASSERT_GE(s * s, i) << i;
        if (s > 0) {
            ASSERT_LT((s - 1) * (s - 1), i) << i;
        }
    }
    EXPECT_EQ(t[0], 0);
    EXPECT_EQ(t[16384], 128);
}

TEST(Binarize, ThresholdOnAKnownWindow) {
    // A field of 40: S = 961 x 40 (the window is 31 x 31 but divided by
    // 1024), so m = 37, v = 92, s = 10 and T = 37 x (1 + 0.1 x (10 - 128)
    // / 320) = 35 in the integer form. Darker pixels keep their grey, the
    // field itself turns white.
    EXPECT_EQ(CentreOf(40, 34), 34);
    EXPECT_EQ(CentreOf(40, 35), 35);
    EXPECT_EQ(CentreOf(40, 36), 255);
    EXPECT_EQ(CentreOf(40, 40), 255);
}

TEST(Binarize, SquareOfTheWindowSumWrapsIn32Bits) {
    // On a white field S = 245,036 and S^2 overflows 32 bits; the wrapped
    // square drives v to its cap, s = 128 and T = m = 239, so a pixel of
    // 236 stays ink. Without the wrap s would be 62, T 234 and the pixel
    // would turn white.
    EXPECT_EQ(CentreOf(255, 236), 236);
    EXPECT_EQ(CentreOf(255, 239), 239);
    EXPECT_EQ(CentreOf(255, 240), 255);
}

TEST(Binarize, TileRefusalsAndShortTiles) {
    const std::vector<int32_t> roots = SquareRoots();
    cv::Mat tile(40, 40, CV_8UC1, cv::Scalar(100));
    cv::Mat out(tile.size(), CV_8UC1, cv::Scalar(7));
    EXPECT_EQ(binarize6(tile, out, {5, 0.04f}, roots.data()), 0);
    EXPECT_EQ(binarize6(tile, out, {5, 0.96f}, roots.data()), 0);
    EXPECT_EQ(binarize6(tile, out, {0, 0.1f}, roots.data()), 0);
    EXPECT_EQ(binarize6(tile(cv::Rect(0, 0, 40, 5)).clone(), out, kEconomic, roots.data()), 0);
    EXPECT_EQ(cv::countNonZero(out != 7), 0) << "a refused tile writes nothing";

    // A tile no taller than half a window runs and writes nothing.
    cv::Mat low(16, 40, CV_8UC1, cv::Scalar(100)), lowOut(16, 40, CV_8UC1, cv::Scalar(7));
    EXPECT_EQ(binarize6(low, lowOut, kEconomic, roots.data()), 1);
    EXPECT_EQ(cv::countNonZero(lowOut != 7), 0);
}

TEST(Binarize, EveryPixelWrittenAndNarrowPagesGetOnlyTheMargin) {
    // Sources never hold 7, so a 7 left in the rendering was never written.
    cv::Mat page = test_pages::Luma(test_pages::TextPage(700, 520, 220, 40));
    page.setTo(8, page == 7);
    EXPECT_EQ(cv::countNonZero(Rendered(page, kEconomic, false, 7) == 7), 0);

    // A destination of another size is refused and left alone.
    cv::Mat wrong(10, 10, CV_8UC1, cv::Scalar(7));
    EXPECT_FALSE(BinaryBlock(page, wrong, kEconomic));
    EXPECT_EQ(cv::countNonZero(wrong != 7), 0);

    // Narrower than a window: the margin covers everything.
    const cv::Mat narrow(30, 300, CV_8UC1, cv::Scalar(30));
    EXPECT_EQ(cv::countNonZero(Rendered(narrow, kEconomic, false, 7) != 255), 0);

    // Refused weights leave the inside as it was, inside a white margin.
    const cv::Mat refused = Rendered(page, {5, 0.96f}, false, 7);
    EXPECT_EQ(cv::countNonZero(refused(cv::Rect(16, 16, 700 - 32, 520 - 32)) != 7), 0);
    EXPECT_EQ(cv::countNonZero(refused == 255), 700 * 520 - (700 - 32) * (520 - 32));
}

TEST(Binarize, OnePassMatchesTheTileByTileRendering) {
    // Sizes around the tile step (224) and the window (32), on noisy text.
    const cv::Size sizes[] = {{33, 33},   {64, 40},   {255, 257}, {256, 256},
                              {481, 300}, {700, 520}, {1000, 97}};
    for (const cv::Size size : sizes) {
        cv::Mat page = test_pages::Luma(test_pages::TextPage(size.width, size.height, 200, 60));
        cv::Mat noise(page.size(), CV_8UC1);
        cv::randu(noise, 0, 60);
        page -= noise;
        for (const tem_SauvolaPara para : {kEconomic, tem_SauvolaPara{3, 0.5f}}) {
            const cv::Mat fast = Rendered(page, para, false, 7);
            const cv::Mat reference = Rendered(page, para, true, 7);
            EXPECT_EQ(cv::countNonZero(fast != reference), 0)
                << size << " n=" << para.n << " k=" << para.k;
        }
    }
}

TEST(Binarize, EveryKernelGivesTheReferenceKernelsBytes) {
    std::vector<cv::Mat> pages;
    for (const cv::Size size : {cv::Size(2001, 409), cv::Size(33, 33), cv::Size(47, 95)}) {
        pages.push_back(Sweep(size, static_cast<uint64_t>(size.area())));
        cv::Mat noise(size, CV_8UC1);
        cv::randu(noise, 0, 256);
        pages.push_back(noise);
    }
    pages.push_back(cv::Mat(70, 300, CV_8UC1, cv::Scalar(0)));
    pages.push_back(cv::Mat(70, 301, CV_8UC1, cv::Scalar(255)));
    const tem_SauvolaPara paras[] = {kEconomic, {1, 0.95f}, {3, 0.05f}, {7, 0.5f}};
    // The reference kernels against the literal tile loop on the sweep.
    EXPECT_EQ(
        cv::countNonZero(Rendered(pages[0], kEconomic, false, 7, BinarizeKernel::kReference) !=
                         Rendered(pages[0], kEconomic, true, 7)),
        0);
    if (!BinarizeKernelAvailable(BinarizeKernel::kAvx2)) GTEST_SKIP() << "no AVX2 here";
    for (const cv::Mat& page : pages) {
        for (const tem_SauvolaPara para : paras) {
            const cv::Mat fast = Rendered(page, para, false, 7, BinarizeKernel::kAvx2);
            const cv::Mat reference = Rendered(page, para, false, 7, BinarizeKernel::kReference);
            ASSERT_EQ(cv::countNonZero(fast != reference), 0)
                << page.size() << " n=" << para.n << " k=" << para.k;
        }
    }
}

TEST(Binarize, InkKeepsItsGreyOnWhitePaper) {
    const cv::Mat page = test_pages::Luma(test_pages::TextPage(600, 400, 215, 50));
    const cv::Mat out = Rendered(page, kEconomic, false, 0);
    // Paper (bright in the source) is white; ink keeps its own dark grey.
    EXPECT_EQ(cv::countNonZero(out(cv::Rect(0, 0, 600, 40)) != 255), 0);
    int inkKept = 0, inkPixels = 0;
    for (int y = 0; y < page.rows; ++y) {
        for (int x = 0; x < page.cols; ++x) {
            if (page.at<uint8_t>(y, x) >= 70) continue;
            ++inkPixels;
            inkKept += out.at<uint8_t>(y, x) == page.at<uint8_t>(y, x);
        }
    }
    ASSERT_GT(inkPixels, 1000);
    EXPECT_GT(inkKept, inkPixels * 95 / 100);
}
