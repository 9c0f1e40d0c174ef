#!/usr/bin/env python3
"""Counts the instructions that a frame costs in each format, and holds them against the table.

    bench/instructions.py BUILD            fails if a count has grown by more than 3 % over bench/instructions.txt
    bench/instructions.py BUILD --update   writes the table

The counts come from callgrind, with the kernels of one instruction set and with the C library's plainest copy, so they
are the same on every machine. A change that makes a format dearer changes the table, and says why.
"""
import argparse
import os
import re
import subprocess
import sys
import tempfile

TABLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "instructions.txt")
TOLERANCE = 0.03
# Without string instructions, of which callgrind counts every round, and without copies past the caches.
TUNABLES = "glibc.cpu.hwcaps=-ERMS,-FSRM:glibc.cpu.x86_non_temporal_threshold=0x7ffffff"


def count(build):
    """{row: instructions a frame} of build/bin/muxora_instructions."""
    program = os.path.abspath(os.path.join(build, "bin", "muxora_instructions"))
    with tempfile.TemporaryDirectory() as folder:
        run = subprocess.run(
            ["valgrind", "-q", "--tool=callgrind", "--callgrind-out-file=" + os.path.join(folder, "out"),
             "--collect-atstart=no", "--instr-atstart=no", program],
            env={"PATH": os.environ["PATH"], "GLIBC_TUNABLES": TUNABLES}, stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE, text=True)
        if run.returncode != 0:
            sys.exit(run.stderr + "instructions.py: the run failed")
        rows = {}
        for name in os.listdir(folder):
            with open(os.path.join(folder, name), encoding="utf-8") as dump:
                text = dump.read()
            row = re.search(r"^desc: Trigger: Client Request: (\S+)=(\d+)$", text, re.M)
            total = re.search(r"^(?:summary|totals): (\d+)$", text, re.M)
            if row and total:
                rows[row[1]] = round(int(total[1]) / int(row[2]))
    if not rows:
        sys.exit("instructions.py: nothing was counted")
    return rows


def read():
    with open(TABLE, encoding="utf-8") as table:
        pairs = (line.split() for line in table if line.strip() and not line.startswith("#"))
        return {name: int(value) for name, value in pairs}


def write(rows):
    with open(TABLE, "w", encoding="utf-8") as table:
        table.write("# Instructions a frame, counted by callgrind; written by bench/instructions.py BUILD --update.\n")
        for name, value in rows.items():
            table.write(f"{name:32} {value:7}\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", help="the build folder, for example build/bench")
    parser.add_argument("--update", action="store_true", help="write the table instead of checking it")
    options = parser.parse_args()
    rows = dict(sorted(count(options.build).items()))
    if options.update:
        write(rows)
        return 0
    known = read()
    failed = False
    for name in sorted(rows.keys() | known.keys()):
        now, then = rows.get(name), known.get(name)
        if now is None:
            print(f"{name}: only in the table")
            failed = True
        elif then is None:
            print(f"{name}: {now} instructions a frame, not in the table yet")
        elif now > then * (1 + TOLERANCE):
            print(f"{name}: {then} -> {now} instructions a frame ({now / then - 1:+.1%})")
            failed = True
        elif now < then * (1 - TOLERANCE):
            print(f"{name}: {then} -> {now} instructions a frame ({now / then - 1:+.1%}): --update keeps the gain")
    print(f"{len(rows)} rows counted" + ("" if not failed else "; bench/instructions.py BUILD --update takes them over"))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
