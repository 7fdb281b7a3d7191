/*
 * JPEG encoder component (MEncoder_AJL2Create) and the registration of
 * both JPEG components.
 *
 * The component is a thin adapter over our baseline encoder (ajlJpg*):
 * opening attaches the target stream and sets the image size and input
 * colour ID from the encode target; properties and scanlines pass straight
 * through. The encoder's own defaults apply until a caller sets otherwise:
 * quality 90 and 4:2:0 sampling for colour input.
 */
#include <new>

#include "imaging/codec/codec_internal.h"
#include "scrivo/jpeg.h"

namespace {

struct EncoderComponent {
    void* enc = nullptr;
    MCODEC_COMPONENT component{};
};

MRESULT Open(void* self, MHStream stream, const MENCODE_TARGET* target) {
    auto* e = static_cast<EncoderComponent*>(self);
    if (!target || !stream) return MD_CERR_INVALID_PARAM;
    MRESULT r = ajlJpgEncoderAttachStream(e->enc, stream);
    if (r == 0) r = JpgEncSetImageSize(e->enc, target->width, target->height);
    if (r == 0 && target->colorID != 0) {
        // The NV21 input the framework converts to I420 before encoding.
        uint32_t fmt = scrivo::codec::LayoutOf(target->colorID) == scrivo::codec::Layout::NV21
                           ? scrivo::codec::kOldI420
                           : MdUtilsNewColorID2Old(target->colorID);
        r = ajlJpgEncoderSetProp(e->enc, MD_PROP_PIXARRAY_FORMAT, &fmt, 4);
    }
    return r;
}

MRESULT GetProp(void* self, uint32_t prop, void* value, int32_t size) {
    return ajlJpgEncoderGetProp(static_cast<EncoderComponent*>(self)->enc, prop, value, size);
}

MRESULT SetProp(void* self, uint32_t prop, const void* value, int32_t size) {
    return ajlJpgEncoderSetProp(static_cast<EncoderComponent*>(self)->enc, prop, value, size);
}

MRESULT Scanlines(void* self, const MBITMAP* bitmap, int32_t lines, int32_t* done) {
    if (done) *done = 0;
    MRESULT r = ajlJpgEncoderScanlines(static_cast<EncoderComponent*>(self)->enc, bitmap, lines);
    if (r == 0 && done) *done = lines;
    return r;
}

void Destroy(void* self) {
    auto* e = static_cast<EncoderComponent*>(self);
    if (e->enc) ajlJpgEncoderDestroy(e->enc);
    delete e;
}

}  // namespace

extern "C" MRESULT MEncoder_AJL2Create(MHandle mem, MCODEC_COMPONENT** component) {
    if (!component) return MD_CERR_INVALID_PARAM;
    *component = nullptr;
    auto* e = new (std::nothrow) EncoderComponent;
    if (!e) return MD_CERR_NO_MEMORY;
    MRESULT r = ajlJpgEncoderCreate(mem, &e->enc);
    if (r != 0 || !e->enc) {
        delete e;
        return r != 0 ? r : static_cast<MRESULT>(MD_CERR_NO_MEMORY);
    }
    e->component = {e, Open, GetProp, SetProp, Scanlines, Destroy};
    *component = &e->component;
    return 0;
}

extern "C" MRESULT MdRegisterJpegComponents(MHAMCM manager) {
    MRESULT r = AMCM_RegisterEx(manager, MD_COMPONENT_JPEG_DECODER, MD_COMPONENT_DECODER,
                                MD_FILETYPE_JPEG, 3, MDecoder_AJL2Create);
    if (r == 0)
        r = AMCM_RegisterEx(manager, MD_COMPONENT_JPEG_ENCODER, MD_COMPONENT_ENCODER,
                            MD_FILETYPE_JPEG, 3, MEncoder_AJL2Create);
    return r;
}
