#!/usr/bin/env bash
# Installs what a bare Debian 12 lacks. Does nothing where all is there.
#
#   scripts/setup.sh         to build, test and measure
#   scripts/setup.sh demo    to build the tool and run the demo: far less
#   scripts/setup.sh serve   beside that, what the live gateway and its page want
#   scripts/setup.sh platforms    beside all else, the compilers and emulators of other platforms
#   scripts/setup.sh root    beside all else, what makes a bare Debian root to test in
set -eu
cd "$(dirname "$0")/.."
purpose=${1:-all}

# To build the library and the tool, and the programs that the demo reads its files with.
packages=(g++ cmake ninja-build make git pkg-config python3
    libcli11-dev nlohmann-json3-dev libboost1.81-dev libjpeg62-turbo-dev libssl-dev zlib1g-dev libavformat-dev libavcodec-dev libavutil-dev libswscale-dev
    ffmpeg mediainfo mkvtoolnix imagemagick fontconfig fonts-dejavu-core)
case "$purpose" in demo | serve) small=1 ;; *) small= ;; esac
# The gateway.
[ "$purpose" = demo ] || packages+=(libspdlog-dev prometheus-cpp-dev libnats-dev)
# The tests, their other players, and the checks.
[ -n "$small" ] || packages+=(libgtest-dev libgmock-dev libbenchmark-dev ccache valgrind
    clang clang-format clang-tidy libclang-rt-14-dev llvm-14 mold binutils
    flvmeta tshark chromium parallel
    doxygen abigail-tools dpkg-dev fish zsh bc
    nats-server
    gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-libav)

# Other platforms, built here and run in emulators.
[ "$purpose" != platforms ] || packages+=(g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine wine64 libgnutls30
    g++-aarch64-linux-gnu qemu-user googletest bc)
[ "$purpose" != root ] || packages+=(debootstrap)

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
# Node may come from elsewhere, with an npm of its own.
[ "$purpose" = demo ] || command -v npm >/dev/null || missing+=(nodejs npm)
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

[ "$purpose" != demo ] || exit 0

# JavaScript in the versions of a lock file: node_modules FOLDER TARGET.
node_modules() {
    cmp -s "$1/package-lock.json" "$2/node_modules/.installed-lock" && return
    echo "Installing the packages of $1"
    mkdir -p "$2"
    cp "$1"/{package.json,package-lock.json,.npmrc} "$2/"
    (cd "$2" && npm ci --loglevel=error --no-audit --no-fund >/dev/null)
    cp "$1/package-lock.json" "$2/node_modules/.installed-lock"
}
[ -n "$small" ] || node_modules tests/players/browser build/browser
node_modules gateway/share build/gateway-page
