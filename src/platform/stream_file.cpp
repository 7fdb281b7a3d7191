// File streams over C stdio, and the thin file-system helpers.
//
// Open modes: 1 "rb", 2 "wb", 3 "ab", 4 "rb+", 5 "wb+", 6 "ab+"; any other
// value opens for reading. Seek origins are 0 start, 1 END, 2 current (the
// stream API's order, not stdio's) and are mapped onto fseek. GetSize seeks
// to the end and back, so the position is kept. Tell and GetSize return -1
// when stdio cannot report a position, and cap lengths at INT32_MAX.
//
// C stdio forbids switching between reading and writing on an update
// stream without a positioning call in between; the record remembers the
// direction of the last transfer and inserts fseek(f, 0, SEEK_CUR) when it
// changes, so callers may interleave reads and writes freely.
//
// Wide paths (the W forms) are narrowed unit by unit with MWCharToChar into
// a 256-unit buffer. A path that does not fit, or that holds a unit above
// 0xFF (which narrowing would silently turn into a different byte), is
// refused rather than truncated or altered: acting on a different file
// than the one named (deleting it, say) would be worse than failing.
//
// File-system helpers return MRESULT: 0 success, 1 failure, 2 null or
// unusable path. Arguments are (source, destination).
//   - GetSize: the size of a regular file from stat, 0xFFFFFFFF when that
//     cannot be read (missing file, directory); sizes that do not fit are
//     capped at 0xFFFFFFFE so they never read as "unknown".
//   - Create: makes the file if it is missing and leaves an existing one
//     untouched (it never truncates data).
//   - Copy: refuses to copy a file onto itself (opening the destination
//     would truncate the source); a failed copy removes the partial
//     destination. The source is opened first, so a missing source never
//     clobbers the destination.
//   - Move: rename, falling back to copy + delete when the two paths lie
//     on different file systems.
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>
#include <new>

#include "platform/stream_internal.h"

namespace scrivo::stream {
namespace {

constexpr int32_t kWidePathUnits = 256;
constexpr size_t kCopyBufferSize = 65536;

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

std::FILE* AsFile(MStream* s) {
    return static_cast<std::FILE*>(s->data);
}

const char* ModeString(int32_t mode) {
    switch (mode) {
        case MSTREAM_MODE_WRITE:
            return "wb";
        case MSTREAM_MODE_APPEND:
            return "ab";
        case MSTREAM_MODE_READ_WRITE:
            return "rb+";
        case MSTREAM_MODE_WRITE_READ:
            return "wb+";
        case MSTREAM_MODE_APPEND_READ:
            return "ab+";
        default:
            return "rb";
    }
}

// Inserts the positioning call stdio requires when the transfer direction
// changes on an update stream.
void PrepareTransfer(MStream* s, int32_t direction) {
    if (s->lastOp != kLastNone && s->lastOp != direction) std::fseek(AsFile(s), 0, SEEK_CUR);
    s->lastOp = direction;
}

int32_t ClampLength(long value) {
    if (value < 0) return -1;
    return value > INT32_MAX ? INT32_MAX : static_cast<int32_t>(value);
}

// A narrowed copy of a wide path; valid() is false when the path is null,
// too long for the buffer or holds a unit that has no one-byte form.
class NarrowPath {
  public:
    explicit NarrowPath(const MWChar* wide) {
        if (wide == nullptr) return;
        int32_t length = 0;
        while (length < kWidePathUnits && wide[length] != 0) {
            if (wide[length] > 0xFF) return;
            ++length;
        }
        if (length == kWidePathUnits) return;
        MWCharToChar(wide, buffer_, kWidePathUnits);
        valid_ = true;
    }
    bool valid() const { return valid_; }
    const char* get() const { return valid_ ? buffer_ : nullptr; }

  private:
    char buffer_[kWidePathUnits] = {};
    bool valid_ = false;
};

bool SameFile(const char* a, const char* b) {
    struct stat sa {};
    struct stat sb {};
    return stat(a, &sa) == 0 && stat(b, &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

MRESULT CopyPath(const char* src, const char* dst) {
    if (src == nullptr || dst == nullptr) return MERR_INVALID_PARAM;
    if (SameFile(src, dst)) return MERR_UNKNOWN;
    FilePtr in(std::fopen(src, "rb"));
    if (!in) return MERR_UNKNOWN;
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[kCopyBufferSize]);
    if (!buffer) return MERR_NO_MEMORY;
    FilePtr out(std::fopen(dst, "wb"));
    if (!out) return MERR_UNKNOWN;
    bool ok = true;
    for (;;) {
        const size_t got = std::fread(buffer.get(), 1, kCopyBufferSize, in.get());
        if (got > 0 && std::fwrite(buffer.get(), 1, got, out.get()) != got) {
            ok = false;
            break;
        }
        if (got < kCopyBufferSize) {
            ok = std::ferror(in.get()) == 0;
            break;
        }
    }
    // Closing flushes; a failure there is a failed copy too.
    if (std::fclose(out.release()) != 0) ok = false;
    if (!ok) {
        std::remove(dst);
        return MERR_UNKNOWN;
    }
    return MOK;
}

MRESULT MovePath(const char* src, const char* dst) {
    if (src == nullptr || dst == nullptr) return MERR_INVALID_PARAM;
    if (std::rename(src, dst) == 0) return MOK;
    if (errno != EXDEV) return MERR_UNKNOWN;
    const MRESULT copied = CopyPath(src, dst);
    if (copied != MOK) return copied;
    if (std::remove(src) != 0) {
        // Leave one copy, not two: the move did not happen.
        std::remove(dst);
        return MERR_UNKNOWN;
    }
    return MOK;
}

}  // namespace

int32_t FileRead(MStream* s, void* buf, int32_t n) {
    if (buf == nullptr || n <= 0) return 0;
    PrepareTransfer(s, kLastRead);
    return static_cast<int32_t>(std::fread(buf, 1, static_cast<size_t>(n), AsFile(s)));
}

int32_t FileWrite(MStream* s, const void* buf, int32_t n) {
    if (buf == nullptr || n <= 0) return 0;
    PrepareTransfer(s, kLastWrite);
    return static_cast<int32_t>(std::fwrite(buf, 1, static_cast<size_t>(n), AsFile(s)));
}

MRESULT FileSeek(MStream* s, int32_t origin, int32_t offset) {
    int whence = SEEK_SET;
    switch (origin) {
        case MSTREAM_SEEK_BEGIN:
            whence = SEEK_SET;
            break;
        case MSTREAM_SEEK_END:
            whence = SEEK_END;
            break;
        case MSTREAM_SEEK_CUR:
            whence = SEEK_CUR;
            break;
        default:
            return MERR_UNKNOWN;
    }
    s->lastOp = kLastNone;
    return std::fseek(AsFile(s), offset, whence) == 0 ? MOK : MERR_UNKNOWN;
}

int32_t FileTell(MStream* s) {
    return ClampLength(std::ftell(AsFile(s)));
}

int32_t FileGetSize(MStream* s) {
    std::FILE* f = AsFile(s);
    const long pos = std::ftell(f);
    if (pos < 0 || std::fseek(f, 0, SEEK_END) != 0) return -1;
    const long end = std::ftell(f);
    std::fseek(f, pos, SEEK_SET);
    s->lastOp = kLastNone;
    return ClampLength(end);
}

int32_t FileFlush(MStream* s) {
    return std::fflush(AsFile(s)) == 0 ? 1 : 0;
}

int32_t FileClose(MStream* s) {
    const int rc = std::fclose(AsFile(s));
    s->data = nullptr;
    return rc == 0 ? 1 : 0;
}

}  // namespace scrivo::stream

using namespace scrivo::stream;

extern "C" {

MHStream MStreamOpenFromFileS(const char* path, int32_t mode) {
    if (path == nullptr) return nullptr;
    auto* s = new (std::nothrow) MStream{};
    if (s == nullptr) return nullptr;
    std::FILE* f = std::fopen(path, ModeString(mode));
    if (f == nullptr) {
        delete s;
        return nullptr;
    }
    s->kind = kKindFile;
    s->data = f;
    return s;
}

MHStream MStreamOpenFromFileW(const MWChar* path, int32_t mode) {
    const NarrowPath narrow(path);
    return MStreamOpenFromFileS(narrow.get(), mode);
}

int32_t MStreamFileExistsS(const char* path) {
    if (path == nullptr) return 0;
    FilePtr f(std::fopen(path, "rb"));
    return f ? 1 : 0;
}

uint32_t MStreamFileGetSizeS(const char* path) {
    struct stat st {};
    if (path == nullptr || stat(path, &st) != 0 || !S_ISREG(st.st_mode)) return 0xFFFFFFFFu;
    const auto size = static_cast<unsigned long long>(st.st_size);
    return size >= 0xFFFFFFFFull ? 0xFFFFFFFEu : static_cast<uint32_t>(size);
}

MRESULT MStreamFileDeleteS(const char* path) {
    if (path == nullptr) return MERR_INVALID_PARAM;
    return std::remove(path) == 0 ? MOK : MERR_UNKNOWN;
}

MRESULT MStreamFileMoveS(const char* src, const char* dst) {
    return MovePath(src, dst);
}

MRESULT MStreamFileRenameS(const char* src, const char* dst) {
    if (src == nullptr || dst == nullptr) return MERR_INVALID_PARAM;
    return std::rename(src, dst) == 0 ? MOK : MERR_UNKNOWN;
}

MRESULT MStreamFileCopyS(const char* src, const char* dst) {
    return CopyPath(src, dst);
}

MRESULT MStreamFileCreateS(const char* path) {
    if (path == nullptr) return MERR_INVALID_PARAM;
    FilePtr f(std::fopen(path, "ab"));
    return f ? MOK : MERR_UNKNOWN;
}

int32_t MStreamFileExistsW(const MWChar* path) {
    const NarrowPath narrow(path);
    return MStreamFileExistsS(narrow.get());
}

uint32_t MStreamFileGetSizeW(const MWChar* path) {
    const NarrowPath narrow(path);
    return MStreamFileGetSizeS(narrow.get());
}

MRESULT MStreamFileDeleteW(const MWChar* path) {
    const NarrowPath narrow(path);
    return MStreamFileDeleteS(narrow.get());
}

MRESULT MStreamFileMoveW(const MWChar* src, const MWChar* dst) {
    const NarrowPath a(src);
    const NarrowPath b(dst);
    return MStreamFileMoveS(a.get(), b.get());
}

MRESULT MStreamFileRenameW(const MWChar* src, const MWChar* dst) {
    const NarrowPath a(src);
    const NarrowPath b(dst);
    return MStreamFileRenameS(a.get(), b.get());
}

MRESULT MStreamFileCopyW(const MWChar* src, const MWChar* dst) {
    const NarrowPath a(src);
    const NarrowPath b(dst);
    return MStreamFileCopyS(a.get(), b.get());
}

MRESULT MStreamFileCreateW(const MWChar* path) {
    const NarrowPath narrow(path);
    return MStreamFileCreateS(narrow.get());
}

}  // extern "C"
