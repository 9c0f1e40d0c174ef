#!/usr/bin/env python3
"""The floors of the house: an include that goes up, to a neighbour's rooms or in a circle is an error.

    floors.py [FOLDER]      the tree at FOLDER, by default this one
    floors.py --self-test   shows that each kind of mistake is found
"""

import pathlib
import re
import sys
import tempfile

INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]', re.MULTILINE)

FAMILIES = ["ovx", "iso", "mpeg2", "rtp", "mkv", "containers", "exact", "units"]
# What each folder of src/ may include beside itself and the public headers.
BELOW = {"basalt": [], "core": ["basalt"], "codec": ["basalt", "core"]}
BELOW |= {family: ["basalt", "core", "codec"] for family in FAMILIES}
BELOW["api"] = ["basalt", "core", "codec", *FAMILIES]

# What each public header may include of the others; basalt/ stands for all of its folder.
PUBLIC = {
    "MuxoraAPI.h": [],
    "MuxoraExt.h": ["MuxoraAPI.h"],
    "MuxoraKeys.h": [],
    "Muxora.h": ["basalt", "MuxoraAPI.h", "MuxoraKeys.h"],
    "basalt": ["basalt"],
}
# Users of the library see its public headers alone (unit tests and the kernels' bench look inside).
USERS = ["tools", "gateway", "examples", "tests/interface", "tests/players"]


def room(name):
    """The folder of src/, or the public header, that an included name belongs to; None for what is not ours."""
    first = name.split("/")[0]
    if name in PUBLIC:
        return name
    return first if first in BELOW and "/" in name else None


def includes(path):
    return [name for _, name in INCLUDE.findall(path.read_text(encoding="utf-8"))]


def sources(folder):
    return sorted(path for path in folder.rglob("*") if path.suffix in (".h", ".c", ".cpp"))


def circles(root):
    """Headers that include each other, each circle once."""
    headers = {path.relative_to(base).as_posix(): path for base in (root / "src", root / "include") for path in sources(base)}
    graph = {name: [i for i in includes(path) if i in headers] for name, path in headers.items()}
    state, found = {}, []

    def visit(name, trail):
        state[name] = "open"
        for other in graph[name]:
            if state.get(other) == "open":
                found.append(" -> ".join([*trail[trail.index(other):], other]))
            elif other not in state:
                visit(other, [*trail, other])
        state[name] = "done"

    for name in graph:
        if name not in state:
            visit(name, [name])
    return found


def check(root):
    errors = []
    for path in sources(root / "src"):
        here = path.relative_to(root / "src").parts[0]
        if here not in BELOW:
            errors.append(f"{path.relative_to(root)}: no floor is known for src/{here}")
            continue
        for name in includes(path):
            there = room(name)
            if there in BELOW and there != here and there not in BELOW[here]:
                errors.append(f"{path.relative_to(root)}: {here} includes {name}")
    for path in sources(root / "include"):
        here = path.relative_to(root / "include").parts[0]
        for name in includes(path):
            there = room(name)
            if here not in PUBLIC or (there is not None and there not in PUBLIC[here]):
                errors.append(f"{path.relative_to(root)}: a public header includes {name}")
    for folder in USERS:
        for path in sources(root / folder):
            for name in includes(path):
                inside = root / "src" / name
                if room(name) in BELOW and inside.exists() and not (root / "include" / name).exists():
                    errors.append(f"{path.relative_to(root)}: a user of the library includes {name}")
    errors += [f"a circle: {circle}" for circle in circles(root)]
    return errors


def self_test():
    good = {
        "include/MuxoraAPI.h": "#include <stdint.h>\n",
        "include/basalt/types.h": "#include <string>\n",
        "src/core/package.h": '#include "MuxoraAPI.h"\n#include "basalt/types.h"\n',
        "src/codec/crc32.h": '#include "core/package.h"\n',
        "src/iso/box.h": '#include "codec/crc32.h"\n#include "iso/track.h"\n',
        "src/iso/track.h": "\n",
        "src/api/table.cpp": '#include "iso/box.h"\n',
        "tools/muxora/main.cpp": '#include "MuxoraAPI.h"\n',
    }
    mistakes = [
        ("src/core/package.h", '#include "codec/crc32.h"'),
        ("src/codec/crc32.h", '#  include "iso/box.h"'),
        ("src/iso/box.h", '#include "mkv/ebml.h"'),
        ("src/iso/box.h", '#include "api/table.h"'),
        ("src/iso/track.h", '#include "iso/box.h"'),
        ("src/other/new.h", "#include <string>"),
        ("include/MuxoraAPI.h", '#include "basalt/types.h"'),
        ("include/basalt/types.h", '#include "core/package.h"'),
        ("tools/muxora/main.cpp", '#include "core/package.h"'),
    ]
    for mistake in [None, *mistakes]:
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            files = dict(good)
            if mistake is not None:
                files[mistake[0]] = files.get(mistake[0], "") + mistake[1] + "\n"
            for name, text in files.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text)
            if (mistake is None) == bool(check(root)):
                print(f"wrong about {mistake}: {check(root)}")
                return 1
    print(f"{len(mistakes)} kinds of mistakes are found")
    return 0


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    root = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent
    errors = check(root)
    print("\n".join(errors) if errors else f"{len(sources(root / 'src'))} files of src/ keep their floors")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
