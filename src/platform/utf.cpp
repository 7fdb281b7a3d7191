// UTF-8 <-> UTF-16 conversion.
//
// Both directions run the same loop: decode one code point from the
// source, encode it into a scratch buffer of at most 4 units, and copy it
// out only if it fits whole in front of the terminator. A character is
// therefore never cut: a capacity that ends inside a surrogate pair or a
// multi-byte sequence stops the output before that character. The result
// is always terminated and the return value counts the units written with
// the terminator. A null destination measures instead: the return value is
// the capacity that converts the whole string (saturating at INT32_MAX).
// A non-null destination with a capacity below 1 gets nothing and the
// result is 1; a null source converts as "".
//
// Malformed input becomes U+FFFD:
//   UTF-8: only the well-formed sequences of the Unicode standard decode
//   (no overlong forms, no encoded surrogates D800-DFFF, nothing above
//   U+10FFFF). Each maximal ill-formed prefix becomes one U+FFFD and
//   decoding resumes at the first byte that broke it, so a stray lead byte
//   never swallows the ASCII that follows it. The second byte's allowed
//   range depends on the lead byte (E0: A0-BF, ED: 80-9F, F0: 90-BF,
//   F4: 80-8F), which rejects the forbidden forms at the earliest byte.
//   UTF-16: a high surrogate not followed by a low one, or a lone low
//   surrogate, becomes U+FFFD (EF BF BD in UTF-8); the unit after an
//   unpaired high surrogate is decoded on its own.
#include <climits>
#include <cstdint>

#include "scrivo/platform.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes the code point at p and advances past it; false at the terminator.
bool NextFromUtf8(const unsigned char*& p, char32_t& cp) {
    const unsigned b0 = p[0];
    if (b0 == 0) return false;
    ++p;
    if (b0 < 0x80) {
        cp = b0;
        return true;
    }
    int len;
    unsigned lo = 0x80, hi = 0xBF;  // allowed range of the next byte
    char32_t v;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        len = 2;
        v = b0 & 0x1F;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        len = 3;
        v = b0 & 0x0F;
        if (b0 == 0xE0) lo = 0xA0;  // overlong below U+0800
        if (b0 == 0xED) hi = 0x9F;  // surrogates
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        len = 4;
        v = b0 & 0x07;
        if (b0 == 0xF0) lo = 0x90;  // overlong below U+10000
        if (b0 == 0xF4) hi = 0x8F;  // above U+10FFFF
    } else {
        cp = kReplacement;  // continuation byte, C0/C1 or F5-FF as a lead
        return true;
    }
    for (int i = 1; i < len; ++i) {
        const unsigned b = p[0];
        if (b < lo || b > hi) {  // also stops at the terminator
            cp = kReplacement;
            return true;
        }
        v = (v << 6) | (b & 0x3F);
        ++p;
        lo = 0x80;
        hi = 0xBF;
    }
    cp = v;
    return true;
}

bool NextFromUtf16(const MWChar*& p, char32_t& cp) {
    const char32_t u = p[0];
    if (u == 0) return false;
    ++p;
    if (u >= 0xD800 && u <= 0xDBFF) {
        const char32_t low = p[0];
        if (low >= 0xDC00 && low <= 0xDFFF) {
            ++p;
            cp = 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00);
        } else {
            cp = kReplacement;
        }
    } else if (u >= 0xDC00 && u <= 0xDFFF) {
        cp = kReplacement;
    } else {
        cp = u;
    }
    return true;
}

int EncodeUtf16(char32_t cp, MWChar* out) {
    if (cp < 0x10000) {
        out[0] = static_cast<MWChar>(cp);
        return 1;
    }
    cp -= 0x10000;
    out[0] = static_cast<MWChar>(0xD800 + (cp >> 10));
    out[1] = static_cast<MWChar>(0xDC00 + (cp & 0x3FF));
    return 2;
}

int EncodeUtf8(char32_t cp, char* out) {
    auto put = [&](int i, char32_t v) {
        out[i] = static_cast<char>(static_cast<unsigned char>(v));
    };
    if (cp < 0x80) {
        put(0, cp);
        return 1;
    }
    if (cp < 0x800) {
        put(0, 0xC0 | (cp >> 6));
        put(1, 0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        put(0, 0xE0 | (cp >> 12));
        put(1, 0x80 | ((cp >> 6) & 0x3F));
        put(2, 0x80 | (cp & 0x3F));
        return 3;
    }
    put(0, 0xF0 | (cp >> 18));
    put(1, 0x80 | ((cp >> 12) & 0x3F));
    put(2, 0x80 | ((cp >> 6) & 0x3F));
    put(3, 0x80 | (cp & 0x3F));
    return 4;
}

template <typename In, typename Out, typename Decode, typename Encode>
int32_t Convert(const In* src, Out* dst, int32_t capacity, Decode decode, Encode encode) {
    static const In kEmpty[1] = {0};
    if (src == nullptr) src = kEmpty;
    Out unit[4];
    char32_t cp;
    if (dst == nullptr) {
        int64_t needed = 1;
        while (decode(src, cp)) {
            needed += encode(cp, unit);
            if (needed >= INT32_MAX) return INT32_MAX;
        }
        return static_cast<int32_t>(needed);
    }
    if (capacity <= 0) return 1;
    int32_t written = 0;
    while (decode(src, cp)) {
        const int n = encode(cp, unit);
        if (n > capacity - 1 - written) break;
        for (int i = 0; i < n; ++i) dst[written++] = unit[i];
    }
    dst[written] = 0;
    return written + 1;
}

}  // namespace

extern "C" {

int32_t MUTF8ToUnicode(const char* src, MWChar* dst, int32_t capacity) {
    return Convert(reinterpret_cast<const unsigned char*>(src), dst, capacity, NextFromUtf8,
                   EncodeUtf16);
}

int32_t MUnicodeToUTF8(const MWChar* src, char* dst, int32_t capacity) {
    return Convert(src, dst, capacity, NextFromUtf16, EncodeUtf8);
}

int32_t MMultiByteToWideChar(const char* src, MWChar* dst, int32_t capacity) {
    return MUTF8ToUnicode(src, dst, capacity);
}

int32_t MWideCharToMultiByte(const MWChar* src, char* dst, int32_t capacity) {
    return MUnicodeToUTF8(src, dst, capacity);
}

}  // extern "C"
