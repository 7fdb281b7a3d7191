// Reading photographs and writing results.
//
// A photograph is read whole: the session decodes from memory anyway, and
// the bytes are needed once more to tell a truncated file from a corrupt
// one. InspectJpeg walks the marker segments up to the first scan and then
// looks for the end-of-image marker; it decodes nothing. A file cut short
// anywhere (inside a header segment or inside the entropy-coded data) has
// no end-of-image marker after its first scan, because entropy-coded data
// cannot contain FF D9 (a data FF is followed by 00, and restart markers are
// D0..D7). Bytes after the marker (camera trailers, extension blocks) are
// allowed. The frame header gives the photograph's size, which the tool
// needs for the whole-photograph quadrangle without decoding twice.
//
// Results are written to "<target>.<pid>.part" and renamed over the target
// only when the last byte is on disk, so a full disk or a killed process
// never leaves a truncated page under the final name.
#include "input.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>

namespace scrivo_cli {

bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error) {
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) {
        error = "cannot read: is a folder";
        return false;
    }
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) {
        error = std::string("cannot read: ") + std::strerror(errno);
        return false;
    }
    const std::streamoff size = in.tellg();
    if (size < 0) {
        error = "cannot read: not a regular file";
        return false;
    }
    if (size > std::numeric_limits<int32_t>::max()) {
        error = "file too large";
        return false;
    }
    bytes.resize(static_cast<size_t>(size));
    in.seekg(0);
    if (size > 0 && !in.read(reinterpret_cast<char*>(bytes.data()), size)) {
        error = "cannot read: read error";
        return false;
    }
    return true;
}

namespace {

bool IsFrameMarker(uint8_t m) {
    return m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC;
}

bool IsStandalone(uint8_t m) {
    return m == 0x01 || (m >= 0xD0 && m <= 0xD7);
}

}  // namespace

JpegShape InspectJpeg(const std::vector<uint8_t>& bytes) {
    JpegShape shape;
    const size_t n = bytes.size();
    if (n == 0) {
        shape.problem = "empty file";
        return shape;
    }
    static const uint8_t kStart[3] = {0xFF, 0xD8, 0xFF};
    if (std::memcmp(bytes.data(), kStart, n < 3 ? n : 3) != 0) {
        shape.problem = "not a JPEG";
        return shape;
    }
    size_t pos = 2;
    for (;;) {
        if (pos + 2 > n) break;  // cut short among the header segments
        if (bytes[pos] != 0xFF) {
            shape.problem = "corrupt JPEG headers";
            return shape;
        }
        uint8_t marker = bytes[pos + 1];
        if (marker == 0xFF) {  // fill byte
            ++pos;
            continue;
        }
        if (IsStandalone(marker)) {
            pos += 2;
            continue;
        }
        if (marker == 0xD9 || marker == 0xD8) {
            shape.problem = "no image data in the JPEG";
            return shape;
        }
        if (pos + 4 > n) break;
        const size_t length = (size_t{bytes[pos + 2]} << 8) | bytes[pos + 3];
        if (length < 2) {
            shape.problem = "corrupt JPEG headers";
            return shape;
        }
        if (pos + 2 + length > n) break;
        if (IsFrameMarker(marker) && length >= 7) {
            shape.height = (int32_t{bytes[pos + 5]} << 8) | bytes[pos + 6];
            shape.width = (int32_t{bytes[pos + 7]} << 8) | bytes[pos + 8];
        }
        pos += 2 + length;
        if (marker == 0xDA) {
            for (size_t i = pos; i + 1 < n; ++i) {
                if (bytes[i] == 0xFF && bytes[i + 1] == 0xD9) {
                    if (shape.width <= 0 || shape.height <= 0)
                        shape.problem = "no image size in the JPEG headers";
                    return shape;
                }
            }
            break;
        }
    }
    shape.problem = "truncated";
    return shape;
}

void EnsureParentFolder(const std::string& path) {
    // A failure shows up as the write's own "cannot write" message.
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    std::error_code ec;
    if (!parent.empty()) std::filesystem::create_directories(parent, ec);
}

std::string TemporaryNameFor(const std::string& path) {
    return path + "." + std::to_string(static_cast<long>(getpid())) + ".part";
}

bool CommitTemporary(const std::string& temporary, const std::string& path, std::string& error) {
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        error = std::string("cannot write: ") + std::strerror(errno);
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}

bool WriteFileAtomically(const std::string& path, const uint8_t* data, size_t size,
                         std::string& error) {
    EnsureParentFolder(path);
    const std::string temporary = TemporaryNameFor(path);
    std::FILE* f = std::fopen(temporary.c_str(), "wb");
    if (f == nullptr) {
        error = std::string("cannot write: ") + std::strerror(errno);
        return false;
    }
    bool ok = size == 0 || std::fwrite(data, 1, size, f) == size;
    int saved = errno;
    if (std::fclose(f) != 0 && ok) {
        ok = false;
        saved = errno;
    }
    if (!ok) {
        error = std::string("cannot write: ") + std::strerror(saved);
        std::remove(temporary.c_str());
        return false;
    }
    return CommitTemporary(temporary, path, error);
}

}  // namespace scrivo_cli
