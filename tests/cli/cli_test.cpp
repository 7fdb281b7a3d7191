// The scrivo tool run as a program on fixtures made here: exit codes,
// messages that name the file and the reason, outputs next to or away from
// the inputs, inputs never overwritten, JSON on a clean standard output.
// The binary sits next to this test program in <build>/bin.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/tool_test.h"
#include "scrivo/codec.h"
#include "support/library_jpeg.h"
#include "vision/textdir/text_pages.h"

namespace fs = std::filesystem;

namespace {

using namespace tooltest;

class ScrivoCli : public ToolTest {
  protected:
    // A light page on a dark table, encoded by the library.
    std::string MakeJpeg(int w, int h) {
        std::vector<uint8_t> rgba(static_cast<size_t>(w) * h * 4, 40);
        for (int y = h / 5; y < h * 4 / 5; ++y)
            for (int x = w / 4; x < w * 3 / 4; ++x)
                for (int c = 0; c < 3; ++c) rgba[(static_cast<size_t>(y) * w + x) * 4 + c] = 230;
        return testsupport::LibraryJpeg(rgba.data(), w, h, w * 4);
    }

    // An image (BGR) as JPEG bytes, encoded by the library.
    std::string EncodeJpeg(const cv::Mat& bgr) {
        cv::Mat rgba;
        cv::cvtColor(bgr, rgba, cv::COLOR_BGR2RGBA);
        return testsupport::LibraryJpeg(rgba.data, rgba.cols, rgba.rows,
                                        static_cast<int32_t>(rgba.step), 92);
    }

    // Width and height of a JPEG file.
    cv::Size JpegSize(const fs::path& path) {
        const std::string bytes = Slurp(path);
        MHAMCM manager = nullptr;
        EXPECT_EQ(AMCM_Create(nullptr, &manager), 0u);
        EXPECT_EQ(MdRegisterJpegComponents(manager), 0u);
        MBITMAP bitmap{};
        bitmap.pixelFormat = MPAF_RGBA8888;
        cv::Size size;
        if (MCodec_DecodeData(manager, bytes.data(), static_cast<int32_t>(bytes.size()), &bitmap) ==
            0) {
            size = cv::Size(bitmap.width, bitmap.height);
            MdBitmapFree(nullptr, &bitmap);
        }
        AMCM_Destroy(manager);
        return size;
    }
};

TEST_F(ScrivoCli, ScanWritesThePageAndNeverTheInput) {
    const std::string photo = MakeJpeg(320, 240);
    Spit(dir_ / "photo.jpg", photo);

    Result r = Scrivo("-v scan photo.jpg --enhance none");
    ASSERT_EQ(r.code, 0) << r.err;
    // The page (columns 80 to 239, rows 48 to 191) is found and cut out, its
    // corners on its outline to a pixel (the JPEG rings at the sharp edge).
    EXPECT_NE(r.out.find("photo.jpg -> photo.page.jpg ("), std::string::npos) << r.out;
    const size_t at = r.out.find("corners (detected): ");
    ASSERT_NE(at, std::string::npos) << r.out;
    int c[8] = {};
    ASSERT_EQ(std::sscanf(r.out.c_str() + at,
                          "corners (detected): TL %d,%d  BL %d,%d  BR %d,%d  TR %d,%d", &c[0],
                          &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7]),
              8)
        << r.out;
    const int want[8] = {80, 48, 80, 192, 240, 192, 240, 48};
    for (int i = 0; i < 8; ++i) EXPECT_LE(std::abs(c[i] - want[i]), 1) << r.out;
    const std::string page = Slurp(dir_ / "photo.page.jpg");
    EXPECT_EQ(page.substr(0, 3), "\xFF\xD8\xFF");
    EXPECT_EQ(page.find(std::string("Exif\0\0", 6)), std::string::npos);  // none in, none out
    EXPECT_NE(r.err.find("QUORVEX_SCRIVO: QvNote performance native decode cost"),
              std::string::npos);
    EXPECT_NE(r.err.find("scrivo: photo.jpg: total"), std::string::npos);
    EXPECT_NE(r.err.find("scrivo: peak memory"), std::string::npos);
    EXPECT_EQ(r.out.find("QUORVEX_SCRIVO"), std::string::npos);

    // Given corners: a legal one into another name, a crossed one refused.
    r = Scrivo("scan photo.jpg --enhance none --corners 10,10,20,200,300,230,310,5 -o given.jpg");
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("corners (given)"), std::string::npos);
    r = Scrivo("scan photo.jpg --corners 0,0,320,240,0,240,320,0 -o crossed.jpg");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("scrivo: photo.jpg: corners not a convex quadrangle"), std::string::npos);
    EXPECT_FALSE(fs::exists(dir_ / "crossed.jpg"));

    // Never onto an input, under any spelling of its name.
    r = Scrivo("scan photo.jpg -o ./photo.jpg");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("would overwrite an input"), std::string::npos);
    EXPECT_EQ(Slurp(dir_ / "photo.jpg"), photo);

    // An enhanced rendering is written only when the engine made one.
    r = Scrivo("scan photo.jpg --enhance grey -o grey.jpg");
    if (r.code == 0) {
        EXPECT_TRUE(fs::exists(dir_ / "grey.jpg"));
    } else {
        EXPECT_EQ(r.code, 1);
        EXPECT_NE(r.err.find("enhancement 'grey' is not available"), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists(dir_ / "grey.jpg"));
    }
}

TEST_F(ScrivoCli, UsageErrorsExitWithTwo) {
    Spit(dir_ / "photo.jpg", MakeJpeg(64, 48));
    for (const char* args :
         {"scan", "scan photo.jpg --enhance sepia", "scan photo.jpg --bogus",
          "scan photo.jpg --quality 0", "scan photo.jpg --corners 1,2,3", "frobnicate",
          "scan photo.jpg photo.jpg --corners 0,0,0,48,64,48,64,0"}) {
        const Result r = Scrivo(args);
        EXPECT_EQ(r.code, 2) << args << "\n" << r.err;
        EXPECT_NE(r.err.find("scrivo: "), std::string::npos) << args;
    }
    const Result help = Scrivo("--help");
    EXPECT_EQ(help.code, 0);
    EXPECT_NE(help.out.find("Exit codes: 0 success, 1 some inputs failed"), std::string::npos);
}

TEST_F(ScrivoCli, BadFilesAreNamedWithTheirReason) {
    const std::string good = MakeJpeg(200, 150);
    fs::create_directories(dir_ / "in");
    Spit(dir_ / "in" / "a.jpg", good);
    Spit(dir_ / "in" / "b.JPEG", MakeJpeg(120, 160));
    Spit(dir_ / "in" / "cut.jpg", good.substr(0, good.size() / 2));
    Spit(dir_ / "in" / "picture.jpg", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16));
    Spit(dir_ / "in" / "empty.jpg", "");
    Spit(dir_ / "in" / "tiny.jpg", MakeJpeg(1, 1));
    Spit(dir_ / "in" / "notes.txt", "not a photograph");
    Spit(dir_ / "in" / "old.page.jpg", good);  // an earlier run's output: skipped

    const std::vector<std::pair<std::string, std::string>> cases = {
        {"cut.jpg", "truncated"}, {"picture.jpg", "not a JPEG"}, {"empty.jpg", "empty file"}};
    for (const auto& [name, reason] : cases) {
        const Result r = Scrivo("scan in/" + name + " --enhance none");
        EXPECT_EQ(r.code, 1) << name;
        EXPECT_NE(r.err.find("scrivo: in/" + name + ": " + reason), std::string::npos) << r.err;
    }
    // A 1x1 photograph either gives a 1x1 page or a clear refusal.
    const Result tiny = Scrivo("scan in/tiny.jpg --enhance none -o tiny.jpg");
    if (tiny.code != 0) {
        EXPECT_NE(tiny.err.find("in/tiny.jpg: image too small"), std::string::npos) << tiny.err;
    }

    const Result r = Scrivo("scan in -o out -j 2 --enhance none");
    EXPECT_EQ(r.code, 1) << r.err;
    EXPECT_TRUE(fs::exists(dir_ / "out" / "a.page.jpg"));
    EXPECT_TRUE(fs::exists(dir_ / "out" / "b.page.jpg"));
    EXPECT_FALSE(fs::exists(dir_ / "out" / "old.page.page.jpg"));
    EXPECT_FALSE(fs::exists(dir_ / "out" / "notes.page.jpg"));
    for (const auto& [name, reason] : cases)
        EXPECT_NE(r.err.find(name + ": " + reason), std::string::npos) << r.err;
    const bool tinyOk = tiny.code == 0;
    EXPECT_NE(r.out.find(std::to_string(tinyOk ? 3 : 2) + " ok, " + std::to_string(tinyOk ? 3 : 4) +
                         " failed"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(Slurp(dir_ / "in" / "a.jpg"), good);

    // a.jpg and a.jpeg would share a page name: the second is refused.
    Spit(dir_ / "in" / "a.jpeg", good);
    const Result clash = Scrivo("scan in/a.jpg in/a.jpeg -o out2 --enhance none");
    EXPECT_EQ(clash.code, 1);
    EXPECT_NE(clash.err.find("is already the page of in/a.jpg"), std::string::npos) << clash.err;
}

TEST_F(ScrivoCli, DetectSaysSoWhenThereIsNoPage) {
    // An empty table under uneven light: nothing bounds a page.
    cv::Mat table(240, 320, CV_8UC3);
    for (int y = 0; y < table.rows; ++y)
        for (int x = 0; x < table.cols; ++x)
            table.at<cv::Vec3b>(y, x) = cv::Vec3b(60 + x / 8, 70 + y / 8, 80 + (x + y) % 7);
    Spit(dir_ / "table.jpg", EncodeJpeg(table));
    const Result text = Scrivo("detect table.jpg");
    ASSERT_EQ(text.code, 0) << text.err;
    EXPECT_NE(text.out.find("table.jpg: 320x240, no page found"), std::string::npos) << text.out;
    EXPECT_EQ(text.out.find("top-left"), std::string::npos) << text.out;
    const Result json = Scrivo("detect table.jpg --json");
    ASSERT_EQ(json.code, 0) << json.err;
    const auto j = nlohmann::json::parse(json.out);
    EXPECT_FALSE(j["found"].get<bool>());
    EXPECT_TRUE(j["corners"].is_null());
}

TEST_F(ScrivoCli, DetectPrintsJsonAndAnOverlay) {
    Spit(dir_ / "photo.jpg", MakeJpeg(400, 300));
    Result r = Scrivo("detect photo.jpg --json --overlay outline.jpg");
    ASSERT_EQ(r.code, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);  // the whole standard output is the JSON
    ASSERT_EQ(j["corners"].size(), 4u);
    EXPECT_EQ(j["width"], 400);
    EXPECT_TRUE(j["found"].get<bool>());

    // The quadrangle is drawn: the overlay differs from the photograph along
    // the first side (top-left to bottom-left).
    MHAMCM manager = nullptr;
    ASSERT_EQ(AMCM_Create(nullptr, &manager), 0u);
    ASSERT_EQ(MdRegisterJpegComponents(manager), 0u);
    const std::string overlay = Slurp(dir_ / "outline.jpg");
    MBITMAP bitmap{};
    bitmap.pixelFormat = MPAF_RGBA8888;
    ASSERT_EQ(
        MCodec_DecodeData(manager, overlay.data(), static_cast<int32_t>(overlay.size()), &bitmap),
        0u);
    const int x = (j["corners"][0][0].get<int>() + j["corners"][1][0].get<int>()) / 2;
    const int y = (j["corners"][0][1].get<int>() + j["corners"][1][1].get<int>()) / 2;
    const uint8_t* px = bitmap.plane[0] + y * bitmap.pitch[0] + std::min(x + 1, 399) * 4;
    EXPECT_GT(std::abs(px[0] - px[1]), 60) << "no coloured line at " << x << "," << y;
    MdBitmapFree(nullptr, &bitmap);
    AMCM_Destroy(manager);

    Spit(dir_ / "png.jpg", "\x89PNG\r\n\x1a\n0000000000");
    r = Scrivo("detect png.jpg --json");
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(nlohmann::json::parse(r.out)["error"], "not a JPEG");
}

TEST_F(ScrivoCli, AutoRotateTurnsThePageUpright) {
    // A page lying sideways on a dark table, its top to the photograph's right.
    const std::array<tagVPPoint, 4> placed{{{1060, 90}, {90, 60}, {120, 700}, {1080, 760}}};
    Spit(dir_ / "sideways.jpg",
         EncodeJpeg(textdir_test::Photograph(textdir_test::TextPage(700, 1000), cv::Size(1200, 860),
                                             placed)));
    Result r = Scrivo("-v scan sideways.jpg --auto-rotate --enhance grey -o page.jpg");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find(", grey, rotated 270); corners (detected)"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("scrivo: sideways.jpg: text direction: turn 270 clockwise"),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("scrivo: sideways.jpg: text direction "), std::string::npos);  // timing
    const cv::Size upright = JpegSize(dir_ / "page.jpg");
    EXPECT_LT(upright.width, upright.height);

    // Without the flag nothing changes: the page stays sideways, unmentioned.
    r = Scrivo("scan sideways.jpg --enhance none -o plain.jpg");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.find("rotated"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("upright"), std::string::npos) << r.out;
    EXPECT_GT(JpegSize(dir_ / "plain.jpg").width, JpegSize(dir_ / "plain.jpg").height);

    // A photograph that is all page is turned too; a page without text is
    // left as it is.
    Spit(dir_ / "all.jpg", EncodeJpeg(textdir_test::Turned(textdir_test::TextPage(600, 840), 1)));
    r = Scrivo("scan all.jpg --auto-rotate --enhance none -o all.page.jpg");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find(", none, rotated 270)"), std::string::npos) << r.out;
    const cv::Size all = JpegSize(dir_ / "all.page.jpg");
    EXPECT_LT(all.width, all.height);
    Spit(dir_ / "blank.jpg", MakeJpeg(320, 240));
    r = Scrivo("scan blank.jpg --auto-rotate --enhance none");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find(", none, direction unknown)"), std::string::npos) << r.out;
}

// In the sanitizer build this is the leak and memory-error check of a whole
// capture at the size phones deliver.
TEST_F(ScrivoCli, ScansATwelveMegapixelPhotograph) {
    const fs::path photo = fs::path(SCRIVO_TEST_DATA_DIR) / "synth-dev" / "0010.jpg";
    if (!fs::exists(photo)) GTEST_SKIP() << "no " << photo;
    const Result r = Scrivo("scan '" + photo.string() + "' --enhance none -o page.jpg");
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.err.find("Sanitizer"), std::string::npos) << r.err;
    EXPECT_NE(r.out.find("-> page.jpg ("), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("corners (detected)"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("Schedpolicy"), std::string::npos);
    // The photograph's EXIF block travels with the page (the data set's
    // photographs are all made by the "EvalCam" camera maker).
    const std::string page = Slurp(dir_ / "page.jpg");
    ASSERT_NE(page.find(std::string("Exif\0\0", 6)), std::string::npos);
    EXPECT_NE(page.find("EvalCam"), std::string::npos);
    EXPECT_GT(page.size(), 100000u);
}

}  // namespace
