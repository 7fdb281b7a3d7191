// JPEG bytes of an R,G,B,A picture made by the library's own encoder, for
// tests that need a photograph file or a photograph as it comes off a camera.
#pragma once

#include <cstdint>
#include <string>

#include "scrivo/codec.h"

namespace testsupport {

inline std::string LibraryJpeg(const uint8_t* rgba, int w, int h, int32_t pitch, int quality = 90) {
    MHAMCM manager = nullptr;
    if (AMCM_Create(nullptr, &manager) != 0) return {};
    MdRegisterJpegComponents(manager);
    MBITMAP bitmap{
        MPAF_RGBA8888, w, h, {pitch, 0, 0}, {const_cast<uint8_t*>(rgba), nullptr, nullptr}};
    void* data = nullptr;
    int32_t size = 0;
    std::string bytes;
    if (MCodec_EncodeData(manager, &bitmap, quality, &data, &size) == 0)
        bytes.assign(static_cast<const char*>(data), static_cast<size_t>(size));
    MMemFree(nullptr, data);
    AMCM_Destroy(manager);
    return bytes;
}

}  // namespace testsupport
