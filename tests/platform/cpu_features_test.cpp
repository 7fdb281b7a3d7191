// The reference-kernel switch: its parse, and that this run honours it (the
// test script runs the suite once more with SCRIVO_REFERENCE_KERNELS=1).
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/cpu_features.h"

namespace sp = scrivo::platform;

TEST(CpuFeatures, ReferenceSwitchIsExactlyOneAndHonoured) {
    EXPECT_TRUE(sp::ReferenceKernelsAsked("1"));
    for (const char* off : {static_cast<const char*>(nullptr), "", "0", "10", "yes", " 1"})
        EXPECT_FALSE(sp::ReferenceKernelsAsked(off)) << (off ? off : "unset");
    EXPECT_EQ(sp::Cpu().referenceOnly,
              sp::ReferenceKernelsAsked(std::getenv("SCRIVO_REFERENCE_KERNELS")));
    EXPECT_TRUE(sp::Cpu().avx2 || !sp::Cpu().avx512bw);
}
