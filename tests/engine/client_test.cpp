// Engine client: argument checks, the whole-photograph rules, the page search
// scale, manual adjustment, rotation, and random sequences of operations
// (reductions included) checked for consistent views and, under the
// sanitizers, for leaks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "engine/client.h"
#include "vision/enhance/manual_tables.h"

namespace {

// A caller-owned RGBA record with its pixels.
struct Rgba {
    std::vector<uint8_t> pixels;
    tagVPImage record;
    tagVPImage* ptr = &record;
    Rgba(int w, int h, uint8_t fill = 0) : pixels(size_t(w) * h * 4, fill) {
        record = {VP_FORMAT_RGB, 4, 8, w, w * 4, h, pixels.data()};
    }
};

Rgba Photo(int w, int h) {
    Rgba p(w, h);
    for (size_t i = 0; i < p.pixels.size(); ++i) p.pixels[i] = uint8_t(i * 7 + i / 997);
    return p;
}

// Red grows to the right, green downwards: a pixel's shift changes little.
Rgba Gradient(int w, int h) {
    Rgba p(w, h, 255);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            p.pixels[(size_t(y) * w + x) * 4] = uint8_t(x * 255 / w);
            p.pixels[(size_t(y) * w + x) * 4 + 1] = uint8_t(y * 255 / h);
        }
    return p;
}

void Quad(tagVPPoint q[4], std::initializer_list<int> v) {
    auto it = v.begin();
    for (int i = 0; i < 4; ++i, it += 2) q[i] = {it[0], it[1]};
}

// A view either is absent or shows exactly its image's pixels.
void ExpectViewsConsistent(const VPClient* c) {
    auto check = [](const tagVPImage* view, const cv::Mat& image) {
        if (view == nullptr || view->data == nullptr) return;
        EXPECT_EQ(view->data, image.data);
        EXPECT_EQ(view->width, image.cols);
        EXPECT_EQ(view->height, image.rows);
    };
    check(c->rectifiedView, c->rectifiedImage);
    check(c->enhancedView, c->enhancedImage);
}

}  // namespace

TEST(EngineClient, CreationVersionAndNullArguments) {
    Rgba photo = Photo(40, 30);
    tagVPImage bad = photo.record;
    bad.data = nullptr;
    EXPECT_EQ(VPCreateDocuviaClient(&bad), nullptr);
    EXPECT_EQ(VPCreateDocuviaClient(nullptr), nullptr);
    for (auto field : {&tagVPImage::width, &tagVPImage::height, &tagVPImage::format,
                       &tagVPImage::channels, &tagVPImage::depth}) {
        bad = photo.record;
        bad.*field = -1;
        EXPECT_EQ(VPCreateDocuviaClient(&bad), nullptr);
    }
    VPHandle h = VPCreateDocuviaClient(&photo.record);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->source.at<cv::Vec3b>(0, 1),
              cv::Vec3b(photo.pixels[4], photo.pixels[5], photo.pixels[6]));

    tagVPPoint q[4];
    Quad(q, {0, 0, 0, 30, 40, 30, 40, 0});
    int32_t w = 0, hh = 0;
    Rgba out(40, 30);
    tagVPImage* none = nullptr;
    EXPECT_EQ(VPFindPageVertex(nullptr, q), 0u);
    EXPECT_EQ(VPFindPageVertex(h, nullptr), 0u);
    EXPECT_EQ(VPFindPageVertex2(nullptr, q, 0), 0u);
    EXPECT_EQ(VPGetRectifiedImageSize(nullptr, q, &w, &hh), 0u);
    EXPECT_EQ(VPGetRectifiedImageSize(h, q, nullptr, &hh), 0u);
    EXPECT_EQ(VPRectifyVertexArea(h, q, nullptr), 0u);
    EXPECT_EQ(VPRectifyVertexArea(h, q, &none), 0u);
    EXPECT_EQ(VPRectifyVertexAreaAnimation(h, nullptr, &out.ptr), 0u);
    EXPECT_EQ(VPEnhancement(nullptr, 1, &out.ptr), 0u);
    EXPECT_EQ(VPEnhanceImageSetManually(nullptr, 8, 8, 1), 0u);
    EXPECT_EQ(VPEnhanceImageManually(h, nullptr, nullptr, 0, 0, 1.0f, 0), 0u);
    EXPECT_EQ(VPEnhanceImageManually(h, &out.ptr, nullptr, 0, 0, 1.0f, 0), 0u);  // not set up
    EXPECT_EQ(VPRotation(h, 1, &out.ptr), 0u);  // nothing rectified yet
    EXPECT_EQ(VPGetImageFromHandle(h, &out.ptr, VP_IMAGE_RECTIFIED), 0u);
    VPHandle empty = nullptr;
    EXPECT_EQ(VPReduceDocuviaClient(nullptr, 1) + VPReleaseDocuviaClient(&empty), 2u);
    EXPECT_EQ(VPReleaseDocuviaClient(&h), 1u);
    EXPECT_EQ(h, nullptr);

    char version[32], date[12], notice[34];
    std::memset(version, 'x', sizeof version);
    _tag_QvNoteEnigne_Version v{0, 0, 0, 0, version, date, notice};
    ASSERT_EQ(QvNoteEngine_GetVersion(&v), 1u);
    EXPECT_EQ(v.major * 1000 + v.minor * 100 + v.revision * 10 + v.build, 1007);
    EXPECT_STREQ(version, "quorvex_noteenigne_1.0.0.7");
    EXPECT_EQ(version[30], 0);
    EXPECT_EQ(version[31], 'x');  // exactly 31 bytes copied
    EXPECT_STREQ(date, "12/01/2014");
    EXPECT_EQ(std::strlen(notice), 32u);
}

TEST(EngineClient, QuadranglesSizesAndRectification) {
    Rgba photo = Photo(400, 600);
    VPHandle h = VPCreateDocuviaClient(&photo.record);
    ASSERT_NE(h, nullptr);
    tagVPPoint whole[4], page[4], crossed[4], diamond[4], bowtie[4];
    Quad(whole, {0, 0, 0, 600, 400, 600, 400, 0});
    Quad(page, {50, 50, 50, 550, 350, 550, 350, 50});
    // p0, p2, p1, p3 of (60,40), (40,560), (360,540), (330,70). (A crossed
    // parallelogram passes: all four of its triangles have the same area.)
    Quad(crossed, {60, 40, 360, 540, 40, 560, 330, 70});
    // p0, p2, p1, p3 of the whole photograph: a crossed parallelogram, whose
    // four triangles all have the same area, with zeros that would otherwise
    // take it for the whole photograph.
    Quad(bowtie, {0, 0, 400, 600, 0, 600, 400, 0});
    Quad(diamond, {50, 300, 150, 0, 350, 100, 250, 400});  // second vertex y = 0
    int32_t w = 0, hh = 0;

    EXPECT_EQ(JudgeLeaglueQuadrangle(page), 1);
    EXPECT_EQ(JudgeLeaglueQuadrangle(crossed), 0);
    EXPECT_EQ(VPGetRectifiedImageSize(h, crossed, &w, &hh), 0u);
    EXPECT_EQ(JudgeLeaglueQuadrangle(bowtie), 0);
    EXPECT_EQ(VPGetRectifiedImageSize(h, bowtie, &w, &hh), 0u);
    ASSERT_EQ(VPGetRectifiedImageSize(h, page, &w, &hh), 1u);
    EXPECT_EQ(cv::Vec4i(w, hh, h->rectWidth, h->rectHeight), cv::Vec4i(300, 500, 300, 300));
    ASSERT_EQ(VPGetRectifiedImageSize(h, diamond, &w, &hh), 1u);
    EXPECT_EQ(w * 10000 + hh, 400 * 10000 + 600);
    ASSERT_EQ(VPGetRectifiedImageSize(h, whole, &w, &hh), 1u);
    EXPECT_EQ(w * 10000 + hh, 400 * 10000 + 600);

    // The whole photograph rectifies to a copy of it.
    Rgba out(400, 600, 9);
    ASSERT_EQ(VPRectifyVertexArea(h, whole, &out.ptr), 1u);
    EXPECT_EQ(h->rectified, 1);
    for (size_t i = 0; i < photo.pixels.size(); ++i) {
        ASSERT_EQ(out.pixels[i], i % 4 == 3 ? 255 : photo.pixels[i]) << i;
    }
    // A record of another size gets no pixels, but the rectification stands.
    Rgba small(300, 499, 9);
    EXPECT_EQ(VPRectifyVertexArea(h, page, &small.ptr), 1u);
    EXPECT_EQ(h->rectifiedImage.cols * 10000 + h->rectifiedImage.rows, 300 * 10000 + 500);
    EXPECT_EQ(std::count(small.pixels.begin(), small.pixels.end(), 9), long(small.pixels.size()));
    EXPECT_EQ(VPGetImageFromHandle(h, &small.ptr, 1), 0u);
    // An illegal quadrangle discards the previous page and fails.
    EXPECT_EQ(VPRectifyVertexArea(h, crossed, &out.ptr), 0u);
    EXPECT_TRUE(h->rectifiedImage.empty() && h->rectified == 0);
    EXPECT_EQ(VPRectifyVertexAreaAnimation(h, crossed, &out.ptr), 0u);
    EXPECT_EQ(VPRectifyVertexAreaAnimation(h, diamond, &out.ptr), 0u);
    Rgba frame(150, 250, 9);
    EXPECT_EQ(VPRectifyVertexAreaAnimation(h, page, &frame.ptr), 1u);
    EXPECT_NE(std::count(frame.pixels.begin(), frame.pixels.end(), 9), long(frame.pixels.size()));
    VPReleaseDocuviaClient(&h);
}

TEST(EngineClient, TurnedPagesKeepTheirSizeAndTinyPagesAreRefused) {
    Rgba photo = Gradient(400, 300);
    VPHandle h = VPCreateDocuviaClient(&photo.record);
    ASSERT_NE(h, nullptr);
    // A 360 x 220 page as it lies, then its corners from each of its other
    // corners: a quarter turn keeps the page's pixels, width and height
    // swapped, instead of fitting it into the landscape frame (180 x 300).
    const int lying[8] = {20, 40, 20, 260, 380, 260, 380, 40};
    cv::Mat unturned;
    for (int turns = 0; turns < 4; ++turns) {
        SCOPED_TRACE(turns);
        tagVPPoint q[4];
        for (int i = 0; i < 4; ++i)
            q[i] = {lying[(i + turns) % 4 * 2], lying[(i + turns) % 4 * 2 + 1]};
        int32_t w = 0, hh = 0;
        ASSERT_EQ(VPGetRectifiedImageSize(h, q, &w, &hh), 1u);
        EXPECT_EQ(cv::Size(w, hh), turns % 2 ? cv::Size(220, 360) : cv::Size(360, 220));
        Rgba out(w, hh);
        ASSERT_EQ(VPRectifyVertexArea(h, q, &out.ptr), 1u);
        if (turns == 0) unturned = h->rectifiedImage.clone();
        cv::Mat expected;
        if (turns == 0)
            unturned.copyTo(expected);
        else
            cv::rotate(unturned, expected, cv::RotateFlags(turns - 1));  // CW, 180, CCW
        EXPECT_LT(cv::norm(h->rectifiedImage, expected, cv::NORM_L1) / expected.total(), 3.0);
    }
    // Corners too close for a page of 8 x 8 pixels fail instead of giving
    // the whole photograph; 8 pixels across is a page.
    for (const auto& v : std::vector<std::vector<int>>{{100, 100, 100, 101, 101, 101, 101, 100},
                                                       {100, 100, 100, 103, 103, 103, 103, 100},
                                                       {100, 50, 100, 250, 103, 250, 103, 50},
                                                       {100, 50, 100, 250, 107, 250, 107, 50},
                                                       {50, 100, 350, 100, 350, 102, 50, 102}}) {
        tagVPPoint q[4];
        for (int i = 0; i < 4; ++i) q[i] = {v[2 * i], v[2 * i + 1]};
        int32_t w = 0, hh = 0;
        Rgba out(400, 300);
        EXPECT_EQ(VPGetRectifiedImageSize(h, q, &w, &hh), 0u) << v[4] - v[0];
        EXPECT_EQ(VPRectifyVertexArea(h, q, &out.ptr), 0u);
        EXPECT_TRUE(h->rectifiedImage.empty());
    }
    tagVPPoint eight[4];
    Quad(eight, {100, 50, 100, 250, 108, 250, 108, 50});
    int32_t w = 0, hh = 0;
    ASSERT_EQ(VPGetRectifiedImageSize(h, eight, &w, &hh), 1u);
    EXPECT_EQ(cv::Size(w, hh), cv::Size(VP_SMALLEST_PAGE, 200));
    VPReleaseDocuviaClient(&h);

    // A photograph of an extreme aspect ratio is searched at a side of one
    // pixel; scaled back, the answer still lies inside the photograph.
    for (const cv::Size size : {cv::Size(65000, 8), cv::Size(8, 65000)}) {
        Rgba strip = Photo(size.width, size.height);
        VPHandle s = VPCreateDocuviaClient(&strip.record);
        ASSERT_NE(s, nullptr);
        for (int32_t mode : {VP_PAGE_SEARCH_VERIFIED, VP_PAGE_SEARCH_FIXED_STEPS}) {
            VPSetPageSearch(s, mode);
            tagVPPoint q[4];
            VPFindPageVertex(s, q);
            for (const tagVPPoint& p : q) {
                EXPECT_TRUE(p.x >= 0 && p.x <= size.width && p.y >= 0 && p.y <= size.height)
                    << size << " mode " << mode << ": " << p.x << "," << p.y;
            }
        }
        VPReleaseDocuviaClient(&s);
    }
}

TEST(EngineClient, PageSearchScaleAndSourceRecovery) {
    const PageSearchSize big = GetPageSearchSize(4000, 3000, false);
    EXPECT_TRUE(big.resize);
    EXPECT_EQ(big.scale, 1.953125);
    EXPECT_EQ(big.width * 10000 + big.height, 2048 * 10000 + 1536);
    EXPECT_EQ(MapSearchCoordinate(100, big.scale), 195);
    EXPECT_EQ(MapSearchCoordinate(200, big.scale), 391);
    EXPECT_FALSE(GetPageSearchSize(2048, 1000, false).resize);
    EXPECT_EQ(GetPageSearchSize(2048, 1000, false).scale, 1.0);
    EXPECT_TRUE(GetPageSearchSize(2048, 1000, true).resize);
    EXPECT_EQ(GetPageSearchSize(1, 100000, false).width, 1);

    Rgba photo = Photo(120, 90);
    VPHandle h = VPCreateDocuviaClient(&photo.record);
    ASSERT_NE(h, nullptr);
    tagVPPoint q[4];
    int32_t w, hh;
    Quad(q, {0, 0, 0, 90, 120, 90, 120, 0});
    VPGetRectifiedImageSize(h, q, &w, &hh);
    // A photograph without a page: the verified search answers with the
    // whole photograph and 0. With the fixed steps alone the detector's
    // whole image counts as found (its third corner is not zero), while
    // VPFindPageVertex2 passes on the detector's own 0. Every search clears
    // the stored size.
    EXPECT_EQ(VPFindPageVertex(h, q), 0u);
    EXPECT_EQ(q[2].x * 1000 + q[2].y, 120 * 1000 + 90);
    EXPECT_EQ(VPSetPageSearch(h, 7), 0u);
    ASSERT_EQ(VPSetPageSearch(h, VP_PAGE_SEARCH_FIXED_STEPS), 1u);
    VPGetRectifiedImageSize(h, q, &w, &hh);
    EXPECT_EQ(VPFindPageVertex(h, q), 1u);
    EXPECT_EQ(q[2].x, 120);
    EXPECT_EQ(q[2].y, 90);
    EXPECT_EQ(h->sizeKnown + h->rectWidth + h->rectHeight, 0);
    EXPECT_EQ(VPFindPageVertex2(h, q, 3), 0u);

    // With the source released, the rectified page becomes the source.
    Rgba out(120, 90);
    Quad(q, {0, 0, 0, 90, 120, 90, 120, 0});
    ASSERT_EQ(VPRectifyVertexArea(h, q, &out.ptr), 1u);
    VPReduceDocuviaClient(&h, VP_REDUCE_SOURCE);
    EXPECT_EQ(VPGetRectifiedImageSize(h, q, &w, &hh), 0u);
    VPFindPageVertex(h, q);
    EXPECT_EQ(h->source.cols, 120);
    EXPECT_TRUE(h->rectifiedImage.empty() && h->rectifiedView == nullptr && h->rectified == 0);
    VPReleaseDocuviaClient(&h);
}

TEST(EngineClient, ManualAdjustmentAndRotation) {
    Rgba photo = Photo(64, 48);
    VPHandle h = VPCreateDocuviaClient(&photo.record);
    ASSERT_NE(h, nullptr);
    tagVPPoint q[4];
    Quad(q, {0, 0, 0, 48, 64, 48, 64, 0});
    Rgba out(64, 48), preview(16, 12), rotated(48, 64);
    ASSERT_EQ(VPRectifyVertexArea(h, q, &out.ptr), 1u);
    EXPECT_EQ(VPEnhanceImageSetManually(h, 16, 12, 1), 0u);  // nothing enhanced yet
    ASSERT_EQ(VPEnhancement(h, VP_ENHANCE_NONE, nullptr), 1u);
    ASSERT_EQ(VPEnhanceImageSetManually(h, 16, 12, 1), 1u);
    EXPECT_EQ(h->adjustThreshold, CalAdjustThreshold(h->previewImage));

    // {brightness, contrast, gamma} as given and as clamped.
    const float cases[][6] = {
        {0, 0, 0, 0, 0, 0.1f}, {0, 0, 9, 0, 0, 5}, {150, -300, 1, 100, -100, 1}};
    for (const auto& k : cases) {
        ASSERT_EQ(VPEnhanceImageManually(h, &preview.ptr, nullptr, int(k[0]), int(k[1]), k[2], 0),
                  1u);
        uint8_t expected[256];
        CalAdjustImageByManuallyMatrix(expected, h->adjustThreshold, int(k[3]), int(k[4]), k[5]);
        EXPECT_EQ(std::memcmp(expected, h->adjustTable, 256), 0) << k[0] << " " << k[2];
        EXPECT_EQ(preview.pixels[0], expected[h->previewImage.data[0]]);
    }
    EXPECT_EQ(VPEnhanceImageManually(h, &preview.ptr, nullptr, 0, 0, 1.0f, 1), 0u);
    // Full-size application compounds on the enhanced image.
    const uint8_t before = h->enhancedImage.data[5];
    VPEnhanceImageManually(h, &preview.ptr, &out.ptr, 50, 0, 1.0f, 1);
    VPEnhanceImageManually(h, &preview.ptr, &out.ptr, 50, 0, 1.0f, 1);
    EXPECT_EQ(h->enhancedImage.data[5], h->adjustTable[h->adjustTable[before]]);

    // A quarter turn turns both pages; an unknown code changes nothing.
    ASSERT_EQ(VPRotation(h, VP_ROTATE_CW_90, &rotated.ptr), 1u);
    EXPECT_EQ(VPRotation(h, 4, &rotated.ptr), 0u);
    EXPECT_EQ(h->rectifiedImage.size(), cv::Size(48, 64));
    EXPECT_EQ(h->enhancedImage.size(), cv::Size(48, 64));
    ExpectViewsConsistent(h);
    VPEnhanceImageSetManually(h, 0, 0, 0);
    EXPECT_EQ(h->manualMode, 0);
    EXPECT_EQ(VPEnhanceImageManually(h, &preview.ptr, nullptr, 0, 0, 1.0f, 0), 0u);
    VPReleaseDocuviaClient(&h);
}

TEST(EngineClient, RandomOperationOrders) {
    std::mt19937 rng(20141201);
    for (int round = 0; round < 12; ++round) {
        Rgba photo = Photo(72, 56);
        VPHandle h = VPCreateDocuviaClient(&photo.record);
        ASSERT_NE(h, nullptr);
        Rgba out(72, 56), preview(9, 7);
        for (int step = 0; step < 40; ++step) {
            tagVPPoint q[4];
            const int ox = int(rng() % 12), oy = int(rng() % 12);
            Quad(q, {ox, oy, ox, 56 - oy, 72 - ox, 56, 72, 0});
            if (rng() % 5 == 0) std::swap(q[1], q[2]);
            int32_t w, hh;
            const int r = int(rng() % 7);
            const std::function<void()> ops[] = {
                [&] { VPFindPageVertex(h, q); },
                [&] { VPGetRectifiedImageSize(h, q, &w, &hh); },
                [&] { VPRectifyVertexArea(h, q, &out.ptr); },
                [&] { VPEnhancement(h, r, r % 2 ? &out.ptr : nullptr); },
                [&] { VPEnhanceImageSetManually(h, 9, 7, r % 2); },
                [&] { VPEnhanceImageManually(h, &preview.ptr, &out.ptr, 20, -30, 1.5f, 1); },
                [&] { VPRotation(h, r % 5, &out.ptr); },
                [&] { VPGetImageFromHandle(h, &out.ptr, r % 4); },
                [&] { VPRectifyVertexAreaAnimation(h, q, &preview.ptr); },
                [&] { VPReduceDocuviaClient(&h, 1 + r % 5); }};
            ops[rng() % std::size(ops)]();
            ExpectViewsConsistent(h);
        }
        ASSERT_EQ(VPReleaseDocuviaClient(&h), 1u);
    }
}
