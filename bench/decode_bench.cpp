// Decoding a 12-megapixel photograph (4000 x 3000, 4:2:0, quality 90)
// through the codec framework into 0x37001777 (R, G, B, A bytes), against a
// direct libjpeg-turbo decode into RGBA. The ratio benchmark times both in
// the same iterations and reports framework time / direct time.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <jpeglib.h>

#include "scrivo/codec.h"
#include "support/libjpeg_ref.h"

namespace {

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;

const std::vector<uint8_t>& Photo() {
    static const std::vector<uint8_t> bytes = [] {
        // Smooth shading with texture: a camera photograph's mix of flat
        // areas and detail, so the entropy decoder has realistic work.
        std::vector<uint8_t> rgb(static_cast<size_t>(kWidth) * kHeight * 3);
        uint32_t seed = 12345;
        for (int y = 0; y < kHeight; ++y) {
            uint8_t* p = &rgb[static_cast<size_t>(y) * kWidth * 3];
            for (int x = 0; x < kWidth; ++x) {
                seed = seed * 1103515245u + 12345u;
                const int noise = static_cast<int>((seed >> 16) & 31) - 16;
                p[x * 3] = static_cast<uint8_t>(std::clamp(x * 255 / kWidth + noise, 0, 255));
                p[x * 3 + 1] = static_cast<uint8_t>(std::clamp(y * 255 / kHeight + noise, 0, 255));
                p[x * 3 + 2] = static_cast<uint8_t>(((x / 40 + y / 40) % 2) ? 200 : 60);
            }
        }
        return libjpeg_ref::Compress(rgb.data(), kWidth, kHeight, size_t(kWidth) * 3);
    }();
    return bytes;
}

void DirectDecode(const std::vector<uint8_t>& bytes, std::vector<uint8_t>& px) {
    jpeg_decompress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_decompress(&c);
    jpeg_mem_src(&c, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&c, TRUE);
    c.out_color_space = JCS_EXT_RGBA;
    jpeg_start_decompress(&c);
    JSAMPROW rows[16];
    while (c.output_scanline < c.output_height) {
        for (int i = 0; i < 16; ++i)
            rows[i] = &px[static_cast<size_t>(c.output_scanline + i) * kWidth * 4];
        jpeg_read_scanlines(&c, rows,
                            std::min<JDIMENSION>(16, c.output_height - c.output_scanline));
    }
    jpeg_finish_decompress(&c);
    jpeg_destroy_decompress(&c);
}

struct Framework {
    MHAMCM m = nullptr;
    MBITMAP bm{};
    std::vector<uint8_t> px;
    Framework() : px(static_cast<size_t>(kWidth) * kHeight * 4) {
        AMCM_Create(nullptr, &m);
        MdRegisterJpegComponents(m);
        bm.pixelFormat = MPAF_RGBA8888;
        bm.width = kWidth;
        bm.height = kHeight;
        bm.pitch[0] = kWidth * 4;
        bm.plane[0] = px.data();
    }
    ~Framework() { AMCM_Destroy(m); }
    MRESULT Decode(const std::vector<uint8_t>& bytes) {
        MHStream s = MStreamOpenFromMemoryBlock(const_cast<uint8_t*>(bytes.data()),
                                                static_cast<int32_t>(bytes.size()));
        MRESULT r = MdBitmapLoad(m, s, 2, &bm);
        MStreamClose(s);
        return r;
    }
};

void BM_DecodeDirectLibjpeg(benchmark::State& state) {
    const auto& bytes = Photo();
    std::vector<uint8_t> px(static_cast<size_t>(kWidth) * kHeight * 4);
    for (auto _ : state) DirectDecode(bytes, px);
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_DecodeDirectLibjpeg)->Unit(benchmark::kMillisecond);

void BM_DecodeFramework(benchmark::State& state) {
    const auto& bytes = Photo();
    Framework f;
    for (auto _ : state)
        if (f.Decode(bytes) != 0) state.SkipWithError("decode failed");
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_DecodeFramework)->Unit(benchmark::kMillisecond);

void BM_DecodeRatio(benchmark::State& state) {
    const auto& bytes = Photo();
    Framework f;
    std::vector<uint8_t> px(static_cast<size_t>(kWidth) * kHeight * 4);
    double direct = 0, framework = 0;
    using Clock = std::chrono::steady_clock;
    for (auto _ : state) {
        auto t0 = Clock::now();
        DirectDecode(bytes, px);
        auto t1 = Clock::now();
        f.Decode(bytes);
        auto t2 = Clock::now();
        direct += std::chrono::duration<double>(t1 - t0).count();
        framework += std::chrono::duration<double>(t2 - t1).count();
    }
    state.counters["ratio"] = framework / direct;
    std::printf("framework / direct libjpeg-turbo decode time: %.3f\n", framework / direct);
}
BENCHMARK(BM_DecodeRatio)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace
