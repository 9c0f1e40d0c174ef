#!/usr/bin/env bash
# A big-endian machine is refused when CMake configures, with a word that says so: big_endian_test.sh SOURCE WORK. clang
# stands in for its compiler; the same file for this byte order is taken.
set -eu
source=$1
work=$2
rm -rf "$work"
mkdir -p "$work"

configure() { # PROCESSOR
    cat >"$work/$1.cmake" <<TOOLCHAIN
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR $1)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET $1-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET $1-linux-gnu)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
TOOLCHAIN
    cmake -S "$source" -B "$work/$1" -DCMAKE_TOOLCHAIN_FILE="$work/$1.cmake" -DMUXORA_BUILD_TOOLS=OFF -DMUXORA_BUILD_OVX_READER=OFF \
        -DMUXORA_BUILD_TESTS=OFF -DMUXORA_BUILD_BENCH=OFF -DMUXORA_BUILD_GATEWAY=OFF >"$work/$1.log" 2>&1
}

if configure s390x; then
    echo "s390x was configured" >&2
    exit 1
fi
# CMake breaks its lines.
told=$(tr -s ' \n' ' ' <"$work/s390x.log" | grep -o 'Muxora supports little-endian machines only, and s390x is big-endian\.') || {
    cat "$work/s390x.log" >&2
    exit 1
}
echo "$told"
configure x86_64 || { cat "$work/x86_64.log" >&2; exit 1; }
