#!/usr/bin/env python3
"""Makes examples/managed/Perilink.cs, the C# declarations of every managed export, from the public
headers and the list of exports:
    make_csharp.py           writes the file
    make_csharp.py --check   fails when the file is not what it would write
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
TARGET = ROOT / "examples/managed/Perilink.cs"

# The arrays of bytes; every other array is one of strings.
BYTE_ARRAYS = {
    "CS_UsbFinder_ReadWriteDeviceData", "CS_UsbFinder_GetDeviceOnLineWithUsbAddress",
    "CS_UsbKeyboard_LoadLayerKeys", "CS_UsbUpgrade_FileSplit"}
SCALARS = {"uint8_t": "byte", "int32_t": "int", "uint32_t": "uint", "void": "void"}
CALLBACKS = {"ServerReportCallback", "UsbChangedCallback", "UpgradeCallback"}
RECORDS = {
    "BatteryLevel", "CidMid", "CommandFrame", "DPILed", "DataRecord10", "DeviceInfo", "DeviceStatus",
    "IndicatorLed", "LedBar", "ProtocolData", "RgbBarMode"}


def declarations():
    """(result, name, parameters) of every managed export that the headers declare."""
    text = "".join(
        "".join(line for line in header.open() if not line.lstrip().startswith("#"))
        for header in sorted((ROOT / "include/perilink").glob("*.h")))
    text = subprocess.run(["gcc", "-fpreprocessed", "-E", "-P", "-x", "c++", "-"], input=text,
                          capture_output=True, text=True, check=True).stdout
    text = " ".join(text.split())
    for found in re.finditer(r"PERILINK_API ([\w* ]+?)\s*\b(CS_\w+)\(([^)]*)\);", text):
        parameters = [] if found[3] == "void" else found[3].split(",")
        yield found[1].replace(" *", "*"), found[2], [p.strip() for p in parameters]


def result_lines(result, name):
    if result == "bool":
        return "[return: MarshalAs(UnmanagedType.I1)]", "bool"
    if result == "SAFEARRAY*":
        kind = "UI1" if name in BYTE_ARRAYS else "BSTR"
        return (f"[return: MarshalAs(UnmanagedType.SafeArray, SafeArraySubType = VarEnum.VT_{kind})]",
                "byte[]" if kind == "UI1" else "string[]")
    return None, SCALARS[result]


def parameter(text):
    of_type, name = re.fullmatch(r"(.*?[* ])(\w+)", text).groups()
    of_type = of_type.strip().replace("struct ", "").replace(" *", "*")
    name = {"out": "output", "params": "parameters"}.get(name, name)
    name = re.sub(r"_(\w)", lambda found: found[1].upper(), name)
    if of_type == "const char*":
        return f"[MarshalAs(UnmanagedType.LPStr)] string {name}"
    if of_type in ("const uint8_t*", "const uint32_t*"):
        return f"{SCALARS[of_type[6:-1]]}[] {name}"
    if of_type == "_HIDD_ATTRIBUTES*":
        return f"ref HiddAttributes {name}"
    if of_type.endswith("*"):
        passing = "in" if of_type.startswith("const ") else "ref"
        of_type = of_type.removeprefix("const ")[:-1]
        return f"{passing} {of_type if of_type in RECORDS else SCALARS[of_type]} {name}"
    return f"{of_type if of_type in CALLBACKS else SCALARS[of_type]} {name}"


def make():
    lines = [
        "// Made from the public headers by scripts/make_csharp.py. What each export does, its failure",
        "// values and threads are told there.",
        "using System.Runtime.InteropServices;",
        "",
        "namespace Perilink",
        "{",
        "    internal static class Native",
        "    {",
        '        private const string Library = "perilink.dll";',
    ]
    names = set()
    for result, name, parameters in declarations():
        marshalling, of_type = result_lines(result, name)
        names.add(name)
        lines += ["", "        [DllImport(Library, ExactSpelling = true)]"]
        if marshalling:
            lines.append("        " + marshalling)
        lines.append(f"        internal static extern {of_type} {name}(")
        lines += [f"            {parameter(p)}," for p in parameters]
        lines[-1] = lines[-1].rstrip(",") + ");"
    lines += ["    }", "}", ""]

    exports = (ROOT / "src/interop/exports.def").read_text()
    listed = set(re.findall(r"^\s*(CS_\w+)", exports, re.MULTILINE))
    if names != listed:
        sys.exit(f"declared or exported only: {sorted(names ^ listed)}")
    return "\n".join(lines)


if sys.argv[1:] == ["--check"]:
    if not TARGET.exists() or TARGET.read_text() != make():
        sys.exit(f"{TARGET.relative_to(ROOT)} is out of date: run scripts/make_csharp.py")
else:
    TARGET.parent.mkdir(exist_ok=True)
    TARGET.write_text(make())
