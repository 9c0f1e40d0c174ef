#!/usr/bin/env bash
# cpack's packages, looked into: packages_test.sh BUILD WORK. Each file where it belongs and in one package alone, each
# package with what it depends on, and a source tarball that is the tree and nothing that was built.
set -eu
build=$(cd "$1" && pwd)
work=$2
rm -rf "$work"
mkdir -p "$work"
work=$(cd "$work" && pwd)

fail() {
    echo "packages: $*" >&2
    exit 1
}
(cd "$work" && cpack --config "$build/CPackConfig.cmake" -B "$work" >cpack.log 2>&1) || { cat "$work/cpack.log"; exit 1; }

# has PACKAGE PATTERN...: each pattern of grep -E names one file at least.
has() {
    local package=$1 pattern
    shift
    dpkg-deb -c "$work"/"$package"_*.deb | awk '{ print $6 }' >"$work/$package.files"
    for pattern; do
        grep -qE "^\./usr/$pattern\$" "$work/$package.files" || fail "$package lacks $pattern: $(cat "$work/$package.files")"
    done
}
field() { dpkg-deb -f "$work"/"$1"_*.deb "$2"; }

has libmuxora1 'lib/.*libmuxora\.so\.1' 'lib/.*libmuxora\.so\.1\.[0-9.]+' 'share/doc/libmuxora1/copyright'
has libmuxora-dev 'include/.*MuxoraAPI\.h' 'include/.*MuxoraExt\.h' 'include/.*Muxora\.h' 'include/.*basalt/.*\.h' 'lib/.*libmuxora\.so' \
    'lib/.*pkgconfig/muxora\.pc' 'lib/.*cmake/Muxora/MuxoraConfig\.cmake' 'share/doc/libmuxora-dev/copyright'
has muxora 'bin/muxora' 'share/man/man1/muxora\.1(\.gz)?' 'share/bash-completion/completions/muxora' \
    'share/zsh/.*/_muxora' 'share/fish/.*muxora\.fish' 'share/doc/muxora/copyright'
cat "$work"/{libmuxora1,libmuxora-dev,muxora}.files | grep -v '/$' | sort | uniq -d >"$work/twice"
[ ! -s "$work/twice" ] || fail "in two packages: $(cat "$work/twice")"

grep -q 'libc6' <<<"$(field libmuxora1 Depends)" || fail "libmuxora1 depends on: $(field libmuxora1 Depends)"
! grep -qE 'libav|ssl|boost' <<<"$(field libmuxora1 Depends)" || fail "the library asks for the tool's packages"
grep -q 'libmuxora1 (= ' <<<"$(field libmuxora-dev Depends)" || fail "libmuxora-dev depends on: $(field libmuxora-dev Depends)"
grep -q 'libmuxora1' <<<"$(field muxora Depends)" || fail "muxora depends on: $(field muxora Depends)"
dpkg-deb --ctrl-tarfile "$work"/libmuxora1_*.deb | tar -xO ./shlibs | grep -q '^libmuxora 1 libmuxora1' || fail "no shlibs"
for package in libmuxora1 libmuxora-dev muxora; do
    [ -n "$(field $package Maintainer)" ] && [ -n "$(field $package Description)" ] || fail "$package is not described"
done
# What is unpacked names the folder that it will stand in.
dpkg-deb --fsys-tarfile "$work"/libmuxora-dev_*.deb | tar -xO --wildcards '*/muxora.pc' >"$work/muxora.pc"
grep -q '^prefix=/usr$' "$work/muxora.pc" || grep -q 'pcfiledir' "$work/muxora.pc" || fail "muxora.pc: $(cat "$work/muxora.pc")"

mkdir -p "$work/source"
(cd "$work/source" && cpack --config "$build/CPackSourceConfig.cmake" -B "$work/source" >cpack.log 2>&1) || { cat "$work/source/cpack.log"; exit 1; }
tar -tzf "$work"/source/muxora-*.tar.gz | sed 's,^[^/]*/,,' | grep -v '/$' >"$work/source.files"
for file in CMakeLists.txt LICENSE README.md include/MuxoraAPI.h src/api/muxora_api.cpp tests/CMakeLists.txt docs/index.md; do
    grep -qxF "$file" "$work/source.files" || fail "the source tarball lacks $file"
done
! grep -E '^(build|\.git)/|\.o$|node_modules/' "$work/source.files" || fail "the source tarball holds what was built"
echo "3 packages, $(wc -l <"$work/source.files") files in the source tarball"
