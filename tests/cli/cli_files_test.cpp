// The scrivo tool against files that are not ours to replace and inputs that
// are not photographs: what each kind of output target gets, special files
// as inputs, JSON for names that are not UTF-8, the decoder's reasons, the
// memory budget and output folders that cannot be written. (The fuller
// bad-input table, interrupts and full disks included, is
// tools/bad_input_campaign.py, which CTest runs in its quick mode.)
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cli/tool_test.h"
#include "scrivo/codec.h"
#include "support/library_jpeg.h"

namespace fs = std::filesystem;

namespace {

using namespace tooltest;

bool IsJpeg(const std::string& b) {
    return b.size() > 4 && b.compare(0, 2, "\xFF\xD8") == 0 &&
           b.compare(b.size() - 2, 2, "\xFF\xD9") == 0;
}

class ScrivoFiles : public ToolTest {
  protected:
    void SetUp() override {
        ToolTest::SetUp();
        if (IsSkipped()) return;
        fs::create_directories(dir_ / "in");
        photo_ = MakeJpeg(160, 120);
        Spit("in/a.jpg", photo_);
    }
    void Spit(const std::string& name, const std::string& bytes) {
        tooltest::Spit(dir_ / name, bytes);
    }
    Result Scrivo(const std::string& args) { return ToolTest::Scrivo(args, 20); }

    static std::string MakeJpeg(int w, int h) {
        std::vector<uint8_t> rgba(static_cast<size_t>(w) * h * 4, 40);
        for (size_t i = 0; i < rgba.size(); i += 4) rgba[i] = static_cast<uint8_t>(i / 4 % w);
        return testsupport::LibraryJpeg(rgba.data(), w, h, w * 4);
    }

    std::string photo_;
};

TEST_F(ScrivoFiles, OutputTargetsAreWrittenAsWhatTheyAre) {
    const Result piped = Scrivo("scan in/a.jpg --enhance none -o -");
    EXPECT_EQ(piped.code, 0) << piped.err;
    EXPECT_TRUE(IsJpeg(piped.out));  // the page alone: the result line is on stderr
    EXPECT_NE(piped.err.find("in/a.jpg -> -"), std::string::npos) << piped.err;
    const Result named = Scrivo("scan in/a.jpg --enhance none -o /dev/stdout");
    EXPECT_TRUE(IsJpeg(named.out)) << named.err;  // the file fd 1 is, not the device link
    EXPECT_TRUE(fs::is_symlink("/dev/stdout"));

    fs::create_symlink("real.jpg", dir_ / "link.jpg");
    fs::create_symlink("/dev/null", dir_ / "null.jpg");
    for (const char* target : {"link.jpg", "null.jpg"})
        EXPECT_EQ(Scrivo(std::string("scan in/a.jpg --enhance none -o ") + target).code, 0);
    EXPECT_TRUE(fs::is_symlink(dir_ / "link.jpg"));
    EXPECT_TRUE(IsJpeg(Slurp(dir_ / "real.jpg")));
    EXPECT_TRUE(fs::is_symlink(dir_ / "null.jpg"));
    EXPECT_TRUE(fs::is_character_file("/dev/null"));

    Spit("in/b.jpg", photo_);
    for (const char* target : {"pages.jpg", "-", "real.jpg"}) {
        const Result r = Scrivo(std::string("scan in/a.jpg in/b.jpg -o ") + target);
        EXPECT_EQ(r.code, 2) << target;
        EXPECT_NE(r.err.find("-o must name a folder"), std::string::npos) << r.err;
    }
    EXPECT_FALSE(fs::exists(dir_ / "pages.jpg"));
}

TEST_F(ScrivoFiles, SpecialInputsAreRefusedOrNamed) {
    ASSERT_EQ(mkfifo((dir_ / "in/pipe.jpg").c_str(), 0600), 0);
    fs::create_directory(dir_ / "in/folder.jpg");
    fs::create_symlink("gone.jpg", dir_ / "in/broken.jpg");
    const Result fifo = Scrivo("scan in/pipe.jpg");  // used to wait for a writer for ever
    EXPECT_EQ(fifo.code, 1);
    EXPECT_NE(fifo.err.find("in/pipe.jpg: not a regular file (a FIFO)"), std::string::npos)
        << fifo.err;
    const Result batch = Scrivo("scan in -o out --enhance none");
    EXPECT_EQ(batch.code, 0) << batch.err;
    for (const char* line : {"in/broken.jpg: skipped: a broken link",
                             "in/folder.jpg: skipped: a folder", "in/pipe.jpg: skipped: a FIFO"})
        EXPECT_NE(batch.err.find(line), std::string::npos) << batch.err;
    EXPECT_NE(batch.out.find("1 ok, 0 failed, 3 skipped"), std::string::npos) << batch.out;
}

TEST_F(ScrivoFiles, JsonNamesTheFileEvenWhenItIsNotUtf8) {
    Spit("in/caf\xE9.jpg", photo_);
    const Result r = Scrivo("detect --json 'in/caf\xE9.jpg'");
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("\"file\":\"in/caf\xEF\xBF\xBD.jpg\""), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\"file_bytes\":\"in/caf\\\\xE9.jpg\""), std::string::npos) << r.out;
}

TEST_F(ScrivoFiles, DecodeFailuresSayWhy) {
    std::string bomb = photo_;
    const size_t sof = bomb.find("\xFF\xC0");
    ASSERT_NE(sof, std::string::npos);
    bomb.replace(sof + 5, 4, "\xEA\x60\xEA\x60");  // 60000 x 60000
    Spit("in/bomb.jpg", bomb);
    Spit("in/noend.jpg", photo_.substr(0, photo_.size() - 2));
    Spit("in/cut.jpg", photo_.substr(0, photo_.size() - 60));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"bomb", "too large (60000x60000"}, {"cut", "truncated"}};
    for (const auto& [name, reason] : cases) {
        const Result r = Scrivo("scan in/" + name + ".jpg -o out.jpg");
        EXPECT_EQ(r.code, 1) << name;
        EXPECT_NE(r.err.find("in/" + name + ".jpg: " + reason), std::string::npos) << r.err;
    }
    const Result noEnd = Scrivo("scan in/noend.jpg --enhance none -o out.jpg");
    EXPECT_EQ(noEnd.code, 0) << noEnd.err;
    EXPECT_NE(noEnd.err.find("in/noend.jpg: warning: no end marker"), std::string::npos);
    EXPECT_TRUE(IsJpeg(Slurp(dir_ / "out.jpg")));
}

TEST_F(ScrivoFiles, MemoryBudgetAndUnwritableFolders) {
    const Result tight = Scrivo("scan in/a.jpg --memory 1M -o out.jpg");
    EXPECT_EQ(tight.code, 1);
    EXPECT_NE(tight.err.find("more than the memory budget of 1 MB"), std::string::npos)
        << tight.err;
    EXPECT_EQ(Scrivo("scan in/a.jpg --memory 12X").code, 2);
    EXPECT_EQ(Scrivo("scan in/a.jpg --memory 1G --enhance none -o out.jpg").code, 0);

    Spit("file", "x");  // a folder cannot be made below a file
    const Result batch = Scrivo("scan in -o file/pages");
    EXPECT_EQ(batch.code, 1);
    EXPECT_NE(batch.err.find("cannot create the folder file/pages"), std::string::npos)
        << batch.err;
    const Result single = Scrivo("scan in/a.jpg -o file/pages/p.jpg");
    EXPECT_EQ(single.code, 1);
    EXPECT_NE(single.err.find("cannot create the folder file/pages"), std::string::npos)
        << single.err;
}

}  // namespace
