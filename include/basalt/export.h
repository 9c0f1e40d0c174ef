#pragma once

/** Marks what the shared library makes public. */
#if defined(_WIN32)
#define BASALT_API __declspec(dllexport)
#elif defined(__GNUC__)
#define BASALT_API __attribute__((visibility("default")))
#else
#define BASALT_API
#endif
