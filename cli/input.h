// Files into the tool: reading a photograph and telling what is wrong with
// bytes that are not a usable JPEG (writing is in output_file.h).
#ifndef SCRIVO_CLI_INPUT_H
#define SCRIVO_CLI_INPUT_H

#include <cstdint>
#include <string>
#include <vector>

#include "output_file.h"  // the writing half, for the writers that include this

namespace scrivo_cli {

// Reads a whole regular file. On failure returns false and sets `error` to
// the reason ("cannot read: ...", "not a regular file (a FIFO)", "file too
// large"). A FIFO or device is refused without waiting on it.
bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error);

// What a JPEG says about itself, decoding as little as needed.
struct JpegShape {
    std::string problem;  // empty when the photograph can be decoded
    std::string warning;  // a flaw the decode gets over ("no end marker")
    int32_t width = 0;    // from the frame header
    int32_t height = 0;
};
// "empty file", "not a JPEG", "truncated", "corrupt JPEG headers", "no
// image size in the JPEG headers", "too large (WxH, ...)" or "CMYK JPEG is
// not supported"; otherwise the size of the frame. A photograph that lacks
// only its end marker passes with a warning.
JpegShape InspectJpeg(const std::vector<uint8_t>& bytes);

// The frame size from a file's headers alone (0 x 0 when there is none),
// for sizing work before the file is read.
struct FrameSize {
    int32_t width = 0;
    int32_t height = 0;
    uint64_t fileBytes = 0;
};
FrameSize ReadFrameSize(const std::string& path);

}  // namespace scrivo_cli

#endif
