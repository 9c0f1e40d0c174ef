#!/usr/bin/env bash
# The library by itself, static, as a program of C links it: static_test.sh SOURCE WORK
set -eu
source=$1
work=$2
here=$(cd "$(dirname "$0")" && pwd)
prefix=$work/prefix
rm -rf "$work"
mkdir -p "$work/media" "$work/media2"

echo "== configured with nothing asked for by name but the parts that are not wanted here"
cmake -S "$source" -B "$work/build" -DBUILD_SHARED_LIBS=OFF -DMUXORA_BUILD_EXAMPLES=OFF -DMUXORA_BUILD_TOOLS=OFF \
    -DMUXORA_BUILD_TESTS=OFF -DMUXORA_BUILD_BENCH=OFF -DMUXORA_BUILD_GATEWAY=OFF \
    -DCMAKE_CXX_FLAGS_RELEASE=-DNDEBUG -DCMAKE_INSTALL_PREFIX="$prefix"
grep -q '^CMAKE_BUILD_TYPE:STRING=Release$' "$work/build/CMakeCache.txt"
cmake --build "$work/build" -j2 >/dev/null
cmake --install "$work/build" >/dev/null
[ -z "$(find "$prefix" -name '*.so*')" ]

echo "== find_package in a project of C"
export CCACHE_DISABLE=1
cmake -S "$here/c_project" -B "$work/project" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER=/nowhere >/dev/null
cmake --build "$work/project" >/dev/null
"$work/project/c_program" "$work/media"

echo "== pkg-config --static, from the C compiler's command line"
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name muxora.pc)")
# shellcheck disable=SC2046
cc -std=c99 -pedantic -Wall -Wextra -Werror "$here/../../examples/write_files.c" -o "$work/from_pkg_config" \
    $(pkg-config --static --cflags --libs muxora)
"$work/from_pkg_config" "$work/media2"
cmp "$work/media/tone.wav" "$work/media2/tone.wav"
# OVX states the wall clock, so its bytes differ from second to second.
[ "$(stat -c %s "$work/media/frames.ovx")" -eq "$(stat -c %s "$work/media2/frames.ovx")" ]

echo "== inside another project: the library, and nothing else is built or installed"
cat >"$work/parent.txt" <<'LISTS'
cmake_minimum_required(VERSION 3.16)
project(Parent LANGUAGES C CXX)
add_subdirectory(${MUXORA_SOURCE} muxora)
foreach(target muxora_tool example_write_files muxora_bench)
    if(TARGET ${target})
        message(FATAL_ERROR "${target} is built inside another project")
    endif()
endforeach()
get_target_property(type muxora TYPE)
message(STATUS "muxora is a ${type}, build type '${CMAKE_BUILD_TYPE}'")
LISTS
mkdir -p "$work/parent"
mv "$work/parent.txt" "$work/parent/CMakeLists.txt"
cmake -S "$work/parent" -B "$work/parent/build" -DMUXORA_SOURCE="$source" | tee "$work/parent.log"
grep -q "muxora is a STATIC_LIBRARY, build type ''" "$work/parent.log"
[ ! -e "$work/parent/build/muxora/muxora.pc" ]

echo "== a part that is asked for by name and lacks its packages is an error, and says which"
if cmake -S "$source" -B "$work/refused" -DMUXORA_BUILD_BENCH=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON \
    -DMUXORA_BUILD_TOOLS=OFF -DMUXORA_BUILD_TESTS=OFF >"$work/refused.log" 2>&1; then
    echo "configured all the same"
    exit 1
fi
grep -q "found: *benchmark" <(tr '\n' ' ' <"$work/refused.log") # CMake wraps the message
cmake -S "$source" -B "$work/left_out" -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DMUXORA_BUILD_TESTS=OFF \
    -DMUXORA_BUILD_BENCH=OFF >"$work/left_out.log"
grep -q "the muxora tool: not found: CLI11" "$work/left_out.log"
if cmake -S "$source" -B "$work/big_endian" -DMUXORA_BIG_ENDIAN=ON >"$work/big_endian.log" 2>&1; then
    echo "configured for a big-endian machine"
    exit 1
fi
grep -q "little-endian *machines *only" <(tr '\n' ' ' <"$work/big_endian.log")
echo "== the static library works"
