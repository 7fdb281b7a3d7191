// Helpers of the encoder tests: a photograph-like test image, encoding
// through the component into a memory stream, and libjpeg-turbo as the
// independent decoder and reference encoder.
#ifndef SCRIVO_TESTS_JPEG_TEST_UTIL_H
#define SCRIVO_TESTS_JPEG_TEST_UTIL_H

#include <jpeglib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <utility>
#include <vector>

#include "imaging/jpeg/jpeg_internal.h"
#include "scrivo/jpeg.h"
#include "support/libjpeg_ref.h"

namespace jpegtest {

// Smooth shading, a few hard edges and sensor-like noise, RGB bytes.
inline std::vector<uint8_t> MakePhoto(int w, int h, uint32_t seed = 1) {
    std::vector<uint8_t> px(size_t(w) * h * 3);
    uint32_t s = seed;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            s = s * 1664525u + 1013904223u;
            const int n = int((s >> 24) % 13) - 6;
            const bool page = x > w / 5 && x < w * 4 / 5 && y > h / 6 && y < h * 5 / 6;
            const bool ink = page && ((y / 7) % 3 == 0) && ((x / 5) % 4 != 0);
            int r = page ? 215 - x * 20 / w : 90 + 60 * x / w;
            int g = page ? 205 - y * 25 / h : 70 + 40 * y / h;
            int b = page ? 190 : 50 + int(30 * std::sin(x * 0.05));
            if (ink) r = g = b = 40;
            uint8_t* p = &px[(size_t(y) * w + x) * 3];
            p[0] = uint8_t(std::clamp(r + n, 0, 255));
            p[1] = uint8_t(std::clamp(g + n, 0, 255));
            p[2] = uint8_t(std::clamp(b + n, 0, 255));
        }
    }
    return px;
}

struct EncodeOptions {
    int quality = 90;
    int sampling = JPG_SAMPLING_420;
    int mode = 0;
    int restart = 0;
    std::vector<uint8_t> app;
    int band = 0;  // lines per scanline call, 0: all at once
};

// Encodes a packed bitmap (RGB, RGBA, BGR, grey) or an I420 bitmap.
inline std::vector<uint8_t> Encode(const MBITMAP& bm, const EncodeOptions& o,
                                   MRESULT* result = nullptr) {
    std::vector<uint8_t> bytes;
    void* enc = nullptr;
    MHStream s = MStreamOpenFromMemoryBlock(nullptr, 0);
    MRESULT r = ajlJpgEncoderCreate(nullptr, &enc);
    if (!r) r = ajlJpgEncoderAttachStream(enc, s);
    if (!r) r = JpgEncSetImageSize(enc, bm.width, bm.height);
    if (!r) r = JpgSetQuality(enc, o.quality);
    if (!r) r = JpgEncSetSampling(enc, o.sampling);
    if (!r) r = JpgEncSetQualityMode(enc, o.mode);
    if (!r) r = JpgEncSetRestartInterval(enc, o.restart);
    if (!r && !o.app.empty()) r = JpgEncSetAppSegments(enc, o.app.data(), int32_t(o.app.size()));
    const int band = o.band > 0 ? o.band : bm.height;
    for (int y = 0; !r && y < bm.height; y += band) {
        MBITMAP part = bm;
        const bool i420 = (bm.pixelFormat & 0xF0000FFFu) == 0x50000811u;
        part.plane[0] = bm.plane[0] + ptrdiff_t(y) * bm.pitch[0];
        for (int p = 1; p < 3 && i420; ++p)
            part.plane[p] = bm.plane[p] + ptrdiff_t(y / 2) * bm.pitch[p];
        part.height = std::min(band, bm.height - y);
        r = ajlJpgEncoderScanlines(enc, &part, part.height);
    }
    if (!r) {
        bytes.resize(size_t(MStreamGetSize(s)));
        MStreamSeek(s, MSTREAM_SEEK_BEGIN, 0);
        MStreamRead(s, bytes.data(), int32_t(bytes.size()));
    }
    if (enc) ajlJpgEncoderDestroy(enc);
    MStreamClose(s);
    if (result) *result = r;
    return bytes;
}

inline MBITMAP Packed(std::vector<uint8_t>& px, int w, int h, uint32_t fmt, int bpp) {
    MBITMAP bm{};
    bm.pixelFormat = fmt;
    bm.width = w;
    bm.height = h;
    bm.pitch[0] = w * bpp;
    bm.plane[0] = px.data();
    return bm;
}

// Decodes with libjpeg-turbo into RGB (or grey, or YCbCr when ycc is set
// for a colour image). Returns false on a fatal error; counts warnings.
inline bool Decode(const std::vector<uint8_t>& bytes, std::vector<uint8_t>* px, int* w, int* h,
                   int* comps, int* warnings, bool ycc = false) {
    libjpeg_ref::Decoded d = libjpeg_ref::Decompress(bytes, ycc ? JCS_YCbCr : JCS_UNKNOWN);
    *warnings = d.warnings;
    if (!d.ok) return false;
    *w = d.width;
    *h = d.height;
    *comps = d.components;
    *px = std::move(d.pixels);
    return true;
}

// libjpeg-turbo's own encoder with our quantisation tables and sampling.
inline std::vector<uint8_t> EncodeReference(const uint8_t* px, int w, int h, int comps, int quality,
                                            int sampling, J_DCT_METHOD dct = JDCT_ISLOW) {
    uint16_t q[2][64];
    const int s = scrivo::jpeg::QualityScale(quality);
    scrivo::jpeg::ScaleQuantTable(scrivo::jpeg::jpg_std_luminance_quant_tbl, s, q[0]);
    scrivo::jpeg::ScaleQuantTable(scrivo::jpeg::jpg_std_chrominance_quant_tbl, std::min(s, 240),
                                  q[1]);
    libjpeg_ref::CompressOptions o;
    o.components = comps;
    o.tables = q;
    o.dct = dct;
    o.hSamp = sampling == JPG_SAMPLING_444 ? 1 : 2;
    o.vSamp = sampling == JPG_SAMPLING_420 ? 2 : 1;
    return libjpeg_ref::Compress(px, w, h, size_t(w) * comps, o);
}

inline double Psnr(const uint8_t* a, const uint8_t* b, size_t n) {
    double se = 0;
    for (size_t i = 0; i < n; ++i) {
        const double d = double(a[i]) - double(b[i]);
        se += d * d;
    }
    if (se == 0) return 99.0;
    return 10.0 * std::log10(255.0 * 255.0 * double(n) / se);
}

}  // namespace jpegtest

#endif
