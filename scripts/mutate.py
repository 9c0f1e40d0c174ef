#!/usr/bin/env python3
"""Changes one token of the library at a time and sees whether a test notices.

    scripts/mutate.py [--count 100] [--seed 1] [--folder iso] [--minutes 30]

Works on a copy of the tree under build/mutate. For each mutant the one file is compiled, and the tests are linked and run:
those of its folder, those of the interface, then all others; the first that fails kills the mutant. Prints what survived,
and a table by folder. A survivor is a test that is missing, or a change that makes no difference: the reader decides.
scripts/mutants.txt names those that were looked at and make none; they are counted apart.
"""

import argparse
import collections
import os
import random
import re
import resource
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
EQUIVALENT = os.path.join(ROOT, "scripts", "mutants.txt")
COPY = os.path.join(ROOT, "build", "mutate", "tree")
BUILD = os.path.join(ROOT, "build", "mutate", "out")
FOLDERS = ["api", "basalt", "codec", "containers", "core", "exact", "iso", "mkv", "mpeg2", "ovx", "rtp", "units"]

# What a token may become.
SWAPS = {
    "==": ["!="], "!=": ["=="], "<=": ["<"], ">=": [">"], "&&": ["||"], "||": ["&&"], "+=": ["-="], "-=": ["+="],
    "++": ["--"], "--": ["++"], "<": ["<=", ">="], ">": [">=", "<="], "+": ["-"], "-": ["+"], "*": ["+"], "/": ["*"],
    "%": ["/"], "&": ["|"], "|": ["&"], "<<": [">>"], ">>": ["<<"], "true": ["false"], "false": ["true"],
}
TOKEN = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'|0[xX][0-9a-fA-F]+|\d+|[A-Za-z_]\w*|<<=|>>=|->|::|'
                   r'==|!=|<=|>=|&&|\|\||\+=|-=|\+\+|--|<<|>>|[-+*/%&|<>]')
# Lines on which a change is no change of behaviour, or does not compile.
SKIPPED = re.compile(r"^\s*(//|#|\*|using |namespace |template|static_assert|class |struct |friend |public:|private:)")


def candidates(path):
    """(line number, start, end, replacement) of every change that a file allows."""
    out = []
    with open(path, encoding="utf-8") as source:
        for number, line in enumerate(source):
            code = line.split("//")[0]
            if SKIPPED.match(code):
                continue
            for match in TOKEN.finditer(code):
                token = match.group()
                if token[0] in "\"'":
                    continue
                if re.fullmatch(r"\d+|0[xX][0-9a-fA-F]+", token):
                    octal = token[0] == "0" and token.isdigit()
                    out.append((number, match.start(), match.end(), f"({token} + 1)" if octal else str(int(token, 0) + 1)))
                    continue
                # Templates, references and pointers look like operators: those stand close to a name.
                before = code[match.start() - 1:match.start()]
                behind = code[match.end():match.end() + 1]
                if token in "<>*&" and not (before == " " and behind == " "):
                    continue
                if token == "-" and behind != " ":
                    continue
                for swap in SWAPS.get(token, []):
                    out.append((number, match.start(), match.end(), swap))
    return out


def limit_memory():
    """A mutant may ask for all there is."""
    resource.setrlimit(resource.RLIMIT_AS, (6 << 30, 6 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run(command, limit):
    try:
        return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=limit, cwd=COPY,
                              check=False, preexec_fn=limit_memory).returncode
    except subprocess.TimeoutExpired:
        return -1


def tests_of(folder):
    others = sorted(f"unit_{name}" for name in os.listdir(os.path.join(COPY, "tests", "unit")) if name in FOLDERS)
    own = f"unit_{folder}"
    return [own] * (own in others) + ["interface_tests"] + [name for name in others if name != own]


def survives(folder):
    """None if the mutant does not compile. The folder's own tests come first, as they kill most."""
    for test in tests_of(folder):
        if run(["cmake", "--build", BUILD, "--target", test], 900) != 0:
            return None
        # The recordings of gigabytes tell nothing that the others don't.
        binary = os.path.join(BUILD, "bin", test)
        if run([binary, "--gtest_filter=-*TwoGibibytes*:*Limit*:*Long*:*Huge*", "--gtest_brief=1", "--gtest_fail_fast"], 120) != 0:
            return False
    return True


def read_equivalent():
    """Changes that make no difference, as they were looked at: file | line | token | replacement."""
    with open(EQUIVALENT, encoding="utf-8") as listed:
        return {tuple(part.strip() for part in line.split(" | ")) for line in listed if line.strip() and line[0] != "#"}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--folder", choices=FOLDERS)
    parser.add_argument("--minutes", type=float, default=1e9)
    options = parser.parse_args()
    end = time.time() + 60 * options.minutes
    equivalent = read_equivalent()

    shutil.rmtree(COPY, ignore_errors=True)
    os.makedirs(COPY)
    for name in ("CMakeLists.txt", "cmake", "include", "src", "tests", "tools", "LICENSE", "README.md"):
        source = os.path.join(ROOT, name)
        (shutil.copytree if os.path.isdir(source) else shutil.copy)(source, os.path.join(COPY, name))
    configure = ["cmake", "-S", COPY, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-O1 -g0",
                 "-DMUXORA_BUILD_TOOLS=OFF", "-DMUXORA_BUILD_BENCH=OFF", "-DMUXORA_BUILD_EXAMPLES=OFF",
                 "-DMUXORA_PLAYER_TESTS=OFF", "-DMUXORA_INSTALL=OFF", "-DMUXORA_WERROR=OFF"]
    if subprocess.run(configure, stdout=subprocess.DEVNULL, check=False).returncode != 0:
        sys.exit("the copy can't be configured")

    chosen = random.Random(options.seed)
    mutants = []
    for folder in [options.folder] if options.folder else FOLDERS:
        for path, _, names in sorted(os.walk(os.path.join(COPY, "src", folder))):
            for name in sorted(names):
                if name.endswith((".cpp", ".h")) and "kernels" not in path and "win32" not in name:
                    file = os.path.join(path, name)
                    mutants += [(folder, file, change) for change in candidates(file)]
    chosen.shuffle(mutants)

    table = collections.defaultdict(collections.Counter)
    for folder in sorted({folder for folder, _, _ in mutants}):
        if survives(folder) is not True:
            sys.exit(f"the tests of {folder} fail without a change")
    tried = 0
    for folder, file, (number, start, stop, swap) in mutants:
        if tried == options.count or time.time() > end:
            break
        with open(file, encoding="utf-8") as source:
            original = source.read()
        lines = original.split("\n")
        line = lines[number]
        lines[number] = line[:start] + swap + line[stop:]
        with open(file, "w", encoding="utf-8") as target:
            target.write("\n".join(lines))
        try:
            outcome = survives(folder)
        finally:
            with open(file, "w", encoding="utf-8") as target:
                target.write(original)
        if outcome is None:
            continue
        tried += 1
        where = os.path.relpath(file, COPY)
        same = outcome and (where, line.strip(), line[start:stop], swap) in equivalent
        table[folder]["equivalent" if same else "survived" if outcome else "killed"] += 1
        if outcome and not same:
            print(f"survived  {where}:{number + 1}\n{where} | {line.strip()} | {line[start:stop]} | {swap}", flush=True)

    print(f"{'folder':<12}{'mutants':>9}{'killed':>9}{'survived':>10}{'equivalent':>12}{'score':>9}")
    total = collections.Counter()
    for folder, counts in sorted(table.items()):
        total += counts
        print_row(folder, counts)
    print_row("all", total)


def print_row(name, counts):
    judged = counts["killed"] + counts["survived"]
    score = f"{100 * counts['killed'] / judged:.1f} %" if judged else "-"
    print(f"{name:<12}{sum(counts.values()):>9}{counts['killed']:>9}{counts['survived']:>10}{counts['equivalent']:>12}{score:>9}")


if __name__ == "__main__":
    main()
