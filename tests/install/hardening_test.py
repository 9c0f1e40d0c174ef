#!/usr/bin/env python3
"""What is built is hardened: hardening_test.py FILE...

Reads the ELF files themselves: a flag that a compiler dropped in silence shows here.
"""

import platform
import re
import subprocess
import sys

# What the fortified C library is called by, whatever the optimiser leaves of it.
FORTIFIED = re.compile(r"\b__\w+_chk\b")


def read(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True, env={"PATH": "/usr/bin:/bin", "LC_ALL": "C"}).stdout


def faults(path: str) -> list[str]:
    segments = read("readelf", "-W", "-l", path)
    dynamic = read("readelf", "-W", "-d", path)
    symbols = read("readelf", "-W", "--dyn-syms", path)
    wrong = []
    if "GNU_RELRO" not in segments or not re.search(r"BIND_NOW|FLAGS_1.*\bNOW\b", dynamic):
        wrong.append("relocations stay writable")
    stack = re.search(r"^\s*GNU_STACK.*$", segments, re.M)
    if stack is None or re.search(r"\bRWE\b", stack.group()):
        wrong.append("the stack is executable")
    if re.search(r"^\s*LOAD.*\bRWE\b", segments, re.M):
        wrong.append("a segment is writable and executable")
    if not re.search(r"^\s*Type:\s*DYN|file type is DYN", read("readelf", "-W", "-h", path) + segments, re.M | re.I):
        wrong.append("it is loaded at a fixed address")
    if "__stack_chk_fail" not in symbols:
        wrong.append("no stack protector")
    if not FORTIFIED.search(symbols.replace("__stack_chk_fail", "")):
        wrong.append("nothing of the C library is fortified")
    return wrong


def unmarked(library: str) -> list[str]:
    """Functions of the interface without the mark that an indirect call may land there."""
    mark = {"x86_64": "endbr64", "aarch64": "bti|paciasp"}.get(platform.machine())
    if mark is None:
        return []
    code = read("objdump", "-d", "--no-show-raw-insn", library)
    entries = re.findall(r"^[0-9a-f]+ <(MX_\w+)>:\n\s*[0-9a-f]+:\s*(\w+)", code, re.M)
    if len(entries) < 11:
        return [f"only {len(entries)} functions found"]
    return [name for name, first in entries if not re.fullmatch(mark, first)]


def main() -> int:
    failed = False
    for path in sys.argv[1:]:
        for fault in faults(path):
            print(f"{path}: {fault}")
            failed = True
    for name in unmarked(sys.argv[1]):
        print(f"{sys.argv[1]}: {name} has no mark for control-flow protection")
        failed = True
    return failed


if __name__ == "__main__":
    sys.exit(main())
