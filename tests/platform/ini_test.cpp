// Initialisation files: parsing and faithful write-back, edits, the
// category enumeration, buffer and name checks, missing and unchanged files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "scrivo/platform.h"

namespace {

struct Ini : testing::Test {
    void SetUp() override {
        ASSERT_NE(mkdtemp(dir_.data()), nullptr);
        path_ = dir_ + "/settings.ini";
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }
    void Put(const std::string& text) { std::ofstream(path_, std::ios::binary) << text; }
    std::string Get() {
        std::ostringstream s;
        s << std::ifstream(path_, std::ios::binary).rdbuf();
        return s.str();
    }
    std::string dir_ = "/tmp/scrivo_ini_XXXXXX", path_;
};

// The value read, or "#<code>" followed by what was left in the buffer.
std::string Read(MHIni ini, const char* category, const char* key, int32_t size = 32) {
    char v[32] = "junk";
    const MRESULT r = MIniReadS(ini, category, key, v, size);
    if (r == MOK) return v;
    std::string out(1, '#');
    out += std::to_string(r);
    out.append(v);
    return out;
}

TEST_F(Ini, ReadsEditsAndWritesBackFaithfully) {
    Put("# top comment\r\nmode = fast \r\n\r\n[Scan]\r\n  dpi=300\r\n; keep me\r\nnote = a ; b\r\n"
        "junk line\r\n\r\n[Out]\r\nfmt=jpg\r\n[scan]\r\ndpi=600\r\n");
    MHIni ini = MIniStartS(path_.c_str());
    ASSERT_NE(ini, nullptr);
    EXPECT_EQ(Read(ini, nullptr, "MODE"), "fast");
    EXPECT_EQ(Read(ini, "SCAN", "dpi"), "600");  // the later line wins
    EXPECT_EQ(Read(ini, "Scan", "note"), "a ; b");
    EXPECT_EQ(Read(ini, "Scan", "junk line"), "#1");
    EXPECT_EQ(Read(ini, "Nope", "dpi"), "#1");

    EXPECT_EQ(MIniWriteS(ini, "scan", "Depth", "  8 "), MOK);
    EXPECT_EQ(MIniWriteS(ini, "Out", "fmt", "png"), MOK);
    EXPECT_EQ(MIniWriteS(ini, "New", "k", "v"), MOK);
    EXPECT_EQ(MIniRemoveS(ini, nullptr, "mode"), MOK);
    EXPECT_EQ(MIniRemoveS(ini, nullptr, "mode"), 1u);
    EXPECT_EQ(Read(ini, "Scan", "depth"), "8");
    EXPECT_EQ(MIniEndS(ini), MOK);
    EXPECT_EQ(Get(),
              "# top comment\n\n[Scan]\ndpi=600\n; keep me\nnote = a ; b\njunk line\nDepth=8\n\n"
              "[Out]\nfmt=png\n\n[New]\nk=v\n");
}

TEST_F(Ini, EnumeratesCategoriesAndChecksBuffers) {
    Put("a=1\n[First]\n[Second-long-name]\nx=y\n");
    MHIni ini = MIniStartS(path_.c_str());
    ASSERT_NE(ini, nullptr);
    char c[8];
    EXPECT_EQ(MIniFindFirstCategoryS(ini, c, sizeof c), MOK);
    EXPECT_STREQ(c, "");  // the unnamed category holds an entry
    EXPECT_EQ(MIniFindNextCategoryS(ini, c, sizeof c), MOK);
    EXPECT_STREQ(c, "First");
    EXPECT_EQ(MIniFindNextCategoryS(ini, c, sizeof c), MERR_INVALID_PARAM);  // too long
    EXPECT_STREQ(c, "");
    char big[32];
    EXPECT_EQ(MIniFindNextCategoryS(ini, big, sizeof big), MOK);  // retried, not skipped
    EXPECT_STREQ(big, "Second-long-name");
    EXPECT_EQ(MIniFindNextCategoryS(ini, big, sizeof big), 1u);

    EXPECT_EQ(Read(ini, "Second-long-name", "x", 2), "y");
    EXPECT_EQ(Read(ini, "", "a", 1), std::string("#2"));  // not cut

    // Names and values that would not read back as written are refused.
    for (const char* key : {"", " k", "k=", "#k", "[k", "k\n"}) {
        EXPECT_EQ(MIniWriteS(ini, "First", key, "v"), MERR_INVALID_PARAM) << key;
    }
    EXPECT_EQ(MIniWriteS(ini, "Fir]st", "k", "v"), MERR_INVALID_PARAM);
    EXPECT_EQ(MIniWriteS(ini, "First", "k", "two\nlines"), MERR_INVALID_PARAM);
    EXPECT_EQ(MIniRemoveS(ini, "First", nullptr), MOK);
    EXPECT_EQ(MIniRemoveS(ini, "", nullptr), MOK);
    EXPECT_EQ(MIniFindFirstCategoryS(ini, big, sizeof big), MOK);
    EXPECT_STREQ(big, "Second-long-name");
    EXPECT_EQ(MIniEndS(ini), MOK);
    EXPECT_EQ(Get(), "[Second-long-name]\nx=y\n");
    EXPECT_EQ(MIniEndS(nullptr), MERR_INVALID_PARAM);
}

TEST_F(Ini, MissingUnchangedAndUnreadableFiles) {
    char v[16] = "old";
    EXPECT_EQ(MIniReadSingleS(path_.c_str(), "c", "k", v, sizeof v), 1u);
    EXPECT_STREQ(v, "");
    EXPECT_NE(access(path_.c_str(), F_OK), 0);  // reading creates nothing
    EXPECT_EQ(MIniWriteSingleS(path_.c_str(), nullptr, "top", "1"), MOK);
    EXPECT_EQ(MIniWriteSingleS(path_.c_str(), "c", "k", "v"), MOK);
    EXPECT_EQ(Get(), "top=1\n\n[c]\nk=v\n");
    EXPECT_EQ(MIniReadSingleS(path_.c_str(), "C", "K", v, sizeof v), MOK);
    EXPECT_STREQ(v, "v");

    Put("\xEF\xBB\xBFk=v");  // no final newline: any rewrite would add one
    MHIni ini = MIniStartS(path_.c_str());
    ASSERT_NE(ini, nullptr);
    EXPECT_EQ(MIniWriteS(ini, "", "k", "v"), MOK);  // same value: no change
    EXPECT_EQ(MIniEndS(ini), MOK);
    EXPECT_EQ(Get(), "\xEF\xBB\xBFk=v");
    EXPECT_EQ(MIniWriteSingleS(path_.c_str(), "", "k", "w"), MOK);
    EXPECT_EQ(Get(), "\xEF\xBB\xBFk=w\n");

    EXPECT_EQ(MIniStartS(dir_.c_str()), nullptr);  // a directory is not readable
    EXPECT_EQ(MIniStartS(nullptr), nullptr);
    EXPECT_EQ(MIniWriteSingleS((dir_ + "/no/such/dir.ini").c_str(), "c", "k", "v"),
              MERR_WRITE_FAILED);
}

}  // namespace
