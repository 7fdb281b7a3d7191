/*
 * File-type detection by name and by content.
 *
 * By name: the text after the last '.', compared case-insensitively with
 * the known extensions; its first character must lie between 'B' and 'w'
 * (a cheap filter that rejects digits and punctuation before comparing).
 *
 * By content: the first 10 bytes are read from position 0 and matched in a
 * fixed order (JPEG, PNG, GIF, BMP, TIFF, the 00 00 family, SVG, SWF). The
 * 00 00 family holds ICO (00 00, 1 or 2, 00), a refused "....ft" box
 * signature (00 00 00 .. 'f' 't') and otherwise WBMP. SVG needs "<?xml"
 * and then an "<svg" somewhere in the stream, which is scanned in 256-byte
 * pieces with a 3-byte overlap so that a tag split across pieces is found.
 * SWF is recognised by "FWS" (an uncompressed movie) rather than the lone
 * first byte 'F', which would claim any text file beginning with 'F'. The
 * stream position is restored on every path.
 */
#include <cctype>
#include <cstring>

#include "scrivo/codec.h"

namespace {

bool IEquals(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b)
        if (std::tolower(static_cast<unsigned char>(*a)) !=
            std::tolower(static_cast<unsigned char>(*b)))
            return false;
    return *a == *b;
}

bool StreamHasSvgTag(MHStream s) {
    if (MStreamSeek(s, 0, 0) != 0) return false;
    char buf[256 + 3];
    int32_t keep = 0;
    for (;;) {
        int32_t n = MStreamRead(s, buf + keep, 256);
        if (n <= 0) return false;
        int32_t total = keep + n;
        for (int32_t i = 0; i + 4 <= total; ++i)
            if (buf[i] == '<' && (buf[i + 1] | 0x20) == 's' && (buf[i + 2] | 0x20) == 'v' &&
                (buf[i + 3] | 0x20) == 'g')
                return true;
        keep = total < 3 ? total : 3;
        std::memmove(buf, buf + total - keep, static_cast<size_t>(keep));
    }
}

}  // namespace

extern "C" uint32_t MdUtilsGetFileType(const char* name) {
    if (!name) return MD_FILETYPE_UNKNOWN;
    const char* dot = std::strrchr(name, '.');
    if (!dot || dot[1] < 'B' || dot[1] > 'w') return MD_FILETYPE_UNKNOWN;
    const char* ext = dot + 1;
    static const struct {
        const char* ext;
        uint32_t type;
    } kExt[] = {{"bmp", MD_FILETYPE_BMP},  {"jpg", MD_FILETYPE_JPEG},  {"jpeg", MD_FILETYPE_JPEG},
                {"gif", MD_FILETYPE_GIF},  {"png", MD_FILETYPE_PNG},   {"wbmp", MD_FILETYPE_WBMP},
                {"swf", MD_FILETYPE_SWF},  {"svg", MD_FILETYPE_SVG},   {"svgz", MD_FILETYPE_SVG},
                {"tif", MD_FILETYPE_TIFF}, {"tiff", MD_FILETYPE_TIFF}, {"ico", MD_FILETYPE_ICO},
                {"icon", MD_FILETYPE_ICO}};
    for (const auto& e : kExt)
        if (IEquals(ext, e.ext)) return e.type;
    return MD_FILETYPE_UNKNOWN;
}

extern "C" MRESULT MdGetImgFileFormat(MHStream s, uint32_t* fileType) {
    if (!s || !fileType) return 2;
    const int32_t pos = MStreamTell(s);
    auto fail = [&](MRESULT r) {
        MStreamSeek(s, 0, pos);
        return r;
    };
    if (MStreamSeek(s, 0, 0) != 0) return fail(4102);
    uint8_t b[10];
    if (MStreamRead(s, b, 10) < 10) return fail(4102);
    uint32_t type = MD_FILETYPE_UNKNOWN;
    if (b[0] == 0xFF && b[1] == 0xD8) {
        type = MD_FILETYPE_JPEG;
    } else if (b[0] == 0x89 && b[1] == 'P' && b[2] == 'N' && b[3] == 'G') {
        type = MD_FILETYPE_PNG;
    } else if (b[0] == 'G' && b[1] == 'I' && b[2] == 'F') {
        type = MD_FILETYPE_GIF;
    } else if (b[0] == 'B' && b[1] == 'M') {
        type = MD_FILETYPE_BMP;
    } else if ((b[0] == 'I' && b[1] == 'I') || (b[0] == 'M' && b[1] == 'M')) {
        type = MD_FILETYPE_TIFF;
    } else if (b[0] == 0 && b[1] == 0) {
        if ((b[2] == 1 || b[2] == 2) && b[3] == 0)
            type = MD_FILETYPE_ICO;
        else if (b[2] == 0 && b[4] == 'f' && b[5] == 't')
            return fail(3);
        else
            type = MD_FILETYPE_WBMP;
    } else if (std::memcmp(b, "<?xml", 5) == 0) {
        if (!StreamHasSvgTag(s)) return fail(3);
        type = MD_FILETYPE_SVG;
    } else if (b[0] == 'F' && b[1] == 'W' && b[2] == 'S') {
        type = MD_FILETYPE_SWF;
    }
    if (type == MD_FILETYPE_UNKNOWN) return fail(3);
    MStreamSeek(s, 0, pos);
    *fileType = type;
    return 0;
}
