#!/usr/bin/env bash
# Runs a Windows program under wine, quietly, with the DLLs of the library, the compiler and Debian in reach:
# wine.sh PROGRAM ARGUMENTS...
set -eu
program=$1
shift
runtime=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-file-name=libstdc++-6.dll)")
libraries=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-file-name=libwinpthread-1.dll)")
export WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES='mscoree,mshtml=' DISPLAY=
export WINEPREFIX=${WINEPREFIX:-${XDG_CACHE_HOME:-$HOME/.cache}/muxora-wine}
mkdir -p "$WINEPREFIX"
bin=$(cd "$(dirname "$program")" && pwd)
export WINEPATH="Z:$bin;Z:$runtime;Z:$libraries"
exec "$(command -v wine64 || command -v wine || echo /usr/lib/wine/wine64)" "$program" "$@"
