// Static memory pool inside a caller's buffer.
//
// A codec session can run inside one fixed buffer without a single heap call.
// The pool handle is the first 4-byte-aligned address of the buffer; all
// state lives in the buffer itself, as native 32-bit words:
//
//   pool header (16 bytes)   tail index | tail count | head index | head length
//   block 0, block 1, ...    32 bytes each, count = (usable - 16) / 32
//
// "usable" is the buffer length less the alignment slack, rounded down to a
// multiple of 4; a buffer whose usable length does not exceed the header is
// refused. The never-used "tail" is the range [tail index, tail index + tail
// count); it always reaches the last block, so tail index + tail count is
// the pool's block count and every run in use or free lies below the tail.
//
// Every allocation is a run of whole blocks. The run's first 16 bytes are
// its header {first block, length, next free index, next free length}; the
// two link words are zero while the run is in use. The caller gets the run
// start + 16, so n bytes take ceil((n + 16) / 32) blocks.
//
// Allocation: cut from the front of the tail when it is long enough (constant
// time, and preferred even when a freed run would fit); otherwise first fit
// along the free list, unlinking an exact fit or handing out the front of a
// longer run whose remainder keeps its place in the list.
//
// Free list: singly linked through the run headers, its head in the pool
// header, ordered by block index from highest to lowest, and never holding
// two adjacent runs nor a run that touches the tail. Freeing a run that ends
// at the tail gives it back to the tail, and then the list head too if it
// now touches the tail (only the head can, being the highest run). Any other
// run is inserted in order and merged with the neighbour on either side it
// touches. Headers of runs that go back to the tail or are absorbed by a
// merge are zeroed, so a stale pointer to them no longer looks like a run.
//
// Robustness: a pointer is taken as a live run only if it sits on a block
// boundary below the tail, its header names its own block with a length that
// stays below the tail, its links are zero, and the run overlaps no listed
// free run (checked on the same walk that finds its place in the list). Any
// other pointer, including a second free of the same run, is ignored. The
// walks also check that the list descends and stays below the tail, so a
// corrupted list ends the walk instead of looping or straying.
//
// Resizing (MMemReallocStatic), in order of preference:
//   - null pointer: plain allocation; size 0: free, and null is returned;
//   - same block count: the pointer is returned unchanged;
//   - fewer blocks: the run is shortened in place and its end is freed like
//     any run (back to the tail, or into the list, merging onward);
//   - more blocks, and the run is followed by the tail or by a free run with
//     enough blocks: the run grows in place over them (the free run is
//     unlinked, or its remainder keeps its place in the list);
//   - otherwise a new run is allocated, the old contents copied and the old
//     run freed. If that fails, or the pointer is not a live run, null is
//     returned and the old run is left as it was.
#include <cstdint>
#include <cstring>
#include <limits>

#include "scrivo/platform.h"

namespace {

constexpr size_t kPoolHeaderBytes = 16;
constexpr size_t kBlockBytes = 32;
constexpr size_t kRunHeaderBytes = 16;

// A run of blocks: first block index and length. Length 0 means "none".
struct Span {
    uint32_t idx;
    uint32_t len;
};

// Blocks taken by a request of `size` bytes, or 0 when it cannot be
// represented (size 0 is handled by the callers).
size_t BlocksFor(size_t size) {
    // Split so that size + 47 cannot overflow.
    const size_t b =
        size / kBlockBytes + (size % kBlockBytes + kRunHeaderBytes + kBlockBytes - 1) / kBlockBytes;
    return b > std::numeric_limits<uint32_t>::max() ? 0 : b;
}

class Pool {
  public:
    explicit Pool(MHandle handle) : base_(static_cast<unsigned char*>(handle)) {}

    void* Alloc(size_t size);
    void Free(void* ptr);
    void* Realloc(void* ptr, size_t size);

  private:
    // A pair of link words: the head fields of the pool header, or the
    // "next" fields of a free run's header.
    using Slot = unsigned char*;

    // Where a run belongs in the free list: the listed run just above it
    // (prev, referenced from toPrev) and the one just below it (cur,
    // referenced from toCur).
    struct Position {
        Slot toPrev = nullptr;
        Span prev{0, 0};
        Slot toCur = nullptr;
        Span cur{0, 0};
    };

    static uint32_t Load(const unsigned char* p) {
        uint32_t v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    static void Store(unsigned char* p, uint32_t v) { std::memcpy(p, &v, sizeof v); }

    Span ReadSpan(Slot s) const { return {Load(s), Load(s + 4)}; }
    void WriteSpan(Slot s, Span v) {
        Store(s, v.idx);
        Store(s + 4, v.len);
    }

    uint32_t TailIdx() const { return Load(base_); }
    uint32_t TailCount() const { return Load(base_ + 4); }
    void SetTail(uint32_t idx, uint32_t count) {
        Store(base_, idx);
        Store(base_ + 4, count);
    }
    Slot HeadSlot() const { return base_ + 8; }

    unsigned char* Block(uint32_t idx) const {
        return base_ + kPoolHeaderBytes + static_cast<size_t>(idx) * kBlockBytes;
    }
    Slot NextSlot(uint32_t idx) const { return Block(idx) + 8; }
    void* UserPtr(uint32_t idx) const { return Block(idx) + kRunHeaderBytes; }

    void WriteRun(Span run, Span next) {
        WriteSpan(Block(run.idx), run);
        WriteSpan(NextSlot(run.idx), next);
    }
    void ClearRun(uint32_t idx) { std::memset(Block(idx), 0, kRunHeaderBytes); }

    void* CutFromTail(uint32_t blocks);
    bool LiveHeader(const void* ptr, Span& run) const;
    bool Locate(Span run, Position& pos) const;
    void Release(Span run);

    unsigned char* base_;
};

void* Pool::CutFromTail(uint32_t blocks) {
    const uint32_t start = TailIdx();
    SetTail(start + blocks, TailCount() - blocks);
    WriteRun({start, blocks}, {0, 0});
    return UserPtr(start);
}

// Checks everything about a would-be run that its own header can tell.
bool Pool::LiveHeader(const void* ptr, Span& run) const {
    if (ptr == nullptr) return false;
    const uintptr_t p = reinterpret_cast<uintptr_t>(ptr);
    const uintptr_t first = reinterpret_cast<uintptr_t>(base_) + kPoolHeaderBytes + kRunHeaderBytes;
    if (p < first || (p - first) % kBlockBytes != 0) return false;
    const uintptr_t idx = (p - first) / kBlockBytes;
    const uint32_t tail = TailIdx();
    if (idx >= tail) return false;
    const Span h = ReadSpan(Block(static_cast<uint32_t>(idx)));
    const Span links = ReadSpan(NextSlot(static_cast<uint32_t>(idx)));
    if (h.idx != idx || h.len == 0 || h.len > tail - h.idx) return false;
    if (links.idx != 0 || links.len != 0) return false;
    run = h;
    return true;
}

// Finds where `run` would go in the free list. False when it overlaps a
// listed run (it is free already, or a stale pointer) or the list is damaged.
bool Pool::Locate(Span run, Position& pos) const {
    pos.toCur = HeadSlot();
    pos.cur = ReadSpan(pos.toCur);
    uint32_t limit = TailIdx();  // every listed run ends at or below this
    while (pos.cur.len != 0) {
        if (pos.cur.len > limit || pos.cur.idx > limit - pos.cur.len) return false;
        if (pos.cur.idx <= run.idx) break;
        pos.toPrev = pos.toCur;
        pos.prev = pos.cur;
        limit = pos.cur.idx;
        pos.toCur = NextSlot(pos.cur.idx);
        pos.cur = ReadSpan(pos.toCur);
    }
    if (pos.cur.len != 0 && uint64_t{pos.cur.idx} + pos.cur.len > run.idx) return false;
    if (pos.prev.len != 0 && uint64_t{run.idx} + run.len > pos.prev.idx) return false;
    return true;
}

// Gives a run back: to the tail when it touches it, else into the list.
void Pool::Release(Span run) {
    uint32_t tailIdx = TailIdx();
    if (run.idx + run.len == tailIdx) {
        // Only the list head can reach up to the tail; if it overlaps the
        // run, the run is not really in use.
        const Span head = ReadSpan(HeadSlot());
        if (head.len != 0 && uint64_t{head.idx} + head.len > run.idx) return;
        uint32_t tailCount = TailCount() + run.len;
        ClearRun(run.idx);
        tailIdx = run.idx;
        if (head.len != 0 && head.idx + head.len == tailIdx) {
            WriteSpan(HeadSlot(), ReadSpan(NextSlot(head.idx)));
            ClearRun(head.idx);
            tailIdx = head.idx;
            tailCount += head.len;
        }
        SetTail(tailIdx, tailCount);
        return;
    }

    Position pos;
    if (!Locate(run, pos)) return;
    Span merged = run;
    Span after = pos.cur;
    Slot link = pos.toCur;
    if (pos.cur.len != 0 && pos.cur.idx + pos.cur.len == run.idx) {
        merged = {pos.cur.idx, pos.cur.len + run.len};
        after = ReadSpan(NextSlot(pos.cur.idx));
        ClearRun(run.idx);
    }
    if (pos.prev.len != 0 && run.idx + run.len == pos.prev.idx) {
        // The merged run takes prev's place; prev's own header (which
        // holds toCur) is no longer a run.
        merged.len += pos.prev.len;
        ClearRun(pos.prev.idx);
        link = pos.toPrev;
    }
    WriteRun(merged, after);
    WriteSpan(link, merged);
}

void* Pool::Alloc(size_t size) {
    if (size == 0) return nullptr;
    const size_t want = BlocksFor(size);
    const uint32_t tailIdx = TailIdx();
    const uint32_t tailCount = TailCount();
    if (want == 0 || want > uint64_t{tailIdx} + tailCount) return nullptr;
    const uint32_t blocks = static_cast<uint32_t>(want);
    if (tailCount >= blocks) return CutFromTail(blocks);

    Slot link = HeadSlot();
    Span cur = ReadSpan(link);
    uint32_t limit = tailIdx;
    while (cur.len != 0) {
        if (cur.len > limit || cur.idx > limit - cur.len) return nullptr;  // damaged list
        if (cur.len >= blocks) {
            const Span after = ReadSpan(NextSlot(cur.idx));
            if (cur.len == blocks) {
                WriteSpan(link, after);
            } else {
                const Span rest{cur.idx + blocks, cur.len - blocks};
                WriteRun(rest, after);
                WriteSpan(link, rest);
            }
            WriteRun({cur.idx, blocks}, {0, 0});
            return UserPtr(cur.idx);
        }
        limit = cur.idx;
        link = NextSlot(cur.idx);
        cur = ReadSpan(link);
    }
    return nullptr;
}

void Pool::Free(void* ptr) {
    Span run;
    if (LiveHeader(ptr, run)) Release(run);
}

void* Pool::Realloc(void* ptr, size_t size) {
    if (ptr == nullptr) return Alloc(size);
    Span run;
    Position pos;
    if (!LiveHeader(ptr, run) || !Locate(run, pos)) return nullptr;
    if (size == 0) {
        Release(run);
        return nullptr;
    }
    const size_t want = BlocksFor(size);
    const uint32_t tailIdx = TailIdx();
    const uint32_t tailCount = TailCount();
    if (want == 0 || want > uint64_t{tailIdx} + tailCount) return nullptr;
    const uint32_t blocks = static_cast<uint32_t>(want);
    if (blocks == run.len) return ptr;

    if (blocks < run.len) {
        WriteRun({run.idx, blocks}, {0, 0});
        Release({run.idx + blocks, run.len - blocks});
        return ptr;
    }

    const uint32_t extra = blocks - run.len;
    const uint32_t end = run.idx + run.len;
    if (end == tailIdx && tailCount >= extra) {
        SetTail(tailIdx + extra, tailCount - extra);
        WriteRun({run.idx, blocks}, {0, 0});
        return ptr;
    }
    if (pos.prev.len != 0 && pos.prev.idx == end && pos.prev.len >= extra) {
        const Span after = ReadSpan(NextSlot(end));
        if (pos.prev.len == extra) {
            WriteSpan(pos.toPrev, after);
        } else {
            const Span rest{end + extra, pos.prev.len - extra};
            WriteRun(rest, after);
            WriteSpan(pos.toPrev, rest);
        }
        ClearRun(end);
        WriteRun({run.idx, blocks}, {0, 0});
        return ptr;
    }

    void* moved = Alloc(size);
    if (moved == nullptr) return nullptr;
    std::memcpy(moved, ptr, static_cast<size_t>(run.len) * kBlockBytes - kRunHeaderBytes);
    Release(run);
    return moved;
}

}  // namespace

extern "C" {

MHandle MMemMgrCreate(void* buffer, size_t length) {
    if (buffer == nullptr) return nullptr;
    const uintptr_t addr = reinterpret_cast<uintptr_t>(buffer);
    const size_t slack = (4 - addr % 4) % 4;
    if (length < slack) return nullptr;
    const size_t usable = (length - slack) & ~size_t{3};
    if (usable <= kPoolHeaderBytes) return nullptr;
    size_t blocks = (usable - kPoolHeaderBytes) / kBlockBytes;
    if (blocks > std::numeric_limits<uint32_t>::max())
        blocks = std::numeric_limits<uint32_t>::max();

    unsigned char* base = static_cast<unsigned char*>(buffer) + slack;
    const uint32_t header[4] = {0, static_cast<uint32_t>(blocks), 0, 0};
    std::memcpy(base, header, sizeof header);
    return base;
}

void MMemMgrDestroy(MHandle) {}

void* MMemAllocStatic(MHandle pool, size_t size) {
    return pool == nullptr ? nullptr : Pool(pool).Alloc(size);
}

void MMemFreeStatic(MHandle pool, void* ptr) {
    if (pool != nullptr) Pool(pool).Free(ptr);
}

void* MMemReallocStatic(MHandle pool, void* ptr, size_t size) {
    return pool == nullptr ? nullptr : Pool(pool).Realloc(ptr, size);
}

}  // extern "C"
