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

echo "== the README's C++, as it stands there"
{
    sed -n '/^```cpp$/,/^```$/{/^```/d;p}' "$here/../../README.md"
    cat <<'PROGRAM'
int main(int, char** argv) {
    // An SPS, a PPS and an IDR slice.
    static const unsigned char stream[] = {0, 0, 0, 1, 0x67, 0x42, 0x00, 0x0A, 0xF8, 0x41, 0xA2, 0,    0, 0,
                                           1, 0x68, 0xCE, 0x38, 0x80, 0, 0, 0, 1, 0x65, 0x88, 0x84, 0x21};
    return Record(argv[1], stream, sizeof stream) && !CFilePackage::supports("none") ? 0 : 1;
}
PROGRAM
} >"$work/readme.cpp"
# shellcheck disable=SC2046
c++ -std=c++17 -pedantic -Wall -Wextra -Werror "$work/readme.cpp" -o "$work/readme" $(pkg-config --cflags --libs muxora)
LD_LIBRARY_PATH=$libdir "$work/readme" "$work/media/readme.mp4"
[ "$(head -c 8 "$work/media/readme.mp4" | tail -c 4)" = ftyp ]
[ "$(grep -aobc moov "$work/media/readme.mp4")" -ge 1 ]

# What was written is what it says: a RIFF header, a row of OVX units.
[ "$(head -c 4 "$work/media/tone.wav")" = RIFF ]
[ "$(stat -c %s "$work/media/tone.wav")" -eq $((44 + 99 * 640)) ]
[ "$(head -c 4 "$work/media/frames.ovx")" = ORVX ]
[ "$(tail -c 8 "$work/media/frames.ovx" | head -c 4)" = orvx ]
[ "$(grep -aobc ORVX "$work/media/frames.ovx")" -ge 1 ]
[ "$(head -c 4 "$work/media/component.ovx")" = ORVX ]
echo "== the installed package works"
