// Which instruction-set extensions the fast kernels may use in this process.
//
// Every kernel with a run-time choice asks here, so that one switch covers
// them all: with SCRIVO_REFERENCE_KERNELS=1 in the environment, automatic
// choices take the plain reference kernels for the whole run (a way to check
// that the fast kernels change no output byte, or to rule them out when
// chasing a fault). Explicit kernel choices still get what they ask for
// when the processor has it.
#ifndef SCRIVO_PLATFORM_CPU_FEATURES_H
#define SCRIVO_PLATFORM_CPU_FEATURES_H

namespace scrivo::platform {

struct CpuFeatures {
    bool avx2;           // the processor and the system support AVX2
    bool avx512bw;       // ... and AVX-512 F and BW as well
    bool referenceOnly;  // automatic choices take the reference kernels
};

// Decided once per process, at first use.
const CpuFeatures& Cpu();

// Whether a value of SCRIVO_REFERENCE_KERNELS asks for the reference
// kernels: exactly "1" does; null (unset) and anything else do not.
bool ReferenceKernelsAsked(const char* value);

}  // namespace scrivo::platform

#endif  // SCRIVO_PLATFORM_CPU_FEATURES_H
