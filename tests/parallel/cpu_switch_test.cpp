// Processor switching on a fake per-processor tree in a temporary directory.
// cpu0 has no "online" file, as on most real machines; /dev/full stands in
// for a state file that reads but refuses writes.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "parallel/engine_internal.h"
#include "scrivo/parallel.h"

namespace fs = std::filesystem;
namespace sp = scrivo::parallel;

namespace {

struct CpuSwitch : testing::Test {
    void SetUp() override {
        ASSERT_NE(mkdtemp(root.data()), nullptr);
        for (int cpu : {0, 1, 2, 3}) fs::create_directories(root + "/cpu" + std::to_string(cpu));
        for (int cpu : {1, 2, 3}) Set(cpu, cpu == 2 ? "1\n" : "0\n");
        ASSERT_NE(engine = mcvParallelInit(nullptr, 1), nullptr);
    }
    void TearDown() override {
        mcvParallelUninit(engine);
        fs::remove_all(root);
    }
    std::string File(int cpu) const { return root + "/cpu" + std::to_string(cpu) + "/online"; }
    void Set(int cpu, const std::string& text) {
        fs::remove(File(cpu));
        std::ofstream(File(cpu)) << text;
    }
    // The state files of cpu0..cpu3; "-" for a missing one, "full" for one
    // linked to /dev/full.
    std::string States() const {
        std::string out;
        for (int cpu : {0, 1, 2, 3}) {
            std::ifstream in(File(cpu));
            out += fs::is_symlink(File(cpu)) ? "full"
                   : in                      ? std::string(std::istreambuf_iterator<char>(in), {})
                                             : "-";
            out += "|";
        }
        return out;
    }
    int Fire() { return sp::TryFireCpuAt(engine, root.c_str()); }
    int Restore() { return sp::TryRestoreCpuAt(engine, root.c_str()); }
    std::string root = "/tmp/scrivo-cpu-XXXXXX";
    MCVHandle engine = nullptr;
};

TEST_F(CpuSwitch, SwitchesTheMissingProcessorsOnAndBack) {
    sp::SetProcessorCountsForTesting(engine, 4, 2);
    EXPECT_EQ(Fire(), 0);
    EXPECT_EQ(States(), "-|1|1\n|1|");
    EXPECT_EQ(Restore(), 0);
    EXPECT_EQ(States(), "-|0|1|0|");  // cpu0 stays without a file
    EXPECT_EQ(Restore(), 1);
    // Only the difference is made up, in processor order.
    sp::SetProcessorCountsForTesting(engine, 4, 3);
    EXPECT_EQ(Fire(), 0);
    EXPECT_EQ(States(), "-|1|1|0|");
    EXPECT_EQ(Restore(), 0);
    // Everything configured is online: nothing to do, nothing to restore.
    sp::SetProcessorCountsForTesting(engine, 4, 4);
    Set(2, "1\n");
    EXPECT_EQ(Fire(), 1);
    EXPECT_EQ(Restore(), 1);
    EXPECT_EQ(States(), "-|0|1\n|0|");
    EXPECT_EQ(sp::TryFireCpuAt(nullptr, root.c_str()), -1);
    EXPECT_EQ(sp::TryRestoreCpuAt(nullptr, root.c_str()), -1);
}

TEST_F(CpuSwitch, GivesUpOnUnreadableStatesAndStopsAtAFailedWrite) {
    sp::SetProcessorCountsForTesting(engine, 4, 2);
    // An unreadable state anywhere: nothing is written, nothing recorded.
    Set(2, "");
    EXPECT_EQ(Fire(), 1);
    EXPECT_EQ(Restore(), 1);
    EXPECT_EQ(States(), "-|0\n||0\n|");
    // cpu1 refuses the switch: the attempt stops there, so does restoring.
    Set(2, "1\n");
    fs::remove(File(1));
    fs::create_symlink("/dev/full", File(1));
    EXPECT_EQ(Fire(), 1);
    EXPECT_EQ(Restore(), 1);
    EXPECT_EQ(States(), "-|full|1\n|0\n|");
    // cpu3 refuses: cpu1 stays on, and restoring writes cpu1 and cpu2 only.
    Set(1, "0\n");
    fs::remove(File(3));
    fs::create_symlink("/dev/full", File(3));
    EXPECT_EQ(Fire(), 0);
    EXPECT_EQ(States(), "-|1|1\n|full|");
    EXPECT_EQ(Restore(), 0);
    EXPECT_EQ(States(), "-|0|1|full|");
}

}  // namespace
