#!/usr/bin/env bash
# Installs what a bare Debian 12 lacks to build, test and try Muxora. Does nothing where all is there.
set -eu
cd "$(dirname "$0")/.."

build=(g++ clang cmake ninja-build make git pkg-config ccache)
checks=(clang-format clang-tidy libclang-rt-14-dev python3 binutils)
libraries=(libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev libasio-dev
    libssl-dev zlib1g-dev libavformat-dev libavcodec-dev libavutil-dev libswscale-dev)
# The programs that the player tests and the demo read our output with.
players=(ffmpeg mediainfo mkvtoolnix flvmeta tshark imagemagick
    gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-libav
    chromium fontconfig fonts-dejavu-core)

missing=()
for package in "${build[@]}" "${checks[@]}" "${libraries[@]}" "${players[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
# Node may come from elsewhere, with an npm of its own.
command -v npm >/dev/null || missing+=(nodejs npm)
if [ "${#missing[@]}" -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    export DEBIAN_FRONTEND=noninteractive
    log=$(mktemp)
    if ! { "${as_root[@]}" apt-get update && "${as_root[@]}" apt-get install -y --no-install-recommends "${missing[@]}"; } \
        >"$log" 2>&1; then
        tail -n 40 "$log"
        echo "setup.sh: apt-get failed; its whole output is in $log" >&2
        exit 1
    fi
    rm -f "$log"
fi

# The JavaScript of the browser tests, in the versions of the lock file.
browser=build/browser
if ! cmp -s tests/players/browser/package-lock.json "$browser/node_modules/.installed-lock"; then
    echo "Installing: mpegts.js playwright-core"
    mkdir -p "$browser"
    cp tests/players/browser/{package.json,package-lock.json,.npmrc} "$browser/"
    (cd "$browser" && npm ci --loglevel=error --no-audit --no-fund >/dev/null)
    cp tests/players/browser/package-lock.json "$browser/node_modules/.installed-lock"
fi
