#pragma once

/**
 * Marks what the library makes public: exported while the library itself is built (MUXORA_BUILDING), imported wherever
 * else the header is included, and neither where the library is linked statically (MUXORA_STATIC_DEFINE, which the
 * CMake package and the pkg-config file of a static build define).
 */
#if defined(MUXORA_STATIC_DEFINE)
#define BASALT_API
#elif defined(_WIN32) && defined(MUXORA_BUILDING)
#define BASALT_API __declspec(dllexport)
#elif defined(_WIN32)
#define BASALT_API __declspec(dllimport)
#elif defined(__GNUC__)
#define BASALT_API __attribute__((visibility("default")))
#else
#define BASALT_API
#endif
