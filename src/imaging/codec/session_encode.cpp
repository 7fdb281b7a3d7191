/*
 * Framework encode sessions.
 *
 * Creation finds an encoder registered for the file type (or the given
 * component) and opens it on the target record. Scanline calls hand bands
 * of lines to the component; NV21 input, which the encoder does not take,
 * is repacked band by band into I420 first.
 */
#include <new>

#include "imaging/codec/session.h"

extern "C" MRESULT MCodec_EncodeCreate(MHAMCM manager, const MENCODE_TARGET* target,
                                       uint32_t fileType, uint32_t componentId, MHCODEC* session) {
    if (!manager || !target || !target->stream || !session) return 2;
    *session = nullptr;
    if (target->width <= 0 || target->height <= 0) return 2;
    std::unique_ptr<MCODEC_SESSION> s(new (std::nothrow) MCODEC_SESSION);
    if (!s) return 4;
    s->encoder = true;
    s->manager = manager;
    s->target = *target;
    AMCM_GetGlobalData(manager, AMCM_KEY_MEMORY_MANAGER, &s->mem);
    AMCM_GetGlobalData(manager, AMCM_KEY_SECOND_SETTING, &s->secondSetting);
    uint32_t ids[scrivo::codec::kMaxCandidates];
    int32_t count = 0;
    MRESULT r = scrivo::codec::CandidateComponents(manager, componentId, fileType,
                                                   MD_COMPONENT_ENCODER, ids, &count);
    if (r != 0) return r;
    for (int32_t i = 0; i < count && !s->component; ++i) {
        MCODEC_COMPONENT* c = nullptr;
        if ((r = AMCM_CreateComponent(manager, ids[i], &c)) != 0) continue;
        ComponentPtr comp(c);
        r = MdUtilsConvertResult(comp->Open(comp->self, target->stream, target), 1);
        if (r == 0) s->component = std::move(comp);
    }
    if (!s->component) return r;
    if (target->colorID != 0) {
        s->outFormatNew = target->colorID;
        s->outFormatOld = MdUtilsNewColorID2Old(target->colorID);
    }
    *session = s.release();
    return 0;
}

extern "C" MRESULT MCodec_EncodeScanlines(MHCODEC s, const MBITMAP* bm, int32_t* lineCount,
                                          int32_t* linesDone) {
    if (linesDone) *linesDone = 0;
    if (!s || !s->encoder || !bm || !lineCount || !bm->plane[0]) return 2;
    const int32_t lines = *lineCount;
    if (lines <= 0 || lines > bm->height || s->linesDone + lines > s->target.height) return 2;
    const uint32_t fmt = s->outFormatNew != 0 ? s->outFormatNew : bm->pixelFormat;
    MBITMAP band = *bm;
    std::vector<uint8_t> i420;
    if (scrivo::codec::LayoutOf(fmt) == scrivo::codec::Layout::NV21) {
        if (!bm->plane[1]) return 2;
        const MRESULT r = scrivo::codec::RepackNv21AsI420(bm, lines, &i420, &band);
        if (r != 0) return r;
    }
    int32_t done = 0;
    MRESULT r =
        MdUtilsConvertResult(s->component->Scanlines(s->component->self, &band, lines, &done), 1);
    s->linesDone += done;
    if (linesDone) *linesDone = done;
    return r;
}

extern "C" MRESULT MCodec_EncodeData(MHAMCM manager, const MBITMAP* bm, int32_t quality,
                                     void** data, int32_t* size) {
    if (!manager || !bm || !data || !size) return 2;
    *data = nullptr;
    *size = 0;
    MHStream st = MStreamOpenFromMemoryBlock(nullptr, 0);
    if (!st) return 4;
    MENCODE_TARGET t{st, bm->width, bm->height, bm->pixelFormat, 1000, 1000};
    MHCODEC s = nullptr;
    MRESULT r = MCodec_EncodeCreate(manager, &t, MD_FILETYPE_JPEG, 0, &s);
    int32_t lines = bm->height, done = 0;
    if (r == 0) r = MCodec_SetProp(s, MD_PROP_JPEG_QUALITY, &quality, 4);
    if (r == 0) r = MCodec_EncodeScanlines(s, bm, &lines, &done);
    MCodec_Destroy(s);
    const int32_t n = MStreamGetSize(st);
    if (r == 0 && n > 0) {
        void* out = MMemAlloc(nullptr, static_cast<size_t>(n));
        if (!out) {
            r = 4;
        } else if (MStreamSeek(st, 0, 0) != 0 || MStreamRead(st, out, n) != n) {
            MMemFree(nullptr, out);
            r = 1;
        } else {
            *data = out;
            *size = n;
        }
    } else if (r == 0) {
        r = 1;
    }
    MStreamClose(st);
    return r;
}
