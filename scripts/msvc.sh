#!/usr/bin/env bash
# What Microsoft's compiler and clang-cl would say, as far as it can be told here: clang reads the library and its public
# headers as for x86_64-pc-windows-msvc, with __GNUC__ unknown and _MSC_VER known, so that each construct of GNU's must
# have a twin. The standard library and the Win32 headers are mingw-w64's, read ahead of our lines, in their own dialect.
# Not told: Microsoft's own standard library, its linker and the DLL, and those warnings of /W4 that clang lacks.
set -euo pipefail
cd "$(dirname "$0")/.."
work=build/msvc
mkdir -p "$work"
clang=(clang++ --target=x86_64-pc-windows-msvc -fgnuc-version=12.2)
system=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-libgcc-file-name)")/include/c++
headers=(-nostdinc++ -isystem "$system" -isystem "$system/x86_64-w64-mingw32" -isystem "$(clang++ -print-resource-dir)/include"
    -isystem /usr/x86_64-w64-mingw32/include)

# All that our sources include of the system's, and of it only what a Windows build reads.
{
    printf '%s\n' '#define __STRICT_ANSI__ 1' '#define __MINGW32__ 1' '#define __MINGW64__ 1' '#undef _MSC_VER' '#include <_mingw.h>' \
        '#define __MINGW_IMPORT extern __attribute__((__dllimport__))'
    grep -rhoE '^ *# *include *<[^>]+>' src include tools/ovx_reader | tr -d ' ' | sort -u |
        grep -vE '<(unistd|sys/.*|fcntl|pthread|dlfcn|cpuid|arm_.*|.*intrin|openssl/.*|zlib|bcrypt|windows|Muxora.*|basalt/.*)(\.h)?>' |
        sed 's/include/include /'
    printf '%s\n' '#include <windows.h>' '#include <bcrypt.h>' \
        '#undef __GNUC__' '#undef __GNUC_MINOR__' '#undef __GNUC_PATCHLEVEL__' '#undef __MINGW32__' '#undef __MINGW64__' \
        '#define _MSC_VER 1930' \
        '#define __attribute__(list) an_attribute_of_gnu_without_a_twin' \
        "#pragma GCC poison $(printf '__builtin_%s ' cpu_supports expect memcpy clz clzll ctz ctzll bswap16 bswap32 bswap64 popcount unreachable prefetch)"
} >"$work/system.h"
mkdir -p "$work/generated"
cp -r build/release/src/api/include/. "$work/generated/"

check() { # STANDARD SOURCES...
    local standard=$1 pch=$work/system-${1//+/x}.pch
    shift
    "${clang[@]}" "-std=$standard" "${headers[@]}" -Wno-everything -x c++-header "$work/system.h" -o "$pch"
    printf '%s\n' "$@" | xargs -P "$(nproc)" -n 1 "${clang[@]}" "-std=$standard" "${headers[@]}" -include-pch "$pch" -fsyntax-only \
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wsign-compare -Wunused -Werror \
        -DMUXORA_BUILDING -Iinclude -Isrc -Itools -I"$work/generated"
    echo "msvc.sh: $# sources as $standard"
}

mapfile -t sources < <(git ls-files 'src/*.cpp' 'tools/ovx_reader/*.cpp' ':!*_posix.cpp' ':!*_openssl.cpp' ':!*/data_check.cpp')
check c++20 "${sources[@]}"
# Each public header by itself, as a caller's compiler reads it.
mkdir -p "$work/headers"
users=()
while read -r header; do
    user=$work/headers/$(tr '/' '-' <<<"${header#include/}").cpp
    printf '#include "%s"\n' "${header#include/}" >"$user"
    users+=("$user")
done < <(git ls-files 'include/*.h')
check c++17 "${users[@]}"
