// What the scrivo tool's tests share: the binary next to the test program
// (<build>/bin), a fresh folder per test, and a run of the tool in that
// folder with its exit code and both output streams. A run is killed after
// its time limit, so a hang fails instead of stalling the suite, and no run
// may leave a temporary ".part" file behind.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace tooltest {

namespace fs = std::filesystem;

struct Result {
    int code = -1;
    std::string out, err;
};

inline std::string Slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void Spit(const fs::path& p, const std::string& bytes) {
    std::ofstream(p, std::ios::binary) << bytes;
}

class ToolTest : public ::testing::Test {
  protected:
    void SetUp() override {
        tool_ = fs::read_symlink("/proc/self/exe").parent_path() / "scrivo";
        if (!fs::exists(tool_)) GTEST_SKIP() << "no scrivo binary next to the tests";
        const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = fs::temp_directory_path() / ("scrivo_" + std::string(info->test_suite_name()) + "_" +
                                            std::to_string(getpid()) + "_" + info->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override {
        if (!dir_.empty()) fs::remove_all(dir_);
    }

    Result Scrivo(const std::string& args, int seconds = 60) {
        const fs::path out = dir_ / "stdout.bin", err = dir_ / "stderr.txt";
        const std::string command = "cd '" + dir_.string() + "' && timeout " +
                                    std::to_string(seconds) + " '" + tool_.string() + "' " + args +
                                    " >'" + out.string() + "' 2>'" + err.string() + "'";
        const int status = std::system(command.c_str());
        Result r{WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(out), Slurp(err)};
        fs::remove(out);
        fs::remove(err);
        for (const auto& e : fs::recursive_directory_iterator(dir_))
            EXPECT_NE(e.path().extension(), ".part") << "left behind: " << e.path();
        return r;
    }

    fs::path tool_, dir_;
};

}  // namespace tooltest
