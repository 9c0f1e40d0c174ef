#include "codec/kernels/start_code_kernels.h"

namespace Orvane::Muxora::Kernels {

namespace {

bool Always() {
    return true;
}

#if defined(MUXORA_X86_KERNELS)
bool HasAvx512() {
    return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
           __builtin_cpu_supports("avx512vl") != 0;
}

bool HasAvx2() {
    return __builtin_cpu_supports("avx2") != 0;
}
#endif

constexpr StartCodeKernel kKernels[] = {
#if defined(MUXORA_X86_KERNELS)
    {"avx512bw", HasAvx512, FindStartCodeAvx512, CopyToStartCodeAvx512},
    {"avx2", HasAvx2, FindStartCodeAvx2, CopyToStartCodeAvx2},
    {"sse2", Always, FindStartCodeSse2, CopyToStartCodeSse2},
#elif defined(MUXORA_ARM_KERNELS)
    {"neon", Always, FindStartCodeNeon, CopyToStartCodeNeon},
#endif
    {"scalar", Always, FindStartCodeScalar, CopyToStartCodeScalar},
};

}  // namespace

std::span<const StartCodeKernel> StartCodeKernels() {
    return kKernels;
}

}  // namespace Orvane::Muxora::Kernels
