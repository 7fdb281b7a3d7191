// Our baseline JPEG encoder against libjpeg-turbo on a 12-megapixel
// photograph (4000 x 3000, 32-bit R, G, B, A input), quality 90, 4:2:0.
//
// The reference uses the libjpeg API with our exact quantisation tables
// (jpeg_add_quant_table), the standard Huffman tables and its default
// accurate integer DCT -- the same work as our encoder. The photograph is
// one of the shared synthetic captures when available (decoded once),
// else a synthetic page. BM_JpegEncodeRatio times both encoders in the same
// iterations and reports time_ratio (ours / libjpeg-turbo) and size_ratio;
// BM_JpegEncodeStages splits our time by stage.
#include <benchmark/benchmark.h>
#include <jpeglib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "imaging/jpeg/jpeg_internal.h"
#include "scrivo/jpeg.h"
#include "support/libjpeg_ref.h"

namespace {

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;
constexpr int kQuality = 90;

std::vector<uint8_t> LoadPhoto() {
    std::vector<uint8_t> rgba(size_t(kWidth) * kHeight * 4);
    // The shared data lives beside the repository (an absolute path: the
    // build may name this source file relative to the build directory).
    const std::string path = std::string(SCRIVO_TEST_DATA_DIR) + "/synth-dev/0008.jpg";
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        std::vector<uint8_t> bytes;
        uint8_t buf[65536];
        for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;)
            bytes.insert(bytes.end(), buf, buf + n);
        std::fclose(f);
        libjpeg_ref::Decoded d = libjpeg_ref::Decompress(bytes, JCS_EXT_RGBA);
        if (d.ok && d.width == kWidth && d.height == kHeight) return std::move(d.pixels);
    }
    uint32_t s = 1;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            s = s * 1664525u + 1013904223u;
            const int n = int((s >> 24) % 9) - 4;
            const bool ink = ((y / 9) % 4 == 0) && ((x / 6) % 5 != 0);
            const int base = ink ? 50 : 200 - x / 80 + int(20 * std::sin(y * 0.003));
            uint8_t* p = &rgba[(size_t(y) * kWidth + x) * 4];
            p[0] = uint8_t(std::min(255, std::max(0, base + n + 10)));
            p[1] = uint8_t(std::min(255, std::max(0, base + n)));
            p[2] = uint8_t(std::min(255, std::max(0, base + n - 15)));
            p[3] = 255;
        }
    }
    return rgba;
}

const std::vector<uint8_t>& Photo() {
    static const std::vector<uint8_t> photo = LoadPhoto();
    return photo;
}

// Our encoder set up for the photograph (quality 90, 4:2:0) over a memory
// stream on `out`.
void* OpenOurs(std::vector<uint8_t>& out, MHStream* s) {
    *s = MStreamOpenFromMemoryBlock(out.data(), int32_t(out.size()));
    void* enc = nullptr;
    ajlJpgEncoderCreate(nullptr, &enc);
    ajlJpgEncoderAttachStream(enc, *s);
    JpgEncSetImageSize(enc, kWidth, kHeight);
    JpgSetQuality(enc, kQuality);
    JpgEncSetSampling(enc, JPG_SAMPLING_420);
    return enc;
}

size_t EncodeOurs(const std::vector<uint8_t>& rgba, std::vector<uint8_t>& out) {
    MHStream s = nullptr;
    void* enc = OpenOurs(out, &s);
    MBITMAP bm{};
    bm.pixelFormat = MPAF_RGBA8888;
    bm.width = kWidth;
    bm.height = kHeight;
    bm.pitch[0] = kWidth * 4;
    bm.plane[0] = const_cast<uint8_t*>(rgba.data());
    const MRESULT r = ajlJpgEncoderScanlines(enc, &bm, kHeight);
    const size_t size = r ? 0 : size_t(MStreamTell(s));
    ajlJpgEncoderDestroy(enc);
    MStreamClose(s);
    return size;
}

size_t EncodeTurbo(const std::vector<uint8_t>& rgba, std::vector<uint8_t>& out) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* buf = out.data();
    unsigned long size = out.size();
    jpeg_mem_dest(&c, &buf, &size);
    c.image_width = kWidth;
    c.image_height = kHeight;
    c.input_components = 4;
    c.in_color_space = JCS_EXT_RGBA;
    jpeg_set_defaults(&c);
    const int s = scrivo::jpeg::QualityScale(kQuality);
    uint16_t q[2][64];
    scrivo::jpeg::ScaleQuantTable(scrivo::jpeg::jpg_std_luminance_quant_tbl, s, q[0]);
    scrivo::jpeg::ScaleQuantTable(scrivo::jpeg::jpg_std_chrominance_quant_tbl, s < 240 ? s : 240,
                                  q[1]);
    for (int t = 0; t < 2; ++t) {
        unsigned int basic[64];
        for (int i = 0; i < 64; ++i) basic[i] = q[t][i];
        jpeg_add_quant_table(&c, t, basic, 100, TRUE);
    }
    jpeg_start_compress(&c, TRUE);
    std::vector<JSAMPROW> rows(kHeight);
    for (int y = 0; y < kHeight; ++y)
        rows[y] = const_cast<uint8_t*>(rgba.data()) + size_t(y) * kWidth * 4;
    while (c.next_scanline < c.image_height)
        jpeg_write_scanlines(&c, rows.data() + c.next_scanline, c.image_height - c.next_scanline);
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    if (buf != out.data()) {
        free(buf);
        return 0;
    }
    return size;
}

void BM_JpegEncodeOurs(benchmark::State& state) {
    const std::vector<uint8_t>& rgba = Photo();
    std::vector<uint8_t> out(32u << 20);
    size_t size = 0;
    for (auto _ : state) benchmark::DoNotOptimize(size = EncodeOurs(rgba, out));
    state.counters["bytes"] = double(size);
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_JpegEncodeOurs)->Unit(benchmark::kMillisecond);

void BM_JpegEncodeLibjpegTurbo(benchmark::State& state) {
    const std::vector<uint8_t>& rgba = Photo();
    std::vector<uint8_t> out(32u << 20);
    size_t size = 0;
    for (auto _ : state) benchmark::DoNotOptimize(size = EncodeTurbo(rgba, out));
    state.counters["bytes"] = double(size);
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_JpegEncodeLibjpegTurbo)->Unit(benchmark::kMillisecond);

void BM_JpegEncodeRatio(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    const std::vector<uint8_t>& rgba = Photo();
    std::vector<uint8_t> out(32u << 20);
    double ours = 0, turbo = 0;
    size_t oursSize = 0, turboSize = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        oursSize = EncodeOurs(rgba, out);
        const auto t1 = Clock::now();
        turboSize = EncodeTurbo(rgba, out);
        const auto t2 = Clock::now();
        ours += std::chrono::duration<double, std::milli>(t1 - t0).count();
        turbo += std::chrono::duration<double, std::milli>(t2 - t1).count();
    }
    const double n = double(state.iterations());
    state.counters["ours_ms"] = ours / n;
    state.counters["turbo_ms"] = turbo / n;
    state.counters["time_ratio"] = turbo > 0 ? ours / turbo : 0;
    state.counters["size_ratio"] = turboSize ? double(oursSize) / double(turboSize) : 0;
    std::printf(
        "jpeg encode 4000x3000 q%d 4:2:0: ours %.1f ms, libjpeg-turbo %.1f ms, "
        "time ratio %.2f, size %zu vs %zu bytes, size ratio %.4f\n",
        kQuality, ours / n, turbo / n, turbo > 0 ? ours / turbo : 0.0, oursSize, turboSize,
        turboSize ? double(oursSize) / double(turboSize) : 0.0);
}
BENCHMARK(BM_JpegEncodeRatio)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// Where our encoder's time goes: the stages of EncodeOurs run one after the
// other per MCU row (colour conversion, chroma reduction, block coder,
// entropy coder), each timed on its own, with the kernels the machine picks.
void BM_JpegEncodeStages(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    namespace sj = scrivo::jpeg;
    const std::vector<uint8_t>& rgba = Photo();
    std::vector<uint8_t> out(32u << 20);
    const int level = sj::BlockCoderLevel();
    double ms[4] = {0, 0, 0, 0};
    auto lap = [&ms](int stage, Clock::time_point& t) {
        const Clock::time_point now = Clock::now();
        ms[stage] += std::chrono::duration<double, std::milli>(now - t).count();
        t = now;
    };
    for (auto _ : state) {
        MHStream s = nullptr;
        void* enc = OpenOurs(out, &s);
        const int32_t format = int32_t(MPAF_RGBA8888);
        ajlJpgEncoderSetProp(enc, MD_PROP_PIXARRAY_FORMAT, &format, 4);
        JpgEncWriteHeader(enc);
        sj::Encoder* e = static_cast<sj::Encoder*>(enc);
        MBITMAP bm{};
        bm.pixelFormat = MPAF_RGBA8888;
        bm.width = kWidth;
        bm.height = 1;
        bm.pitch[0] = kWidth * 4;
        std::vector<int16_t> zz(size_t(e->mcusX) * 6 * 64);
        std::vector<uint64_t> masks(size_t(e->mcusX) * 6);
        for (int y0 = 0; y0 < kHeight; y0 += 16) {
            Clock::time_point t = Clock::now();
            for (int r = 0; r < 16; ++r) {
                bm.plane[0] = const_cast<uint8_t*>(rgba.data()) +
                              size_t(std::min(y0 + r, kHeight - 1)) * kWidth * 4;
                sj::ConvertRow(e, MPAF_RGBA8888, &bm, 0, r);
            }
            lap(0, t);
            sj::DownsampleMcuRow(e);
            lap(1, t);
            // As the encoder does in 4:2:0: the luminance blocks in pairs
            // side by side, then Cb with Cr.
            const sj::QuantScale &qy = e->scale[0], &qc = e->scale[1];
            for (int mx = 0, b = 0; mx < e->mcusX; ++mx, b += 6) {
                for (int by = 0; by < 2; ++by) {
                    const uint8_t* src = e->plane[0].data() + by * 8 * e->planeStride[0] + mx * 16;
                    sj::BlockCodeFloatPairAt(level, src, src + 8, e->planeStride[0], qy,
                                             &zz[size_t(b + 2 * by) * 64], &masks[b + 2 * by]);
                }
                sj::BlockCodeFloatPairAt(level, e->plane[1].data() + mx * 8,
                                         e->plane[2].data() + mx * 8, e->planeStride[1], qc,
                                         &zz[size_t(b + 4) * 64], &masks[b + 4]);
            }
            lap(2, t);
            for (int mx = 0, b = 0; mx < e->mcusX; ++mx) {
                e->out.Reserve(8192);
                for (int c = 0; c < 3; ++c)
                    for (int i = 0; i < e->comp[c].h * e->comp[c].v; ++i, ++b)
                        sj::EncodeBlock(e, &zz[size_t(b) * 64], masks[b], &e->comp[c]);
            }
            lap(3, t);
        }
        ajlJpgEncoderDestroy(enc);
        MStreamClose(s);
    }
    const double n = double(state.iterations());
    state.counters["colour_ms"] = ms[0] / n;
    state.counters["downsample_ms"] = ms[1] / n;
    state.counters["blockcoder_ms"] = ms[2] / n;
    state.counters["entropy_ms"] = ms[3] / n;
}
BENCHMARK(BM_JpegEncodeStages)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace
