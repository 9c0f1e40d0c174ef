#!/usr/bin/env bash
# A stranger's machine: a bare Debian 12 in a folder (debootstrap), first with g++, cmake and make and nothing else, then with
# our packages. Needs root and Debian's mirror; `make root-test`. The root is kept in build/root for the next time.
#
#   scripts/root_test.sh [PACKAGES]     the folder with the .deb files; by default they are built here
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD/build/root/bookworm
packages=${1:-}

step() { printf '\n== %s\n' "$1"; }
inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 TERM=dumb sh -euc "$1"; }

if [ -z "$packages" ]; then
    step "the packages"
    cmake --preset package >/dev/null
    cmake --build --preset package | tail -n 1
    (cd build/package && cpack >cpack.log) || { cat build/package/cpack.log; exit 1; }
    packages=build/package
fi

if [ ! -e "$root/usr/bin/g++" ]; then
    step "a bare root"
    mkdir -p "$(dirname "$root")"
    debootstrap --variant=minbase --include=g++,cmake,make bookworm "$root" http://deb.debian.org/debian >"$root.log" 2>&1 ||
        { tail -n 20 "$root.log"; exit 1; }
fi
rm -rf "$root/work"
mkdir -p "$root/work/source"
git ls-files -z | xargs -0 tar -c --no-recursion | tar -x -C "$root/work/source"

step "the library and the examples, with nothing asked for"
inside 'cd /work
    ! command -v git && ! command -v pkg-config && ! command -v python3
    cmake -S source -B build
    cmake --build build -j2 >/dev/null
    mkdir media
    build/bin/example_write_files media
    build/bin/example_components media'

step "static, from a project of C: no C++ compiler is given"
inside 'cd /work
    cmake -S source -B static -DBUILD_SHARED_LIBS=OFF -DMUXORA_BUILD_EXAMPLES=OFF -DCMAKE_INSTALL_PREFIX=/work/prefix >/dev/null
    cmake --build static -j2 >/dev/null
    cmake --install static >/dev/null
    cmake -S source/tests/install/c_project -B c -DCMAKE_PREFIX_PATH=/work/prefix -DCMAKE_CXX_COMPILER=/nowhere >/dev/null
    cmake --build c >/dev/null
    mkdir media2
    c/c_program media2
    ! ldd c/c_program | grep muxora
    cmp media/tone.wav media2/tone.wav'

step "the packages"
mkdir -p "$root/work/packages"
cp "$packages"/*.deb "$root/work/packages/"
mount --bind /proc "$root/proc" 2>/dev/null && trap 'umount "$root/proc"' EXIT
inside 'cd /work/packages
    export DEBIAN_FRONTEND=noninteractive
    # What the packages depend on, and what the snippet, the completion and the page are shown with.
    dpkg --unpack ./*.deb
    apt-get update -q >/dev/null
    apt-get -y -q --no-install-recommends --fix-broken install >/dev/null
    apt-get -y -q --no-install-recommends install pkg-config bash-completion man-db python3 >/dev/null
    rm -f /etc/dpkg/dpkg.cfg.d/docker
    dpkg -i ./*.deb
    dpkg -l "libmuxora*" muxora | tail -n 3'

step "the C snippet of the README, compiled and run"
inside 'cd /work/source
    python3 scripts/snippets.py --only README.md --include /usr/include --library "$(pkg-config --variable=libdir muxora)" \
        --link "$(pkg-config --libs muxora)" --work /work/snippets'

step "find_package, with the packages"
inside 'cd /work
    cmake -S source/tests/install/c_project -B c2 >/dev/null && cmake --build c2 >/dev/null
    mkdir media3 && c2/c_program media3'

step "the completion, loaded as a shell does it"
inside 'cd /work
    bash -c ". /usr/share/bash-completion/bash_completion
        _completion_loader muxora || true
        complete -p muxora
        COMP_WORDS=(muxora pack --ba) COMP_CWORD=2
        _muxora
        printf \"%s\n\" \"\${COMPREPLY[@]}\"" | tee completion.log
    grep -qx -- --backup completion.log'

step "the manual page"
inside 'man -P cat muxora 2>/dev/null | head -n 12 | tee /work/man.log; grep -q "muxora" /work/man.log; muxora --version'

step "all of it works"
