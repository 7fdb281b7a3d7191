// Heap, byte-block and code memory for the imaging libraries.
//
// MMemAlloc/MMemFree dispatch on the memory-manager handle: null is the
// process heap, anything else a static pool (pool.cpp). MMemRealloc is the
// heap's realloc whatever the handle; code that resizes inside a pool calls
// MMemReallocStatic itself. A request of 0 bytes gives null on every path,
// heap or pool, so that code tried on the heap behaves the same in a pool;
// a resize to 0 bytes frees the block and gives null.
//
// The byte-block helpers are the C library's, except that a null pointer
// with a non-zero size is refused instead of followed (copy, move and set
// do nothing; compare orders null before any block).
//
// Code memory is mapped read-write-execute, whole pages. A 64-byte record
// in front of the returned address (which keeps generated code cache-line
// aligned) holds the mapping length, so that free, lock and unlock can
// address the whole mapping, and a tag word; a pointer that is not a page
// start plus the record, or whose record lacks the tag, is ignored.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "scrivo/platform.h"

namespace {

constexpr size_t kCodeRecordBytes = 64;
constexpr uint64_t kCodeTag = 0x53435256434f4445ull;

struct CodeRecord {
    size_t mapped;
    uint64_t tag;
};
static_assert(sizeof(CodeRecord) <= kCodeRecordBytes);

size_t PageSize() {
    const long page = sysconf(_SC_PAGESIZE);
    return page > 0 ? static_cast<size_t>(page) : 4096;
}

CodeRecord* RecordOf(void* code) {
    if (code == nullptr) return nullptr;
    const uintptr_t start = reinterpret_cast<uintptr_t>(code) - kCodeRecordBytes;
    if (reinterpret_cast<uintptr_t>(code) < kCodeRecordBytes || start % PageSize() != 0) {
        return nullptr;
    }
    auto* record = reinterpret_cast<CodeRecord*>(start);
    return record->tag == kCodeTag ? record : nullptr;
}

void* HeapResize(void* ptr, size_t size) {
    if (size == 0) {
        std::free(ptr);
        return nullptr;
    }
    return std::realloc(ptr, size);
}

}  // namespace

extern "C" {

void* MMemAlloc(MHandle handle, size_t size) {
    if (handle != nullptr) return MMemAllocStatic(handle, size);
    return size == 0 ? nullptr : std::malloc(size);
}

void MMemFree(MHandle handle, void* ptr) {
    if (handle != nullptr) {
        MMemFreeStatic(handle, ptr);
    } else {
        std::free(ptr);
    }
}

void* MMemRealloc(MHandle, void* ptr, size_t size) {
    return HeapResize(ptr, size);
}

void* MMemCpy(void* dst, const void* src, size_t size) {
    if (size != 0 && dst != nullptr && src != nullptr) std::memcpy(dst, src, size);
    return dst;
}

void* MMemMove(void* dst, const void* src, size_t size) {
    if (size != 0 && dst != nullptr && src != nullptr) std::memmove(dst, src, size);
    return dst;
}

void* MMemSet(void* dst, int value, size_t size) {
    if (size != 0 && dst != nullptr) std::memset(dst, value, size);
    return dst;
}

int MMemCmp(const void* a, const void* b, size_t size) {
    if (size == 0 || a == b) return 0;
    if (a == nullptr) return -1;
    if (b == nullptr) return 1;
    return std::memcmp(a, b, size);
}

void* MHugeMemAlloc(MHandle, size_t size) {
    return size == 0 ? nullptr : std::malloc(size);
}
void MHugeMemFree(MHandle, void* ptr) {
    std::free(ptr);
}
void* MHugeMemReAlloc(MHandle, void* ptr, size_t size) {
    return HeapResize(ptr, size);
}
void* MHugeMemLock(void* ptr) {
    return ptr;
}
void MHugeMemUnlock(void*) {}

void* MCodeAlloc(size_t size) {
    const size_t page = PageSize();
    if (size == 0 || size > SIZE_MAX - kCodeRecordBytes - page) return nullptr;
    const size_t mapped = (size + kCodeRecordBytes + page - 1) / page * page;
    void* map = mmap(nullptr, mapped, PROT_READ | PROT_WRITE | PROT_EXEC,
                     MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (map == MAP_FAILED) return nullptr;
    auto* record = static_cast<CodeRecord*>(map);
    record->mapped = mapped;
    record->tag = kCodeTag;
    return static_cast<unsigned char*>(map) + kCodeRecordBytes;
}

void MCodeFree(void* code) {
    CodeRecord* record = RecordOf(code);
    if (record == nullptr) return;
    const size_t mapped = record->mapped;
    record->tag = 0;
    munmap(record, mapped);
}

void* MCodeLock(void* code) {
    CodeRecord* record = RecordOf(code);
    if (record == nullptr || mlock(record, record->mapped) != 0) return nullptr;
    return code;
}

void MCodeUnlock(void* code) {
    if (CodeRecord* record = RecordOf(code)) munlock(record, record->mapped);
}

}  // extern "C"
