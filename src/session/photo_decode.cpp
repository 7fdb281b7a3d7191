/*
 * The photograph straight into the engine's working image.
 *
 * The engine works on R, G, B bytes, three a pixel; the JPEG decoder gives
 * R, G, B, A rows. Decoding the whole photograph into a four-byte bitmap
 * and letting the engine copy it would hold both at once (48 and 36 MB for
 * 12 megapixels) and walk every pixel twice. Instead the rows come from the
 * decoder in bands of kBandRows into one small buffer, each band is turned
 * into three-byte rows of the engine's image by the same conversion the
 * engine's copy uses, and the engine takes the image as it is. The pixels
 * are the same bytes the copy would hold; the image is a large one
 * (pixel/large_image.h), whose first writes fault in 2 MiB at a time.
 *
 * Failure: a stream no registered decoder opens, a photograph the decoder
 * refuses (too many pixels, CMYK, corrupt data) or too little memory gives
 * the decoder's or the framework's result and no engine.
 */
#include <opencv2/core.hpp>

#include "engine/client.h"
#include "pixel/large_image.h"
#include "pixel/pixel.h"
#include "session/session_internal.h"

namespace {

constexpr int32_t kBandRows = 16;

struct DecoderCloser {
    MHIDEC d = nullptr;
    ~DecoderCloser() {
        if (d) MIDec_Destroy(d);
    }
};

}  // namespace

namespace scrivo::session {

MRESULT DecodeIntoEngine(MHAMCM manager, MHStream stream, VPHandle* engine, int32_t* width,
                         int32_t* height) {
    *engine = nullptr;
    if (MStreamSeek(stream, MSTREAM_SEEK_BEGIN, 0) != 0) return MERR_STREAM_SHORT;
    DecoderCloser dec;
    MRESULT r = MIDec_Create(manager, stream, &dec.d);
    if (r != 0) return r;
    int32_t wh[2] = {};
    const uint32_t rgba = MdUtilsNewColorID2Old(MPAF_RGBA8888);
    if ((r = MIDec_GetProp(dec.d, MD_PROP_IMAGE_SIZE, wh, 8)) != 0) return r;
    if ((r = MIDec_SetProp(dec.d, MD_PROP_PIXEL_FORMAT, &rgba, 4)) != 0) return r;
    if (wh[0] <= 0 || wh[1] <= 0) return MERR_INVALID_PARAM;
    try {
        cv::Mat photo;
        scrivo::pixel::CreateLarge(photo, wh[1], wh[0], CV_8UC3);
        std::vector<uint8_t> band(static_cast<size_t>(wh[0]) * 4 * kBandRows);
        MBITMAP bm{};
        bm.pixelFormat = MPAF_RGBA8888;
        bm.width = wh[0];
        bm.height = kBandRows;
        bm.pitch[0] = wh[0] * 4;
        bm.plane[0] = band.data();
        for (int32_t y = 0; y < wh[1];) {
            int32_t done = 0;
            const int32_t want = std::min(kBandRows, wh[1] - y);
            if ((r = MIDec_Scanlines(dec.d, &bm, want, &done)) != 0) return r;
            if (done != want) return MERR_STREAM_SHORT;
            for (int32_t k = 0; k < done; ++k)
                Convert4ChannelsTo3Channels(band.data() + static_cast<size_t>(k) * bm.pitch[0],
                                            photo.ptr<uint8_t>(y + k), wh[0], 1);
            y += done;
        }
        *engine = AdoptPhotograph(std::move(photo));
    } catch (...) {  // std::bad_alloc, cv::Exception
        return MERR_NO_MEMORY;
    }
    if (*engine == nullptr) return MERR_NO_MEMORY;
    *width = wh[0];
    *height = wh[1];
    return MOK;
}

}  // namespace scrivo::session
