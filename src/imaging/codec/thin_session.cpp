/*
 * Thin sessions (MIDec_*, MIEnc_*): a component found and opened as the
 * framework session does it, but used as it is. Properties and scanlines
 * go straight to the component with their results translated; there is no
 * scaling or conversion, so the caller decodes into a buffer of the
 * component's output format and size. A decoder opened from a file name
 * owns its file stream and closes it when destroyed.
 */
#include <new>

#include "imaging/codec/session.h"

struct MCODEC_THIN {
    ComponentPtr component;
    MHStream ownedStream = nullptr;
    bool encoder = false;
    ~MCODEC_THIN() {
        component.reset();
        if (ownedStream) MStreamClose(ownedStream);
    }
};

namespace {

MRESULT Translate(const MCODEC_THIN* t, MRESULT r) {
    return MdUtilsConvertResult(r, t->encoder ? 1 : 0);
}

MRESULT OpenDecoder(MHAMCM manager, MHStream stream, uint32_t componentId, MCODEC_THIN* t) {
    uint32_t type = 0;
    MRESULT r = 0;
    if (componentId == 0 && (r = MdGetImgFileFormat(stream, &type)) != 0) return r;
    return scrivo::codec::OpenDecoderComponent(manager, stream, componentId, type, &t->component);
}

}  // namespace

extern "C" MRESULT MIDec_CreateEx(MHAMCM manager, MHStream stream, uint32_t componentId,
                                  MHIDEC* dec) {
    if (!manager || !stream || !dec) return 2;
    *dec = nullptr;
    std::unique_ptr<MCODEC_THIN> t(new (std::nothrow) MCODEC_THIN);
    if (!t) return 4;
    MRESULT r = OpenDecoder(manager, stream, componentId, t.get());
    if (r == 0) *dec = t.release();
    return r;
}

extern "C" MRESULT MIDec_Create(MHAMCM manager, MHStream stream, MHIDEC* dec) {
    return MIDec_CreateEx(manager, stream, 0, dec);
}

extern "C" MRESULT MIDec_CreateWithFileName(MHAMCM manager, const char* path, MHIDEC* dec) {
    if (!manager || !path || !dec) return 2;
    *dec = nullptr;
    MHStream st = MStreamOpenFromFileS(path, 1);
    if (!st) return 4102;
    MRESULT r = MIDec_CreateEx(manager, st, 0, dec);
    if (r != 0) {
        MStreamClose(st);
        return r;
    }
    (*dec)->ownedStream = st;
    return 0;
}

extern "C" MRESULT MIDec_GetProp(MHIDEC t, uint32_t prop, void* value, int32_t size) {
    if (!t || !value) return 2;
    return Translate(t, t->component->GetProp(t->component->self, prop, value, size));
}

extern "C" MRESULT MIDec_SetProp(MHIDEC t, uint32_t prop, const void* value, int32_t size) {
    if (!t || !value) return 2;
    return Translate(t, t->component->SetProp(t->component->self, prop, value, size));
}

extern "C" MRESULT MIDec_Scanlines(MHIDEC t, MBITMAP* bitmap, int32_t lines, int32_t* done) {
    if (!t || t->encoder || !bitmap) return 2;
    return Translate(t, t->component->Scanlines(t->component->self, bitmap, lines, done));
}

extern "C" MRESULT MIDec_Destroy(MHIDEC t) {
    if (!t) return 2;
    delete t;
    return 0;
}

extern "C" MRESULT MIEnc_Create(MHAMCM manager, const MENCODE_TARGET* target, uint32_t fileType,
                                MHIENC* enc) {
    if (!manager || !target || !target->stream || !enc) return 2;
    *enc = nullptr;
    std::unique_ptr<MCODEC_THIN> t(new (std::nothrow) MCODEC_THIN);
    if (!t) return 4;
    t->encoder = true;
    uint32_t ids[10];
    int32_t count = 0;
    MRESULT r =
        MdUtilsFindCodecComponents(manager, fileType, MD_COMPONENT_ENCODER, ids, 10, &count);
    if (r != 0) return r;
    if (count == 0) return 3;
    for (int32_t i = 0; i < count; ++i) {
        MCODEC_COMPONENT* c = nullptr;
        if ((r = AMCM_CreateComponent(manager, ids[i], &c)) != 0) continue;
        ComponentPtr comp(c);
        r = MdUtilsConvertResult(comp->Open(comp->self, target->stream, target), 1);
        if (r == 0) {
            t->component = std::move(comp);
            *enc = t.release();
            return 0;
        }
    }
    return r;
}

extern "C" MRESULT MIEnc_GetProp(MHIENC t, uint32_t prop, void* value, int32_t size) {
    return MIDec_GetProp(t, prop, value, size);
}

extern "C" MRESULT MIEnc_SetProp(MHIENC t, uint32_t prop, const void* value, int32_t size) {
    return MIDec_SetProp(t, prop, value, size);
}

extern "C" MRESULT MIEnc_Scanlines(MHIENC t, const MBITMAP* bitmap, int32_t lines, int32_t* done) {
    if (!t || !t->encoder || !bitmap) return 2;
    return Translate(t, t->component->Scanlines(t->component->self, bitmap, lines, done));
}

extern "C" MRESULT MIEnc_Destroy(MHIENC t) {
    return MIDec_Destroy(t);
}
