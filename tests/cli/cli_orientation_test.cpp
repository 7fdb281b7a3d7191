// The scrivo tool on photographs stored turned (EXIF Orientation 3, 6, 8):
// sizes and corners, detected, drawn or given, are those of the photograph
// as viewed, and pages come out upright saying Orientation 1. Corners too
// close together for a page are refused with the smallest page named.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "cli/tool_test.h"
#include "session/orientation_photos.h"

namespace fs = std::filesystem;
using namespace orientationtest;

namespace {

using tooltest::Result;

class ScrivoOrientation : public tooltest::ToolTest {
  protected:
    Bytes Read(const std::string& name) {
        std::ifstream in(dir_ / name, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }
    void Write(const std::string& name, const Bytes& bytes) {
        std::ofstream(dir_ / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    }
    // The decoded picture of a written file (empty when it does not decode).
    MBITMAP Decoded(const std::string& name) {
        const Bytes jpeg = Read(name);
        MBITMAP bm{};
        bm.pixelFormat = MPAF_RGBA8888;
        if (MCodec_DecodeData(m_.m, jpeg.data(), int32_t(jpeg.size()), &bm) != 0) bm = MBITMAP{};
        return bm;
    }

    capturetest::Manager m_;
};

}  // namespace

TEST_F(ScrivoOrientation, TurnedPhotographsAreDetectedDrawnAndScannedAsViewed) {
    const int truth[4][2] = {{50, 60}, {50, 240}, {350, 240}, {350, 60}};
    for (int o : {3, 6, 8}) {
        SCOPED_TRACE(o);
        Write("photo.jpg", OrientedJpeg(m_.m, MarkedPage(), 400, 300, o));
        Result r = Scrivo("detect photo.jpg --json --overlay overlay.jpg");
        ASSERT_EQ(r.code, 0) << r.err;
        const nlohmann::json j = nlohmann::json::parse(r.out);
        EXPECT_EQ(j["width"].get<int>() * 1000 + j["height"].get<int>(), 400300);
        ASSERT_TRUE(j["found"].get<bool>());
        for (int i = 0; i < 4; ++i)
            EXPECT_LT(std::hypot(j["corners"][i][0].get<int>() - truth[i][0],
                                 j["corners"][i][1].get<int>() - truth[i][1]),
                      6.0);
        // The overlay is the photograph as viewed, its mark at the top-left
        // of the drawn page.
        MBITMAP overlay = Decoded("overlay.jpg");
        EXPECT_EQ(overlay.width * 1000 + overlay.height, 400300);
        EXPECT_LT(overlay.plane[0][100 * overlay.pitch[0] + 100 * 4 + 1], 100);
        MdBitmapFree(nullptr, &overlay);

        r = Scrivo("scan photo.jpg --enhance none -o page.jpg");
        ASSERT_EQ(r.code, 0) << r.err;
        MBITMAP page = Decoded("page.jpg");
        EXPECT_GT(page.width, page.height);
        EXPECT_TRUE(MarkTopLeft(page));
        EXPECT_EQ(OrientationOf(Read("page.jpg")), 1);
        MdBitmapFree(nullptr, &page);
    }
    // x = 340 is inside the photograph as viewed, not inside its stored,
    // portrait frame.
    const Result r =
        Scrivo("scan photo.jpg --enhance none --corners 60,70,60,230,340,230,340,70 -o given.jpg");
    ASSERT_EQ(r.code, 0) << r.err;
    MBITMAP given = Decoded("given.jpg");
    EXPECT_EQ(given.width * 1000 + given.height, 280160);
    EXPECT_TRUE(MarkTopLeft(given));
    MdBitmapFree(nullptr, &given);
}

TEST_F(ScrivoOrientation, CornersTooCloseForAPageAreRefused) {
    Write("photo.jpg", OrientedJpeg(m_.m, MarkedPage(), 400, 300, 1));
    for (const char* corners :
         {"100,100,100,101,101,101,101,100", "100,100,100,103,103,103,103,100",
          "100,50,100,250,103,250,103,50"}) {
        SCOPED_TRACE(corners);
        const Result r = Scrivo(std::string("scan photo.jpg -o page.jpg --corners ") + corners);
        EXPECT_EQ(r.code, 1);
        EXPECT_NE(r.err.find("photo.jpg: corners give a page too small to make (the smallest "
                             "page is 8x8 pixels)"),
                  std::string::npos)
            << r.err;
        EXPECT_FALSE(fs::exists(dir_ / "page.jpg"));
    }
}
