/*
 * Internal pieces shared by the codec framework files.
 */
#ifndef SCRIVO_IMAGING_CODEC_INTERNAL_H
#define SCRIVO_IMAGING_CODEC_INTERNAL_H

#include "imaging/codec/convert.h"
#include "scrivo/codec.h"

namespace scrivo::codec {

/* Old colour IDs the JPEG decoder component can write itself. */
constexpr uint32_t kOldRgba = 36; /* new 0x37001777: R, G, B, A bytes */
constexpr uint32_t kOldGray = 29; /* new 0x64000000: one byte a pixel */
constexpr uint32_t kOldI420 = 15; /* new 0x50000811 */
constexpr uint32_t kOldNV21 = 0x70001002u;

/* Scaled extent of [lo, hi) at denominator d: ceil(hi / d) - floor(lo / d). */
inline int32_t ScaledExtent(int32_t lo, int32_t hi, int32_t d) {
    return (hi + d - 1) / d - lo / d;
}

/* Most candidate components a session tries for one file type. */
constexpr int32_t kMaxCandidates = 10;

/* The components a session tries, in order: the one asked for, or else every
 * registered component of the given kind (MD_COMPONENT_DECODER or _ENCODER)
 * for the file type. 3 when there is none. */
MRESULT CandidateComponents(MHAMCM manager, uint32_t componentId, uint32_t fileType, uint32_t kind,
                            uint32_t ids[kMaxCandidates], int32_t* count);

}  // namespace scrivo::codec

#endif
