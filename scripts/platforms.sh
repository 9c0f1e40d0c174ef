#!/usr/bin/env bash
# Another platform, here and now: platforms.sh mingw|aarch64 [TESTS...]. Builds library and tests with the preset of that
# name, runs the tests (all, or the programs that are named) under wine or qemu, kills a recording there and looks at what
# is left, and compares what the same calls write, byte for byte over all formats, with this machine. Wants build/release.
# Prints how many tests passed and failed.
set -euo pipefail
cd "$(dirname "$0")/.."
platform=$1
shift
tests=("$@")
build=build/$platform
case $platform in
mingw)
    emulator=(scripts/wine.sh)
    there=$build/bin/format_bytes.exe
    ;;
aarch64)
    emulator=(qemu-aarch64 -cpu max -L /usr/aarch64-linux-gnu)
    # This processor has all that the kernels look for, so none may be left out.
    export MUXORA_EVERY_KERNEL=1
    there=$build/bin/format_bytes
    ;;
*)
    echo "platforms.sh mingw|aarch64"
    exit 2
    ;;
esac
here=build/release/bin/format_bytes
export TZ=UTC0

cmake --preset "$platform" >"$build-configure.log" || { cat "$build-configure.log"; exit 1; }
if [ "${#tests[@]}" -eq 0 ]; then
    cmake --build --preset "$platform" | tail -n 1
    chosen=.
else
    cmake --build --preset "$platform" --target format_bytes "${tests[@]}" | tail -n 1
    chosen="^($(IFS='|'; echo "${tests[*]}"))\$"
fi
cmake --build --preset release --target format_bytes muxora_tool | tail -n 1

left_out=$(sed -n "s/^$platform //p" tests/platforms/left_out.txt | paste -sd:)
[ -z "$left_out" ] || export GTEST_FILTER="-$left_out"

if [ "$platform" = mingw ]; then
    trap 'scripts/wine.sh --end' EXIT
    scripts/wine.sh --begin
fi

failed=0
ctest --preset "$platform" -R "$chosen" -j "$(nproc)" -V >"$build/tests.log" 2>&1 || failed=1
count() { sed -n "s/.*\[  $1 *\] \([0-9]*\) tests\{0,1\}\..*/\1/p" "$build/tests.log" | awk '{ sum += $1 } END { print sum + 0 }'; }
told=$(grep -cE '\[  FAILED  \] .* \([0-9]+ ms\)' "$build/tests.log" || true)
if [ "$failed" -ne 0 ]; then
    # A program that ends without a word is a failure too.
    [ "$told" -gt 0 ] || told=1
    grep -v '^[0-9]*: \[ *OK' "$build/tests.log" | tail -n 150
fi
echo "$platform: $(count PASSED) passed, $told failed, $(grep -cE '\[  SKIPPED \] .* \([0-9]+ ms\)' "$build/tests.log" || true) skipped"
[ -z "$left_out" ] || echo "$platform: left out (tests/platforms/left_out.txt): ${left_out//:/, }"
if [ "$failed" -ne 0 ] || [ "$told" -ne 0 ] || [ "$(count PASSED)" -le 20 ]; then exit 1; fi

# What a user of Windows unpacks.
if [ "$platform" = mingw ]; then
    scripts/msvc.sh
    (cd "$build" && rm -f ./*.zip && cpack >cpack.log 2>&1) || { cat "$build/cpack.log"; exit 1; }
    python3 -m zipfile -l "$(echo "$build"/muxora-*-win64.zip)" | awk '{ print $1 }' | sed 's,^[^/]*/,,' >"$build/zip.files"
    for file in bin/libmuxora.dll bin/libstdc++-6.dll bin/libgcc_s_seh-1.dll bin/libwinpthread-1.dll lib/libmuxora.dll.a include/MuxoraAPI.h \
        include/Muxora.h lib/cmake/Muxora/MuxoraConfig.cmake LICENSE README.md; do
        grep -qx "$file" "$build/zip.files" || { echo "$platform: the zip lacks $file:"; cat "$build/zip.files"; exit 1; }
    done
    echo "$platform: $(wc -l <"$build/zip.files") entries in the zip"
fi

# The same calls.
rm -rf "$build/bytes"
mkdir -p "$build/bytes/here" "$build/bytes/there"
"$here" "$build/bytes/here"
"${emulator[@]}" "$there" "$build/bytes/there" | tr -d '\r'
diff -rq "$build/bytes/here" "$build/bytes/there"
echo "$platform: $(find "$build/bytes/here" -type f | wc -l) files, $(du -sb "$build/bytes/here" | cut -f1) bytes, the same here and there"

# A recording that is killed: every frame that was answered is in the file.
mkdir -p "$build/killed"
"${emulator[@]}" "$there" --record "$build/killed" >"$build/killed/progress" &
recorder=$!
for _ in $(seq 600); do
    [ "$(wc -l <"$build/killed/progress")" -ge 50 ] && break
    sleep 0.1
done
kill -KILL "$recorder"
wait "$recorder" 2>/dev/null || true
told=$(tr -d '\r' <"$build/killed/progress" | grep -cE '^[0-9]+$')
[ "$told" -ge 50 ]
report=$(build/release/bin/muxora inspect "$build/killed/killed.ovx" || true)
units=$(sed -n 's/^\(video\|audio\): \([0-9,]*\) units.*/\2/p' <<<"$report" | tr -d , | paste -sd+ | bc)
[ "${units:-0}" -ge "$told" ] || { echo "$report" | tail -n 20; exit 1; }
echo "$platform: killed after $told frames, $units intact units left behind"
