// Fixtures for the EXIF tests: JPEGs from libjpeg and EXIF blocks built
// field by field in either byte order.
#ifndef SCRIVO_TESTS_EXIF_TEST_UTIL_H
#define SCRIVO_TESTS_EXIF_TEST_UTIL_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <vector>

#include <jpeglib.h>

#include "support/libjpeg_ref.h"

namespace exiftest {

using Bytes = std::vector<uint8_t>;

// A w x h gradient JPEG (JFIF APP0 first) from libjpeg.
inline Bytes EncodeJpeg(int w, int h, bool grey = false) {
    const int comps = grey ? 1 : 3;
    Bytes px(static_cast<size_t>(w) * h * comps);
    for (int y = 0; y < h; ++y)
        for (size_t i = 0; i < size_t(w) * comps; ++i)
            px[y * size_t(w) * comps + i] = static_cast<uint8_t>(i * 7 + y * 3);
    libjpeg_ref::CompressOptions o;
    o.components = comps;
    o.quality = 75;
    return libjpeg_ref::Compress(px.data(), w, h, size_t(w) * comps, o);
}

// Decodes our own test JPEGs with libjpeg; true when no warning came up.
inline bool DecodeJpeg(const Bytes& jpeg, int* w, int* h) {
    const libjpeg_ref::Decoded d = libjpeg_ref::Decompress(jpeg);
    *w = d.width;
    *h = d.height;
    return d.ok && d.warnings == 0;
}

struct BlockOptions {
    bool little = true;
    uint32_t sizeType = 3;  // SHORT (3) or LONG (4) pixel-dimension fields
    bool withIfd1 = true;
    Bytes thumbnail;
};
// TIFF offsets of the structure BuildExifBlock writes.
constexpr uint32_t kIfd0 = 8, kExifIfd = 90, kIfd1 = 168, kThumbOffset = 262;

// APP1 segment: marker, length, "Exif\0\0", TIFF with IFD0, the EXIF sub-IFD
// (PixelX/YDimension 0) and IFD1 with the thumbnail last.
inline Bytes BuildExifBlock(const BlockOptions& o) {
    Bytes t;
    auto u16 = [&](uint32_t v) {
        const uint8_t hi = static_cast<uint8_t>(v >> 8), lo = static_cast<uint8_t>(v);
        t.insert(t.end(), o.little ? std::initializer_list<uint8_t>{lo, hi}
                                   : std::initializer_list<uint8_t>{hi, lo});
    };
    auto u32 = [&](uint32_t v) {
        u16(o.little ? v & 0xFFFF : v >> 16);
        u16(o.little ? v >> 16 : v & 0xFFFF);
    };
    // Entries {tag, type, count, value}; UNDEFINED values are raw bytes.
    auto ifd = [&](std::initializer_list<std::array<uint32_t, 4>> fields, uint32_t link) {
        u16(static_cast<uint32_t>(fields.size()));
        for (const auto& [tag, type, count, value] : fields) {
            u16(tag);
            u16(type);
            u32(count);
            if (type == 7) {
                for (int i = 3; i >= 0; --i) t.push_back(static_cast<uint8_t>(value >> 8 * i));
            } else if (type == 3) {
                u16(value);
                u16(0);
            } else {
                u32(value);
            }
        }
        u32(link);
    };
    auto rationals = [&] {
        for (int i = 0; i < 2; ++i) u32(72), u32(1);
    };
    t = {static_cast<uint8_t>(o.little ? 'I' : 'M'), static_cast<uint8_t>(o.little ? 'I' : 'M')};
    u16(42);
    u32(kIfd0);
    ifd({{0x011A, 5, 1, 74},
         {0x011B, 5, 1, 82},
         {0x0128, 3, 1, 2},
         {0x0213, 3, 1, 1},
         {0x8769, 4, 1, kExifIfd}},
        o.withIfd1 ? kIfd1 : 0);
    rationals();
    ifd({{0x9000, 7, 4, 0x30323332},
         {0x9101, 7, 4, 0x01020300},
         {0xA000, 7, 4, 0x30313030},
         {0xA001, 3, 1, 1},
         {0xA002, o.sizeType, 1, 0},
         {0xA003, o.sizeType, 1, 0}},
        0);
    if (o.withIfd1) {
        ifd({{0x0103, 3, 1, 6},
             {0x011A, 5, 1, 246},
             {0x011B, 5, 1, 254},
             {0x0128, 3, 1, 2},
             {0x0201, 4, 1, kThumbOffset},
             {0x0202, 4, 1, static_cast<uint32_t>(o.thumbnail.size())}},
            0);
        rationals();
        t.insert(t.end(), o.thumbnail.begin(), o.thumbnail.end());
    }
    const size_t segment = t.size() + 8;
    const uint8_t head[10] = {0xFF,
                              0xE1,
                              static_cast<uint8_t>(segment >> 8),
                              static_cast<uint8_t>(segment),
                              'E',
                              'x',
                              'i',
                              'f',
                              0,
                              0};
    Bytes block(sizeof head + t.size());
    std::copy(std::begin(head), std::end(head), block.begin());
    std::copy(t.begin(), t.end(), block.begin() + sizeof head);
    return block;
}

// Values at a TIFF offset of a block that starts with its APP1 marker.
inline uint32_t ReadTiff16(const Bytes& b, uint32_t off, bool little) {
    const uint8_t* p = b.data() + 10 + off;
    return little ? p[0] | p[1] << 8 : p[0] << 8 | p[1];
}
inline uint32_t ReadTiff32(const Bytes& b, uint32_t off, bool little) {
    const uint32_t a = ReadTiff16(b, off, little), c = ReadTiff16(b, off + 2, little);
    return little ? a | c << 16 : a << 16 | c;
}

inline void WriteTiff32(Bytes& b, uint32_t off, uint32_t v, bool little) {
    for (int i = 0; i < 4; ++i)
        b[10 + off + (little ? i : 3 - i)] = static_cast<uint8_t>(v >> 8 * i);
}

// A block from BuildExifBlock laid out as some editors write it: IFD0, IFD1,
// the thumbnail, then the EXIF sub-IFD at the next even offset.
inline Bytes WithExifIfdLast(const Bytes& b, bool little) {
    const uint32_t shift = kIfd1 - kExifIfd, ifd1 = kExifIfd, thumb = kThumbOffset - shift;
    const uint32_t exif = (thumb + ReadTiff32(b, kIfd1 + 2 + 5 * 12 + 8, little) + 1) & ~1u;
    Bytes out(10 + exif + shift, 0);
    const auto at = [&](uint32_t off) { return b.begin() + 10 + off; };
    std::copy(b.begin(), at(kExifIfd), out.begin());  // APP1 head, TIFF header, IFD0
    std::copy(at(kIfd1), b.end(), out.begin() + 10 + ifd1);
    std::copy(at(kExifIfd), at(kIfd1), out.begin() + 10 + exif);
    WriteTiff32(out, kIfd0 + 2 + 5 * 12, ifd1, little);      // IFD0's link
    WriteTiff32(out, kIfd0 + 2 + 4 * 12 + 8, exif, little);  // 0x8769
    for (uint32_t entry : {1u, 2u, 4u}) {                    // two RATIONALs, 0x0201
        const uint32_t pos = ifd1 + 2 + entry * 12 + 8;
        WriteTiff32(out, pos, ReadTiff32(out, pos, little) - shift, little);
    }
    out[2] = static_cast<uint8_t>((out.size() - 2) >> 8);
    out[3] = static_cast<uint8_t>(out.size() - 2);
    return out;
}

}  // namespace exiftest

#endif
