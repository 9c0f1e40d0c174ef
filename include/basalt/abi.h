/*
 * Strings, maps and functions of the C++ standard library cross the component interface, so caller and library must
 * have the same one, in the same mode. What differs would crash at run time; this makes it fail when the program is
 * linked, by a reference to a function whose name says what is missing: the library has the one that fits itself.
 *
 * Compilers that fit each other: g++ and clang++ on libstdc++ from 5 on with the default string layout and without
 * _GLIBCXX_DEBUG; clang++ on libc++ of one ABI version; Visual C++ of one _ITERATOR_DEBUG_LEVEL. The C interface
 * (MuxoraAPI.h, MuxoraExt.h) asks for none of this.
 */
#pragma once

#include <cstddef>

#include "basalt/export.h"

#define MUXORA_ABI_JOIN_TEXT(text, number) text##number
#define MUXORA_ABI_JOIN(text, number) MUXORA_ABI_JOIN_TEXT(text, number)

#if defined(_LIBCPP_VERSION)
#define MUXORA_ABI_CHECK MUXORA_ABI_JOIN(muxora_must_be_built_with_libcxx_of_abi_version_, _LIBCPP_ABI_VERSION)
#elif defined(_GLIBCXX_DEBUG)
#define MUXORA_ABI_CHECK muxora_must_be_built_with_GLIBCXX_DEBUG_as_well
#elif defined(_GLIBCXX_USE_CXX11_ABI) && !_GLIBCXX_USE_CXX11_ABI
#define MUXORA_ABI_CHECK muxora_must_be_built_with_GLIBCXX_USE_CXX11_ABI_0_as_well
#elif defined(__GLIBCXX__)
#define MUXORA_ABI_CHECK muxora_must_be_built_with_libstdcxx_without_GLIBCXX_DEBUG
#elif defined(_MSC_VER) && defined(_ITERATOR_DEBUG_LEVEL)
#define MUXORA_ABI_CHECK MUXORA_ABI_JOIN(muxora_must_be_built_with_ITERATOR_DEBUG_LEVEL_, _ITERATOR_DEBUG_LEVEL)
#else
#define MUXORA_ABI_CHECK muxora_must_be_built_with_the_same_standard_library
#endif

extern "C" BASALT_API void MUXORA_ABI_CHECK() noexcept;

namespace Basalt {

/** Nothing to use: it makes each unit that includes this header ask for the function. */
#if defined(__GNUC__)
[[gnu::used]]
#endif
inline void (*const kAbiCheck)() noexcept = &MUXORA_ABI_CHECK;

}  // namespace Basalt
