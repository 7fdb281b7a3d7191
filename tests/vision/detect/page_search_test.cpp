// The verified page search on crafted photographs: a page on a checked
// cloth, a page running past the frame, a folded sheet, an empty table, and
// the fixed steps' answer behind the switch; and the refinement of corners
// on its own.
#include <array>
#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "scrivo/codec.h"
#include "support/library_jpeg.h"
#include "vision/detect/detector.h"
#include "vision/detect/detector_internal.h"
#include "vision/detect/page_find.h"

namespace {

using Corners = std::array<cv::Point2d, 4>;  // top-left, bottom-left, bottom-right, top-right

constexpr int kW = 1200, kH = 900;
constexpr int kSuper = 2;  // drawn at twice the size, then averaged: sub-pixel true edges

enum class Table { kPlain, kChecked, kPlanks };

struct Scene {
    Table table = Table::kPlain;
    Corners page{};
    // A fold down the sheet at this share of its width (0: flat): the right
    // panel is darker, as a panel turned away from the light is.
    double fold = 0.0;
    bool print = true;
};

cv::Point Super(cv::Point2d p) {
    // Continuous coordinates to the drawing's pixel centres, in 1/16 pixel.
    return cv::Point(static_cast<int>(std::lround((p.x * kSuper - 0.5) * 16)),
                     static_cast<int>(std::lround((p.y * kSuper - 0.5) * 16)));
}

void FillQuad(cv::Mat& img, const std::array<cv::Point2d, 4>& q, cv::Scalar colour) {
    const cv::Point pts[4] = {Super(q[0]), Super(q[1]), Super(q[2]), Super(q[3])};
    cv::fillConvexPoly(img, pts, 4, colour, cv::LINE_AA, 4);
}

cv::Point2d Lerp(cv::Point2d a, cv::Point2d b, double t) {
    return a + (b - a) * t;
}

// The photograph as a capture hands it over: a camera's noise, and JPEG
// (quality 90, chroma at half resolution) through the library's codecs.
cv::Mat AsCaptured(const cv::Mat& rgb) {
    cv::Mat noise(rgb.size(), CV_16SC3), wide, noisy;
    cv::RNG rng(2024);
    rng.fill(noise, cv::RNG::NORMAL, 0, 2);
    rgb.convertTo(wide, CV_16SC3);
    wide += noise;
    wide.convertTo(noisy, CV_8UC3);
    cv::Mat rgba;
    cv::cvtColor(noisy, rgba, cv::COLOR_RGB2RGBA);
    const std::string jpeg =
        testsupport::LibraryJpeg(rgba.data, rgba.cols, rgba.rows, static_cast<int32_t>(rgba.step));
    MHAMCM manager = nullptr;
    EXPECT_EQ(AMCM_Create(nullptr, &manager), 0u);
    EXPECT_EQ(MdRegisterJpegComponents(manager), 0u);
    MBITMAP out{};
    out.pixelFormat = MPAF_RGBA8888;
    EXPECT_EQ(MCodec_DecodeData(manager, jpeg.data(), static_cast<int32_t>(jpeg.size()), &out), 0u);
    cv::Mat decoded;
    cv::cvtColor(cv::Mat(out.height, out.width, CV_8UC4, out.plane[0], out.pitch[0]), decoded,
                 cv::COLOR_RGBA2RGB);
    MdBitmapFree(nullptr, &out);
    AMCM_Destroy(manager);
    return decoded;
}

// R, G, B, as the engine holds a photograph.
cv::Mat Render(const Scene& s) {
    cv::Mat img(kH * kSuper, kW * kSuper, CV_8UC3);
    for (int y = 0; y < img.rows; ++y)
        for (int x = 0; x < img.cols; ++x) {
            cv::Vec3b c(90, 80, 70);
            if (s.table == Table::kChecked) {  // red and white gingham, turned by 6 degrees
                const double u = x * 0.9945 + y * 0.1045, v = y * 0.9945 - x * 0.1045 + 4000;
                const bool a = static_cast<int>(u / (24 * kSuper)) % 2,
                           b = static_cast<int>(v / (24 * kSuper)) % 2;
                c = a && b ? cv::Vec3b(150, 30, 40)
                           : (a || b ? cv::Vec3b(200, 120, 120) : cv::Vec3b(235, 225, 225));
            } else if (s.table == Table::kPlanks) {  // planks with dark joints
                const int px = (x + y / 6) % (90 * kSuper);
                c = px < 3 * kSuper ? cv::Vec3b(50, 35, 25) : cv::Vec3b(150 + px % 23, 105, 70);
            }
            img.at<cv::Vec3b>(y, x) = c;
        }
    const Corners& q = s.page;
    if (s.fold > 0) {
        const cv::Point2d ft = Lerp(q[0], q[3], s.fold), fb = Lerp(q[1], q[2], s.fold);
        FillQuad(img, {q[0], q[1], fb, ft}, cv::Scalar(238, 238, 236));
        FillQuad(img, {ft, fb, q[2], q[3]}, cv::Scalar(206, 206, 204));
    } else {
        FillQuad(img, q, cv::Scalar(238, 238, 236));
    }
    if (s.print) {
        for (int row = 0; row < 14; ++row)
            for (int word = 0; word < 8; ++word) {
                const double v = 0.12 + 0.055 * row, u0 = 0.1 + 0.1 * word, u1 = u0 + 0.07;
                auto at = [&](double u) {
                    return Lerp(Lerp(q[0], q[3], u), Lerp(q[1], q[2], u), v);
                };
                cv::line(img, Super(at(u0)), Super(at(u1)), cv::Scalar(40, 40, 40), 3 * kSuper,
                         cv::LINE_AA, 4);
            }
    }
    cv::Mat photo;
    cv::resize(img, photo, cv::Size(kW, kH), 0, 0, cv::INTER_AREA);
    cv::GaussianBlur(photo, photo, cv::Size(3, 3), 0.7);
    return AsCaptured(photo);
}

double Worst(const PageSearchAnswer& a, const Corners& want) {
    double worst = 0;
    for (int i = 0; i < 4; ++i)
        worst = std::max(worst, std::hypot(a.exact[i][0] - want[i].x, a.exact[i][1] - want[i].y));
    return worst;
}

const Corners kTilted = {{{310, 170}, {250, 760}, {880, 810}, {930, 215}}};

TEST(PageSearch, FindsThePageAndItsCornersToAPixel) {
    // On a plain table, and on a checked cloth whose lines run along the
    // page's sides and cross them.
    for (Table table : {Table::kPlain, Table::kChecked}) {
        Scene s;
        s.table = table;
        s.page = kTilted;
        const PageSearchAnswer a = SearchPageInPhotograph(Render(s), false, nullptr, false);
        ASSERT_TRUE(a.found) << static_cast<int>(table);
        EXPECT_LT(Worst(a, s.page), 1.5) << static_cast<int>(table);
    }
}

TEST(PageSearch, APageRunningPastTheFrameKeepsItsCornerOutside) {
    Scene s;
    s.page = {{{-40, 120}, {120, 860}, {1010, 790}, {880, 60}}};
    const PageSearchAnswer a = SearchPageInPhotograph(Render(s), false, nullptr, false);
    ASSERT_TRUE(a.found);
    EXPECT_LT(Worst(a, s.page), 4.0);
    EXPECT_LT(a.corners[0].x, 0);
}

TEST(PageSearch, AFoldedSheetIsOnePage) {
    Scene s;
    s.page = kTilted;
    s.fold = 0.45;
    const PageSearchAnswer a = SearchPageInPhotograph(Render(s), false, nullptr, false);
    ASSERT_TRUE(a.found);
    EXPECT_LT(Worst(a, s.page), 3.0);
}

TEST(PageSearch, AnEmptyTableHasNoPage) {
    Scene s;
    s.table = Table::kPlanks;
    s.page = {{{0, 0}, {0, 0}, {0, 0}, {0, 0}}};
    s.print = false;
    const cv::Mat photo = Render(s);
    const PageSearchAnswer a = SearchPageInPhotograph(photo, false, nullptr, false);
    EXPECT_FALSE(a.found) << a.evidence;
    tem_Point corners[4];
    bool whole = false;
    EXPECT_EQ(FindPageInPhotograph(photo, false, nullptr, corners, &whole), 0);
    EXPECT_TRUE(whole);
    EXPECT_EQ(corners[2].x * 10000 + corners[2].y, kW * 10000 + kH);
}

TEST(PageSearch, TheFixedStepsAloneAnswerAsTheDetectorDoes) {
    Scene s;
    s.page = kTilted;
    const cv::Mat photo = Render(s);
    tem_Point want[4];
    int edges = 0;
    const int detected = GetQuotationSheetEdge(photo, nullptr, want, &edges);
    const PageSearchAnswer a = SearchPageInPhotograph(photo, false, nullptr, true);
    EXPECT_EQ(a.detectorResult, detected);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(a.corners[i].x, want[i].x) << i;
        EXPECT_EQ(a.corners[i].y, want[i].y) << i;
    }
}

TEST(PageRefine, PullsCornersOntoTheEdgesAndLeavesBlindSidesAlone) {
    Scene s;
    s.page = kTilted;
    const cv::Mat photo = Render(s);
    Quad2d rough = s.page;
    const cv::Point2d off[4] = {{3, -2}, {-3, 3}, {2, 3}, {-2, -3}};
    for (int i = 0; i < 4; ++i) rough[i] += off[i];
    const Quad2d fine = RefinePageCorners(photo, rough, 8.0);
    for (int i = 0; i < 4; ++i) EXPECT_LT(cv::norm(fine[i] - s.page[i]), 0.6) << i;

    // Nothing to see: the corners stay.
    const cv::Mat blank(kH, kW, CV_8UC3, cv::Scalar(120, 120, 120));
    const Quad2d same = RefinePageCorners(blank, rough, 8.0);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(same[i], rough[i]) << i;
}

}  // namespace
