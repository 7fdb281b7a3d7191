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
// Code memory is mapped read-write-execute, whole pages. The process keeps a
// registry of its live code mappings (address -> mapped length), so that
// free, lock and unlock address the whole mapping and a pointer that is not
// a live code block is ignored without ever being dereferenced (reading a
// header in front of an arbitrary pointer could touch unmapped memory).
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#include "scrivo/platform.h"

namespace {

std::mutex& CodeMutex() {
    static std::mutex m;
    return m;
}

std::map<void*, size_t>& CodeBlocks() {
    static std::map<void*, size_t> blocks;
    return blocks;
}

// The mapped length of a live code block, or 0.
size_t CodeLength(void* code) {
    std::lock_guard<std::mutex> lock(CodeMutex());
    const auto it = CodeBlocks().find(code);
    return it == CodeBlocks().end() ? 0 : it->second;
}

size_t PageSize() {
    const long page = sysconf(_SC_PAGESIZE);
    return page > 0 ? static_cast<size_t>(page) : 4096;
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
    if (size == 0 || size > SIZE_MAX - page) return nullptr;
    const size_t mapped = (size + page - 1) / page * page;
    void* map = mmap(nullptr, mapped, PROT_READ | PROT_WRITE | PROT_EXEC,
                     MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (map == MAP_FAILED) return nullptr;
    try {
        std::lock_guard<std::mutex> lock(CodeMutex());
        CodeBlocks().emplace(map, mapped);
    } catch (...) {
        munmap(map, mapped);
        return nullptr;
    }
    return map;
}

void MCodeFree(void* code) {
    size_t mapped = 0;
    {
        std::lock_guard<std::mutex> lock(CodeMutex());
        const auto it = CodeBlocks().find(code);
        if (it == CodeBlocks().end()) return;
        mapped = it->second;
        CodeBlocks().erase(it);
    }
    munmap(code, mapped);
}

void* MCodeLock(void* code) {
    const size_t mapped = CodeLength(code);
    if (mapped == 0 || mlock(code, mapped) != 0) return nullptr;
    return code;
}

void MCodeUnlock(void* code) {
    if (const size_t mapped = CodeLength(code)) munlock(code, mapped);
}

}  // extern "C"
