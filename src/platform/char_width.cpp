// One-to-one widening and narrowing between 8-bit characters and 16-bit
// units. Narrowing keeps the low byte of each unit: these helpers carry
// ASCII paths and names, not text (use the UTF-8 conversions for text).
#include <type_traits>

#include "scrivo/platform.h"

namespace {

template <typename From, typename To>
int32_t CopyUnits(const From* src, To* dst, int32_t capacity) {
    if (dst == nullptr || capacity <= 0) return 1;
    int32_t n = 0;
    if (src != nullptr) {
        for (; n < capacity - 1 && src[n] != 0; ++n) {
            dst[n] = static_cast<To>(static_cast<std::make_unsigned_t<From>>(src[n]));
        }
    }
    dst[n] = 0;
    return n + 1;
}

}  // namespace

extern "C" {

int32_t MCharToWChar(const char* src, MWChar* dst, int32_t capacity) {
    return CopyUnits(src, dst, capacity);
}

int32_t MWCharToChar(const MWChar* src, char* dst, int32_t capacity) {
    return CopyUnits(src, dst, capacity);
}

}  // extern "C"
