#!/usr/bin/env bash
# Installs a build into an empty prefix and uses it from outside: install_test.sh BUILD WORK
set -eu
build=$1
work=$2
here=$(cd "$(dirname "$0")" && pwd)
prefix=$work/prefix
rm -rf "$work"
mkdir -p "$work/media"
export CCACHE_DISABLE=1

cmake --install "$build" --prefix "$prefix" >/dev/null

echo "== find_package"
cmake -S "$here/project" -B "$work/project" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/project"
"$work/project/c99_program" "$work/media"
"$work/project/cpp17_program" "$work/media"

echo "== pkg-config, from the C compiler's command line"
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name muxora.pc)")
libdir=$(pkg-config --variable=libdir muxora)
# shellcheck disable=SC2046
cc -std=c99 -pedantic -Wall -Wextra -Werror "$here/../../examples/write_files.c" -o "$work/from_pkg_config" \
    $(pkg-config --cflags --libs muxora)
mkdir -p "$work/media2"
LD_LIBRARY_PATH=$libdir "$work/from_pkg_config" "$work/media2"
cmp "$work/media/tone.wav" "$work/media2/tone.wav"

# What was written is what it says: a RIFF header, a row of OVX units.
[ "$(head -c 4 "$work/media/tone.wav")" = RIFF ]
[ "$(stat -c %s "$work/media/tone.wav")" -eq $((44 + 99 * 640)) ]
[ "$(head -c 4 "$work/media/frames.ovx")" = ORVX ]
[ "$(tail -c 8 "$work/media/frames.ovx" | head -c 4)" = orvx ]
[ "$(grep -aobc ORVX "$work/media/frames.ovx")" -ge 1 ]
[ "$(head -c 4 "$work/media/component.ovx")" = ORVX ]
echo "== the installed package works"
