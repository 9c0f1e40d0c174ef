#!/usr/bin/env bash
# Holds the ABI of the shared library: what the last tag's programs were linked with must go on working under the same
# SOVERSION. Where there is no tag yet there is nothing to compare with, and that is what it says.
#
#   scripts/abi.sh            this tree against the last tag (libabigail's abidiff)
#   scripts/abi.sh OLD NEW    two libraries with debug information
set -euo pipefail
cd "$(dirname "$0")/.."

compare() {
    # Bit 4 (value 4): the ABI changed; bit 8: incompatibly.
    local code=0
    abidiff --no-added-syms "$1" "$2" || code=$?
    if [ $((code & 3)) -ne 0 ]; then
        echo "abi.sh: abidiff failed"
        exit 1
    fi
    if [ $((code & 12)) -ne 0 ]; then
        local old new
        old=$(objdump -p "$1" | awk '/SONAME/ { print $2 }')
        new=$(objdump -p "$2" | awk '/SONAME/ { print $2 }')
        if [ "$old" = "$new" ]; then
            echo "abi.sh: the ABI changed under the same name, $new: raise the major version"
            exit 1
        fi
        echo "abi.sh: $old became $new, as the change above asks for"
    fi
}

if [ $# -eq 2 ]; then
    compare "$1" "$2"
    echo "abi.sh: compatible"
    exit 0
fi

tag=$(git describe --tags --abbrev=0 --match 'v*' 2>/dev/null || true)
if [ -z "$tag" ]; then
    echo "abi.sh: no release is tagged yet (v*): nothing to hold. The first tag begins it."
    exit 0
fi
# The library alone, with what abidiff reads types from.
library() {
    cmake -S "$1" -B "$2" -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS="-g -O0" -DMUXORA_BUILD_TOOLS=OFF -DMUXORA_BUILD_TESTS=OFF \
        -DMUXORA_BUILD_BENCH=OFF -DMUXORA_BUILD_EXAMPLES=OFF >/dev/null
    cmake --build "$2" -j "$(nproc)" --target muxora >/dev/null
}
rm -rf build/abi/source
mkdir -p build/abi/source
git archive "$tag" | tar -x -C build/abi/source
library build/abi/source build/abi/old
library . build/abi/new
compare "$(echo build/abi/old/src/libmuxora.so.*.*.*)" "$(echo build/abi/new/src/libmuxora.so.*.*.*)"
echo "abi.sh: compatible with $tag"
