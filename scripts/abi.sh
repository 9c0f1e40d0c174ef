#!/usr/bin/env bash
# Holds the ABI of the shared library: what the last release's programs were linked with must go on working under the same
# SOVERSION. Where no release is tagged yet, scripts/libmuxora.abi stands for it: all that the library exports, with its
# types, as libabigail tells it.
#
#   scripts/abi.sh            this tree against the last tag, or against scripts/libmuxora.abi (libabigail's abidiff)
#   scripts/abi.sh --update   writes scripts/libmuxora.abi anew
#   scripts/abi.sh OLD NEW    two libraries with debug information, or descriptions
set -euo pipefail
cd "$(dirname "$0")/.."
description=scripts/libmuxora.abi

# The name that programs ask for.
soname() {
    if [[ $1 == *.abi ]]; then
        sed -n "s/.*soname='\([^']*\)'.*/\1/p" "$1" | head -n 1
    else
        objdump -p "$1" | awk '/SONAME/ { print $2 }'
    fi
}

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
        old=$(soname "$1")
        new=$(soname "$2")
        if [ "$old" = "$new" ]; then
            echo "abi.sh: the ABI changed under the same name, $new: raise the major version"
            exit 1
        fi
        echo "abi.sh: $old became $new, as the change above asks for"
    fi
}

# The library alone, with what libabigail reads types from.
library() {
    cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS="-g -O0" -DMUXORA_PCH=ON -DMUXORA_BUILD_TOOLS=OFF \
        -DMUXORA_BUILD_OVX_READER=OFF -DMUXORA_BUILD_TESTS=OFF -DMUXORA_BUILD_BENCH=OFF -DMUXORA_BUILD_EXAMPLES=OFF >/dev/null
    cmake --build "$2" -j "$(nproc)" --target muxora >/dev/null
    cp "$2"/src/libmuxora.so.*.*.* "$2/libmuxora.so"
}

# What the public headers declare; where it was built, and what it is linked with, is no part of it.
describe() {
    abidw --suppressions scripts/libmuxora.abignore --headers-dir include --drop-private-types --exported-interfaces-only \
        --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names --no-architecture --no-elf-needed \
        --type-id-style hash --out-file "$2" "$1"
}

case $#-${1:-} in
2-*)
    compare "$1" "$2"
    echo "abi.sh: compatible"
    exit 0
    ;;
1---update)
    library . build/abi/new
    describe build/abi/new/libmuxora.so "$description"
    echo "abi.sh: $description: $(grep -c '<elf-symbol ' "$description") symbols"
    exit 0
    ;;
esac

library . build/abi/new
describe build/abi/new/libmuxora.so build/abi/new.abi
tag=$(git describe --tags --abbrev=0 --match 'v*' 2>/dev/null || true)
if [ -n "$tag" ]; then
    rm -rf build/abi/source
    mkdir -p build/abi/source
    git archive "$tag" | tar -x -C build/abi/source
    library build/abi/source build/abi/old
    describe build/abi/old/libmuxora.so build/abi/old.abi
    compare build/abi/old.abi build/abi/new.abi
else
    compare "$description" build/abi/new.abi
fi
echo "abi.sh: compatible with ${tag:-$description}: $(grep -c '<elf-symbol ' build/abi/new.abi) symbols"
