// Fuzzes the search for the end of JPEG data in front of a "ZQTM" extension
// block: the answer must always lie inside the stream, and the stream must
// be left at its start.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "scrivo/exif.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 1 << 20) return 0;
    auto* copy = static_cast<uint8_t*>(MMemAlloc(nullptr, size + 1));
    if (copy == nullptr) return 0;
    if (size > 0) std::memcpy(copy, data, size);
    MHStream stream = MStreamOpenFromMemoryBlock(copy, static_cast<int32_t>(size));
    if (stream != nullptr) {
        int32_t end = -1;
        const MRESULT r = MeGetJpegDataEnd(stream, &end);
        if (r == MOK && (end <= 0 || end >= static_cast<int32_t>(size))) abort();
        if (r == MERR_UNSUPPORTED && end != static_cast<int32_t>(size)) abort();
        if (MStreamTell(stream) != 0) abort();
        MStreamClose(stream);
    }
    MMemFree(nullptr, copy);
    return 0;
}
