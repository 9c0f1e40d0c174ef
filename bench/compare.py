#!/usr/bin/env python3
"""Says what got slower between two runs of the benchmark, beyond their noise.

    build/bench/bin/muxora_bench --benchmark_out=old.json      (make bench leaves build/bench/bench.json)
    bench/compare.py old.json new.json

What is compared is the cost as a multiple of memcpy in the same run. A row got slower where the medians differ by more
than both spreads together, and by more than 2 %. The exit code is 1 if there is such a row.
"""
import json
import sys

LEAST = 0.02


def rows(path):
    with open(path, encoding="utf-8") as file:
        runs = json.load(file)["benchmarks"]
    return {"/".join(run["name"].split("/")[:2]): (run["x_memcpy"], run["spread"])
            for run in runs if "x_memcpy" in run and not run.get("error_occurred")}


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    old, new = rows(sys.argv[1]), rows(sys.argv[2])
    slower = 0
    for name in sorted(old.keys() | new.keys()):
        if name not in old or name not in new:
            print(f"{name:44} only in {sys.argv[1] if name in old else sys.argv[2]}")
            continue
        (was, was_spread), (now, now_spread) = old[name], new[name]
        noise = max(was_spread + now_spread, LEAST * was)
        verdict = "slower" if now > was + noise else "faster" if now < was - noise else ""
        slower += verdict == "slower"
        print(f"{name:44} {was:6.2f} ({was_spread:.2f}) -> {now:6.2f} ({now_spread:.2f})  {verdict}".rstrip())
    print(f"{slower} rows got slower beyond the noise")
    return 1 if slower else 0


if __name__ == "__main__":
    sys.exit(main())
