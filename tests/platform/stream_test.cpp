// File and memory streams, the file-system helpers and MStreamCopy.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "platform/stream_internal.h"
#include "scrivo/platform.h"

namespace fs = std::filesystem;

namespace {

std::vector<uint8_t> Pattern(size_t n, uint32_t seed) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = static_cast<uint8_t>((i * 131 + seed * 7 + i / 251) & 0xFF);
    return v;
}

std::vector<uint8_t> ReadAll(MHStream s) {
    std::vector<uint8_t> out(static_cast<size_t>(MStreamGetSize(s)));
    MStreamSeek(s, MSTREAM_SEEK_BEGIN, 0);
    out.resize(static_cast<size_t>(MStreamRead(s, out.data(), static_cast<int32_t>(out.size()))));
    return out;
}

std::vector<int32_t> ChunkCapacities(MHStream s) {
    std::vector<int32_t> caps;
    for (auto* c = s->chunks.first; c != nullptr; c = c->next) caps.push_back(c->capacity);
    return caps;
}

std::vector<MWChar> Wide(const std::string& s) {
    std::vector<MWChar> w(s.begin(), s.end());
    w.push_back(0);
    return w;
}

struct TempDir {
    fs::path path =
        fs::temp_directory_path() / ("scrivo_stream_" + std::to_string(getpid()) + "_" +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    TempDir() { fs::create_directories(path); }
    ~TempDir() { fs::remove_all(path); }
    std::string operator/(const std::string& name) const { return (path / name).string(); }
};

}  // namespace

// Random writes, seeks and reads across many chunk boundaries must behave
// exactly like a byte vector with a cursor, whatever the first chunk size.
// Origins are 0 from the start, 1 from the end, 2 from the current position.
TEST(MemoryStream, GrowableMatchesVectorModel) {
    for (int32_t initial : {0, 1, 100, 16383, 16384, 50000}) {
        SCOPED_TRACE(initial);
        MHStream s = MStreamOpenFromMemoryBlock(nullptr, initial);
        ASSERT_NE(s, nullptr);
        const uint8_t* firstData = s->chunks.first->data;
        std::vector<uint8_t> model;
        int64_t pos = 0;
        std::mt19937 rng(static_cast<uint32_t>(initial) + 1);
        for (int step = 0; step < 400; ++step) {
            const int op = static_cast<int>(rng() % 3);
            if (op == 0) {
                const auto n = static_cast<int32_t>(rng() % 40000);
                const auto bytes = Pattern(static_cast<size_t>(n), rng());
                ASSERT_EQ(MStreamWrite(s, bytes.data(), n), n);
                model.resize(std::max(model.size(), static_cast<size_t>(pos + n)));
                std::copy(bytes.begin(), bytes.end(), model.begin() + pos);
                pos += n;
            } else if (op == 1) {
                const auto origin = static_cast<int32_t>(rng() % 3);
                const auto offset = static_cast<int32_t>(rng() % 120000) - 60000;
                const int64_t size = static_cast<int64_t>(model.size());
                const int64_t base = origin == 0 ? 0 : origin == 1 ? size : pos;
                ASSERT_EQ(MStreamSeek(s, origin, offset), 0u);
                pos = std::clamp<int64_t>(base + offset, 0, size);
            } else {
                const auto n = static_cast<int32_t>(rng() % 40000);
                std::vector<uint8_t> got(static_cast<size_t>(n));
                const int64_t expect =
                    std::min<int64_t>(n, static_cast<int64_t>(model.size()) - pos);
                ASSERT_EQ(MStreamRead(s, got.data(), n), expect);
                ASSERT_TRUE(std::equal(got.begin(), got.begin() + expect, model.begin() + pos));
                pos += expect;
            }
            ASSERT_EQ(MStreamTell(s), pos);
            ASSERT_EQ(MStreamGetSize(s), static_cast<int32_t>(model.size()));
        }
        EXPECT_EQ(ReadAll(s), model);
        // Chunks are appended, never moved: the first chunk is where it was.
        EXPECT_EQ(s->chunks.first->data, firstData);
        // Then only as many 16 KiB chunks as the data needs.
        std::vector<int32_t> want{initial == 0 ? 16384 : std::min(initial, 16384)};
        for (size_t have = want[0]; have < model.size(); have += 16384) want.push_back(16384);
        EXPECT_EQ(ChunkCapacities(s), want);
        EXPECT_EQ(MStreamClose(s), 1);
    }
}

TEST(MemoryStream, ChunkBoundaryExtremeSeeksSetSizeAndFixedBlocks) {
    MHStream s = MStreamOpenFromMemoryBlock(nullptr, 0);
    ASSERT_NE(s, nullptr);
    const auto bytes = Pattern(16385, 3);
    EXPECT_EQ(MStreamWrite(s, bytes.data(), 16384), 16384);
    EXPECT_EQ(ChunkCapacities(s), std::vector<int32_t>{16384});  // exactly full: no new chunk
    EXPECT_EQ(MStreamWrite(s, bytes.data() + 16384, 1), 1);
    EXPECT_EQ(ChunkCapacities(s), (std::vector<int32_t>{16384, 16384}));
    // Offsets that would overflow clamp; an unknown origin keeps the position.
    EXPECT_EQ(MStreamSeek(s, MSTREAM_SEEK_CUR, INT32_MIN), 0u);
    EXPECT_EQ(MStreamTell(s), 0);
    EXPECT_EQ(MStreamSeek(s, MSTREAM_SEEK_END, INT32_MAX), 0u);
    EXPECT_EQ(MStreamSeek(s, MSTREAM_SEEK_CUR, INT32_MAX), 0u);
    EXPECT_EQ(MStreamSeek(s, 3, -5), 1u);
    EXPECT_EQ(MStreamSeek(s, -1, -5), 1u);
    EXPECT_EQ(MStreamTell(s), 16385);
    // SetSize truncates, never enlarges, and pulls a stranded position back.
    EXPECT_EQ(MStreamSetSize(s, 50000), 16385);
    EXPECT_EQ(MStreamSetSize(s, 100), 100);
    EXPECT_EQ(MStreamTell(s), 100);
    EXPECT_EQ(MStreamSetSize(s, -7), 0);
    EXPECT_EQ(MStreamWrite(s, bytes.data(), -1), 0);
    EXPECT_EQ(MStreamClose(s), 1);
    EXPECT_EQ(MStreamOpenFromMemoryBlock(nullptr, -1), nullptr);

    // A fixed block is never written past its end nor enlarged.
    uint8_t block[40] = {};
    s = MStreamOpenFromMemoryBlock(block, 32);  // bytes 32..39 are a guard
    EXPECT_EQ(MStreamSeek(s, MSTREAM_SEEK_END, -4), 0u);
    EXPECT_EQ(MStreamWrite(s, bytes.data(), 64), 4);
    EXPECT_TRUE(std::equal(block + 28, block + 32, bytes.begin()));
    EXPECT_EQ(block[32], 0);
    EXPECT_EQ(MStreamSetSize(s, 64), 32);
    EXPECT_EQ(MStreamClose(s), 1);
}

TEST(FileStream, ModesAndSeeks) {
    TempDir dir;
    const std::string path = dir / "a.bin";
    EXPECT_EQ(MStreamOpenFromFileS(path.c_str(), MSTREAM_MODE_READ_WRITE), nullptr);
    MHStream s = MStreamOpenFromFileS(path.c_str(), MSTREAM_MODE_WRITE);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(MStreamWrite(s, "0123456789", 10), 10);
    EXPECT_EQ(MStreamSeek(s, MSTREAM_SEEK_BEGIN, 4), 0u);
    EXPECT_EQ(MStreamGetSize(s), 10);
    EXPECT_EQ(MStreamTell(s), 4);  // GetSize keeps the position
    EXPECT_EQ(MStreamSetSize(s, 2), -1);
    EXPECT_EQ(MStreamClose(s), 1);
    s = MStreamOpenFromFileS(path.c_str(), MSTREAM_MODE_APPEND);
    EXPECT_EQ(MStreamWrite(s, "ab", 2), 2);
    EXPECT_EQ(MStreamClose(s), 1);
    // Update mode: reads and writes interleave without explicit seeks.
    char buf[16] = {};
    s = MStreamOpenFromFileS(path.c_str(), MSTREAM_MODE_READ_WRITE);
    EXPECT_EQ(MStreamRead(s, buf, 2), 2);
    EXPECT_EQ(MStreamWrite(s, "XY", 2), 2);
    EXPECT_EQ(MStreamRead(s, buf, 2), 2);
    EXPECT_EQ(std::string(buf, 2), "45");
    EXPECT_EQ(MStreamClose(s), 1);

    s = MStreamOpenFromFileW(Wide(path).data(), 42);  // unknown mode: read only
    EXPECT_EQ(MStreamSeek(s, MSTREAM_SEEK_END, -3), 0u);
    EXPECT_EQ(MStreamRead(s, buf, 16), 3);
    EXPECT_EQ(std::string(buf, 3), "9ab");
    EXPECT_EQ(MStreamSeek(s, MSTREAM_SEEK_CUR, -5), 0u);
    EXPECT_EQ(MStreamRead(s, buf, 4), 4);
    EXPECT_EQ(std::string(buf, 4), "789a");
    EXPECT_EQ(MStreamWrite(s, "zz", 2), 0);
    EXPECT_EQ(MStreamClose(s), 1);
}

TEST(FileStream, FileSystemHelpersAndCopy) {
    TempDir dir;
    const std::string a = dir / "a", b = dir / "b", c = dir / "c";
    EXPECT_EQ(MStreamFileGetSizeS(dir.path.c_str()), 0xFFFFFFFFu);
    EXPECT_EQ(MStreamFileCopyS(a.c_str(), b.c_str()), 1u);
    EXPECT_EQ(MStreamFileExistsS(b.c_str()), 0);  // a failed copy leaves nothing
    EXPECT_EQ(MStreamFileCreateS(a.c_str()), 0u);
    EXPECT_EQ(MStreamFileGetSizeS(a.c_str()), 0u);
    const auto bytes = Pattern(300001, 5);  // more than two copy pieces
    std::ofstream(a, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), 300001);
    EXPECT_EQ(MStreamFileCreateS(a.c_str()), 0u);           // does not truncate
    EXPECT_EQ(MStreamFileCopyS(a.c_str(), a.c_str()), 1u);  // never onto itself
    EXPECT_EQ(MStreamFileCopyS(a.c_str(), b.c_str()), 0u);
    EXPECT_EQ(MStreamFileRenameS(b.c_str(), c.c_str()), 0u);
    EXPECT_EQ(MStreamFileExistsS(b.c_str()), 0);
    // Moving to another file system falls back to copy + delete.
    const std::string far = "/dev/shm/scrivo_stream_move_" + std::to_string(getpid());
    if (fs::is_directory("/dev/shm")) {
        EXPECT_EQ(MStreamFileMoveS(c.c_str(), far.c_str()), 0u);
        EXPECT_EQ(MStreamFileExistsS(c.c_str()), 0);
        EXPECT_EQ(MStreamFileMoveS(far.c_str(), c.c_str()), 0u);
    }
    MHStream file = MStreamOpenFromFileS(c.c_str(), MSTREAM_MODE_READ);
    MHStream mem = MStreamOpenFromMemoryBlock(nullptr, 0);
    EXPECT_EQ(MStreamCopy(file, mem, INT32_MAX), 300001);  // stops at the empty read
    EXPECT_EQ(ReadAll(mem), bytes);
    MStreamClose(file);
    EXPECT_EQ(MStreamFileDeleteS(c.c_str()), 0u);
    EXPECT_EQ(MStreamFileDeleteS(c.c_str()), 1u);
    std::vector<uint8_t> block(140000);
    MHStream fixed = MStreamOpenFromMemoryBlock(block.data(), 140000);
    MStreamSeek(mem, MSTREAM_SEEK_BEGIN, 1000);
    EXPECT_EQ(MStreamCopy(mem, fixed, 200000), 140000);  // stops at the short write
    EXPECT_TRUE(std::equal(block.begin(), block.end(), bytes.begin() + 1000));
    MStreamClose(fixed);
    MStreamClose(mem);

    // Wide forms behave the same; unnarrowable or overlong paths are refused.
    EXPECT_EQ(MStreamFileMoveW(Wide(a).data(), Wide(b).data()), 0u);
    EXPECT_EQ(MStreamFileGetSizeW(Wide(b).data()), 300001u);
    auto odd = Wide(dir / "x");
    odd[odd.size() - 2] = 0x178;  // would narrow to 'x'
    EXPECT_EQ(MStreamFileCreateW(odd.data()), 2u);
    EXPECT_EQ(MStreamOpenFromFileW(Wide(dir / std::string(300, 'q')).data(), 2), nullptr);
    EXPECT_FALSE(fs::exists(dir.path / "x"));
}

TEST(Stream, NullAndForeignHandles) {
    char buf[4] = {};
    const char* p = "/nonexistent/scrivo";
    const auto w = Wide(p);
    for (uint32_t code : {MStreamFileDeleteS(nullptr), MStreamFileMoveS(p, nullptr),
                          MStreamFileRenameW(nullptr, w.data()), MStreamFileCopyS(nullptr, p),
                          MStreamFileCreateS(nullptr), MStreamSeek(nullptr, 0, 0)})
        EXPECT_EQ(code, 2u);
    for (int32_t zero :
         {MStreamRead(nullptr, buf, 4), MStreamWrite(nullptr, buf, 4), MStreamTell(nullptr),
          MStreamGetSize(nullptr), MStreamFlush(nullptr), MStreamClose(nullptr),
          MStreamFileExistsS(nullptr), MStreamCopy(nullptr, nullptr, 10)})
        EXPECT_EQ(zero, 0);
    EXPECT_EQ(MStreamSetSize(nullptr, 1), -1);
    EXPECT_EQ(MStreamFileGetSizeW(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(MStreamOpenFromFileS(nullptr, 1), nullptr);
    // A record of unknown kind is left alone by every operation.
    MStream foreign{};
    foreign.kind = 7;
    foreign.data = buf;
    EXPECT_EQ(MStreamWrite(&foreign, "abcd", 4) + MStreamRead(&foreign, buf, 4), 0);
    EXPECT_EQ(MStreamClose(&foreign), 0);
    EXPECT_EQ(buf[0], 0);
}
