#!/usr/bin/env bash
# A program whose standard library is not the library's must fail when it is linked, and be told why: abi_test.sh CXX
# SOURCE LIBRARY WORK
set -eu
cxx=$1
source=$2
library=$3
work=$4
rm -rf "$work"
mkdir -p "$work"
export CCACHE_DISABLE=1 LC_ALL=C

link() { # NAME FLAGS...
    local name=$1
    shift
    "$cxx" -std=c++17 -I"$source/include" "$@" "$source/examples/components.cpp" "$library" \
        -Wl,-rpath,"$(dirname "$library")" -o "$work/$name" 2>"$work/$name.log"
}

# The name of what is missing is all that the program lacks besides the symbols with other types in their names.
refused() { # NAME SYMBOL FLAGS...
    local name=$1 symbol=$2
    shift 2
    if link "$name" "$@"; then
        echo "$name: linked, and would crash" >&2
        return 1
    fi
    grep -q "undefined reference to .$symbol" "$work/$name.log" || {
        cat "$work/$name.log" >&2
        echo "$name: does not say why" >&2
        return 1
    }
    echo "$name: $(grep -o "undefined reference to .$symbol" "$work/$name.log" | head -n 1)"
}

link same
"$work/same" "$work" >/dev/null
refused debug_mode muxora_must_be_built_with_GLIBCXX_DEBUG_as_well -D_GLIBCXX_DEBUG
refused old_strings muxora_must_be_built_with_GLIBCXX_USE_CXX11_ABI_0_as_well -D_GLIBCXX_USE_CXX11_ABI=0
# Assertions change no layout.
link assertions -D_GLIBCXX_ASSERTIONS
echo "a mismatch fails at link time"
