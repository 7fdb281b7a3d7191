/*
 * The end of the JPEG data in front of an appended extension block.
 *
 * A processed file may carry an extension block after its JPEG data; the
 * block's last 20 bytes are its footer: "ZQTM", a 16-bit little-endian 16,
 * ten bytes not looked at here, and the 32-bit little-endian length of the
 * whole block, footer included, counted back from the end of the file. The
 * footer is believed only when the tag and the 16 match and the length
 * leaves some JPEG bytes in front (in 64-bit arithmetic, so no length can
 * wrap). Any such length is taken, even one under the footer's own size:
 * the footer marks the block, and the JPEG reader only needs its end. Then the JPEG ends where the
 * block starts (0); otherwise it runs to the end of the stream (3). Only
 * the 20 footer bytes are read, so the search costs the same on any input.
 * The stream is left at its start for the JPEG reader that follows; on a
 * seek or read failure it is put back where it was.
 */
#include "imaging/exif/exif_internal.h"

using namespace scrivo::exif;

MRESULT MeGetJpegDataEnd(MHStream stream, int32_t* jpegEnd) {
    if (stream == nullptr || jpegEnd == nullptr) return MERR_INVALID_PARAM;
    const int32_t start = MStreamTell(stream);
    if (start < 0) return MERR_SEEK_FAILED;
    MRESULT r = SeekTo(stream, 0);
    const int32_t size = MStreamGetSize(stream);
    if (r == MOK && size < 0) r = MERR_STREAM_SHORT;
    uint8_t f[MEXIF_ZQTM_FOOTER_SIZE];
    if (r == MOK && size > MEXIF_ZQTM_FOOTER_SIZE) {
        r = ReadAt(stream, size - MEXIF_ZQTM_FOOTER_SIZE, f, MEXIF_ZQTM_FOOTER_SIZE);
        if (r == MOK) r = SeekTo(stream, 0);
        if (r == MOK) {
            const uint32_t version = f[4] | (static_cast<uint32_t>(f[5]) << 8);
            const uint32_t blockLength = f[16] | (static_cast<uint32_t>(f[17]) << 8) |
                                         (static_cast<uint32_t>(f[18]) << 16) |
                                         (static_cast<uint32_t>(f[19]) << 24);
            const int64_t end = int64_t{size} - blockLength;
            if (MMemCmp(f, MEXIF_ZQTM_TAG, 4) == 0 && version == 16 && end > 0) {
                *jpegEnd = static_cast<int32_t>(end);
                return MOK;
            }
        }
    }
    if (r != MOK) {
        MStreamSeek(stream, MSTREAM_SEEK_BEGIN, start);
        return r;
    }
    *jpegEnd = size;
    return MERR_UNSUPPORTED;
}
