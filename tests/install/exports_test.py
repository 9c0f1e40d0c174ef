#!/usr/bin/env python3
"""The shared library exports what is meant to be public and nothing else: exports_test.py LIBRARY"""

import re
import subprocess
import sys

FUNCTIONS = {
    "MX_CreateHandle", "MX_DestroyHandle", "MX_CreateHeader", "MX_InputFrame", "MX_CreateTailer", "MX_SetParam",
    "MX_GetParam", "MX_SetEncryptType", "MX_GetPacketCapacity", "MX_GetVersion", "MX_GetBackup",
    "MX_CreateAccessUnits", "MX_DestroyAccessUnits", "MX_PutBytes", "MX_PutNal", "MX_EndAccessUnits",
    "MX_GetAccessUnit", "MX_SetMessageFunction", "MX_RepairHybrid",
}
CLASSES = {
    "Orvane::Muxora": [
        "IMuxora", "CMuxora", "IMuxoraData", "CMuxoraDataImpl", "IFilePackage", "CFilePackage", "IMuxora::IFactory",
        "CMuxora::CFactory", "IFilePackage::IFactory", "CFilePackage::CFactory",
    ],
    "Basalt": ["IUnknown", "IFactoryUnknown", "CPacket", "CLfsFile", "CVersion"],
}
FREE = {"Orvane::Muxora::initMuxoraComponentLibrary", "Basalt::setLastError", "Basalt::getLastError"}

classes = "|".join(re.escape(f"{space}::{name}") for space, names in CLASSES.items() for name in names)
member = re.compile(rf"(?:non-virtual thunk to )?(?:{classes})::(?:~?\w+|operator=)(?:\[abi:\w+\])?(?:\(|$)")
tables = re.compile(rf"(?:vtable|typeinfo|typeinfo name|VTT) for (?:{classes})$")


def main() -> int:
    listing = subprocess.run(["nm", "-D", "-C", "--defined-only", sys.argv[1]], check=True, capture_output=True, text=True)
    names = [line.split(" ", 2)[2] for line in listing.stdout.splitlines()]
    guards = [name for name in names if name.startswith("muxora_must_be_built_with_")]
    names = [name for name in names if name not in guards]
    functions = {name for name in names if name.startswith("MX_")}
    unexpected = [
        name for name in names
        if name not in FUNCTIONS and not member.match(name) and not tables.match(name)
        and name.split("(")[0].split("[abi")[0] not in FREE
    ]
    missing = FUNCTIONS - functions
    for space, classes_ in CLASSES.items():
        missing |= {f"{space}::{c}" for c in classes_ if not any(f"{space}::{c}::" in name for name in names)}
    missing |= {name for name in FREE if not any(n.startswith(name + "(") or n.startswith(name + "[") for n in names)}
    for name in unexpected:
        print(f"exported, but not public: {name}")
    for name in sorted(missing):
        print(f"public, but not exported: {name}")
    if len(guards) != 1:
        print(f"one name says what the library was built with: {guards}")
        missing.add("guard")
    print(f"{len(names)} symbols")
    return 1 if unexpected or missing else 0


if __name__ == "__main__":
    sys.exit(main())
