// Memory streams: fixed over a caller's block, or growable in linked chunks.
//
// Fixed stream (MStreamOpenFromMemoryBlock with a block): the block is the
// only chunk; size = capacity = length and it never grows. A write stops at
// the block's end and returns what fit.
//
// Growable stream (null block): a singly linked list of chunks. The first
// chunk holds min(length, 16384) bytes (16384 when length is 0), every
// later chunk exactly 16384. Chunks are appended, never reallocated, so a
// pointer into written data stays valid while an encoder keeps writing.
//
// The position is kept as (current chunk, offset in it) plus chunkBase, the
// stream offset where the current chunk starts, so Tell is constant time.
// A position at the very end of a chunk is legal ("lazy"): the next read or
// write steps to the following chunk (a write appends one if needed).
//
// Rules shared by both kinds:
//   - the logical size is the highest position ever written
//     (max(size, position) after each write), or the block length;
//   - reads stop at the logical size, which for a fixed stream that was
//     never truncated is the block's end; 0 at or past the end;
//   - seek clamps its target to [0, size]; origin 0 start, 1 end, 2 current;
//     any other origin returns 1 and leaves the position;
//   - SetSize only truncates (never enlarges, 0 if below 1) and pulls the
//     position back to the new end when it lay beyond it, so that a later
//     write cannot leave stale bytes between the new end and itself.
//     Chunks are kept for reuse.
// Negative lengths are refused (null handle); negative or zero transfer
// sizes move nothing. No position or size ever exceeds INT32_MAX: a write
// is cut short rather than overflow, and no chunk is appended that would
// push the total capacity past it.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/stream_internal.h"

namespace scrivo::stream {
namespace {

Chunk* NewChunk(int32_t capacity) {
    void* raw = std::malloc(sizeof(Chunk) + static_cast<size_t>(capacity));
    if (raw == nullptr) return nullptr;
    auto* chunk = static_cast<Chunk*>(raw);
    chunk->capacity = capacity;
    chunk->next = nullptr;
    chunk->data = reinterpret_cast<uint8_t*>(chunk + 1);
    return chunk;
}

void MakeCurrent(MStream* s, Chunk* chunk, int32_t base, int32_t pos) {
    s->chunks.current = chunk;
    s->data = chunk->data;
    s->chunkCapacity = chunk->capacity;
    s->chunkBase = base;
    s->chunkPos = pos;
}

// Moves to the start of the next chunk; a growable writer may append one.
// False at the end of a fixed block or when no chunk can be added.
bool StepToNextChunk(MStream* s, bool mayAppend) {
    Chunk* current = s->chunks.current;
    if (current == nullptr) return false;  // fixed stream: the block is all there is
    if (current->next == nullptr) {
        if (!mayAppend || s->capacity > INT32_MAX - kChunkSize) return false;
        Chunk* added = NewChunk(kChunkSize);
        if (added == nullptr) return false;
        current->next = added;
        s->capacity += kChunkSize;
    }
    MakeCurrent(s, current->next, s->chunkBase + s->chunkCapacity, 0);
    return true;
}

// Places a growable stream at target (0 <= target <= size <= capacity).
void PlaceGrowable(MStream* s, int32_t target) {
    Chunk* chunk = s->chunks.first;
    int32_t base = 0;
    // Walking forward from the current chunk is enough when the target
    // lies at or after its start; otherwise start over from the first.
    if (target >= s->chunkBase) {
        chunk = s->chunks.current;
        base = s->chunkBase;
    }
    while (target - base > chunk->capacity && chunk->next != nullptr) {
        base += chunk->capacity;
        chunk = chunk->next;
    }
    MakeCurrent(s, chunk, base, target - base);
}

void Place(MStream* s, int32_t target) {
    if (s->growth == kGrowable) {
        PlaceGrowable(s, target);
    } else {
        s->chunkPos = target;
    }
}

}  // namespace

int32_t MemRead(MStream* s, void* buf, int32_t n) {
    if (buf == nullptr || n <= 0) return 0;
    const int32_t available = s->size - MemTell(s);
    if (available <= 0) return 0;
    const int32_t want = std::min(n, available);
    auto* out = static_cast<uint8_t*>(buf);
    int32_t done = 0;
    while (done < want) {
        if (s->chunkPos >= s->chunkCapacity && !StepToNextChunk(s, false)) break;
        const int32_t k = std::min(want - done, s->chunkCapacity - s->chunkPos);
        std::memcpy(out + done, static_cast<uint8_t*>(s->data) + s->chunkPos,
                    static_cast<size_t>(k));
        s->chunkPos += k;
        done += k;
    }
    return done;
}

int32_t MemWrite(MStream* s, const void* buf, int32_t n) {
    if (buf == nullptr || n <= 0) return 0;
    const int32_t want = std::min(n, INT32_MAX - MemTell(s));
    const auto* in = static_cast<const uint8_t*>(buf);
    const bool growable = s->growth == kGrowable;
    int32_t done = 0;
    while (done < want) {
        if (s->chunkPos >= s->chunkCapacity && !StepToNextChunk(s, growable)) break;
        const int32_t k = std::min(want - done, s->chunkCapacity - s->chunkPos);
        std::memcpy(static_cast<uint8_t*>(s->data) + s->chunkPos, in + done,
                    static_cast<size_t>(k));
        s->chunkPos += k;
        done += k;
    }
    s->size = std::max(s->size, MemTell(s));
    return done;
}

MRESULT MemSeek(MStream* s, int32_t origin, int32_t offset) {
    int64_t base = 0;
    switch (origin) {
        case MSTREAM_SEEK_BEGIN:
            base = 0;
            break;
        case MSTREAM_SEEK_END:
            base = s->size;
            break;
        case MSTREAM_SEEK_CUR:
            base = MemTell(s);
            break;
        default:
            return MERR_UNKNOWN;
    }
    const int64_t target = std::clamp<int64_t>(base + offset, 0, s->size);
    Place(s, static_cast<int32_t>(target));
    return MOK;
}

int32_t MemTell(const MStream* s) {
    return s->chunkBase + s->chunkPos;
}

int32_t MemGetSize(const MStream* s) {
    return s->size;
}

int32_t MemSetSize(MStream* s, int32_t size) {
    if (size < s->size) s->size = std::max(size, 0);
    if (MemTell(s) > s->size) Place(s, s->size);
    return s->size;
}

int32_t MemClose(MStream* s) {
    Chunk* chunk = s->chunks.first;
    while (chunk != nullptr) {
        Chunk* next = chunk->next;
        std::free(chunk);
        chunk = next;
    }
    s->chunks = ChunkList{nullptr, nullptr};
    s->data = nullptr;
    return 1;
}

}  // namespace scrivo::stream

using namespace scrivo::stream;

extern "C" MHStream MStreamOpenFromMemoryBlock(void* block, int32_t length) {
    if (length < 0) return nullptr;
    auto* s = new (std::nothrow) MStream{};
    if (s == nullptr) return nullptr;
    s->kind = kKindMemory;
    if (block != nullptr) {
        s->growth = kFixed;
        s->data = block;
        s->chunkCapacity = length;
        s->size = length;
        s->capacity = length;
        return s;
    }
    const int32_t first = length == 0 ? kChunkSize : std::min(length, kChunkSize);
    Chunk* chunk = NewChunk(first);
    if (chunk == nullptr) {
        delete s;
        return nullptr;
    }
    s->growth = kGrowable;
    s->chunks = ChunkList{chunk, chunk};
    s->capacity = first;
    MakeCurrent(s, chunk, 0, 0);
    return s;
}
