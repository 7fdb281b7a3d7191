// Stream handle shared by file and memory streams.
//
// One record serves both kinds; every public stream operation switches on
// `kind` and hands the record to the file or memory implementation:
//
//   kind 1 (file):   data is the open C FILE; lastOp remembers whether the
//                    last transfer was a read or a write, so that a
//                    positioning call can be slipped in when the direction
//                    changes (C stdio requires one between the two).
//   kind 2 (memory): data is the start of the current chunk's bytes,
//                    chunkCapacity its length and chunkPos the position in
//                    it. A fixed stream (growth 0) has a single "chunk": the
//                    caller's block, and no chunk list. A growable stream
//                    (growth 4097) owns a singly linked list of chunks that
//                    are never reallocated, so written bytes never move.
//
// Positions and sizes are signed 32-bit like the public API; the memory
// implementation keeps every sum below INT32_MAX.
#ifndef SCRIVO_PLATFORM_STREAM_INTERNAL_H
#define SCRIVO_PLATFORM_STREAM_INTERNAL_H

#include <cstdint>

#include "scrivo/platform.h"

namespace scrivo::stream {

constexpr int32_t kKindFile = 1;
constexpr int32_t kKindMemory = 2;

constexpr int32_t kGrowable = 4097;  // growth flag of a growable memory stream
constexpr int32_t kFixed = 0;

constexpr int32_t kChunkSize = MSTREAM_CHUNK_SIZE;

// Direction of the last transfer on a file stream.
constexpr int32_t kLastNone = 0;
constexpr int32_t kLastRead = 1;
constexpr int32_t kLastWrite = 2;

// A chunk of a growable memory stream: header and bytes in one allocation,
// data pointing just past the header.
struct Chunk {
    int32_t capacity;
    Chunk* next;
    uint8_t* data;
};

struct ChunkList {
    Chunk* first;
    Chunk* current;
};

}  // namespace scrivo::stream

// The opaque handle type of the public API (MHStream).
struct MStream {
    void* data;                        // FILE* (file) or current chunk's bytes (memory)
    int32_t kind;                      // kKindFile or kKindMemory
    int32_t chunkCapacity;             // memory: bytes in the current chunk
    int32_t chunkPos;                  // memory: position inside the current chunk
    int32_t growth;                    // kGrowable or kFixed
    scrivo::stream::ChunkList chunks;  // growable only; {nullptr, nullptr} otherwise
    int32_t size;                      // memory: logical size
    int32_t capacity;                  // memory: total bytes of all chunks
    int32_t chunkBase;                 // memory: stream offset of the current chunk
    int32_t lastOp;                    // file: kLastNone, kLastRead or kLastWrite
};

namespace scrivo::stream {

// File streams (stream_file.cpp). The record is valid and of kind file.
int32_t FileRead(MStream* s, void* buf, int32_t n);
int32_t FileWrite(MStream* s, const void* buf, int32_t n);
MRESULT FileSeek(MStream* s, int32_t origin, int32_t offset);
int32_t FileTell(MStream* s);
int32_t FileGetSize(MStream* s);
int32_t FileFlush(MStream* s);
int32_t FileClose(MStream* s);  // closes the FILE; the caller frees the record

// Memory streams (stream_memory.cpp). The record is valid and of kind memory.
int32_t MemRead(MStream* s, void* buf, int32_t n);
int32_t MemWrite(MStream* s, const void* buf, int32_t n);
MRESULT MemSeek(MStream* s, int32_t origin, int32_t offset);
int32_t MemTell(const MStream* s);
int32_t MemGetSize(const MStream* s);
int32_t MemSetSize(MStream* s, int32_t size);
int32_t MemClose(MStream* s);  // frees the chunks; the caller frees the record

}  // namespace scrivo::stream

#endif  // SCRIVO_PLATFORM_STREAM_INTERNAL_H
