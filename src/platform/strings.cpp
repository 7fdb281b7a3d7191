// Narrow and wide string helpers.
//
// The narrow family forwards to the C library (strlen, strcpy, strcasecmp,
// strtoul, vsprintf, ...). The wide family works on 16-bit units with the
// same meaning. Case changes are in place and touch only ASCII letters, so
// they never depend on the process locale and never break a UTF-8 or UTF-16
// sequence.
//
// Null pointers: the C library would crash on them, these helpers answer
// instead where an answer makes sense:
//   - a null string reads as "" for lengths and as a source (MSCsLen and
//     MWCsLen give 0, copying a null source writes "", appending one leaves
//     the destination as it is);
//   - in comparisons a null string sorts before every string, "" included,
//     and equals only another null;
//   - a null destination makes copies and case changes return null;
//   - searches in or for a null string return null;
//   - MSCsToUL, MStoi and MStol give 0 (MSCsToUL sets *end to the null
//     string), MSSprintf returns -1 for a null destination or format.
// MStoi and MStol parse like atoi/atol but clamp to their type's range
// instead of overflowing.
#include <strings.h>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "scrivo/platform.h"

namespace {

// Orders null below every string and equal only to another null; returns
// true with the result in *out when either side is null.
bool CompareNulls(const void* a, const void* b, int* out) {
    if (a != nullptr && b != nullptr) return false;
    *out = (a == nullptr ? 0 : 1) - (b == nullptr ? 0 : 1);
    return true;
}

template <typename Ch>
Ch ToLowerAscii(Ch c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<Ch>(c - 'A' + 'a') : c;
}

template <typename Ch>
Ch ToUpperAscii(Ch c) {
    return (c >= 'a' && c <= 'z') ? static_cast<Ch>(c - 'a' + 'A') : c;
}

template <typename Ch, typename F>
Ch* MapInPlace(Ch* s, F f) {
    if (s == nullptr) return nullptr;
    for (Ch* p = s; *p != 0; ++p) *p = f(*p);
    return s;
}

}  // namespace

extern "C" {

size_t MSCsLen(const char* s) {
    return s == nullptr ? 0 : std::strlen(s);
}

char* MSCsCpy(char* dst, const char* src) {
    if (dst == nullptr) return nullptr;
    return std::strcpy(dst, src == nullptr ? "" : src);
}

char* MSCsNCpy(char* dst, const char* src, size_t n) {
    if (dst == nullptr) return nullptr;
    return std::strncpy(dst, src == nullptr ? "" : src, n);
}

char* MSCsCat(char* dst, const char* src) {
    if (dst == nullptr) return nullptr;
    return src == nullptr ? dst : std::strcat(dst, src);
}

int MSCsCmp(const char* a, const char* b) {
    int r;
    return CompareNulls(a, b, &r) ? r : std::strcmp(a, b);
}

int MSCsNCmp(const char* a, const char* b, size_t n) {
    int r;
    if (n == 0) return 0;
    return CompareNulls(a, b, &r) ? r : std::strncmp(a, b, n);
}

int MSCsICmp(const char* a, const char* b) {
    int r;
    return CompareNulls(a, b, &r) ? r : strcasecmp(a, b);
}

int MSCsNICmp(const char* a, const char* b, size_t n) {
    int r;
    if (n == 0) return 0;
    return CompareNulls(a, b, &r) ? r : strncasecmp(a, b, n);
}

char* MSCsChr(const char* s, int c) {
    return s == nullptr ? nullptr : const_cast<char*>(std::strchr(s, c));
}

char* MSCsRChr(const char* s, int c) {
    return s == nullptr ? nullptr : const_cast<char*>(std::strrchr(s, c));
}

char* MSCsStr(const char* s, const char* sub) {
    if (s == nullptr || sub == nullptr) return nullptr;
    return const_cast<char*>(std::strstr(s, sub));
}

unsigned long MSCsToUL(const char* s, char** end, int base) {
    if (s == nullptr) {
        if (end != nullptr) *end = nullptr;
        return 0;
    }
    return std::strtoul(s, end, base);
}

long MStol(const char* s) {
    if (s == nullptr) return 0;
    const int saved = errno;
    const long v = std::strtol(s, nullptr, 10);  // clamps to LONG_MIN/LONG_MAX
    errno = saved;
    return v;
}

int MStoi(const char* s) {
    const long v = MStol(s);
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return static_cast<int>(v);
}

int MSSprintf(char* dst, const char* format, ...) {
    if (dst == nullptr || format == nullptr) return -1;
    va_list args;
    va_start(args, format);
    const int n = std::vsprintf(dst, format, args);
    va_end(args);
    return n;
}

char* MSCsMakeLower(char* s) {
    return MapInPlace(s, ToLowerAscii<char>);
}

char* MSCsMakeUpper(char* s) {
    return MapInPlace(s, ToUpperAscii<char>);
}

size_t MWCsLen(const MWChar* s) {
    if (s == nullptr) return 0;
    size_t n = 0;
    while (s[n] != 0) ++n;
    return n;
}

MWChar* MWCsCpy(MWChar* dst, const MWChar* src) {
    if (dst == nullptr) return nullptr;
    size_t i = 0;
    if (src != nullptr) {
        for (; src[i] != 0; ++i) dst[i] = src[i];
    }
    dst[i] = 0;
    return dst;
}

MWChar* MWCsCat(MWChar* dst, const MWChar* src) {
    if (dst == nullptr) return nullptr;
    if (src != nullptr) MWCsCpy(dst + MWCsLen(dst), src);
    return dst;
}

MWChar* MWCsStr(const MWChar* s, const MWChar* sub) {
    if (s == nullptr || sub == nullptr) return nullptr;
    if (sub[0] == 0) return const_cast<MWChar*>(s);
    for (; *s != 0; ++s) {
        size_t i = 0;
        while (sub[i] != 0 && s[i] == sub[i]) ++i;
        if (sub[i] == 0) return const_cast<MWChar*>(s);
    }
    return nullptr;
}

MWChar* MWCsMakeLower(MWChar* s) {
    return MapInPlace(s, ToLowerAscii<MWChar>);
}

MWChar* MWCsMakeUpper(MWChar* s) {
    return MapInPlace(s, ToUpperAscii<MWChar>);
}

}  // extern "C"
