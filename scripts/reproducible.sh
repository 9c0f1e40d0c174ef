#!/usr/bin/env bash
# Builds the library twice, from two copies of the sources in two folders, and compares the bytes.
#
#   scripts/reproducible.sh          the library as it is released (minutes)
#   scripts/reproducible.sh short    the objects of src/api and src/core alone, the version's texts among them
set -euo pipefail
cd "$(dirname "$0")/.."
form=${1:-whole}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# A cache would give the second build the bytes of the first.
export CCACHE_DISABLE=1 SOURCE_DATE_EPOCH=1700000000

build() {
    local tree=$1 targets=(muxora)
    mkdir -p "$tree"
    cp -r CMakeLists.txt cmake include src LICENSE README.md "$tree/"
    cmake -S "$tree" -B "$tree/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DMUXORA_BUILD_TOOLS=OFF -DMUXORA_BUILD_OVX_READER=OFF \
        -DMUXORA_BUILD_TESTS=OFF -DMUXORA_BUILD_BENCH=OFF -DMUXORA_BUILD_EXAMPLES=OFF -DMUXORA_BUILD_GATEWAY=OFF -DMUXORA_INSTALL=OFF >"$tree/log"
    if [ "$form" = short ]; then
        mapfile -t targets < <(ninja -C "$tree/build" -t targets all | sed -nE 's#^(.*/(api|core)/[^/]*\.o): .*#\1#p')
    fi
    ninja -C "$tree/build" "${targets[@]}" >>"$tree/log" || { tail -n 40 "$tree/log"; exit 1; }
}
# Beside the folder, the time zone and the umask are others; ninja ends its jobs in any order by itself.
first="$work/first"
second="$work/second/one level down"
(build "$first")
(umask 077 && TZ=Asia/Tokyo build "$second")

compared=0
while read -r file; do
    cmp "$first/build/$file" "$second/build/$file"
    if grep -aqF "$work" "$first/build/$file"; then
        echo "reproducible.sh: $file names the folder that it was built in" >&2
        exit 1
    fi
    compared=$((compared + 1))
done < <(cd "$first/build" && find src -type f \( -name '*.o' -o -name 'libmuxora.so.*' \))
[ "$compared" -ge 10 ]
# The date of the version's texts.
grep -aq '2023-11-14' "$first/build/src/CMakeFiles/muxora_objects.dir/api/muxora_api.cpp.o"
echo "reproducible.sh: $compared files, twice the same"
