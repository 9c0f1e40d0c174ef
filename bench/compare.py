#!/usr/bin/env python3
"""Says what got slower between two runs of the benchmark, beyond their noise.

    build/bench/bin/muxora_bench --benchmark_out=old.json      (make bench leaves build/bench/bench.json)
    bench/compare.py old.json new.json
    bench/compare.py --self-test                            shows that each kind of row is told

What is compared is the cost as a multiple of memcpy in the same run. A row got slower where the medians differ by more
than both spreads together, and by more than 2 %. The exit code is 1 if there is such a row.
"""
import contextlib
import io
import json
import os
import sys
import tempfile

LEAST = 0.02


def rows(path):
    with open(path, encoding="utf-8") as file:
        runs = json.load(file)["benchmarks"]
    return {"/".join(run["name"].split("/")[:2]): (run["x_memcpy"], run["spread"])
            for run in runs if "x_memcpy" in run and not run.get("error_occurred")}


def compare(old_path, new_path):
    """Prints each row; gives the number of those that got slower."""
    old, new = rows(old_path), rows(new_path)
    slower = 0
    for name in sorted(old.keys() | new.keys()):
        if name not in old or name not in new:
            print(f"{name:44} only in {old_path if name in old else new_path}")
            continue
        (was, was_spread), (now, now_spread) = old[name], new[name]
        noise = max(was_spread + now_spread, LEAST * was)
        verdict = "slower" if now > was + noise else "faster" if now < was - noise else ""
        slower += verdict == "slower"
        print(f"{name:44} {was:6.2f} ({was_spread:.2f}) -> {now:6.2f} ({now_spread:.2f})  {verdict}".rstrip())
    print(f"{slower} rows got slower beyond the noise")
    return slower


def self_test():
    def result(**values):
        runs = [{"name": f"small/{name}/min_time:0.250/manual_time", "x_memcpy": value, "spread": spread}
                for name, (value, spread) in values.items()]
        # A row without a ratio, and one that failed, are no rows.
        runs += [{"name": "crc32/table/341", "real_time": 1.0},
                 {"name": "small/lost", "error_occurred": True, "x_memcpy": 9.0, "spread": 0.0}]
        return json.dumps({"context": {}, "benchmarks": runs})

    with tempfile.TemporaryDirectory() as folder:
        paths = [os.path.join(folder, name) for name in ("old", "new")]
        texts = (result(same=(1.1, 0.0), noise=(1.1, 0.2), worse=(1.1, 0.02), better=(2.0, 0.1), gone=(1.0, 0.0)),
                 result(same=(1.11, 0.0), noise=(1.4, 0.2), worse=(1.2, 0.02), better=(1.5, 0.1), fresh=(1.0, 0.0)))
        for path, text in zip(paths, texts):
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            slower = compare(*paths)
    verdicts = {line.split()[0]: line.split()[-1] for line in printed.getvalue().splitlines()[:-1]}
    assert slower == 1 and verdicts["small/worse"] == "slower" and verdicts["small/better"] == "faster", verdicts
    assert verdicts["small/same"] == "(0.00)" and verdicts["small/noise"] == "(0.20)", verdicts
    assert verdicts["small/gone"] == paths[0] and verdicts["small/fresh"] == paths[1], verdicts
    assert len(verdicts) == 6, verdicts


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    return 1 if compare(sys.argv[1], sys.argv[2]) else 0


if __name__ == "__main__":
    sys.exit(main())
