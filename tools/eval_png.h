// PNG files of the measuring tools' pictures (overlays, contact sheets),
// written with zlib alone: 8-bit grey or three-channel images, the channels
// stored in the order the image holds them (R, G, B for the engine's
// photographs). Every row is stored with the "Sub" filter (each byte minus
// the byte one pixel to its left), which shrinks photographs well at no cost.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <zlib.h>
#include <opencv2/core.hpp>

namespace scrivo_eval {

namespace detail {

inline void PutBig32(std::vector<uint8_t>& out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(v >> shift));
}

// Length, type, data and the CRC of type and data.
inline void PutChunk(std::vector<uint8_t>& out, const char type[4],
                     const std::vector<uint8_t>& data) {
    PutBig32(out, static_cast<uint32_t>(data.size()));
    const size_t start = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data.begin(), data.end());
    const uLong crc = crc32(0L, out.data() + start, static_cast<uInt>(out.size() - start));
    PutBig32(out, static_cast<uint32_t>(crc));
}

}  // namespace detail

// The bytes of a PNG file of `img` (CV_8UC1 or CV_8UC3); empty when zlib
// fails.
inline std::vector<uint8_t> EncodePng(const cv::Mat& img) {
    CV_Assert(img.depth() == CV_8U && (img.channels() == 1 || img.channels() == 3));
    const int bpp = img.channels();
    const size_t rowBytes = static_cast<size_t>(img.cols) * bpp;
    std::vector<uint8_t> raw;
    raw.reserve((rowBytes + 1) * img.rows);
    for (int y = 0; y < img.rows; ++y) {
        const uint8_t* row = img.ptr<uint8_t>(y);
        raw.push_back(1);  // Sub
        for (size_t i = 0; i < rowBytes; ++i)
            raw.push_back(
                static_cast<uint8_t>(row[i] - (i >= static_cast<size_t>(bpp) ? row[i - bpp] : 0)));
    }
    uLongf packedSize = compressBound(static_cast<uLong>(raw.size()));
    std::vector<uint8_t> packed(packedSize);
    if (compress2(packed.data(), &packedSize, raw.data(), static_cast<uLong>(raw.size()), 6) !=
        Z_OK)
        return {};
    packed.resize(packedSize);

    std::vector<uint8_t> header;
    detail::PutBig32(header, static_cast<uint32_t>(img.cols));
    detail::PutBig32(header, static_cast<uint32_t>(img.rows));
    // Bit depth 8; colour type 0 (grey) or 2 (RGB); deflate; adaptive
    // filtering; no interlace.
    header.insert(header.end(), {8, static_cast<uint8_t>(bpp == 1 ? 0 : 2), 0, 0, 0});
    std::vector<uint8_t> out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    detail::PutChunk(out, "IHDR", header);
    detail::PutChunk(out, "IDAT", packed);
    detail::PutChunk(out, "IEND", {});
    return out;
}

inline bool WritePng(const std::filesystem::path& path, const cv::Mat& img) {
    const std::vector<uint8_t> bytes = EncodePng(img);
    if (bytes.empty()) return false;
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    out.close();
    return static_cast<bool>(out);
}

}  // namespace scrivo_eval
