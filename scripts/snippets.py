#!/usr/bin/env python3
"""Compiles every C and C++ block of the README and the guides, and runs those that are whole programs.

    snippets.py [--include DIR] [--library DIR] [--cc CC] [--cxx CXX] [--work DIR] [--only FILE] [--link "FLAGS"]

Without --library the blocks are compiled and not linked. A block without a main() is what stands inside a program: its
includes go first, its functions stay as they are, and statements get a function around them, with the names that the
text speaks of.
"""

import argparse
import pathlib
import re
import shlex
import subprocess
import sys

FENCE = re.compile(r"^```(c|cpp)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
ROOT = pathlib.Path(__file__).resolve().parent.parent

# The README's block speaks of a sink and of a frame. Run, it packs one key frame: parameter sets and a slice.
AROUND = """
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
static int32_t write_block(const MXOutputBlock* block, void* user) {
    if (block->seek_type == MX_SEEK_ABSOLUTE) fseek((FILE*)user, (long)block->offset, SEEK_SET);
    fwrite(block->data, 1, block->length, (FILE*)user);
    return 0;
}
static void run(FILE* file, uint8_t* bytes, uint32_t length) {
%s
}
int main(void) {
    static uint8_t bytes[4096] = {0, 0, 0, 1, 0x67, 0x42, 0xC0, 0x1E, 0xD9, 0x00, 0xA0, 0x47, 0xFE, 0x88,
                                  0, 0, 0, 1, 0x68, 0xCE, 0x3C, 0x80, 0, 0, 0, 1, 0x65, 0x88};
    uint8_t head[8] = {0};
    FILE* file = tmpfile();
    if (file == NULL) return 1;
    memset(bytes + 28, 0x55, sizeof bytes - 28);
    run(file, bytes, sizeof bytes);
    fseek(file, 0, SEEK_END);
    printf("%%ld bytes\\n", ftell(file));
    rewind(file);
    return fread(head, 8, 1, file) == 1 && memcmp(head + 4, "ftyp", 4) == 0 ? 0 : 1;
}
"""


def program(text):
    """The source to compile, and whether it is a program."""
    if re.search(r"\bint main\(", text):
        return text, True
    includes = "".join(re.findall(r"^#include.*\n", text, re.MULTILINE))
    body = re.sub(r"^#include.*\n", "", text, flags=re.MULTILINE)
    if re.search(r"^[a-z].*\) \{$", body, re.MULTILINE):
        return text, False
    return includes + AROUND % body, True


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--include", default=str(ROOT / "include"))
    parser.add_argument("--library")
    parser.add_argument("--link", default="-lmuxora")
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--cxx", default="c++")
    parser.add_argument("--work", default=str(ROOT / "build" / "snippets"))
    parser.add_argument("--only")
    options = parser.parse_args()
    work = pathlib.Path(options.work)
    work.mkdir(parents=True, exist_ok=True)
    files = [ROOT / options.only] if options.only else [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
    compiled = ran = 0
    for file in files:
        for number, (language, text) in enumerate(FENCE.findall(file.read_text(encoding="utf-8")), 1):
            source, whole = program(text)
            name = f"{file.stem}-{number}"
            path = work / f"{name}.{language}"
            path.write_text(source)
            command = [options.cc, "-std=c99"] if language == "c" else [options.cxx, "-std=c++17"]
            command += ["-Wall", "-Wextra", "-Wpedantic", "-Werror", "-Wno-unused-function", "-I", options.include, str(path)]
            linked = whole and options.library is not None
            command += ["-o", str(work / name), "-L", options.library, *shlex.split(options.link)] if linked else ["-fsyntax-only"]
            if subprocess.run(command).returncode != 0:
                print(f"{file.name}: block {number} does not compile")
                return 1
            compiled += 1
            if linked:
                done = subprocess.run([str(work / name)], cwd=work, env={"LD_LIBRARY_PATH": options.library, "PATH": "/usr/bin:/bin"})
                if done.returncode != 0:
                    print(f"{file.name}: block {number} runs and gives {done.returncode}")
                    return 1
                ran += 1
    print(f"{compiled} blocks compiled, {ran} of them run")
    return 0 if compiled else 1


if __name__ == "__main__":
    sys.exit(main())
