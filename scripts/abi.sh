#!/usr/bin/env bash
# Holds the ABI of the shared library: programs that were linked with a release, and with what abi/libmuxora.abi says, must go
# on working under the same SOVERSION.
#
#   scripts/abi.sh            this tree against abi/libmuxora.abi, and against the last tag (v*) where there is one
#   scripts/abi.sh --update   writes abi/libmuxora.abi anew, for a change that is meant
#   scripts/abi.sh OLD NEW    two libraries with debug information
set -euo pipefail
cd "$(dirname "$0")/.."

# Of a library, or of what libabigail wrote down of one.
soname() {
    case $1 in
    *.abi) sed -n "s/^<abi-corpus.* soname='\([^']*\)'.*/\1/p" "$1" ;;
    *) objdump -p "$1" | awk '/SONAME/ { print $2 }' ;;
    esac
}

compare() { # OLD NEW [OPTIONS of abidiff...]
    # Bit 4 (value 4): the ABI changed; bit 8: incompatibly.
    local code=0
    abidiff --no-added-syms "${@:3}" "$1" "$2" || code=$?
    if [ $((code & 3)) -ne 0 ]; then
        echo "abi.sh: abidiff failed"
        exit 1
    fi
    if [ $((code & 12)) -ne 0 ]; then
        local old new
        old=$(soname "$1")
        new=$(soname "$2")
        if [ "$old" = "$new" ]; then
            echo "abi.sh: the ABI changed under the same name, $new: raise the major version (docs/platforms.md)"
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

# The library alone, with what abidiff reads types from.
library() {
    cmake -S "$1" -B "$2" -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS="-g -O0" -DMUXORA_BUILD_TOOLS=OFF -DMUXORA_BUILD_OVX_READER=OFF -DMUXORA_BUILD_TESTS=OFF \
        -DMUXORA_BUILD_BENCH=OFF -DMUXORA_BUILD_EXAMPLES=OFF >/dev/null
    cmake --build "$2" -j "$(nproc)" --target muxora >/dev/null
}

library . build/abi/new
new=$(echo build/abi/new/src/libmuxora.so.*.*.*)
if [ "${1:-}" = --update ]; then
    mkdir -p abi
    abidw --headers-dir include --drop-private-types --no-show-locs --no-corpus-path --no-comp-dir-path "$new" >abi/libmuxora.abi
    echo "abi.sh: abi/libmuxora.abi: $(wc -l <abi/libmuxora.abi) lines"
    exit 0
fi
compare abi/libmuxora.abi "$new" --headers-dir2 include --drop-private-types
echo "abi.sh: compatible with abi/libmuxora.abi"

tag=$(git describe --tags --abbrev=0 --match 'v*' 2>/dev/null || true)
if [ -z "$tag" ]; then
    echo "abi.sh: no release is tagged yet"
    exit 0
fi
rm -rf build/abi/source
mkdir -p build/abi/source
git archive "$tag" | tar -x -C build/abi/source
library build/abi/source build/abi/old
compare "$(echo build/abi/old/src/libmuxora.so.*.*.*)" "$new" --headers-dir1 build/abi/source/include --headers-dir2 include --drop-private-types
echo "abi.sh: compatible with $tag"
