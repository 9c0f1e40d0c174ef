#!/usr/bin/env bash
# Runs every fuzz target of a folder for a bounded time: scripts/fuzz.sh BIN. SECONDS_EACH (20) is the time of each; the
# seeds under fuzz/corpus come first. Findings go to the folder fuzz-findings.
#
# HOURS in the place of SECONDS_EACH is for all targets together. KEEP=FOLDER keeps in FOLDER/TARGET what was found to
# reach something new, makes it small again at the end, and begins with it the next time. TARGETS="fuzz_iso fuzz_ts"
# takes these alone, JOBS=1 one after the other.
#
# Inputs are short for three quarters of the time, as many more of them run then; leaks are looked for in the rest.
# libFuzzer's weighing of its corpus (-entropic) is off: it took half of the time and reached no more.
set -eu
bin=$(realpath "$1")
cd "$(dirname "$0")/.."
mkdir -p fuzz-findings
export KEEP=${KEEP:+$(realpath -m "$KEEP")}
# What is freed stays out of use for a while, and its stack is remembered, but not 256 MiB of it and thirty calls deep.
export ASAN_OPTIONS=quarantine_size_mb=8:malloc_context_size=6${ASAN_OPTIONS:+:$ASAN_OPTIONS}
# Each new input is a file: in memory, where there is one.
[ ! -w /dev/shm ] || export TMPDIR=/dev/shm

# failed NAME WHERE WORK: keeps the inputs that it found, and prints them, as a machine of CI is gone afterwards.
failed() {
    local input
    echo "$1: FAILED$2; the input is in fuzz-findings/" >&2
    for input in "$3"/found/*; do
        [ -e "$input" ] || continue
        echo "$1-$(basename "$input"), gzip and base64: $(gzip -9nc "$input" | base64 -w0)" >&2
        mv "$input" "fuzz-findings/$1-$(basename "$input")"
    done
    return 1
}

run() {
    local target=$1 name work folders
    name=$(basename "$target")
    work=$(mktemp -d)
    mkdir "$work/corpus" "$work/found"
    folders=("$work/corpus")
    [ ! -d "fuzz/corpus/${name#fuzz_}" ] || folders+=("fuzz/corpus/${name#fuzz_}")
    [ ! -d "$KEEP/$name" ] || folders+=("$KEEP/$name")
    local seconds=${SECONDS_EACH:-20} eighth length leaks time
    eighth=$(((seconds + 7) / 8))
    for length in 1024 4096 16384; do
        time=$eighth leaks=1
        [ "$length" -ne 1024 ] || time=$((seconds > 2 * eighth ? seconds - 2 * eighth : 1)) leaks=0
        if ! "$target" "${folders[@]}" -max_total_time="$time" -max_len="$length" -detect_leaks="$leaks" -entropic=0 \
            -timeout=20 -dict=fuzz/media.dict -rss_limit_mb=2048 -artifact_prefix="$work/found/" \
            -print_final_stats=1 >/dev/null 2>>"$work/log"; then
            tail -n 60 "$work/log"
            failed "$name" "" "$work"
            return
        fi
    done
    awk -v name="$name" -v seconds="$seconds" '/number_of_executed_units/ { runs += $2 }
        / cov: / { for (i = 1; i < NF; ++i) if ($i == "cov:" && $(i + 1) > edges) edges = $(i + 1) }
        END { printf "%-20s %9d runs  %6d a second  %6d edges  no finding\n", name, runs, runs / seconds, edges }' "$work/log"
    if [ -n "$KEEP" ]; then
        mkdir "$work/small"
        # It goes on behind an input that fails, and ends well.
        if ! "$target" -merge=1 -max_len=16384 -artifact_prefix="$work/found/" "$work/small" "${folders[@]}" \
            >/dev/null 2>&1 || [ -n "$(find "$work/found" -type f ! -name 'slow-unit-*')" ]; then
            failed "$name" " in the merge" "$work"
            return
        fi
        mkdir -p "$KEEP"
        rm -rf "${KEEP:?}/$name"
        mv "$work/small" "$KEEP/$name"
    fi
    rm -rf "$work"
}
export -f failed run
jobs=${JOBS:-$(nproc)}
targets=()
for target in ${TARGETS:-$(cd "$bin" && echo fuzz_*)}; do targets+=("$bin/$target"); done
if [ -n "${HOURS:-}" ]; then
    export SECONDS_EACH=$(((HOURS * 3600 * jobs + ${#targets[@]} - 1) / ${#targets[@]}))
fi
printf '%s\n' "${targets[@]}" | xargs -P "$jobs" -I{} bash -c 'run {}'
