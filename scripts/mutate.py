#!/usr/bin/env python3
"""Changes one token of the library at a time and sees whether a test notices.

    scripts/mutate.py [--count 100] [--seed 1] [--folder iso] [--minutes 30] [--again] [--thorough] [--table]

Works on a copy of the sources and of the objects of build/release: the changed file is compiled by itself, and linked
into the tests of its folder, those of the interface, and those of whoever stands on it; the first test that fails kills
the mutant, quick tests come first. What came of each mutant is kept in build/mutate/results.tsv, so that a run takes up where
the last one ended; --table prints what there is.
A survivor is a test that is missing, or a change that makes no difference. Where the optimiser makes the same code of
both, the latter is plain ("same"); else the reader decides, and names it with its reason in scripts/mutants.txt. Both are
counted apart.

Each run has a desk of its own, and asks before each mutant what others found meanwhile: several may run at once, with
different seeds, while the tests are edited and built. What survives has been tried by all tests of its folder and by the
quick ones of others, or with --thorough by all that may tell; --again tries the survivors once more, after tests were
written.

Left out are kernels (each is tested against the plain one), and headers that more than ten files include: a mutant of
one of those costs minutes.
"""

import argparse
import atexit
import collections
import filecmp
import json
import os
import pathlib
import random
import re
import resource
import shlex
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "release"
WORK = ROOT / "build" / "mutate"
DESK = WORK / f"desk-{os.getpid()}"
TREE = DESK / "tree"  # src, include, and the objects of the build in their places
RESULTS = WORK / "results.tsv"
EQUIVALENT = ROOT / "scripts" / "mutants.txt"
OBJECTS = "src/CMakeFiles/muxora_objects.dir/"
FLOOR = ["basalt", "core", "codec"]
FAMILIES = ["containers", "exact", "iso", "mkv", "mpeg2", "ovx", "rtp", "units"]
FOLDERS = FLOOR + FAMILIES + ["api"]
OTHERS = ["interface_tests", "fault_tests", "tools_ovx_reader"]
TIERS = (0.02, 0.25, 6.0)  # seconds of a test by itself: the quick ones come first, the slowest are left out
MOST_FILES = 10
# Which fault tests, by the format in their name, stand on a family.
FAULTS = {"containers": r"/(asf|avi|flv|wav)", "exact": r"/(fmp4|hmp4|x)", "iso": r"/(mp4|mov|3gp)", "mkv": r"/mkv",
          "mpeg2": r"/(ovps|gdps|gaysps|ps|ts)", "ovx": r"/ovx", "rtp": r"/rtp", "units": r"/none"}

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

Mutant = collections.namedtuple("Mutant", "folder file line start stop swap name")


def candidates(folder, path):
    """Every change that a file allows."""
    file = str(path.relative_to(TREE))
    for number, line in enumerate(path.read_text(encoding="utf-8").split("\n")):
        code = line.split("//")[0]
        if SKIPPED.match(code):
            continue
        seen = collections.Counter()
        for match in TOKEN.finditer(code):
            token = match.group()
            if token[0] in "\"'":
                continue
            seen[token] += 1
            for swap in swaps(code, match):
                which = token if seen[token] == 1 else f"{token} #{seen[token]}"
                yield Mutant(folder, file, number, match.start(), match.end(), swap, (file, line.strip(), which, swap))


def swaps(code, match):
    token = match.group()
    if re.fullmatch(r"\d+|0[xX][0-9a-fA-F]+", token):
        octal = token[0] == "0" and token.isdigit()
        return [f"({token} + 1)" if octal else str(int(token, 0) + 1)]
    # Templates, references and pointers look like operators: those stand close to a name.
    before, behind = code[match.start() - 1:match.start()], code[match.end():match.end() + 1]
    if token in "<>*&" and not (before == " " and behind == " ") or token == "-" and behind != " ":
        return []
    return SWAPS.get(token, [])


def limited(cpu_seconds):
    """A mutant may ask for all memory there is, and for ever."""
    def limit():
        resource.setrlimit(resource.RLIMIT_AS, (6 << 30, 6 << 30))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        resource.setrlimit(resource.RLIMIT_CPU, (cpu_seconds, cpu_seconds + 1))
    return limit


def run(command, cpu_seconds=120, env=None):
    try:
        return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL,
                              timeout=20 * cpu_seconds, cwd=TREE, check=False, env=env,
                              preexec_fn=limited(cpu_seconds)).returncode
    except subprocess.TimeoutExpired:
        return -1


class Compiler:
    """The files of the library, each by itself, with the standard headers precompiled."""

    def __init__(self):
        headers = DESK / "standard.h"
        headers.write_text("".join(f"#include <{name}>\n" for name in (
            "algorithm", "array", "cstdint", "cstring", "functional", "limits", "memory", "new", "optional", "span",
            "string", "string_view", "vector")))
        self.ways = {}
        for level in ("-O0", "-O2"):
            flags = ["clang++", "-std=c++20", "-fPIC", level, "-DNDEBUG", "-w"]
            made = DESK / f"standard{level}.pch"
            subprocess.run([*flags, "-x", "c++-header", headers, "-o", made], check=True)
            self.ways[level] = [*flags, "-include-pch", made]
        self.commands = {}
        for entry in json.loads((BUILD / "compile_commands.json").read_text()):
            output = shlex.split(entry["command"])
            if OBJECTS in entry["command"]:
                own = [flag.replace(f"-I{ROOT}/src", f"-I{TREE}/src").replace(f"-I{ROOT}/include", f"-I{TREE}/include")
                       for flag in output if re.match(r"-[DI]|-m", flag)]
                self.commands[str(pathlib.Path(entry["file"]).relative_to(ROOT))] = own
        self.users = self.read_users()

    def read_users(self):
        """File -> the sources that it is compiled into."""
        users = collections.defaultdict(set)
        report = subprocess.run(["ninja", "-C", BUILD, "-t", "deps"], check=True, capture_output=True, text=True).stdout
        source = None
        for line in report.split("\n"):
            if line and line[0] != " ":
                source = line.split(":")[0][len(OBJECTS):-2] if line.startswith(OBJECTS) else None
            elif source and "/src/" in line:
                file = pathlib.Path(os.path.normpath(BUILD / line.strip()))
                if file.is_relative_to(ROOT):
                    users[str(file.relative_to(ROOT))].add(f"src/{source}")
        return users

    def compile(self, source, path, overlay, made, level="-O0"):
        """A header of the overlay is found in front of the real one."""
        made.parent.mkdir(parents=True, exist_ok=True)
        return run([*self.ways[level], f"-I{overlay}/src", *self.commands[source], "-c", path, "-o", made]) == 0

    def build(self, mutant, text):
        """The objects with the change in them, by the names of those they stand for; None if one does not compile."""
        overlay = DESK / "overlay"
        shutil.rmtree(overlay, ignore_errors=True)
        changed = overlay / mutant.file
        changed.parent.mkdir(parents=True)
        changed.write_text(text, encoding="utf-8")
        objects = {}
        for source in sorted(self.users[mutant.file]):
            made = overlay / f"{source}.o"
            if not self.compile(source, changed if source == mutant.file else TREE / source, overlay, made):
                return None
            objects[f"{OBJECTS}{source[4:]}.o"] = str(made)
        return objects

    def same_code(self, mutant):
        """Whether the optimiser makes the same of the file that build() has left and of the one it stands for."""
        overlay = DESK / "overlay"
        for source in sorted(self.users[mutant.file]):
            plain, made = DESK / "plain" / f"{source}.o", overlay / f"{source}.o2"
            if not plain.exists():
                self.compile(source, TREE / source, DESK / "none", plain, "-O2")
            # The name of the file is kept out of the object.
            path = overlay / source if source == mutant.file else TREE / source
            if not self.compile(source, path, overlay, made, "-O2") or not filecmp.cmp(plain, made, shallow=False):
                return False
        return True


class Program:
    """One program of tests."""

    def __init__(self, name):
        self.name = name
        self.link = self.link_command(f"bin/{name}")
        self.library = OBJECTS not in " ".join(self.link)
        (TREE / "bin").mkdir(exist_ok=True)
        shutil.copy(BUILD / "bin" / name, TREE / "bin" / name)
        self.tiers = [[] for _ in TIERS]

    @staticmethod
    def link_command(output):
        target = os.path.basename(output) if output.startswith("bin/") else output
        report = subprocess.run(["ninja", "-C", BUILD, "-t", "commands", target], check=True, capture_output=True, text=True).stdout
        line = next(line for line in report.split("\n") if f" -o {output} " in line)
        words = shlex.split(line)
        words = words[words.index("&&") + 1:]
        words = words[:words.index("&&")]
        for word in words:
            if (BUILD / word).is_file() and word[0] not in "-/" and word != output:
                (TREE / word).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(BUILD / word, TREE / word)
        return words

    def measure(self, kept):
        report = DESK / f"{self.name}.json"
        if run([TREE / "bin" / self.name, f"--gtest_output=json:{report}"], 600) != 0:
            sys.exit(f"{self.name} fails without a change")
        for suite in json.loads(report.read_text())["testsuites"]:
            for test in suite["testsuite"]:
                seconds = float(test["time"].rstrip("s"))
                tier = next((tier for tier, most in zip(self.tiers, TIERS) if seconds < most), None)
                if tier is not None:
                    tier.append(f"{suite['name']}.{test['name']}")
        kept[self.name] = self.tiers

    def binary(self, objects):
        """The program with these objects in it, and the environment that it wants; None if it can't be linked."""
        library = Program.library_command if self.library else None
        if library is None:
            made = DESK / "mutant"
            return (made, None) if self.linked(self.link, objects, made) else (None, None)
        made = DESK / "lib" / "libmuxora.so.1"
        made.parent.mkdir(exist_ok=True)
        if not self.linked(library, objects, made):
            return None, None
        return TREE / "bin" / self.name, os.environ | {"LD_PRELOAD": str(made)}

    @staticmethod
    def linked(command, objects, made):
        words = [objects.get(word, word) for word in command]
        words[words.index("-o") + 1] = str(made)
        return run([*words, "-fuse-ld=mold"]) == 0

    def fails(self, objects, tests, cpu_seconds):
        if not tests:
            return False
        binary, env = self.binary(objects)
        if binary is None:
            return True
        # The names are many: the program reads them from a file of flags.
        flags = DESK / "flags"
        flags.write_text("--gtest_filter=" + ":".join(tests) + "\n--gtest_brief=1\n--gtest_fail_fast\n")
        return run([binary, f"--gtest_flagfile={flags}"], cpu_seconds, env) != 0


def programs_for(folder):
    own = [f"unit_{folder}"]
    if folder in FLOOR:
        own += [f"unit_{name}" for name in FOLDERS if name != folder]
    return own + ["interface_tests"] + ["unit_api"] * (folder in FAMILIES) + ["fault_tests"] + \
        ["tools_ovx_reader"] * (folder == "ovx")


def suspects(programs, folder, tier):
    """Program and tests, in the order in which they are worth trying."""
    for name in programs_for(folder):
        tests = programs[name].tiers[tier]
        if name == "fault_tests" and folder in FAULTS:
            tests = [test for test in tests if re.search(FAULTS[folder], test)]
        yield programs[name], tests


def judge(compiler, programs, mutant, text, thorough):
    """broken (does not compile), killed, same (no other code) or survived."""
    objects = compiler.build(mutant, text)
    if objects is None:
        return "broken"

    def killed(tier, cpu_seconds, own, others):
        return any(program.fails(objects, tests, cpu_seconds)
                   for number, (program, tests) in enumerate(suspects(programs, mutant.folder, tier))
                   if (own if number == 0 else others))

    # The folder's own tests come first, as they kill most.
    if killed(0, 4, True, False) or killed(1, 15, True, False):
        return "killed"
    if compiler.same_code(mutant):
        return "same"
    if killed(0, 4, False, True) or killed(2, 60, True, False):
        return "killed"
    return "killed" if thorough and (killed(1, 30, False, True) or killed(2, 60, False, True)) else "survived"


def read_equivalent():
    """Changes that make no difference, as they were looked at: file, line, token, replacement, by tabs."""
    with open(EQUIVALENT, encoding="utf-8") as listed:
        return {tuple(line.rstrip("\n").split("\t")) for line in listed if line.strip() and line[0] != "#"}


def read_results():
    """Mutant -> what came of it the last time."""
    if not RESULTS.exists():
        return {}
    rows = (line.rstrip("\n").split("\t") for line in RESULTS.open(encoding="utf-8"))
    return {tuple(row[1:]): row[0] for row in rows}


def all_mutants(folders, users):
    for folder in folders:
        for path in sorted((TREE / "src" / folder).rglob("*")):
            file = str(path.relative_to(TREE))
            if path.suffix in (".cpp", ".h") and "kernels" not in path.parts and "win32" not in path.name \
                    and not path.stem.endswith("_arm") and 0 < len(users[file]) <= MOST_FILES:
                yield from candidates(folder, path)


def prepare_programs():
    names = [f"unit_{folder}" for folder in FOLDERS] + OTHERS
    subprocess.run(["cmake", "--build", BUILD, "--target", *names], check=True, stdout=subprocess.DEVNULL)
    Program.library_command = Program.link_command("src/libmuxora.so.1.0.0")
    programs = {name: Program(name) for name in names}
    kept_file = WORK / "times.json"
    kept = json.loads(kept_file.read_text()) if kept_file.exists() else {}
    kept = {name: tiers for name, tiers in kept.items() if len(tiers) == len(TIERS) and
            (BUILD / "bin" / name).stat().st_mtime < kept_file.stat().st_mtime}
    for name, program in programs.items():
        if name in kept:
            program.tiers = kept[name]
        else:
            program.measure(kept)
    kept_file.write_text(json.dumps(kept))
    return programs


def processor_time():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--folder", choices=FOLDERS)
    parser.add_argument("--minutes", type=float, default=1e9)
    parser.add_argument("--again", action="store_true", help="the survivors of earlier runs, and nothing else")
    parser.add_argument("--thorough", action="store_true", help="also the slow tests of other folders, before one survives")
    parser.add_argument("--table", action="store_true", help="what earlier runs found, and nothing else")
    options = parser.parse_args()
    end = time.time() + 60 * options.minutes
    WORK.mkdir(parents=True, exist_ok=True)
    equivalent = read_equivalent()
    results = read_results()
    if options.table:
        return print_table(results, equivalent)

    subprocess.run(["cmake", "--preset", "release", "-DMUXORA_WERROR=ON"], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    TREE.mkdir(parents=True)
    atexit.register(shutil.rmtree, DESK, ignore_errors=True)
    for name in ("src", "include"):
        shutil.copytree(ROOT / name, TREE / name)
    programs = prepare_programs()
    compiler = Compiler()
    mutants = list(all_mutants([options.folder] if options.folder else FOLDERS, compiler.users))
    print(f"{len(mutants)} changes are possible; {len(results)} were tried before", flush=True)
    if options.again:
        mutants = [one for one in mutants if results.get(one.name) == "survived" and one.name not in equivalent]
    else:
        random.Random(options.seed).shuffle(mutants)
    tried = 0
    begin, used = time.time(), processor_time()
    for mutant in mutants:
        if tried == options.count and not options.again or time.time() > end:
            break
        if not options.again and mutant.name in read_results():
            continue
        lines = (TREE / mutant.file).read_text(encoding="utf-8").split("\n")
        line = lines[mutant.line]
        lines[mutant.line] = line[:mutant.start] + mutant.swap + line[mutant.stop:]
        outcome = judge(compiler, programs, mutant, "\n".join(lines), options.thorough)
        tried += outcome != "broken"
        with RESULTS.open("a", encoding="utf-8") as target:
            target.write("\t".join((outcome, *mutant.name)) + "\n")
        if outcome == "survived" and mutant.name not in equivalent:
            print(f"line {mutant.line + 1}:\n" + "\t".join(mutant.name), flush=True)
    if tried:
        print(f"{tried} mutants, {(time.time() - begin) / tried:.1f} s each, of a processor {(processor_time() - used) / tried:.1f} s")
    return print_table(read_results(), equivalent)


def print_table(results, equivalent):
    table = collections.defaultdict(collections.Counter)
    texts = {}
    for name, outcome in results.items():
        if name[0] not in texts:
            path = ROOT / name[0]
            texts[name[0]] = {line.strip() for line in path.read_text().split("\n")} if path.exists() else set()
        if outcome == "broken" or name[1] not in texts[name[0]]:
            continue  # the line is no longer there
        same = outcome == "same" or outcome == "survived" and name in equivalent
        table[name[0].split("/")[1]]["equivalent" if same else outcome] += 1
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
