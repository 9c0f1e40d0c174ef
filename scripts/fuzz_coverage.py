#!/usr/bin/env python3
"""Which branches of src/ the fuzz targets reach, each by itself and all together: fuzz_coverage.py BUILD [CORPORA]

BUILD is a coverage build with MUXORA_BUILD_FUZZ=ON; its targets run the seeds of fuzz/corpus, and what
`make fuzz-long` kept in CORPORA. Counted are the branches of the sources (gcov), without those of exceptions.
"""

import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# Where a target's own code is, beside what all share.
OWN = {"ovx": "ovx", "iso": "iso", "avi": "containers/avi", "asf": "containers/asf", "flv": "containers/flv",
       "wav": "containers/wav", "mkv": "mkv", "ps": "mpeg2/ps", "ts": "mpeg2/ts", "rtp": "rtp", "exact_mp4": "exact",
       "xflv": "exact/xflv", "xmkv": "exact/xmkv", "xts": "exact/xts", "access_units": "units", "components": "api"}


def branches(build, folder=""):
    """(reached, all) of the sources whose path begins so."""
    out = subprocess.run(["gcovr", "-r", ROOT, "--object-directory", build / "src", build / "src", "--exclude-throw-branches",
                          "--exclude-unreachable-branches", "--filter", f"src/{folder}", "--json-summary"],
                         check=True, capture_output=True, text=True, cwd=ROOT).stdout
    summary = json.loads(out)
    return summary["branch_covered"], summary["branch_total"]


def replay(build, name, corpora):
    folders = [folder for folder in (ROOT / "fuzz/corpus" / name, corpora / f"fuzz_{name}" if corpora else None)
               if folder is not None and folder.is_dir()]
    if folders:
        subprocess.run([build / "bin" / f"fuzz_{name}", *folders], check=True, stdout=subprocess.DEVNULL)


def forget(build):
    for counts in build.rglob("*.gcda"):
        counts.unlink()


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    corpora = pathlib.Path(sys.argv[2]).resolve() if len(sys.argv) > 2 else None
    names = sorted(path.name[5:] for path in (build / "bin").glob("fuzz_*") if os.access(path, os.X_OK))
    print(f"{'target':16}{'of its own':>24}{'of all of src/':>24}")
    for name in names:
        if name not in OWN:
            continue
        forget(build)
        replay(build, name, corpora)
        row = f"{name:16}"
        for reached, total in (branches(build, OWN[name]), branches(build)):
            row += f"{reached:8} of {total:5} {100 * reached / max(1, total):5.1f} %"
        print(row, flush=True)
    forget(build)
    for name in names:
        replay(build, name, corpora)
    reached, total = branches(build)
    print(f"{'all together':16}{'':24}{reached:8} of {total:5} {100 * reached / max(1, total):5.1f} %")


if __name__ == "__main__":
    main()
