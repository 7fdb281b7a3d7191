// Writes the fuzz targets' seed files (fuzz/seeds/<target>/) from the test
// fixtures, so that they can be made again after a format change:
//   fuzz_seed_writer fuzz/seeds
// The sniff_fuzz seeds are kept as they are. Every seed is replayed by the
// <target>_seeds tests.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/capture_test_util.h"

using capturetest::Bytes;

namespace {

std::string g_dir;

bool Put(const std::string& name, const Bytes& b) {
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(g_dir + "/" + name).parent_path(),
                                        ec);
    std::ofstream out(g_dir + "/" + name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
    if (out) return true;
    std::fprintf(stderr, "cannot write %s/%s\n", g_dir.c_str(), name.c_str());
    return false;
}

// The first byte steers the target; the rest is the file.
Bytes Steered(uint8_t control, const Bytes& file) {
    Bytes b{control};
    b.insert(b.end(), file.begin(), file.end());
    return b;
}

// A light sheet on a dark, slightly textured table, as R,G,B,A pixels: a
// picture on which the page search has something to find.
Bytes Sheet(int w, int h) {
    Bytes px(size_t(w) * h * 4, 255);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t* p = &px[(size_t(y) * w + x) * 4];
            const bool paper = x > w / 6 + y / 8 && x < w - w / 8 && y > h / 8 && y < h - h / 10;
            const bool ink = paper && y % 6 == 0 && x % 9 < 6;
            const uint8_t v = ink ? 40 : paper ? 225 : uint8_t(50 + (x * 7 + y * 3) % 20);
            p[0] = v;
            p[1] = v;
            p[2] = paper ? v : uint8_t(v + 25);
        }
    return px;
}

bool ExifSeeds() {
    const Bytes jpeg = exiftest::EncodeJpeg(8, 8);
    const Bytes withExif = capturetest::WithExif(
        jpeg, exiftest::BuildExifBlock({true, 3, true, exiftest::EncodeJpeg(8, 8, true)}));
    Bytes footer = jpeg;
    const uint8_t tail[20] = {'Z', 'Q', 'T', 'M', 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 28, 0, 0, 0};
    footer.insert(footer.end(), 8, 0xEE);
    footer.insert(footer.end(), tail, tail + 20);
    return Put("exif_fuzz/le_jpeg.jpg", withExif) &&
           Put("exif_fuzz/be_block.bin",
               exiftest::BuildExifBlock({false, 4, true, Bytes(16, 0xFF)})) &&
           Put("jpeg_insert_fuzz/jfif.bin", Steered(0x10, jpeg)) &&
           Put("jpeg_insert_fuzz/exif.bin", Steered(0xF0, withExif)) &&
           Put("footer_fuzz/footer.bin", footer);
}

// Small photographs from our own encoder: with the detector's quadrangle
// and an EXIF block with a thumbnail, without EXIF on the whole picture, and
// a grey one through a quadrangle beyond the picture into a bitmap that is
// not RGBA.
bool SessionSeeds() {
    capturetest::Manager m;
    const Bytes photo = capturetest::EncodeRgba(m.m, Sheet(48, 36), 48, 36, 60);
    exiftest::BlockOptions o;
    o.thumbnail = capturetest::EncodeRgba(m.m, Sheet(8, 6), 8, 6, 30);
    const Bytes grey =
        codec_test::Compress(codec_test::Picture(24, 16), 24, 16, {.grey = true, .quality = 50});
    return Put("session_fuzz/exif.jpg",
               Steered(0x28, capturetest::WithExif(photo, exiftest::BuildExifBlock(o)))) &&
           Put("session_fuzz/plain.jpg", Steered(0x45, photo)) &&
           Put("session_fuzz/grey.jpg", Steered(0x8E, grey));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s SEEDS_DIR\n", argv[0]);
        return 2;
    }
    g_dir = argv[1];
    return ExifSeeds() && SessionSeeds() ? 0 : 1;
}
