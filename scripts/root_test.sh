#!/usr/bin/env bash
# A stranger's machine: a bare Debian in a folder (debootstrap), first with g++, cmake and make and nothing else, then with
# our packages. Needs root and Debian's mirror; `make root-test`. build/root keeps the bare one, and each run takes a copy.
#
#   scripts/root_test.sh [PACKAGES]     Debian 12; the folder with the .deb files, by default they are built here
#   scripts/root_test.sh --oldest       Debian 11, with the oldest g++ that builds the library (10) and CMake 3.18; no packages
set -euo pipefail
cd "$(dirname "$0")/.."
suite=bookworm
packages=${1:-}
if [ "$packages" = --oldest ]; then suite=bullseye; fi
bare=$PWD/build/root/$suite
root=$PWD/build/root/$suite-run

step() { printf '\n== %s\n' "$1"; }
inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 TERM=dumb sh -euc "$1"; }

if [ -z "$packages" ]; then
    step "the packages"
    cmake --preset package >/dev/null
    cmake --build --preset package | tail -n 1
    (cd build/package && rm -f ./*.deb && cpack >cpack.log) || { cat build/package/cpack.log; exit 1; }
    packages=build/package
fi

if [ ! -e "$bare.complete" ]; then
    step "a bare root"
    rm -rf "$bare"
    mkdir -p "$bare"
    debootstrap --variant=minbase --include=g++,cmake,make "$suite" "$bare" http://deb.debian.org/debian >"$bare.log" 2>&1 ||
        { tail -n 20 "$bare.log"; exit 1; }
    touch "$bare.complete"
fi
rm -rf "$root"
cp -a "$bare" "$root"
mkdir -p "$root/work/source"
git ls-files -z | xargs -0 tar -c --no-recursion | tar -x -C "$root/work/source"

step "the library and the examples, with nothing asked for"
inside 'cd /work
    for absent in git pkg-config python3 ninja ccache; do
        if command -v $absent; then exit 1; fi
    done
    g++ --version | head -n 1
    cmake --version | head -n 1
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
    if ldd c/c_program | grep muxora; then exit 1; fi
    cmp media/tone.wav media2/tone.wav'

if [ "$suite" = bullseye ]; then
    step "the library and the examples: all of it works"
    exit 0
fi

step "the packages"
mkdir -p "$root/work/packages"
cp "$packages"/*.deb "$root/work/packages/"
# The tool reads /proc; zsh completes on a terminal of its own only.
for folder in proc dev/pts; do
    mkdir -p "$root/$folder"
    mount --bind "/$folder" "$root/$folder"
done
ln -sfn pts/ptmx "$root/dev/ptmx"
trap 'umount "$root/proc" "$root/dev/pts"' EXIT
inside 'cd /work/packages
    export DEBIAN_FRONTEND=noninteractive
    # What the packages depend on, and what the snippet, the completion and the page are shown with.
    dpkg --unpack ./*.deb
    apt-get update -q >/dev/null
    apt-get -y -q --no-install-recommends --fix-broken install >/dev/null
    apt-get -y -q --no-install-recommends install pkg-config bash-completion zsh fish man-db python3 >/dev/null
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
    grep -qx -- --backup completion.log
    # These find it in their own folders.
    fish -c "complete -C \"muxora pack --ba\"" | tee fish.log
    grep -q "^--backup" fish.log
    mkdir -p installed
    cp /usr/share/bash-completion/completions/muxora installed/muxora.bash
    zsh -f -i -c "autoload -Uz compinit; compinit -u -D; print -r -- \$_comps[muxora]" | tee zsh.log
    grep -qx _muxora zsh.log
    ln -sf /usr/share/zsh/vendor-completions/_muxora installed/_muxora
    ln -sf /usr/share/fish/vendor_completions.d/muxora.fish installed/muxora.fish
    source/scripts/completions_test.sh /usr/bin/muxora installed'

step "the manual page"
inside 'man -P cat muxora 2>/dev/null | head -n 12 | tee /work/man.log; grep -q "muxora" /work/man.log; muxora --version'

step "all of it works"
