// Dynamic array of fixed-size elements.
//
// Record: buffer, capacity in elements (a multiple of 8 once allocated),
// upper bound (index of the last element, -1 when empty), element size in
// bytes (non-zero, a multiple of 4) and the memory-manager handle. Elements
// are copied in and out by value; the array never looks inside them.
//
// Memory. The record and the buffer both come from the array's handle.
// With handle 0 the buffer is resized with the heap's realloc; with a pool
// handle it is resized with the pool's own realloc, so an array whose
// handle is a static pool really lives in that pool (the plain MMemRealloc
// would hand a pool block to the heap's realloc and corrupt memory).
//
// Growth (ADK_DArrayGrow(array, n)):
//   n > 0  asks for a capacity of at least upperBound + n, and if more is
//          needed the new capacity is capacity + n;
//   n < 0  asks for room for |n| more elements, a capacity of at least
//          upperBound + |n| + 1 (adding passes -1), and grows by a step
//          chosen from the current capacity. The step shrinks for large
//          arrays, trading more reallocations for less slack memory:
//              capacity      0..64     step   32
//                           65..1024          320
//                         1025..5120         1024
//                         5121..20480         512
//                        20481..204800        128
//                       204801 and more        32
//          so an empty array gets 32 elements on its first add, 64 at the
//          33rd, and a full array of 96 goes to 416, one of 2048 to 3072.
//          When one step is not enough (|n| > 1) the capacity goes straight
//          to what is asked for.
//   Nothing happens when the capacity already suffices.
// Every capacity change goes through ADK_DArraySetSize, which rounds up to
// a multiple of 8, refuses (2) a capacity below 1 or one that would not
// hold the current elements, and frees the buffer for capacity 0 on an
// empty array. A capacity that does not fit in 32 bits, or a byte size that
// does not fit in size_t, fails as out of memory (4), as does a failed
// allocation; the array is then left as it was.
//
// RemoveAt and RemoveAll keep the buffer for reuse; FreeExtra (or SetSize)
// gives memory back. An element pointer may point into the array itself
// (adding a copy of an existing element): it is re-aimed after the buffer
// moves and after the elements shift.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "scrivo/platform.h"

struct ADK_DArray {
    unsigned char* buffer;
    int32_t capacity;
    int32_t upperBound;
    int32_t elementSize;
    MHandle handle;
};

namespace {

int32_t Count(const ADK_DArray* a) {
    return a->upperBound + 1;
}

bool ValidIndex(const ADK_DArray* a, int32_t i) {
    return i >= 0 && i <= a->upperBound;
}

unsigned char* At(ADK_DArray* a, int32_t i) {
    return a->buffer + static_cast<size_t>(i) * static_cast<size_t>(a->elementSize);
}

// Step by which an adding array grows, from its current capacity.
int32_t GrowthStep(int32_t capacity) {
    if (capacity <= 64) return 32;
    if (capacity <= 1024) return 320;
    if (capacity <= 5120) return 1024;
    if (capacity <= 20480) return 512;
    if (capacity <= 204800) return 128;
    return 32;
}

// Byte offset of p inside the used part of the buffer, or -1.
ptrdiff_t OffsetInside(const ADK_DArray* a, const void* p) {
    if (a->buffer == nullptr) return -1;
    const auto addr = reinterpret_cast<uintptr_t>(p);
    const auto begin = reinterpret_cast<uintptr_t>(a->buffer);
    const size_t used = static_cast<size_t>(Count(a)) * static_cast<size_t>(a->elementSize);
    if (addr < begin || addr - begin >= used) return -1;
    return static_cast<ptrdiff_t>(addr - begin);
}

// Insert without argument checks: 0 <= index <= count, element non-null.
MRESULT InsertElement(ADK_DArray* a, int32_t index, const void* element) {
    ptrdiff_t self = OffsetInside(a, element);
    const MRESULT r = ADK_DArrayGrow(a, -1);
    if (r != MOK) return r;
    const size_t es = static_cast<size_t>(a->elementSize);
    unsigned char* slot = At(a, index);
    const size_t tail = static_cast<size_t>(Count(a) - index) * es;
    std::memmove(slot + es, slot, tail);
    if (self >= 0) {
        if (static_cast<size_t>(self) >= static_cast<size_t>(index) * es) {
            self += static_cast<ptrdiff_t>(es);
        }
        element = a->buffer + self;
    }
    std::memmove(slot, element, es);
    ++a->upperBound;
    return MOK;
}

}  // namespace

extern "C" {

MRESULT ADK_DArrayCreate(int32_t elementSize, MHandle handle, ADK_HDArray* array) {
    if (array == nullptr) return MERR_INVALID_PARAM;
    *array = nullptr;
    if (elementSize <= 0 || elementSize % 4 != 0) return MERR_INVALID_PARAM;
    auto* a = static_cast<ADK_DArray*>(MMemAlloc(handle, sizeof(ADK_DArray)));
    if (a == nullptr) return MERR_NO_MEMORY;
    a->buffer = nullptr;
    a->capacity = 0;
    a->upperBound = -1;
    a->elementSize = elementSize;
    a->handle = handle;
    *array = a;
    return MOK;
}

MRESULT ADK_DArrayDestroy(ADK_HDArray array) {
    if (array == nullptr) return MERR_INVALID_PARAM;
    const MHandle handle = array->handle;
    if (array->buffer != nullptr) MMemFree(handle, array->buffer);
    MMemFree(handle, array);
    return MOK;
}

MRESULT ADK_DArraySetSize(ADK_HDArray array, int32_t capacity) {
    if (array == nullptr) return MERR_INVALID_PARAM;
    if (capacity == 0 && array->upperBound < 0) {
        if (array->buffer != nullptr) MMemFree(array->handle, array->buffer);
        array->buffer = nullptr;
        array->capacity = 0;
        return MOK;
    }
    if (capacity < 1 || capacity <= array->upperBound) return MERR_INVALID_PARAM;
    if (capacity > INT32_MAX - 7) return MERR_NO_MEMORY;
    const int32_t rounded = (capacity + 7) & ~int32_t{7};
    if (rounded == array->capacity && array->buffer != nullptr) return MOK;
    const size_t es = static_cast<size_t>(array->elementSize);
    if (static_cast<size_t>(rounded) > SIZE_MAX / es) return MERR_NO_MEMORY;
    const size_t bytes = static_cast<size_t>(rounded) * es;
    void* p;
    if (array->handle == nullptr) {
        p = MMemRealloc(nullptr, array->buffer, bytes);
    } else if (array->buffer == nullptr) {
        p = MMemAlloc(array->handle, bytes);
    } else {
        p = MMemReallocStatic(array->handle, array->buffer, bytes);
    }
    if (p == nullptr) return MERR_NO_MEMORY;
    array->buffer = static_cast<unsigned char*>(p);
    array->capacity = rounded;
    return MOK;
}

MRESULT ADK_DArrayGrow(ADK_HDArray array, int32_t n) {
    if (array == nullptr) return MERR_INVALID_PARAM;
    const int64_t capacity = array->capacity;
    const int64_t upper = array->upperBound;
    const int64_t needed = n > 0 ? upper + n : upper - int64_t{n} + 1;
    if (capacity >= needed) return MOK;
    int64_t target = n > 0 ? capacity + n : capacity + GrowthStep(array->capacity);
    if (target < needed) target = needed;
    if (target > INT32_MAX) return MERR_NO_MEMORY;
    return ADK_DArraySetSize(array, static_cast<int32_t>(target));
}

MRESULT ADK_DArrayFreeExtra(ADK_HDArray array) {
    if (array == nullptr) return MERR_INVALID_PARAM;
    return ADK_DArraySetSize(array, Count(array));
}

MRESULT ADK_DArrayAdd(ADK_HDArray array, const void* element, int32_t* index) {
    if (index != nullptr) *index = -1;
    if (array == nullptr || element == nullptr) return MERR_INVALID_PARAM;
    const int32_t at = Count(array);
    const MRESULT r = InsertElement(array, at, element);
    if (r == MOK && index != nullptr) *index = at;
    return r;
}

MRESULT ADK_DArrayInsertAt(ADK_HDArray array, int32_t index, const void* element) {
    if (array == nullptr || element == nullptr) return MERR_INVALID_PARAM;
    if (index < 0 || index > Count(array)) return MERR_INVALID_PARAM;
    return InsertElement(array, index, element);
}

MRESULT ADK_DArrayRemoveAt(ADK_HDArray array, int32_t index) {
    if (array == nullptr || !ValidIndex(array, index)) return MERR_INVALID_PARAM;
    const size_t es = static_cast<size_t>(array->elementSize);
    std::memmove(At(array, index), At(array, index + 1),
                 static_cast<size_t>(array->upperBound - index) * es);
    --array->upperBound;
    return MOK;
}

MRESULT ADK_DArrayRemoveAll(ADK_HDArray array) {
    if (array == nullptr) return MERR_INVALID_PARAM;
    array->upperBound = -1;
    return MOK;
}

MRESULT ADK_DArraySetAt(ADK_HDArray array, int32_t index, const void* element) {
    if (array == nullptr || element == nullptr || !ValidIndex(array, index)) {
        return MERR_INVALID_PARAM;
    }
    std::memmove(At(array, index), element, static_cast<size_t>(array->elementSize));
    return MOK;
}

MRESULT ADK_DArrayGetAt(ADK_HDArray array, int32_t index, void* element) {
    if (array == nullptr || element == nullptr || !ValidIndex(array, index)) {
        return MERR_INVALID_PARAM;
    }
    std::memmove(element, At(array, index), static_cast<size_t>(array->elementSize));
    return MOK;
}

MRESULT ADK_DArrayFind(ADK_HDArray array, const void* element, int32_t* index) {
    if (index != nullptr) *index = -1;
    if (array == nullptr || element == nullptr || index == nullptr) return MERR_INVALID_PARAM;
    const size_t es = static_cast<size_t>(array->elementSize);
    for (int32_t i = 0; i <= array->upperBound; ++i) {
        if (std::memcmp(At(array, i), element, es) == 0) {
            *index = i;
            return MOK;
        }
    }
    return MERR_UNKNOWN;
}

MRESULT ADK_DArraySwapElement(ADK_HDArray array, int32_t a, int32_t b) {
    if (array == nullptr || !ValidIndex(array, a) || !ValidIndex(array, b)) {
        return MERR_INVALID_PARAM;
    }
    if (a != b) {
        std::swap_ranges(At(array, a), At(array, a) + array->elementSize, At(array, b));
    }
    return MOK;
}

MRESULT ADK_DArrayMoveElement(ADK_HDArray array, int32_t from, int32_t to) {
    if (array == nullptr || !ValidIndex(array, from) || !ValidIndex(array, to)) {
        return MERR_INVALID_PARAM;
    }
    // A rotation of the bytes between the two slots: no scratch element.
    if (from < to) {
        std::rotate(At(array, from), At(array, from + 1), At(array, to + 1));
    } else if (from > to) {
        std::rotate(At(array, to), At(array, from), At(array, from + 1));
    }
    return MOK;
}

int32_t ADK_DArrayGetCount(ADK_HDArray array) {
    return array == nullptr ? 0 : Count(array);
}

int32_t ADK_DArrayGetUpperBound(ADK_HDArray array) {
    return array == nullptr ? -1 : array->upperBound;
}

void* ADK_DArrayGetBuffer(ADK_HDArray array) {
    return array == nullptr ? nullptr : array->buffer;
}

int32_t ADK_DArrayGetCapacity(ADK_HDArray array) {
    return array == nullptr ? 0 : array->capacity;
}

int32_t ADK_DArrayIsValidIndex(ADK_HDArray array, int32_t index) {
    return array != nullptr && ValidIndex(array, index) ? 1 : 0;
}

}  // extern "C"
