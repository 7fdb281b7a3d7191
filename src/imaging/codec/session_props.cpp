/*
 * Framework session properties and destruction.
 *
 * The properties the framework knows are checked for their value size
 * (wrong size: 2) and handled here; the others go to the component as they
 * are, with its result translated. The output (decoder) or input (encoder)
 * format is kept both as given (old ID) and in the new scheme; a YUV
 * variant (property 5) replaces bits 0x3000 of a YUV-family new ID,
 * whichever of the two properties comes first.
 */
#include <cstring>

#include "imaging/codec/session.h"

namespace {

constexpr uint32_t kYuvFamilyMask = 0xF0000000u;
constexpr uint32_t kYuvFamily = 0x50000000u;

int32_t ExpectedSize(uint32_t prop) {
    switch (prop) {
        case MD_PROP_IMAGE_SIZE:
        case MD_PROP_ZOOM_SCALE:
        case MD_PROP_RA_INDEX:
            return 8;
        case MD_PROP_OPTION_BYTE:
            return 1;
        case MD_PROP_DST_REGION:
            return 16;
        case MD_PROP_PALETTE:
            return 1024;
        case MD_PROP_PIXEL_FORMAT:
        case MD_PROP_YUV_VARIANT:
        case MD_PROP_JPEG_SCALE:
        case MD_PROP_SRC_FORMAT:
        case MD_PROP_OPTION_4107:
        case MD_PROP_RA_BUDGET:
        case MD_PROP_CAPS_1:
        case MD_PROP_CAPS_2:
        case MD_PROP_OPTION_5393:
        case MD_PROP_PIXARRAY_FORMAT:
        case MD_PROP_JPEG_QUALITY:
            return 4;
        default:
            return -1;
    }
}

void ApplyVariant(MCODEC_SESSION* s) {
    if (s->yuvVariantSet && (s->outFormatNew & kYuvFamilyMask) == kYuvFamily)
        s->outFormatNew = (s->outFormatNew & ~0x3000u) | s->yuvVariant;
}

MRESULT ToComponent(MCODEC_SESSION* s, uint32_t prop, const void* v, int32_t size) {
    return MdUtilsConvertResult(s->component->SetProp(s->component->self, prop, v, size),
                                s->encoder ? 1 : 0);
}

}  // namespace

extern "C" MRESULT MCodec_GetProp(MHCODEC s, uint32_t prop, void* value, int32_t size) {
    if (!s || !value) return 2;
    const int32_t expected = ExpectedSize(prop);
    if (expected >= 0 && size != expected) return 2;
    switch (prop) {
        case MD_PROP_IMAGE_SIZE: {
            const int32_t wh[2] = {s->encoder ? s->target.width : s->imageW,
                                   s->encoder ? s->target.height : s->imageH};
            std::memcpy(value, wh, 8);
            return 0;
        }
        case MD_PROP_PIXEL_FORMAT:
        case MD_PROP_PIXARRAY_FORMAT:
            std::memcpy(value, &s->outFormatOld, 4);
            return 0;
        case MD_PROP_SRC_FORMAT:
            if (s->encoder) break;
            std::memcpy(value, &s->srcFormat, 4);
            return 0;
        case MD_PROP_ZOOM_SCALE: {
            const int32_t wh[2] = {s->dstW, s->dstH};
            std::memcpy(value, wh, 8);
            return 0;
        }
        case MD_PROP_DST_REGION:
            std::memcpy(value, &s->region, 16);
            return 0;
        default:
            break;
    }
    return MdUtilsConvertResult(s->component->GetProp(s->component->self, prop, value, size),
                                s->encoder ? 1 : 0);
}

extern "C" MRESULT MCodec_SetProp(MHCODEC s, uint32_t prop, const void* value, int32_t size) {
    if (!s || !value) return 2;
    const int32_t expected = ExpectedSize(prop);
    if (expected >= 0 && size != expected) return 2;
    int32_t v[4] = {};
    if (expected > 0 && expected <= 16) std::memcpy(v, value, static_cast<size_t>(expected));
    switch (prop) {
        case MD_PROP_PIXEL_FORMAT:
        case MD_PROP_PIXARRAY_FORMAT: {
            if ((prop == MD_PROP_PIXEL_FORMAT) == s->encoder)
                return ToComponent(s, prop, value, size);
            const uint32_t newId = MdUtilsOldColorID2New(static_cast<uint32_t>(v[0]));
            if (scrivo::codec::LayoutOf(newId) == scrivo::codec::Layout::Unsupported) return 3;
            s->outFormatOld = static_cast<uint32_t>(v[0]);
            s->outFormatNew = newId;
            s->outFormatSet = true;
            ApplyVariant(s);
            if (s->encoder) {
                // NV21 bands reach the encoder converted to I420.
                const uint32_t fmt = scrivo::codec::LayoutOf(newId) == scrivo::codec::Layout::NV21
                                         ? scrivo::codec::kOldI420
                                         : s->outFormatOld;
                return ToComponent(s, prop, &fmt, 4);
            }
            scrivo::codec::ForgetDecode(s);
            return 0;
        }
        case MD_PROP_YUV_VARIANT:
            if (v[0] != 0 && v[0] != 4096 && v[0] != 8192 && v[0] != 12288) return 2;
            s->yuvVariant = static_cast<uint32_t>(v[0]);
            s->yuvVariantSet = true;
            ApplyVariant(s);
            return 0;
        case MD_PROP_ZOOM_SCALE:
            if (s->encoder) return ToComponent(s, prop, value, size);
            if (v[0] <= 0 || v[1] <= 0) return 2;
            if (v[0] != s->dstW || v[1] != s->dstH) scrivo::codec::ForgetDecode(s);
            s->dstW = v[0];
            s->dstH = v[1];
            return 0;
        case MD_PROP_DST_REGION: {
            if (s->encoder) return ToComponent(s, prop, value, size);
            if (v[0] < 0 || v[1] < 0 || v[0] >= v[2] || v[1] >= v[3] || v[2] > s->imageW ||
                v[3] > s->imageH)
                return 2;
            const MRECT g{v[0], v[1], v[2], v[3]};
            // Setting the region already prepared changes nothing; any other
            // region starts the decode over at the next scanline call.
            if (!(s->prepared && s->regionSet && g.left == s->region.left &&
                  g.right == s->region.right && g.top == s->region.top &&
                  g.bottom == s->region.bottom))
                scrivo::codec::ForgetDecode(s);
            s->region = g;
            s->regionSet = true;
            return 0;
        }
        case MD_PROP_OPTION_4107:
            // Stored here and offered to the component, which may ignore it.
            s->option4107 = static_cast<uint32_t>(v[0]);
            ToComponent(s, prop, value, size);
            return 0;
        case MD_PROP_OPTION_5393:
            s->option5393 = static_cast<uint32_t>(v[0]);
            return 0;
        case MD_PROP_PALETTE:
            if (s->palette.size() != 1024) {
                try {
                    s->palette.resize(1024);
                } catch (...) {
                    return 4;
                }
            }
            std::memcpy(s->palette.data(), value, 1024);
            return 0;
        case MD_PROP_OPTION_BYTE:
            ToComponent(s, prop, value, size);
            return 0;
        default:
            break;
    }
    return ToComponent(s, prop, value, size);
}

extern "C" MRESULT MCodec_Destroy(MHCODEC s) {
    if (!s) return 2;
    delete s;
    return 0;
}
