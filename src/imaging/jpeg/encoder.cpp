/*
 * The encoder component: creation, properties, scanlines and the trailer.
 *
 * Lines arrive in bands of any height. Each line is converted at once into
 * the buffers of the current MCU row (8 or 16 lines, see color_sample.cpp);
 * when the MCU row is full, subsampled chroma is reduced and every MCU of
 * the row is coded: each block goes through the block coder of the chosen
 * mode and straight into the entropy coder, so the pixels are touched
 * while they are still in cache. The last, partial MCU row repeats its last
 * line. When the lines given reach the image height the trailer is written
 * by itself.
 *
 * Layouts (component: horizontal x vertical sampling, quantisation table,
 * Huffman tables): 4:2:0 Y 2x2 (0, 0/0), Cb and Cr 1x1 (1, 1/1); 4:2:2 the
 * same with Y 2x1; 4:4:4 all 1x1; grey one component 1x1 (0, 0/0). The
 * default picks grey for grey input and 4:2:0 otherwise. Component IDs are
 * 1, 2, 3 as JFIF readers expect.
 *
 * The encoder record comes from the caller's memory manager; its working
 * buffers are ordinary vectors owned by the record. Nothing throws out of
 * the C functions: allocation failures become 0x8002.
 */
#include <cstring>
#include <new>

#include "imaging/jpeg/jpeg_internal.h"

namespace scrivo::jpeg {
namespace {

constexpr size_t kOutBufferSize = 256 * 1024;

void SetComponent(Component* c, uint8_t id, uint8_t h, uint8_t v, uint8_t tbl) {
    c->id = id;
    c->h = h;
    c->v = v;
    c->quantTbl = tbl;
    c->dcTbl = tbl;
    c->acTbl = tbl;
    c->lastDc = 0;
}

// Fixes the component layout and allocates the MCU-row buffers.
MRESULT Setup(Encoder* e, uint32_t format) {
    if (e->width < 1 || e->height < 1) return MD_CERR_INVALID_PARAM;
    int mode = e->sampling;
    if (mode == JPG_SAMPLING_AUTO)
        mode = IsGreyFormat(format) ? JPG_SAMPLING_GREY : JPG_SAMPLING_420;
    if (mode == JPG_SAMPLING_GREY) {
        e->numComps = 1;
        SetComponent(&e->comp[0], 1, 1, 1, 0);
    } else {
        e->numComps = 3;
        const uint8_t h = mode == JPG_SAMPLING_444 ? 1 : 2;
        const uint8_t v = mode == JPG_SAMPLING_420 ? 2 : 1;
        SetComponent(&e->comp[0], 1, h, v, 0);
        SetComponent(&e->comp[1], 2, 1, 1, 1);
        SetComponent(&e->comp[2], 3, 1, 1, 1);
    }
    e->maxH = e->comp[0].h;
    e->maxV = e->comp[0].v;
    e->mcusX = (e->width + 8 * e->maxH - 1) / (8 * e->maxH);
    e->paddedWidth = e->mcusX * 8 * e->maxH;
    e->rowsPerMcuRow = 8 * e->maxV;
    e->chromaDirect = e->numComps == 3 && mode == JPG_SAMPLING_420 && IsI420Format(format);
    e->activeFormat = format;
    for (int c = 0; c < e->numComps; ++c) {
        e->planeStride[c] = e->mcusX * 8 * e->comp[c].h;
        e->plane[c].assign(size_t(e->planeStride[c]) * 8 * e->comp[c].v, 0);
        const bool sub = c > 0 && (e->comp[c].h != e->maxH || e->comp[c].v != e->maxV);
        if (sub && !e->chromaDirect)
            e->full[c].assign(size_t(e->paddedWidth) * e->rowsPerMcuRow, 0);
    }
    BuildHuffTable(jpg_bits_dc_luminance, jpg_val_dc_luminance, &e->dcHuff[0]);
    BuildHuffTable(jpg_bits_ac_luminance, jpg_val_ac_luminance, &e->acHuff[0]);
    BuildHuffTable(jpg_bits_dc_chrominance, jpg_val_dc_chrominance, &e->dcHuff[1]);
    BuildHuffTable(jpg_bits_ac_chrominance, jpg_val_ac_chrominance, &e->acHuff[1]);
    e->out.data.resize(kOutBufferSize);
    return 0;
}

MRESULT WriteHeader(Encoder* e, uint32_t format) {
    if (e->headerWritten) {
        if (!e->repeatHeader) return 0;
        MRESULT r = WriteFrameHeader(e);
        return r ? r : WriteScanHeader(e);
    }
    if (!e->out.stream) return MD_CERR_STREAM;
    MRESULT r = Setup(e, format);
    if (r) return r;
    r = WriteHeaderSegments(e);
    if (r) return r;
    e->headerWritten = true;
    return 0;
}

// The float coder takes blocks two at a time where it can: the two halves
// of a double-width luminance row of an MCU, and an MCU's Cb and Cr blocks
// (one each, same table).
MRESULT EncodeMcuRow(Encoder* e) {
    for (int r = e->rowInMcuRow; r < e->rowsPerMcuRow; ++r) ReplicateRow(e, e->rowInMcuRow - 1, r);
    DownsampleMcuRow(e);
    alignas(64) int16_t zz[128];
    uint64_t masks[2];
    const bool fast = e->qualityMode == 0;
    const int level = BlockCoderLevel();
    auto codeTwo = [&](const uint8_t* a, const uint8_t* b, int stride, Component* ca,
                       Component* cb) {
        BlockCodeFloatPairAt(level, a, b, stride, e->scale[ca->quantTbl], zz, masks);
        EncodeBlock(e, zz, masks[0], ca);
        EncodeBlock(e, zz + 64, masks[1], cb);
    };
    const bool chromaPairs = fast && e->numComps == 3 && e->comp[1].h == 1 && e->comp[1].v == 1 &&
                             e->comp[2].h == 1 && e->comp[2].v == 1 &&
                             e->comp[1].quantTbl == e->comp[2].quantTbl &&
                             e->planeStride[1] == e->planeStride[2];
    for (int mx = 0; mx < e->mcusX; ++mx) {
        if (!e->out.Reserve(8192)) return MD_CERR_STREAM;
        if (e->restartInterval && e->mcuCount && e->mcuCount % uint32_t(e->restartInterval) == 0)
            EmitRestart(e, e->nextRestart++);
        ++e->mcuCount;
        for (int c = 0; c < e->numComps; ++c) {
            Component* comp = &e->comp[c];
            const QuantScale& qs = e->scale[comp->quantTbl];
            const int stride = e->planeStride[c];
            if (c == 1 && chromaPairs) {
                codeTwo(e->plane[1].data() + mx * 8, e->plane[2].data() + mx * 8, stride, comp,
                        &e->comp[2]);
                break;
            }
            for (int by = 0; by < comp->v; ++by) {
                const uint8_t* row = e->plane[c].data() + ptrdiff_t(by * 8) * stride;
                if (fast && comp->h == 2) {
                    codeTwo(row + mx * 16, row + mx * 16 + 8, stride, comp, comp);
                    continue;
                }
                for (int bx = 0; bx < comp->h; ++bx) {
                    const uint8_t* src = row + (mx * comp->h + bx) * 8;
                    const uint64_t mask = fast ? BlockCodeFloatAt(level, src, stride, qs.recip, zz)
                                               : BlockCodeIntAt(level, src, stride, qs, zz);
                    EncodeBlock(e, zz, mask, comp);
                }
            }
        }
    }
    e->rowInMcuRow = 0;
    return 0;
}

MRESULT Fail(Encoder* e, MRESULT r) {
    if (r) e->failed = true;
    return r;
}

MRESULT Scanlines(Encoder* e, const MBITMAP* bm, int32_t lines) {
    if (!bm || !bm->plane[0] || lines < 1 || lines > bm->height || bm->width != e->width)
        return MD_CERR_INVALID_PARAM;
    const uint32_t fmt = e->inputFormat ? e->inputFormat : bm->pixelFormat;
    if (!IsSupportedFormat(fmt)) return MD_CERR_UNSUPPORTED;
    if (IsI420Format(fmt) && (!bm->plane[1] || !bm->plane[2])) return MD_CERR_INVALID_PARAM;
    if (e->failed || e->trailerWritten) return MD_CERR_INVALID_PARAM;
    if (lines > e->height - e->linesDone) return MD_CERR_INVALID_PARAM;
    if (!e->headerWritten) {
        MRESULT r = WriteHeader(e, fmt);
        if (r) return Fail(e, r);
    }
    if (e->chromaDirect && !IsI420Format(fmt)) return MD_CERR_INVALID_PARAM;
    for (int32_t i = 0; i < lines; ++i) {
        ConvertRow(e, fmt, bm, i, e->rowInMcuRow);
        ++e->rowInMcuRow;
        ++e->linesDone;
        if (e->rowInMcuRow == e->rowsPerMcuRow) {
            MRESULT r = EncodeMcuRow(e);
            if (r) return Fail(e, r);
        }
    }
    if (e->linesDone == e->height) return Fail(e, JpgEncWriteFileTrailer(e));
    return 0;
}

MRESULT Trailer(Encoder* e) {
    if (e->trailerWritten) return 0;
    if (e->failed) return MD_CERR_STREAM;
    if (!e->headerWritten) {
        MRESULT r = WriteHeader(e, e->inputFormat);
        if (r) return r;
    }
    if (e->rowInMcuRow > 0) {
        MRESULT r = EncodeMcuRow(e);
        if (r) return r;
    }
    if (!e->out.Reserve(32)) return MD_CERR_STREAM;
    FlushBits(e);
    e->out.Put16(0xFFD9);
    if (!e->out.Flush()) return MD_CERR_STREAM;
    e->trailerWritten = true;
    return 0;
}

bool ValidAppSegments(const uint8_t* p, int32_t size) {
    int32_t i = 0;
    while (i < size) {
        if (size - i < 4 || p[i] != 0xFF) return false;
        const uint8_t m = p[i + 1];
        if (!((m >= 0xE0 && m <= 0xEF) || m == 0xFE)) return false;
        const int32_t len = (p[i + 2] << 8) | p[i + 3];
        if (len < 2 || len > size - i - 2) return false;
        i += 2 + len;
    }
    return true;
}

bool ReadInt(const void* value, int32_t size, int32_t* out) {
    if (!value || size != 4) return false;
    std::memcpy(out, value, 4);
    return true;
}

bool WriteInt(void* value, int32_t size, int32_t v) {
    if (!value || size != 4) return false;
    std::memcpy(value, &v, 4);
    return true;
}

}  // namespace
}  // namespace scrivo::jpeg

using namespace scrivo::jpeg;

extern "C" {

MRESULT ajlJpgEncoderCreate(MHandle mem, void** encoder) {
    if (!encoder) return MD_CERR_INVALID_PARAM;
    *encoder = nullptr;
    void* p = MMemAlloc(mem, sizeof(Encoder));
    if (!p) return MD_CERR_NO_MEMORY;
    Encoder* e = new (p) Encoder();
    e->mem = mem;
    JpgSetQuality(e, JPG_DEFAULT_QUALITY);
    *encoder = e;
    return 0;
}

MRESULT ajlJpgEncoderDestroy(void* encoder) {
    if (!encoder) return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    MHandle mem = e->mem;
    e->~Encoder();
    MMemFree(mem, e);
    return 0;
}

MRESULT ajlJpgEncoderAttachStream(void* encoder, MHStream stream) {
    if (!encoder || !stream) return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    if (e->headerWritten) return MD_CERR_INVALID_PARAM;
    e->out.stream = stream;
    return 0;
}

MRESULT ajlJpgEncoderSetProp(void* encoder, uint32_t prop, const void* value, int32_t size) {
    if (!encoder || !value) return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    int32_t v = 0;
    switch (prop) {
        case MD_PROP_IMAGE_SIZE: {
            if (size != 8) return MD_CERR_INVALID_PARAM;
            int32_t wh[2];
            std::memcpy(wh, value, 8);
            return JpgEncSetImageSize(e, wh[0], wh[1]);
        }
        case MD_PROP_JPEG_QUALITY:
            if (!ReadInt(value, size, &v) || e->headerWritten) return MD_CERR_INVALID_PARAM;
            return JpgSetQuality(e, v);
        case MD_PROP_PIXARRAY_FORMAT:
            if (!ReadInt(value, size, &v)) return MD_CERR_INVALID_PARAM;
            if (!IsSupportedFormat(uint32_t(v))) return MD_CERR_UNSUPPORTED;
            e->inputFormat = uint32_t(v);
            return 0;
        case JPG_PROP_SAMPLING:
            if (!ReadInt(value, size, &v)) return MD_CERR_INVALID_PARAM;
            return JpgEncSetSampling(e, v);
        case JPG_PROP_RESTART_INTERVAL:
            if (!ReadInt(value, size, &v)) return MD_CERR_INVALID_PARAM;
            return JpgEncSetRestartInterval(e, v);
        case JPG_PROP_APP_SEGMENTS:
            return JpgEncSetAppSegments(e, static_cast<const uint8_t*>(value), size);
        case JPG_PROP_QUALITY_MODE:
            if (!ReadInt(value, size, &v)) return MD_CERR_INVALID_PARAM;
            return JpgEncSetQualityMode(e, v);
        default:
            return MD_CERR_UNSUPPORTED;
    }
}

MRESULT ajlJpgEncoderGetProp(void* encoder, uint32_t prop, void* value, int32_t size) {
    if (!encoder || !value) return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    int32_t v = 0;
    switch (prop) {
        case MD_PROP_IMAGE_SIZE: {
            if (size != 8) return MD_CERR_INVALID_PARAM;
            const int32_t wh[2] = {e->width, e->height};
            std::memcpy(value, wh, 8);
            return 0;
        }
        case MD_PROP_JPEG_QUALITY:
            v = e->quality;
            break;
        case MD_PROP_PIXARRAY_FORMAT:
            v = int32_t(e->inputFormat);
            break;
        case JPG_PROP_SAMPLING:
            v = e->sampling;
            break;
        case JPG_PROP_RESTART_INTERVAL:
            v = e->restartInterval;
            break;
        case JPG_PROP_QUALITY_MODE:
            v = e->qualityMode;
            break;
        case JPG_PROP_QUALITY_LEVEL:
            v = e->qualityLevel;
            break;
        case JPG_PROP_LINES_DONE:
            v = e->linesDone;
            break;
        default:
            return MD_CERR_UNSUPPORTED;
    }
    return WriteInt(value, size, v) ? 0 : MD_CERR_INVALID_PARAM;
}

MRESULT ajlJpgEncoderScanlines(void* encoder, const MBITMAP* bitmap, int32_t lines) {
    if (!encoder) return MD_CERR_INVALID_PARAM;
    try {
        return Scanlines(static_cast<Encoder*>(encoder), bitmap, lines);
    } catch (...) {
        static_cast<Encoder*>(encoder)->failed = true;
        return MD_CERR_NO_MEMORY;
    }
}

MRESULT JpgEncSetQualityMode(void* encoder, int32_t mode) {
    if (!encoder || (mode != 0 && mode != 1)) return MD_CERR_INVALID_PARAM;
    static_cast<Encoder*>(encoder)->qualityMode = mode;
    return 0;
}

MRESULT JpgEncSetImageSize(void* encoder, int32_t width, int32_t height) {
    if (!encoder || width < 1 || width > 65535 || height < 1 || height > 65535)
        return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    if (e->headerWritten) return MD_CERR_INVALID_PARAM;
    e->width = width;
    e->height = height;
    return 0;
}

MRESULT JpgEncSetSampling(void* encoder, int32_t mode) {
    if (!encoder || mode < JPG_SAMPLING_AUTO || mode > JPG_SAMPLING_422)
        return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    if (e->headerWritten) return MD_CERR_INVALID_PARAM;
    e->sampling = mode;
    return 0;
}

MRESULT JpgEncSetRestartInterval(void* encoder, int32_t mcus) {
    if (!encoder || mcus < 0 || mcus > 65535) return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    if (e->headerWritten) return MD_CERR_INVALID_PARAM;
    e->restartInterval = mcus;
    return 0;
}

MRESULT JpgEncSetAppSegments(void* encoder, const uint8_t* data, int32_t size) {
    if (!encoder || size < 0) return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    if (e->headerWritten) return MD_CERR_INVALID_PARAM;
    if (!data || size == 0) {
        e->appSegments.clear();
        return 0;
    }
    if (!ValidAppSegments(data, size)) return MD_CERR_INVALID_PARAM;
    try {
        e->appSegments.assign(data, data + size);
    } catch (...) {
        return MD_CERR_NO_MEMORY;
    }
    return 0;
}

MRESULT JpgEncWriteHeader(void* encoder) {
    if (!encoder) return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    try {
        return Fail(e, WriteHeader(e, e->inputFormat));
    } catch (...) {
        return Fail(e, MD_CERR_NO_MEMORY);
    }
}

MRESULT JpgEncWriteFileTrailer(void* encoder) {
    if (!encoder) return MD_CERR_INVALID_PARAM;
    Encoder* e = static_cast<Encoder*>(encoder);
    try {
        return Fail(e, Trailer(e));
    } catch (...) {
        return Fail(e, MD_CERR_NO_MEMORY);
    }
}

}  // extern "C"
