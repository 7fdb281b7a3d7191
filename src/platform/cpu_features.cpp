// Processor features and the reference-kernel switch, read once per process.
//
// Read at first use rather than by a load-time resolver (ifunc), which would
// run before a sanitizer's runtime is ready; a function-local static makes
// the first use thread-safe.
#include "platform/cpu_features.h"

#include <cstdlib>
#include <cstring>

namespace scrivo::platform {

namespace {

CpuFeatures Detect() {
    CpuFeatures f{};
#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__)
    __builtin_cpu_init();
    f.avx2 = __builtin_cpu_supports("avx2");
    f.avx512bw = f.avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
#endif
    f.referenceOnly = ReferenceKernelsAsked(std::getenv("SCRIVO_REFERENCE_KERNELS"));
    return f;
}

}  // namespace

const CpuFeatures& Cpu() {
    static const CpuFeatures features = Detect();
    return features;
}

bool ReferenceKernelsAsked(const char* value) {
    return value != nullptr && std::strcmp(value, "1") == 0;
}

}  // namespace scrivo::platform
