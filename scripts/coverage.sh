#!/usr/bin/env bash
# Line coverage of src/ from the gcov files of a coverage build: scripts/coverage.sh BUILD.
set -eu
build=$(realpath "$1")
root=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
find "$build/src" -name '*.gcda' -print0 | xargs -0 gcov -r -s "$root" >report 2>/dev/null
awk -F"'" '/^File/ {file=$2} /^Lines executed/ && file ~ /^src\// {split($0, a, /[:% ]+/); split($0, b, "of ");
    printf "%6.1f%%  %s\n", a[3], file; lines += b[2]; hit += a[3] / 100 * b[2]; file = ""}
    END {printf "%6.1f%%  all of src\n", lines ? 100 * hit / lines : 0}' report | sort -k2
