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

run() {
    local target=$1 name work folders
    name=$(basename "$target")
    work=$(mktemp -d)
    mkdir "$work/corpus"
    folders=("$work/corpus")
    [ ! -d "fuzz/corpus/${name#fuzz_}" ] || folders+=("fuzz/corpus/${name#fuzz_}")
    [ ! -d "$KEEP/$name" ] || folders+=("$KEEP/$name")
    local seconds=${SECONDS_EACH:-20} eighth length leaks time
    eighth=$(((seconds + 7) / 8))
    for length in 1024 4096 16384; do
        time=$eighth leaks=1
        [ "$length" -ne 1024 ] || time=$((seconds > 2 * eighth ? seconds - 2 * eighth : 1)) leaks=0
        if ! "$target" "${folders[@]}" -max_total_time="$time" -max_len="$length" -detect_leaks="$leaks" -entropic=0 \
            -timeout=20 -dict=fuzz/media.dict -rss_limit_mb=2048 -artifact_prefix="fuzz-findings/$name-" \
            -print_final_stats=1 >/dev/null 2>>"$work/log"; then
            tail -n 60 "$work/log"
            echo "$name: FAILED; the input is in fuzz-findings/" >&2
            for input in fuzz-findings/"$name"-*; do echo "$input, gzip and base64: $(gzip -9c "$input" | base64 -w0)"; done >&2
            return 1
        fi
    done
    awk -v name="$name" -v seconds="$seconds" '/number_of_executed_units/ { runs += $2 }
        / cov: / { for (i = 1; i < NF; ++i) if ($i == "cov:" && $(i + 1) > edges) edges = $(i + 1) }
        END { printf "%-20s %9d runs  %6d a second  %6d edges  no finding\n", name, runs, runs / seconds, edges }' "$work/log"
    if [ -n "$KEEP" ]; then
        mkdir "$work/small"
        if ! "$target" -merge=1 -max_len=16384 -artifact_prefix="fuzz-findings/$name-" "$work/small" "${folders[@]}" \
            >/dev/null 2>&1; then
            echo "$name: FAILED in the merge; the input is in fuzz-findings/" >&2
            return 1
        fi
        mkdir -p "$KEEP"
        rm -rf "${KEEP:?}/$name"
        mv "$work/small" "$KEEP/$name"
    fi
    rm -rf "$work"
}
export -f run
jobs=${JOBS:-$(nproc)}
targets=()
for target in ${TARGETS:-$(cd "$bin" && echo fuzz_*)}; do targets+=("$bin/$target"); done
if [ -n "${HOURS:-}" ]; then
    export SECONDS_EACH=$(((HOURS * 3600 * jobs + ${#targets[@]} - 1) / ${#targets[@]}))
fi
printf '%s\n' "${targets[@]}" | xargs -P "$jobs" -I{} bash -c 'run {}'
