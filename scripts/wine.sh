#!/usr/bin/env bash
# Runs a Windows program under wine, quietly and without a display, with the DLLs of the library, the compiler and Debian
# in reach. Wine keeps its files in build/wine (WINEPREFIX says otherwise) and asks nothing of the environment but PATH.
#
#   wine.sh PROGRAM ARGUMENTS...
#   wine.sh --begin    makes wine's files and starts a server that stays, for many programs one behind the other
#   wine.sh --end      ends that server
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
# Wine names files in the locale's encoding: without UTF-8 it can make none beyond ASCII.
export LC_ALL=C.UTF-8
export WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe=' DISPLAY=
export WINEPREFIX=${WINEPREFIX:-$top/build/wine}
mkdir -p "$WINEPREFIX"
# Debian's /usr/bin/wine looks for a 32-bit one first, and its wineserver ends with the last program.
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || wine=$(command -v wine64 || command -v wine)
server=/usr/lib/wine/wineserver64
[ -x "$server" ] || server=$(command -v wineserver)

case $1 in
--begin)
    # None of them may keep the caller's pipes open.
    "$server" -p </dev/null >/dev/null 2>&1
    exec "$wine" wineboot --init </dev/null >/dev/null 2>&1
    ;;
--end)
    "$server" -k </dev/null >/dev/null 2>&1 || true
    exec "$server" -w </dev/null >/dev/null 2>&1
    ;;
esac

program=$1
shift
runtime=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-file-name=libstdc++-6.dll)")
libraries=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-file-name=libwinpthread-1.dll)")
bin=$(cd "$(dirname "$program")" && pwd)
export WINEPATH="Z:$bin;Z:$runtime;Z:$libraries"
exec "$wine" "$program" "$@"
