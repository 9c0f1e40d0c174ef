#!/usr/bin/env bash
# Many files over two machines, as docs/SCALE.md has it: machines_test.sh TOOL. The machines are two runners that stand
# for ssh.
set -euo pipefail
tool=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
PATH=$(cd "$(dirname "$tool")" && pwd):$PATH
export PATH RUNNER_LOG=$work/asked

fail() {
    echo "$1"
    exit 1
}

cat >runner <<'END'
#!/bin/sh
# runner HOST COMMAND, as ssh is called; the other side has a shell of its own.
export SHELL=/bin/sh
machine=$1
shift
[ "$1" != -- ] || shift
echo "$machine" >>"$RUNNER_LOG"
exec sh -c "$*"
END
chmod +x runner
printf '1/one\n1/two\n' >machines

ffmpeg -v error -nostdin -f lavfi -i testsrc2=s=96x64:r=25:d=1 -c:v libx264 -pix_fmt yuv420p film1.mp4
for i in 2 3 4 5; do cp film1.mp4 "film$i.mp4"; done
echo "no film" >film3.mp4

pack() {
    parallel --will-cite --ssh "$work/runner" --sshloginfile machines --workdir "$PWD" --joblog pack.log --resume-failed \
        muxora pack {} -f ts -o {.}.ts --quiet ::: film*.mp4 2>messages
}

status=0
pack || status=$?
[ "$status" -eq 1 ] || fail "one file of five cannot be read, and parallel says $status: $(cat messages)"
grep -q 'film3.mp4: is no media file' messages || fail "the reason is missing: $(cat messages)"
for i in 1 2 4 5; do [ -s "film$i.ts" ] || fail "film$i.ts is missing"; done
[ ! -e film3.ts ] || fail "a file that failed left something"
[ "$(sort -u asked | tr '\n' ' ')" = "one two " ] || fail "not both machines had work: $(sort asked | uniq -c)"

# What failed is done again, and nothing else.
cp film1.mp4 film3.mp4
: >asked
pack || fail "the second run failed: $(cat messages)"
[ "$(wc -l <asked)" -eq 1 ] || fail "more than the one that failed was done again"
for i in 2 3 4 5; do cmp film1.ts "film$i.ts"; done
echo "five files over two machines, one of them in the second run"
