// Which families of vector kernels this build has.
#pragma once

#if defined(__GNUC__) && defined(__x86_64__)
#define MUXORA_X86_KERNELS 1
#define MUXORA_TARGET(features) __attribute__((target(features)))
#elif defined(__GNUC__) && defined(__aarch64__)
#define MUXORA_ARM_KERNELS 1
#define MUXORA_TARGET(features) __attribute__((target(features)))
#endif
