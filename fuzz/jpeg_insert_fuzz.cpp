// Fuzzes putting a fixed EXIF block into arbitrary "JPEG" bytes held in a
// growable memory stream. The first input byte pads the block by 0..255
// bytes so that it is sometimes shorter and sometimes longer than the
// region it replaces. The stream must come back at its old position and
// never shorter than it was.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "scrivo/exif.h"

namespace {

// APP1 "Exif", little-endian TIFF: IFD0 with the EXIF pointer, and an EXIF
// sub-IFD with SHORT PixelXDimension and PixelYDimension.
const uint8_t kBlock[] = {0xFF, 0xE1, 0x00, 0x40, 'E',  'x',  'i',  'f',  0x00, 0x00, 'I',
                          'I',  0x2A, 0x00, 0x08, 0x00, 0x00, 0x00, 0x01, 0x00, 0x69, 0x87,
                          0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x1A, 0x00, 0x00, 0x00, 0x00,
                          0x00, 0x00, 0x00, 0x02, 0x00, 0x02, 0xA0, 0x03, 0x00, 0x01, 0x00,
                          0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0xA0, 0x03, 0x00, 0x01,
                          0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 1 << 20) return 0;
    const size_t pad = data[0];
    std::vector<uint8_t> block(kBlock, kBlock + sizeof kBlock);
    block.resize(sizeof kBlock + pad, 0);
    const size_t segment = block.size() - 2;
    block[2] = static_cast<uint8_t>(segment >> 8);
    block[3] = static_cast<uint8_t>(segment);

    MHStream stream = MStreamOpenFromMemoryBlock(nullptr, 0);
    if (stream == nullptr) return 0;
    const int32_t n = static_cast<int32_t>(size - 1);
    if (MStreamWrite(stream, data + 1, n) == n) {
        const int32_t at = n / 2;
        MStreamSeek(stream, MSTREAM_SEEK_BEGIN, at);
        MeAddExifToJpegFile(stream, block.data(), static_cast<uint32_t>(block.size()));
        if (MStreamTell(stream) != at || MStreamGetSize(stream) < n) abort();
    }
    MStreamClose(stream);
    return 0;
}
