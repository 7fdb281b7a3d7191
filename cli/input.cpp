// Reading photographs.
//
// A photograph is read whole: the session decodes from memory anyway, and
// the bytes are needed once more to tell a truncated file from a corrupt
// one. It is opened without blocking and checked to be a regular file
// before a byte is read: a FIFO named *.jpg would otherwise hang the tool
// waiting for a writer, and a device would be read for ever.
//
// InspectJpeg walks the marker segments up to the first scan and then
// looks for the end-of-image marker. Entropy-coded data cannot contain
// FF D9 (a data FF is followed by 00, and restart markers are D0..D7), so a
// file without one after its first scan was cut short somewhere, or lacks
// only the marker itself. The decoder tells the two apart: it supplies the
// missing marker and fails only when data is missing, so such a file is
// decoded once at 1/8 size here (the entropy data is read in full, the
// inverse transforms are cheap) and passes with a warning or fails as
// "truncated". Bytes after the marker (camera trailers) are allowed. The
// decoder's header check also names a photograph that is too large or in
// CMYK before the session tries, and fails, to decode it. The frame
// header gives the photograph's size, which the tool needs for the
// whole-photograph quadrangle and for its memory budget.
#include "input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>

#include "scrivo/codec.h"

namespace scrivo_cli {

namespace {

// Closes a descriptor on every exit path.
struct Fd {
    int fd;
    ~Fd() {
        if (fd >= 0) close(fd);
    }
};

const char* KindOf(mode_t mode) {
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a plain file";
}

bool IsFrameMarker(uint8_t m) {
    return m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC;
}

bool IsStandalone(uint8_t m) {
    return m == 0x01 || (m >= 0xD0 && m <= 0xD7);
}

// Copies `count` bytes at `pos` into `out`; false past the end.
using ByteSource = std::function<bool(size_t pos, uint8_t* out, size_t count)>;

struct HeaderWalk {
    std::string problem;  // set: the headers themselves are broken or cut
    int32_t width = 0;    // from the frame header
    int32_t height = 0;
    size_t scanData = 0;  // where the first scan's entropy data starts
};

// Walks the segments from SOI up to the first scan (or only up to the
// frame header when `frameOnly`).
HeaderWalk WalkHeaders(const ByteSource& read, bool frameOnly) {
    HeaderWalk walk;
    uint8_t head[9];
    if (!read(0, head, 3) || head[0] != 0xFF || head[1] != 0xD8 || head[2] != 0xFF) {
        walk.problem = "not a JPEG";
        return walk;
    }
    size_t pos = 2;
    for (;;) {
        if (!read(pos, head, 2)) break;  // cut short among the header segments
        if (head[0] != 0xFF) {
            walk.problem = "corrupt JPEG headers";
            return walk;
        }
        const uint8_t marker = head[1];
        if (marker == 0xFF) {  // fill byte
            ++pos;
            continue;
        }
        if (IsStandalone(marker)) {
            pos += 2;
            continue;
        }
        if (marker == 0xD9 || marker == 0xD8) {
            walk.problem = "no image data in the JPEG";
            return walk;
        }
        if (!read(pos, head, 4)) break;
        const size_t length = (size_t{head[2]} << 8) | head[3];
        if (length < 2) {
            walk.problem = "corrupt JPEG headers";
            return walk;
        }
        if (!read(pos + 2 + length - 1, head, 1)) break;
        if (IsFrameMarker(marker) && length >= 7 && read(pos, head, 9)) {
            walk.height = (int32_t{head[5]} << 8) | head[6];
            walk.width = (int32_t{head[7]} << 8) | head[8];
            if (frameOnly) return walk;
        }
        pos += 2 + length;
        if (marker == 0xDA) {
            walk.scanData = pos;
            return walk;
        }
    }
    walk.problem = "truncated";
    return walk;
}

// The decoder component over the bytes: its header verdict and, when asked,
// a whole decode at 1/8 size. 0 or the component's result.
MRESULT TryDecoder(const std::vector<uint8_t>& bytes, bool decode) {
    MCODEC_COMPONENT* raw = nullptr;
    if (MDecoder_AJL2Create(nullptr, &raw) != 0) return MD_CERR_NO_MEMORY;
    const auto destroy = [](MCODEC_COMPONENT* c) { c->Destroy(c->self); };
    std::unique_ptr<MCODEC_COMPONENT, decltype(destroy)> decoder(raw, destroy);
    const auto close = [](void* s) { MStreamClose(static_cast<MHStream>(s)); };
    std::unique_ptr<void, decltype(close)> stream(
        MStreamOpenFromMemoryBlock(const_cast<uint8_t*>(bytes.data()),
                                   static_cast<int32_t>(bytes.size())),
        close);
    if (!stream) return MD_CERR_NO_MEMORY;
    MRESULT r = decoder->Open(decoder->self, static_cast<MHStream>(stream.get()), nullptr);
    if (r != 0 || !decode) return r;
    const int32_t eighth = 8;
    if ((r = decoder->SetProp(decoder->self, MD_PROP_JPEG_SCALE, &eighth, 4)) != 0) return r;
    int32_t wh[2] = {};
    if ((r = decoder->GetProp(decoder->self, MD_PROP_IMAGE_SIZE, wh, 8)) != 0) return r;
    const int32_t w = (wh[0] + 7) / 8, h = (wh[1] + 7) / 8, band = 16;
    std::vector<uint8_t> rows(static_cast<size_t>(w) * 4 * band);
    MBITMAP bitmap{MPAF_RGBA8888, w, band, {w * 4, 0, 0}, {rows.data(), nullptr, nullptr}};
    for (int32_t done = 0; done < h;) {
        int32_t moved = 0;
        r = decoder->Scanlines(decoder->self, &bitmap, std::min(band, h - done), &moved);
        if (r != 0) return r;
        if (moved <= 0) return MD_CERR_STREAM;
        done += moved;
    }
    return 0;
}

bool HasEndMarker(const std::vector<uint8_t>& bytes, size_t from) {
    for (size_t i = from; i + 1 < bytes.size(); ++i)
        if (bytes[i] == 0xFF && bytes[i + 1] == 0xD9) return true;
    return false;
}

}  // namespace

bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error) {
    Fd in{open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    struct stat st {};
    if (in.fd < 0 || fstat(in.fd, &st) != 0) {
        error = std::string("cannot read: ") + std::strerror(errno);
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        error = "cannot read: is a folder";
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        error = std::string("not a regular file (") + KindOf(st.st_mode) + ")";
        return false;
    }
    if (st.st_size > std::numeric_limits<int32_t>::max()) {
        error = "file too large";
        return false;
    }
    bytes.resize(static_cast<size_t>(st.st_size));
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = read(in.fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            error = std::string("cannot read: ") + (n < 0 ? std::strerror(errno) : "file shrank");
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

JpegShape InspectJpeg(const std::vector<uint8_t>& bytes) {
    JpegShape shape;
    if (bytes.empty()) {
        shape.problem = "empty file";
        return shape;
    }
    const HeaderWalk walk = WalkHeaders(
        [&](size_t pos, uint8_t* out, size_t count) {
            if (pos > bytes.size() || count > bytes.size() - pos) return false;
            std::memcpy(out, bytes.data() + pos, count);
            return true;
        },
        false);
    shape.width = walk.width;
    shape.height = walk.height;
    if (!walk.problem.empty()) {
        shape.problem = walk.problem;
        return shape;
    }
    if (shape.width <= 0 || shape.height <= 0) {
        shape.problem = "no image size in the JPEG headers";
        return shape;
    }
    const bool ended = HasEndMarker(bytes, walk.scanData);
    const MRESULT verdict = TryDecoder(bytes, !ended);
    if (verdict == MD_ERR_IMAGE_TOO_LARGE) {
        shape.problem = "too large (" + std::to_string(shape.width) + "x" +
                        std::to_string(shape.height) + " pixels, more than the " +
                        std::to_string(MD_MAX_DECODE_PIXELS) + " a photograph may have)";
    } else if (verdict == MD_ERR_CMYK_UNSUPPORTED) {
        shape.problem = "CMYK JPEG is not supported";
    } else if (!ended) {
        if (verdict == 0)
            shape.warning = "no end marker (FF D9): decoded as if it were there";
        else
            shape.problem = "truncated";
    }
    return shape;
}

FrameSize ReadFrameSize(const std::string& path) {
    FrameSize size;
    Fd in{open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    struct stat st {};
    if (in.fd < 0 || fstat(in.fd, &st) != 0 || !S_ISREG(st.st_mode)) return size;
    size.fileBytes = static_cast<uint64_t>(st.st_size);
    const HeaderWalk walk = WalkHeaders(
        [&](size_t pos, uint8_t* out, size_t count) {
            return pread(in.fd, out, count, static_cast<off_t>(pos)) == static_cast<ssize_t>(count);
        },
        true);
    size.width = walk.width;
    size.height = walk.height;
    return size;
}

}  // namespace scrivo_cli
