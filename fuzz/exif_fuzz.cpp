// Fuzzes the EXIF reader and the block editors on arbitrary bytes: the bytes
// as a JPEG stream for MExif_InitFromStream, and both the bytes themselves
// and the block the reader found as EXIF blocks for thumbnail extraction,
// image-size patching, orientation, thumbnail replacement and removal. Blocks are copied into
// exact-size heap buffers so that any overread is caught.
#include <cstdint>
#include <cstring>

#include "scrivo/exif.h"

namespace {

void EditBlock(const uint8_t* data, size_t size) {
    if (size == 0 || size > 1 << 20) return;
    auto* block = static_cast<uint8_t*>(MMemAlloc(nullptr, size));
    if (block == nullptr) return;
    std::memcpy(block, data, size);
    uint32_t length = static_cast<uint32_t>(size);
    uint8_t* thumb = nullptr;
    uint32_t thumbLength = 0;
    if (MeGetThumbnailData(block, length, &thumb, &thumbLength) == MOK) {
        MeFreeThumbnailData(thumb);
    }
    MeReplaceImageSize(block, length, 4000, 70000);
    int32_t orientation = 0;
    if (MeGetOrientation(block, length, &orientation) == MOK && orientation != 1) {
        MeSetOrientation(block, length, 1);
    }
    static const uint8_t kThumb[] = {0xFF, 0xD8, 0x01, 0x02, 0x03, 0xFF, 0xD9};
    MeReplaceThumbnailInExif(&block, &length, kThumb, sizeof kThumb);
    MeRemoveThumbnailFromExif(&block, &length);
    MeReplaceThumbnailInExif(&block, &length, nullptr, 0);
    MeFreeExifData(block);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 1 << 20) return 0;
    EditBlock(data, size);
    auto* copy = static_cast<uint8_t*>(MMemAlloc(nullptr, size + 1));
    if (copy == nullptr) return 0;
    if (size > 0) std::memcpy(copy, data, size);
    MHStream stream = MStreamOpenFromMemoryBlock(copy, static_cast<int32_t>(size));
    MHExif exif = nullptr;
    if (stream != nullptr && MExif_Create(nullptr, &exif) == MOK) {
        if (MExif_InitFromStream(exif, stream) == MOK) {
            uint8_t* block = nullptr;
            uint32_t length = 0;
            if (MExif_LockExifData(exif, &block, &length) == MOK && block != nullptr) {
                EditBlock(block, length);
            }
            MExif_UnLockExifData(exif);
        }
        MExif_Destroy(exif);
    }
    if (stream != nullptr) MStreamClose(stream);
    MMemFree(nullptr, copy);
    return 0;
}
