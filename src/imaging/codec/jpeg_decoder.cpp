/*
 * JPEG decoder component (MDecoder_AJL2Create) on libjpeg-turbo.
 *
 * The component reads from an MHStream through its own jpeg_source_mgr
 * (16 KiB refills). libjpeg reports fatal errors through error_exit, which
 * here longjmps back to the component operation that called into libjpeg;
 * those calls sit in small functions without C++ objects so that the jump
 * skips no destructors. When the stream runs out the source supplies an
 * end-of-image marker, so a photograph that lacks only its final FF D9
 * decodes, as other readers accept it. A photograph cut short anywhere
 * else still fails: in the headers the marker ends the image before a scan,
 * in entropy-coded data the decoder needs bits past the marker
 * (JWRN_HIT_MARKER) or misses a restart marker (JWRN_MUST_RESYNC), and a
 * progressive photograph whose later scans are missing has coefficients
 * that were never fully refined. Those warnings, and the others that mean
 * the entropy-coded data is corrupt, are fatal; the rest are only counted.
 *
 * Open refuses, with results of their own, a photograph of more than
 * MD_MAX_DECODE_PIXELS pixels (checked from the frame header, before any
 * memory is taken for it) and CMYK or YCCK data, which has no R,G,B
 * rendering here.
 *
 * Region and scale: the region (4106) is in full-size pixels; a reduction
 * d of 1, 2, 4 or 8 (4099, or chosen from a destination size by 4103 as the
 * first d whose scaled region matches exactly) uses libjpeg's scaled IDCT.
 * The scaled region is [floor(l/d), ceil(r/d)) x [floor(t/d), ceil(b/d)).
 * Columns outside it are not decoded (jpeg_crop_scanline) and rows above it
 * are skipped (jpeg_skip_scanlines), but both are widened by one iMCU on
 * each side and the margin is decoded and cut away: the crop snaps to iMCU
 * boundaries and fancy upsampling treats a crop edge as an image edge, so
 * without the margin the edge columns/rows would differ from a full decode.
 * With the margin a region equals the same pixels of a full decode.
 *
 * Output: R,G,B,A bytes (old ID 36, JCS_EXT_RGBA), grey (old ID 29), or
 * I420 (15) and NV21 (0x70001002), which are decoded as R,G,B,A rows and
 * converted in batches by the framework's own conversion, so that a thin
 * session and a framework session deliver the same YUV bytes. Chroma rows
 * cover two lines, so YUV bands start on even lines and only the last may
 * have an odd count.
 */
#include <algorithm>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "imaging/codec/codec_internal.h"

// jpeglib.h needs size_t and FILE declared first.
#include <jerror.h>
#include <jpeglib.h>

namespace {

using scrivo::codec::kOldGray;
using scrivo::codec::kOldI420;
using scrivo::codec::kOldNV21;
using scrivo::codec::kOldRgba;
using scrivo::codec::Layout;

constexpr int kSourceBufferSize = 16384;

struct ErrorMgr {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
    MRESULT code;
    int warnings;
};

struct SourceMgr {
    jpeg_source_mgr pub;
    MHStream stream;
    bool ended;  // the stream ran out and an end marker was supplied
    JOCTET buffer[kSourceBufferSize];
};

struct JpegDecoder {
    MHandle mem = nullptr;
    MHStream stream = nullptr;
    int32_t streamStart = 0;
    jpeg_decompress_struct cinfo{};
    ErrorMgr err{};
    SourceMgr src{};
    bool created = false;
    bool headerRead = false;
    bool started = false;
    MRESULT failed = 0;  // a libjpeg error ends the decode until a restart
    int32_t width = 0, height = 0;
    MRECT region{};
    int32_t denom = 1;
    uint32_t outFormat = kOldRgba;
    uint32_t options[4] = {};
    // Prepared decode state.
    int32_t outX0 = 0, outW = 0, outH = 0;  // scaled region
    int32_t cropShift = 0;                  // region start inside the decoded row
    int32_t rowsDone = 0;
    int32_t rowBytes = 0;
    std::vector<uint8_t> row;
    MCODEC_COMPONENT component{};
};

MRESULT ErrorCodeFor(int msgCode) {
    switch (msgCode) {
        case JERR_OUT_OF_MEMORY:
        case JERR_VIRTUAL_BUG:
            return MD_CERR_NO_MEMORY;
        case JERR_CONVERSION_NOTIMPL:
        case JERR_NOT_COMPILED:
        case JERR_BAD_PRECISION:
        case JERR_ARITH_NOTIMPL:
            return MD_CERR_UNSUPPORTED;
        case JERR_IMAGE_TOO_BIG:  // a side over 65500, refused while the header is read
        case JERR_WIDTH_OVERFLOW:
            return MD_ERR_IMAGE_TOO_LARGE;
        default:
            return MD_CERR_GENERAL;
    }
}

void ErrorExit(j_common_ptr c) {
    auto* e = reinterpret_cast<ErrorMgr*>(c->err);
    if (e->code == 0) e->code = ErrorCodeFor(e->pub.msg_code);
    std::longjmp(e->jump, 1);
}

void EmitMessage(j_common_ptr c, int level) {
    if (level >= 0) return;  // trace messages
    auto* e = reinterpret_cast<ErrorMgr*>(c->err);
    e->warnings++;
    switch (e->pub.msg_code) {
        case JWRN_HUFF_BAD_CODE:
        case JWRN_HIT_MARKER:
        case JWRN_MUST_RESYNC:
        case JWRN_BOGUS_PROGRESSION:
        case JWRN_JPEG_EOF:
            e->code = MD_CERR_STREAM;
            std::longjmp(e->jump, 1);
        default:
            break;
    }
}

void OutputMessage(j_common_ptr) {}

void InitSource(j_decompress_ptr) {}

boolean FillInputBuffer(j_decompress_ptr c) {
    auto* s = reinterpret_cast<SourceMgr*>(c->src);
    int32_t n = MStreamRead(s->stream, s->buffer, kSourceBufferSize);
    if (n <= 0) {
        s->ended = true;
        s->buffer[0] = 0xFF;
        s->buffer[1] = JPEG_EOI;
        n = 2;
    }
    s->pub.next_input_byte = s->buffer;
    s->pub.bytes_in_buffer = static_cast<size_t>(n);
    return TRUE;
}

void SkipInputData(j_decompress_ptr c, long count) {
    auto* s = reinterpret_cast<SourceMgr*>(c->src);
    while (count > 0) {
        if (s->pub.bytes_in_buffer == 0) FillInputBuffer(c);
        size_t step = std::min(static_cast<size_t>(count), s->pub.bytes_in_buffer);
        s->pub.next_input_byte += step;
        s->pub.bytes_in_buffer -= step;
        count -= static_cast<long>(step);
    }
}

void TermSource(j_decompress_ptr) {}

// The layouts the component writes, by old colour ID.
Layout OutLayout(uint32_t old) {
    switch (old) {
        case kOldRgba:
            return Layout::Rgba;
        case kOldGray:
            return Layout::Gray;
        case kOldI420:
            return Layout::I420;
        case kOldNV21:
            return Layout::NV21;
        default:
            return Layout::Unsupported;
    }
}

MRESULT Failed(const JpegDecoder* d) {
    return d->err.code != 0 ? d->err.code : static_cast<MRESULT>(MD_CERR_GENERAL);
}

// A progressive photograph that had all its scans: every coefficient of
// every component refined to its last bit (-1: never seen).
bool FullyRefined(j_decompress_ptr c) {
    for (int ci = 0; ci < c->num_components; ++ci)
        for (int k = 0; k < DCTSIZE2; ++k)
            if (c->coef_bits[ci][k] != 0) return false;
    return true;
}

// ---- Calls into libjpeg; each returns 0 or the code error_exit recorded.
// No C++ objects live in these frames, so longjmp skips no destructors.

MRESULT ReadHeader(JpegDecoder* d) {
    d->err.code = 0;
    if (setjmp(d->err.jump)) return Failed(d);
    d->src.pub.bytes_in_buffer = 0;
    d->src.pub.next_input_byte = nullptr;
    d->src.ended = false;
    jpeg_read_header(&d->cinfo, TRUE);
    return 0;
}

MRESULT StartDecompress(JpegDecoder* d, int32_t x0, int32_t x1, int32_t y0) {
    d->err.code = 0;
    if (setjmp(d->err.jump)) return Failed(d);
    j_decompress_ptr c = &d->cinfo;
    c->scale_num = 1;
    c->scale_denom = static_cast<unsigned>(d->denom);
    c->out_color_space = d->outFormat == kOldGray ? JCS_GRAYSCALE : JCS_EXT_RGBA;
    jpeg_start_decompress(c);  // reads every scan of a progressive photograph
    if (c->progressive_mode && d->src.ended && !FullyRefined(c)) return MD_CERR_STREAM;
    const int32_t fullW = static_cast<int32_t>(c->output_width);
    const int32_t mcuW = c->max_h_samp_factor * c->min_DCT_scaled_size;
    const int32_t mcuH = c->max_v_samp_factor * c->min_DCT_scaled_size;
    JDIMENSION cropX = 0, cropW = static_cast<JDIMENSION>(fullW);
    if (x0 > 0 || x1 < fullW) {
        const int32_t lo = std::max(0, x0 - mcuW);
        const int32_t hi = std::min(fullW, x1 + mcuW);
        cropX = static_cast<JDIMENSION>(lo);
        cropW = static_cast<JDIMENSION>(hi - lo);
        jpeg_crop_scanline(c, &cropX, &cropW);
    }
    d->cropShift = x0 - static_cast<int32_t>(cropX);
    // Skip whole rows up to two iMCU rows before the region, then decode
    // and drop the rest so the upsampler sees the rows above the region.
    const int32_t skip = std::max(0, y0 - 2 * mcuH);
    if (skip > 0) jpeg_skip_scanlines(c, static_cast<JDIMENSION>(skip));
    return 0;
}

MRESULT ReadRows(JpegDecoder* d, JSAMPROW* rows, int32_t count) {
    d->err.code = 0;
    if (setjmp(d->err.jump)) return Failed(d);
    int32_t got = 0;
    while (got < count) {
        JDIMENSION n =
            jpeg_read_scanlines(&d->cinfo, rows + got, static_cast<JDIMENSION>(count - got));
        if (n == 0) return MD_CERR_STREAM;
        got += static_cast<int32_t>(n);
    }
    return 0;
}

// ---- Component operations.

void Reset(JpegDecoder* d) {
    if (d->started) jpeg_abort_decompress(&d->cinfo);
    d->started = false;
    d->failed = 0;
    d->rowsDone = 0;
}

MRESULT Restart(JpegDecoder* d) {
    if (!d->started) return 0;
    Reset(d);
    if (MStreamSeek(d->stream, 0, d->streamStart) != 0) return MD_CERR_STREAM;
    return ReadHeader(d);
}

MRESULT Prepare(JpegDecoder* d) {
    const int32_t dd = d->denom;
    const int32_t x0 = d->region.left / dd, x1 = (d->region.right + dd - 1) / dd;
    const int32_t y0 = d->region.top / dd, y1 = (d->region.bottom + dd - 1) / dd;
    MRESULT r = StartDecompress(d, x0, x1, y0);
    d->started = true;
    if (r != 0) return r;
    d->outX0 = x0;
    d->outW = x1 - x0;
    d->outH = y1 - y0;
    const int32_t bpp = d->outFormat == kOldGray ? 1 : 4;
    d->rowBytes = static_cast<int32_t>(d->cinfo.output_width) * bpp;
    try {
        d->row.resize(static_cast<size_t>(d->rowBytes));
    } catch (...) {
        return MD_CERR_NO_MEMORY;
    }
    // Decode and drop the rows between the skipped part and the region.
    while (static_cast<int32_t>(d->cinfo.output_scanline) < y0) {
        JSAMPROW p = d->row.data();
        if ((r = ReadRows(d, &p, 1)) != 0) return r;
    }
    return 0;
}

MRESULT Open(void* self, MHStream stream, const MENCODE_TARGET*) {
    auto* d = static_cast<JpegDecoder*>(self);
    if (!stream || d->headerRead) return MD_CERR_INVALID_PARAM;
    d->stream = stream;
    d->streamStart = MStreamTell(stream);
    d->src.stream = stream;
    MRESULT r = ReadHeader(d);
    if (r != 0) return r;
    d->headerRead = true;
    d->width = static_cast<int32_t>(d->cinfo.image_width);
    d->height = static_cast<int32_t>(d->cinfo.image_height);
    if (d->width <= 0 || d->height <= 0) return MD_CERR_GENERAL;
    if (static_cast<uint64_t>(d->width) * static_cast<uint64_t>(d->height) > MD_MAX_DECODE_PIXELS)
        return MD_ERR_IMAGE_TOO_LARGE;
    if (d->cinfo.jpeg_color_space == JCS_CMYK || d->cinfo.jpeg_color_space == JCS_YCCK)
        return MD_ERR_CMYK_UNSUPPORTED;
    d->region = {0, 0, d->width, d->height};
    return 0;
}

MRESULT GetProp(void* self, uint32_t prop, void* value, int32_t size) {
    auto* d = static_cast<JpegDecoder*>(self);
    if (!value) return MD_CERR_INVALID_PARAM;
    auto put32 = [&](int32_t v) {
        if (size != 4) return static_cast<MRESULT>(MD_CERR_INVALID_PARAM);
        std::memcpy(value, &v, 4);
        return MRESULT{0};
    };
    switch (prop) {
        case MD_PROP_IMAGE_SIZE: {
            if (size != 8) return MD_CERR_INVALID_PARAM;
            if (!d->headerRead) return MD_CERR_GENERAL;
            int32_t wh[2] = {d->width, d->height};
            std::memcpy(value, wh, 8);
            return 0;
        }
        case MD_PROP_SRC_FORMAT:
            return put32(d->cinfo.num_components == 1
                             ? static_cast<int32_t>(kOldGray)
                             : static_cast<int32_t>(scrivo::codec::kOldI420));
        case MD_PROP_PIXEL_FORMAT:
            return put32(static_cast<int32_t>(d->outFormat));
        case MD_PROP_JPEG_SCALE:
            return put32(d->denom);
        case MD_PROP_CAPS_1:
            return put32(3);  // region and reduced-size decoding
        case MD_PROP_CAPS_2:
            return put32(0);
        case MD_PROP_PALETTE_COUNT:
            return put32(0);
        default:
            return MD_CERR_UNSUPPORTED;
    }
}

MRESULT SetProp(void* self, uint32_t prop, const void* value, int32_t size) {
    auto* d = static_cast<JpegDecoder*>(self);
    if (!value) return MD_CERR_INVALID_PARAM;
    int32_t v[4] = {};
    if (size > 0 && size <= 16) std::memcpy(v, value, static_cast<size_t>(size));
    switch (prop) {
        case MD_PROP_PIXEL_FORMAT:
            if (size != 4) return MD_CERR_INVALID_PARAM;
            if (OutLayout(static_cast<uint32_t>(v[0])) == Layout::Unsupported)
                return MD_CERR_UNSUPPORTED;
            if (static_cast<uint32_t>(v[0]) != d->outFormat) {
                MRESULT r = Restart(d);
                if (r != 0) return r;
                d->outFormat = static_cast<uint32_t>(v[0]);
            }
            return 0;
        case MD_PROP_JPEG_SCALE:
            if (size != 4 || (v[0] != 1 && v[0] != 2 && v[0] != 4 && v[0] != 8))
                return MD_CERR_INVALID_PARAM;
            if (v[0] != d->denom) {
                MRESULT r = Restart(d);
                if (r != 0) return r;
                d->denom = v[0];
            }
            return 0;
        case MD_PROP_ZOOM_SCALE: {
            if (size != 8) return 2;
            const MRECT& g = d->region;
            for (int32_t dd = 1; dd <= 8; dd *= 2)
                if (scrivo::codec::ScaledExtent(g.left, g.right, dd) == v[0] &&
                    scrivo::codec::ScaledExtent(g.top, g.bottom, dd) == v[1])
                    return SetProp(self, MD_PROP_JPEG_SCALE, &dd, 4);
            return 3;
        }
        case MD_PROP_DST_REGION: {
            if (size != 16) return MD_CERR_INVALID_PARAM;
            if (v[0] < 0 || v[1] < 0 || v[0] >= v[2] || v[1] >= v[3] || v[2] > d->width ||
                v[3] > d->height)
                return MD_CERR_INVALID_PARAM;
            // Setting a region starts its decode over, the same region too.
            MRESULT r = Restart(d);
            if (r != 0) return r;
            d->region = {v[0], v[1], v[2], v[3]};
            return 0;
        }
        case MD_PROP_OPTION_4107:
            return size == 4 ? (d->options[0] = static_cast<uint32_t>(v[0]), 0)
                             : MD_CERR_INVALID_PARAM;
        case MD_PROP_RA_INDEX:
            return size == 8 ? (d->options[1] = static_cast<uint32_t>(v[0]), 0)
                             : MD_CERR_INVALID_PARAM;
        case MD_PROP_RA_BUDGET:
            return size == 4 ? (d->options[2] = static_cast<uint32_t>(v[0]), 0)
                             : MD_CERR_INVALID_PARAM;
        case MD_PROP_OPTION_BYTE:
            return size == 1 ? 0 : MD_CERR_INVALID_PARAM;
        default:
            return MD_CERR_UNSUPPORTED;
    }
}

constexpr int kBatch = 16;

// Reads the next n (at most kBatch) rows of the region into dst, rows
// `stride` bytes apart, bpp bytes a pixel.
MRESULT ReadRegionRows(JpegDecoder* d, uint8_t* dst, ptrdiff_t stride, int32_t n, int32_t bpp) {
    JSAMPROW rows[kBatch];
    if (d->cropShift == 0 && static_cast<int32_t>(d->cinfo.output_width) == d->outW) {
        for (int32_t i = 0; i < n; ++i) rows[i] = dst + i * stride;
        return ReadRows(d, rows, n);
    }
    for (int32_t i = 0; i < n; ++i) {
        rows[0] = d->row.data();
        const MRESULT r = ReadRows(d, rows, 1);
        if (r != 0) return r;
        std::memcpy(dst + i * stride, d->row.data() + static_cast<ptrdiff_t>(d->cropShift) * bpp,
                    static_cast<size_t>(d->outW) * bpp);
    }
    return 0;
}

// n R,G,B,A rows into lines [top, top + n) of a YUV bitmap.
MRESULT RowsToYuv(const JpegDecoder* d, const uint8_t* rgba, const MBITMAP* bm, Layout layout,
                  int32_t top, int32_t n) {
    MBITMAP view = *bm;
    view.width = d->outW;
    view.plane[0] += static_cast<ptrdiff_t>(top) * bm->pitch[0];
    for (int p = 1; p < (layout == Layout::I420 ? 3 : 2); ++p)
        view.plane[p] += static_cast<ptrdiff_t>(top / 2) * bm->pitch[p];
    return scrivo::codec::RgbaToBitmap(rgba, d->outW * 4, &view, layout, 0, n,
                                       scrivo::codec::YuvRange::Studio) == 0
               ? 0
               : MD_CERR_INVALID_PARAM;
}

MRESULT Scanlines(void* self, const MBITMAP* bm, int32_t lines, int32_t* done) {
    auto* d = static_cast<JpegDecoder*>(self);
    if (done) *done = 0;
    if (!bm || !bm->plane[0] || lines < 0 || !d->headerRead) return MD_CERR_INVALID_PARAM;
    if (d->failed != 0) return d->failed;
    MRESULT r = 0;
    if (!d->started && (r = Prepare(d)) != 0) {
        d->failed = r;
        return r;
    }
    const Layout layout = OutLayout(d->outFormat);
    const bool yuv = layout == Layout::I420 || layout == Layout::NV21;
    const int32_t bpp = layout == Layout::Gray || yuv ? 1 : 4;
    if (bm->width < d->outW || bm->pitch[0] < d->outW * bpp) return MD_CERR_INVALID_PARAM;
    lines = std::min(lines, d->outH - d->rowsDone);
    std::vector<uint8_t> batch;
    if (yuv) {
        if (!bm->plane[1] || (layout == Layout::I420 && !bm->plane[2]) || d->rowsDone % 2 != 0 ||
            (lines % 2 != 0 && d->rowsDone + lines < d->outH))
            return MD_CERR_INVALID_PARAM;
        try {
            batch.resize(static_cast<size_t>(d->outW) * 4 * kBatch);
        } catch (...) {
            return MD_CERR_NO_MEMORY;
        }
    }
    int32_t moved = 0;
    while (moved < lines) {
        const int32_t n = std::min(kBatch, lines - moved);
        if (yuv) {
            r = ReadRegionRows(d, batch.data(), d->outW * 4, n, 4);
            if (r == 0) r = RowsToYuv(d, batch.data(), bm, layout, moved, n);
        } else {
            r = ReadRegionRows(d, bm->plane[0] + static_cast<ptrdiff_t>(moved) * bm->pitch[0],
                               bm->pitch[0], n, bpp);
        }
        if (r != 0) break;
        moved += n;
    }
    d->rowsDone += moved;
    if (done) *done = moved;
    d->failed = r;
    return r;
}

void Destroy(void* self) {
    auto* d = static_cast<JpegDecoder*>(self);
    if (d->created) jpeg_destroy_decompress(&d->cinfo);
    delete d;
}

}  // namespace

extern "C" MRESULT MDecoder_AJL2Create(MHandle mem, MCODEC_COMPONENT** component) {
    if (!component) return MD_CERR_INVALID_PARAM;
    *component = nullptr;
    // The decoder holds a jmp_buf, whose alignment a static pool does not
    // promise, so it always lives on the C++ heap.
    auto* d = new (std::nothrow) JpegDecoder;
    if (!d) return MD_CERR_NO_MEMORY;
    d->mem = mem;
    MCODEC_COMPONENT* comp = &d->component;
    *comp = {d, Open, GetProp, SetProp, Scanlines, Destroy};
    d->cinfo.err = jpeg_std_error(&d->err.pub);
    d->err.pub.error_exit = ErrorExit;
    d->err.pub.emit_message = EmitMessage;
    d->err.pub.output_message = OutputMessage;
    if (setjmp(d->err.jump)) {
        Destroy(d);
        return MD_CERR_NO_MEMORY;
    }
    jpeg_create_decompress(&d->cinfo);
    d->created = true;
    d->src.pub.init_source = InitSource;
    d->src.pub.fill_input_buffer = FillInputBuffer;
    d->src.pub.skip_input_data = SkipInputData;
    d->src.pub.resync_to_restart = jpeg_resync_to_restart;
    d->src.pub.term_source = TermSource;
    d->cinfo.src = &d->src.pub;
    *component = comp;
    return 0;
}
