/*
 * The framework session record shared by the decode, encode and property
 * files. A session owns its component and its buffers; std::vector and
 * std::unique_ptr free them on every exit path.
 */
#ifndef SCRIVO_IMAGING_CODEC_SESSION_H
#define SCRIVO_IMAGING_CODEC_SESSION_H

#include <cstdint>
#include <memory>
#include <vector>

#include "imaging/codec/codec_internal.h"

struct ComponentDeleter {
    void operator()(MCODEC_COMPONENT* c) const {
        if (c) c->Destroy(c->self);
    }
};
using ComponentPtr = std::unique_ptr<MCODEC_COMPONENT, ComponentDeleter>;

struct MCODEC_SESSION {
    MHAMCM manager = nullptr;
    MHandle mem = nullptr;
    void* secondSetting = nullptr;
    ComponentPtr component;
    bool encoder = false;
    uint32_t srcFormat = 0;     // old ID, from the component
    uint32_t outFormatNew = 0;  // requested output (decoder) / input (encoder), new ID
    uint32_t outFormatOld = 0;  // the same in the old scheme
    bool outFormatSet = false;
    int32_t imageW = 0, imageH = 0;
    int32_t dstW = 0, dstH = 0;  // ZOOM_SCALE; 0 = not set
    MRECT region{};
    bool regionSet = false;
    uint32_t yuvVariant = 0;
    bool yuvVariantSet = false;
    std::vector<uint8_t> palette;  // 1024 bytes once given
    uint32_t option4107 = 0, option5393 = 0;
    uint32_t caps1 = 0, caps2 = 0;
    bool caps1Read = false;
    MENCODE_TARGET target{};
    // Prepared decode state.
    bool prepared = false;
    bool direct = false;  // the component writes the destination itself
    int32_t linesDone = 0;
    int32_t outW = 0, outH = 0;   // destination size of this decode
    std::vector<uint8_t> scaled;  // the destination as R,G,B,A (indirect path)
};

namespace scrivo::codec {

/* Forgets a prepared decode so that the next scanline call starts over. */
void ForgetDecode(MCODEC_SESSION* s);

/* Opens the stream with the first candidate decoder that accepts it (the
 * stream is rewound to its current position before each try). */
MRESULT OpenDecoderComponent(MHAMCM manager, MHStream stream, uint32_t componentId,
                             uint32_t fileType, ComponentPtr* out);

}  // namespace scrivo::codec

#endif
