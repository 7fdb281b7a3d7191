// Public stream operations: one entry point per operation, switching on the
// record's kind (1 file, 2 memory) to the implementation in stream_file.cpp
// or stream_memory.cpp.
//
// A record of any other kind is left alone and the operation returns 0. A
// null handle never reaches an implementation; it gets the harmless answer
// for its operation: nothing read or written, seek 2 (invalid argument),
// position and size 0, SetSize -1 (nothing to truncate), flush and close 0.
//
// MStreamCopy moves bytes from one stream's position to another's through
// one 131072-byte heap buffer, piece by piece, and stops at the first empty
// read, at the first short write (the destination is full) or when n bytes
// are done; it returns the bytes written.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "platform/stream_internal.h"

using namespace scrivo::stream;

namespace {

constexpr int32_t kCopyPiece = 131072;

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};

}  // namespace

extern "C" {

int32_t MStreamRead(MHStream s, void* buf, int32_t n) {
    if (s == nullptr) return 0;
    switch (s->kind) {
        case kKindFile:
            return FileRead(s, buf, n);
        case kKindMemory:
            return MemRead(s, buf, n);
        default:
            return 0;
    }
}

int32_t MStreamWrite(MHStream s, const void* buf, int32_t n) {
    if (s == nullptr) return 0;
    switch (s->kind) {
        case kKindFile:
            return FileWrite(s, buf, n);
        case kKindMemory:
            return MemWrite(s, buf, n);
        default:
            return 0;
    }
}

MRESULT MStreamSeek(MHStream s, int32_t origin, int32_t offset) {
    if (s == nullptr) return MERR_INVALID_PARAM;
    switch (s->kind) {
        case kKindFile:
            return FileSeek(s, origin, offset);
        case kKindMemory:
            return MemSeek(s, origin, offset);
        default:
            return 0;
    }
}

int32_t MStreamTell(MHStream s) {
    if (s == nullptr) return 0;
    switch (s->kind) {
        case kKindFile:
            return FileTell(s);
        case kKindMemory:
            return MemTell(s);
        default:
            return 0;
    }
}

int32_t MStreamGetSize(MHStream s) {
    if (s == nullptr) return 0;
    switch (s->kind) {
        case kKindFile:
            return FileGetSize(s);
        case kKindMemory:
            return MemGetSize(s);
        default:
            return 0;
    }
}

int32_t MStreamSetSize(MHStream s, int32_t size) {
    if (s == nullptr) return -1;
    switch (s->kind) {
        case kKindFile:
            return -1;
        case kKindMemory:
            return MemSetSize(s, size);
        default:
            return 0;
    }
}

int32_t MStreamFlush(MHStream s) {
    if (s == nullptr) return 0;
    switch (s->kind) {
        case kKindFile:
            return FileFlush(s);
        case kKindMemory:
            return 1;
        default:
            return 0;
    }
}

int32_t MStreamClose(MHStream s) {
    if (s == nullptr) return 0;
    int32_t result = 0;
    switch (s->kind) {
        case kKindFile:
            result = FileClose(s);
            break;
        case kKindMemory:
            result = MemClose(s);
            break;
        default:
            return 0;
    }
    delete s;
    return result;
}

int32_t MStreamCopy(MHStream src, MHStream dst, int32_t n) {
    if (src == nullptr || dst == nullptr || n <= 0) return 0;
    std::unique_ptr<uint8_t, FreeDeleter> buffer(static_cast<uint8_t*>(std::malloc(kCopyPiece)));
    if (!buffer) return 0;
    int32_t written = 0;
    while (written < n) {
        const int32_t piece = std::min(n - written, kCopyPiece);
        const int32_t got = MStreamRead(src, buffer.get(), piece);
        if (got <= 0) break;
        const int32_t put = MStreamWrite(dst, buffer.get(), got);
        if (put > 0) written += put;
        if (put < got) break;
    }
    return written;
}

}  // extern "C"
