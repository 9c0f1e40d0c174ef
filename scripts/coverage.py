#!/usr/bin/env python3
"""Branches that the tests take: coverage.py BUILD [--only src] [--missing]

BUILD is made with MUXORA_COVERAGE=ON (clang), and its tests have run with LLVM_PROFILE_FILE=BUILD/profiles/%m.profraw.
A branch is one outcome, true or false, of one condition of the source. Prints a row for each folder and fails where one
is below its floor. scripts/branches.txt names the branches of src/ that no test can take, each with its reason: those
are not counted, and a line there that no longer fits fails as well, unless its reason is that it depends on the machine.
--missing lists what was not taken, as it would stand there behind the number of its line.
"""

import argparse
import collections
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LEFT_OUT = ROOT / "scripts" / "branches.txt"
EITHER = "Depends on the machine"  # how the reason of those begins that may be taken or not
# Folder -> the least share of its branches, in per cent. That of src/ holds for the unit and interface tests alone, as CI
# runs them under the sanitizers. A floor is only ever raised.
FLOORS = {"src": 98.0, "tools/media_input": 90.0, "tools/muxora": 90.0}

Branch = collections.namedtuple("Branch", "file line text condition outcome")


def merge(build, profiles):
    """One profile out of those that the processes left."""
    raw = sorted(path for path in profiles.glob("*.profraw") if path.stat().st_size)
    if not raw:
        sys.exit(f"{profiles} is empty: nothing has run with LLVM_PROFILE_FILE")
    merged = build / "coverage.profdata"
    subprocess.run(["llvm-profdata-14", "merge", "-sparse", *raw, "-o", merged], check=True)
    return merged


def count(profile, binaries):
    """Branch -> how often it was taken, over all binaries; templates and inline functions summed up."""
    first, *others = [str(binary) for binary in binaries if binary.exists()]
    out = subprocess.run(["llvm-cov-14", "export", "-skip-functions", "-skip-expansions", f"-instr-profile={profile}", first,
                          *[f"-object={other}" for other in others]], check=True, capture_output=True, text=True).stdout
    taken = collections.Counter()
    for file in json.loads(out)["data"][0]["files"]:
        path = pathlib.Path(os.path.normpath(file["filename"]))
        if not path.is_relative_to(ROOT):
            continue
        lines = path.read_text(encoding="utf-8").split("\n")
        for line, column, last, end, true, false, *_ in file["branches"]:
            condition = " ".join(part.strip() for part in lines[line - 1:last])
            if line == last:
                condition = lines[line - 1][column - 1:end - 1]
            for outcome, times in (("true", true), ("false", false)):
                taken[Branch(str(path.relative_to(ROOT)), line, lines[line - 1].strip(), condition, outcome)] += times
    return taken


def binaries_of(build):
    return [build / "src" / "libmuxora.so", build / "bin" / "muxora", build / "bin" / "tools_ovx_reader"]


def name(branch):
    """What stands in the list: no line numbers, which change."""
    return (branch.file, branch.text, branch.condition, branch.outcome)


def read_left_out():
    """Each with the comment above it; one without a reason is an error."""
    names, reason = {}, ""
    for line in LEFT_OUT.read_text(encoding="utf-8").split("\n"):
        if line.startswith("#"):
            reason = line[1:].strip()
        elif not line.strip():
            reason = ""
        elif not reason:
            sys.exit(f"{LEFT_OUT.name}: no reason above: {line}")
        else:
            names[tuple(part.strip() for part in line.split("\t"))] = reason
    return names


def folders_below(prefix, taken):
    """src/iso and the like, or the folder itself where it has none."""
    return sorted({"/".join(branch.file.split("/")[:2]) for branch in taken if branch.file.startswith(prefix + "/")})


def share(branches, taken):
    reached = sum(taken[branch] > 0 for branch in branches)
    return reached, len(branches), 100 * reached / max(1, len(branches))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--only", choices=FLOORS)
    parser.add_argument("--missing", action="store_true")
    options = parser.parse_args()
    build = options.build.resolve()
    taken = count(merge(build, build / "profiles"), binaries_of(build))
    left_out = read_left_out()
    failed = False

    known = {name(branch) for branch in taken}
    for entry in left_out:
        now_taken = any(taken[branch] for branch in taken if name(branch) == entry)
        if entry not in known or now_taken and not left_out[entry].startswith(EITHER):
            print(f"{LEFT_OUT.name}: is taken, or no longer there: {' | '.join(entry)}")
            failed = True
    counted = [branch for branch in taken if name(branch) not in left_out]
    print(f"{'folder':<22}{'taken':>8}{'of':>8}{'':4}share")
    for folder, floor in FLOORS.items():
        if options.only not in (None, folder):
            continue
        own = [branch for branch in counted if branch.file.startswith(folder + "/")]
        if folder == "src":
            for below in folders_below(folder, counted):
                print_row(below, [branch for branch in own if branch.file.startswith(below + "/")], taken)
        reached = print_row(folder, own, taken, f"at least {floor:.1f} %")
        failed = failed or reached < floor
        if options.missing:
            print_missing(own, taken)
    print(f"{len(left_out)} branches are left out with a reason ({LEFT_OUT.name})")
    return failed


def print_row(folder, branches, taken, remark=""):
    reached, total, percent = share(branches, taken)
    print(f"{folder:<22}{reached:>8}{total:>8}{percent:>7.2f} %  {remark}")
    return percent


def print_missing(branches, taken):
    for branch in sorted(branch for branch in branches if taken[branch] == 0):
        print(f"{branch.line:5}:", *name(branch), sep="\t")


if __name__ == "__main__":
    sys.exit(main())
