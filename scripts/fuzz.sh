#!/usr/bin/env bash
# Runs every fuzz target of a folder for a bounded time: scripts/fuzz.sh BIN. SECONDS_EACH (20) is the time of each; the
# seeds under fuzz/corpus come first. Findings go to the folder fuzz-findings.
set -eu
bin=$(realpath "$1")
cd "$(dirname "$0")/.."
mkdir -p fuzz-findings

run() {
    local target=$1 name work
    name=$(basename "$target")
    work=$(mktemp -d)
    local folders=("$work/corpus")
    mkdir "$work/corpus"
    [ ! -d "fuzz/corpus/${name#fuzz_}" ] || folders+=("fuzz/corpus/${name#fuzz_}")
    # What the library prints is no finding.
    if ! "$target" "${folders[@]}" -max_total_time="${SECONDS_EACH:-20}" -max_len=4096 -timeout=10 \
        -rss_limit_mb=2048 -artifact_prefix="fuzz-findings/$name-" -print_final_stats=1 >/dev/null 2>"$work/log"; then
        tail -n 60 "$work/log"
        echo "$name: FAILED; the input is in fuzz-findings/" >&2
        return 1
    fi
    echo "$name: $(sed -n 's/.*number_of_executed_units: *//p' "$work/log") runs, no finding"
    rm -rf "$work"
}
export -f run
printf '%s\n' "$bin"/fuzz_* | xargs -P "$(nproc)" -I{} bash -c 'run {}'
