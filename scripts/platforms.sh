#!/usr/bin/env bash
# Another platform, here and now: platforms.sh mingw|aarch64 [TESTS...]. Builds library and tests with the preset of that
# name, runs the tests (all, or the programs that are named) under wine or qemu, kills a recording there and looks at what
# is left, and compares what the same calls write, byte for byte over all formats, with this machine. Wants build/release.
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
    emulator=(qemu-aarch64 -L /usr/aarch64-linux-gnu)
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

# One at a time: a second wine server takes longer to start than the tests to run.
ctest --preset "$platform" -R "$chosen" -j 1 -V >"$build/tests.log" 2>&1 || { grep -v '^[0-9]*: \[ *OK' "$build/tests.log" | tail -n 150; exit 1; }
passed=$(sed -n 's/.*\[  PASSED  \] \([0-9]*\) tests\{0,1\}\..*/\1/p' "$build/tests.log" | paste -sd+ | bc)
skipped=$(sed -n 's/.*\[  SKIPPED \] \([0-9]*\) tests\{0,1\}.*/\1/p' "$build/tests.log" | paste -sd+ | bc)
echo "$platform: $passed tests passed, ${skipped:-0} skipped"
[ "$passed" -gt 20 ]

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
