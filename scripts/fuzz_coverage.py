#!/usr/bin/env python3
"""Which branches of src/ the fuzz targets reach, each by itself and all together: fuzz_coverage.py BUILD [CORPORA] [--missing]

BUILD is made by the preset fuzz with MUXORA_COVERAGE=ON; its targets run the seeds of fuzz/corpus, and what
`make fuzz-long` kept in CORPORA. Branches are counted as scripts/coverage.py does. --missing lists those that none of
them reach.
"""

import argparse
import os
import pathlib
import subprocess
import tempfile

from coverage import ROOT, count, merge, name, print_missing, read_left_out, share

# Where a target's own code is, beside what all share.
OWN = {"ovx": "ovx", "iso": "iso", "avi": "containers/avi", "asf": "containers/asf", "flv": "containers/flv",
       "wav": "containers/wav", "mkv": "mkv", "ps": "mpeg2/ps", "ts": "mpeg2/ts", "rtp": "rtp", "exact_mp4": "exact",
       "xflv": "exact/xflv", "xmkv": "exact/xmkv", "xts": "exact/xts", "access_units": "units", "components": "api",
       "basalt": "basalt", "codec": "codec"}


def replay(build, target, corpora, profiles):
    folders = [folder for folder in (ROOT / "fuzz/corpus" / target, corpora / f"fuzz_{target}" if corpora else None)
               if folder is not None and folder.is_dir()]
    # libFuzzer writes new inputs into its first folder, and of these there are none.
    subprocess.run([build / "bin" / f"fuzz_{target}", "-runs=0", *folders], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, env=os.environ | {"LLVM_PROFILE_FILE": str(profiles / f"{target}.profraw")})


def row(taken, left_out, folder):
    branches = [branch for branch in taken if branch.file.startswith(f"src/{folder}") and name(branch) not in left_out]
    reached, total, percent = share(branches, taken)
    return f"{reached:8} of {total:5} {percent:5.1f} %"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("corpora", type=pathlib.Path, nargs="?")
    parser.add_argument("--missing", action="store_true")
    options = parser.parse_args()
    build, corpora = options.build.resolve(), options.corpora and options.corpora.resolve()
    targets = sorted(path.name[5:] for path in (build / "bin").glob("fuzz_*") if os.access(path, os.X_OK))
    left_out = read_left_out()
    print(f"{'target':16}{'of its own':>24}{'of all of src/':>24}")
    with tempfile.TemporaryDirectory() as work:
        every = pathlib.Path(work) / "every"
        every.mkdir()
        for target in targets:
            replay(build, target, corpora, every)
            if target not in OWN:
                continue
            alone = pathlib.Path(work) / target
            alone.mkdir()
            (alone / "one.profraw").symlink_to(every / f"{target}.profraw")
            taken = count(merge(alone, alone), [build / "bin" / f"fuzz_{target}"])
            print(f"{target:16}{row(taken, left_out, OWN[target])}{row(taken, left_out, '')}", flush=True)
        taken = count(merge(every, every), [build / "bin" / f"fuzz_{target}" for target in targets])
        print(f"{'all together':16}{'':24}{row(taken, left_out, '')}")
    if options.missing:
        print_missing([branch for branch in taken if branch.file.startswith("src/") and name(branch) not in left_out], taken)


if __name__ == "__main__":
    main()
