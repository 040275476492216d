#!/usr/bin/env python3
"""Makes, from the public headers and the list of exports, what hosts in other languages include:
    examples/managed/Perilink.cs   records, constants, callbacks and every managed export, for C#
    python/perilink/native.py      records, constants, callbacks and every narrow export, for Python

    make_bindings.py           writes both files
    make_bindings.py --check   fails when a file is not what it would write
    make_bindings.py --layout  compiles both beside the headers, and fails where a size, an offset or
                               a constant differs from what the C++ compiler makes of it
"""
import os
import pathlib
import re
import runpy
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
CSHARP = ROOT / "examples/managed/Perilink.cs"
PYTHON = ROOT / "python/perilink/native.py"

# The arrays of bytes; every other array is one of strings.
BYTE_ARRAYS = {
    "CS_UsbFinder_ReadWriteDeviceData", "CS_UsbFinder_GetDeviceOnLineWithUsbAddress",
    "CS_UsbKeyboard_LoadLayerKeys", "CS_UsbUpgrade_FileSplit"}
SCALARS = {"uint8_t": "byte", "char": "byte", "uint16_t": "ushort", "int32_t": "int",
           "uint32_t": "uint", "int": "int", "void": "void"}


# ---- What the headers say ------------------------------------------------------------------------

def read_headers():
    """The public headers as one line, without comments and preprocessor lines."""
    text = "".join(
        "".join(line for line in header.open() if not line.lstrip().startswith("#"))
        for header in sorted((ROOT / "include/perilink").glob("*.h")))
    text = subprocess.run(["gcc", "-fpreprocessed", "-E", "-P", "-x", "c++", "-"], input=text,
                          capture_output=True, text=True, check=True).stdout
    return " ".join(text.split())


HEADERS = read_headers()


def split(text, separator):
    return [part.strip() for part in text.split(separator) if part.strip()]


def parse(pattern, text):
    """What the pattern's groups find; what these scripts can't read is not to be passed over."""
    found = re.fullmatch(pattern, text)
    return found.groups() if found else sys.exit(f"not understood: {text}")


def records():
    """(name, members) of every record, its members as (type, name, count); no array: a count of 0.
    Each after the records that it holds."""
    for found in re.finditer(r"typedef struct (\w+) \{ (.*?) \} \1;", HEADERS):
        members = [parse(r"(\w+) (\w+)(?:\[(\d+)\])?", member) for member in split(found[2], ";")]
        yield found[1], [(kind, name, int(count or 0)) for kind, name, count in members]


def enums():
    """(name, [(enumerator, value)]) of every enumeration; constants have no name."""
    for found in re.finditer(r"\benum (?:(\w+) )?\{ ([^}]*?) ?\};", HEADERS):
        yield found[1] or "", [parse(r"(PERILINK_\w+) = (\w+)", member)
                               for member in split(found[2], ",")]


def callbacks():
    """(result, name, parameters) of every callback."""
    for found in re.finditer(r"typedef (\w+)\(PERILINK_CALL\* (\w+)\)\(([^)]*)\);", HEADERS):
        yield found[1], found[2], [p.strip() for p in found[3].split(",")]


def exports(pattern=r"CS_\w+"):
    """(result, name, parameters) of every export whose name is so: of the managed ones."""
    for found in re.finditer(rf"PERILINK_API ([\w* ]+?)\s*\b({pattern})\(([^)]*)\);", HEADERS):
        parameters = [] if found[3] == "void" else found[3].split(",")
        yield found[1].replace(" *", "*"), found[2], [p.strip() for p in parameters]


def narrow_exports():
    """The same of every export that C can call and that gives no SAFEARRAY."""
    for result, name, parameters in exports(r"(?!CS_)\w+"):
        if not any("std::" in of for of in parameters) and result != "SAFEARRAY*":
            yield result, name, parameters


def version():
    text = (ROOT / "include/perilink/version.h").read_text()
    return tuple(int(number) for number in re.findall(r"VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", text))


def camel(name):
    """dpi_level_count, DPI_LEVELS: DpiLevelCount, DpiLevels."""
    return "".join(part[:1].upper() + part[1:].lower() for part in name.split("_"))


def short_enum(name, members):
    """PerilinkCommand with PERILINK_COMMAND_EVENT: Command, [(EVENT, value)]."""
    prefix = os.path.commonprefix([member for member, _ in members])
    prefix = prefix[:prefix.rindex("_") + 1]
    return name.removeprefix("Perilink"), [(member[len(prefix):], value) for member, value in members]


# ---- C# ------------------------------------------------------------------------------------------

CSHARP_START = """\
// Made from the public headers by scripts/make_bindings.py. What each record, constant and export
// means, failure values and threads are told there.
using System;
using System.Runtime.InteropServices;

namespace Perilink
{
    // Keep a reference to a callback for as long as the library may call it. What its pointers point
    // to is the library's and lasts only as long as the call: copy it with Marshal.Copy."""

CSHARP_HIDD_ATTRIBUTES = """
    // The system's record; the library fills it.
    [StructLayout(LayoutKind.Sequential)]
    internal struct HiddAttributes
    {
        public uint Size;
        public ushort VendorId, ProductId, VersionNumber;
    }"""


def callback_parameter(text):
    of_type, name = re.fullmatch(r"(.*?[* ])(\w+)", text).groups()
    name = re.sub(r"_(\w)", lambda found: found[1].upper(), name)
    if "*" in of_type:
        return f"IntPtr {name}"
    if of_type.strip() == "bool":
        return f"[MarshalAs(UnmanagedType.I1)] bool {name}"
    return f"{SCALARS[of_type.strip()]} {name}"


def csharp_callbacks():
    for result, name, parameters in callbacks():
        yield "    [UnmanagedFunctionPointer(CallingConvention.StdCall)]"
        yield f"    internal delegate {SCALARS[result]} {name}("
        yield "        " + ", ".join(map(callback_parameter, parameters)) + ");"
        yield ""


def csharp_enums():
    for name, members in enums():
        if not name:
            continue
        short, members = short_enum(name, members)
        yield from ["", f"    internal enum {short} : byte", "    {"]
        yield from [f"        {camel(member)} = {value}," for member, value in members]
        yield "    }"
    yield from ["", "    internal static class Constants", "    {"]
    yield from [f"        internal const int {camel(member.removeprefix('PERILINK_'))} = {value};"
                for name, members in enums() if not name for member, value in members]
    yield "    }"


def csharp_records():
    for name, members in records():
        yield from ["", "    [StructLayout(LayoutKind.Sequential, Pack = 1)]",
                    f"    internal struct {name}", "    {"]
        for kind, member, count in members:
            kind = SCALARS.get(kind, kind)
            if count:
                yield f"        [MarshalAs(UnmanagedType.ByValArray, SizeConst = {count})]"
                kind += "[]"
            yield f"        public {kind} {camel(member)};"
        yield "    }"


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
    known = {name for name, _ in records()} | {name for _, name, _ in callbacks()}
    if of_type.endswith("*"):
        passing = "in" if of_type.startswith("const ") else "ref"
        of_type = of_type.removeprefix("const ")[:-1]
        return f"{passing} {of_type if of_type in known else SCALARS[of_type]} {name}"
    return f"{of_type if of_type in known else SCALARS[of_type]} {name}"


def csharp_exports():
    yield from ["", "    internal static class Native", "    {",
                '        private const string Library = "perilink.dll";']
    for result, name, parameters in exports():
        marshalling, of_type = result_lines(result, name)
        yield from ["", "        [DllImport(Library, ExactSpelling = true)]"]
        if marshalling:
            yield "        " + marshalling
        lines = [f"        internal static extern {of_type} {name}("]
        lines += [f"            {parameter(p)}," for p in parameters]
        yield from [*lines[:-1], lines[-1].rstrip(",") + ");"]
    yield "    }"


def make_csharp():
    listed = set(re.findall(r"^\s*(CS_\w+)", (ROOT / "src/interop/exports.def").read_text(),
                            re.MULTILINE))
    names = {name for _, name, _ in exports()}
    if names != listed:
        sys.exit(f"declared or exported only: {sorted(names ^ listed)}")
    return "\n".join([CSHARP_START, *list(csharp_callbacks())[:-1], *csharp_enums(),
                      *csharp_records(), CSHARP_HIDD_ATTRIBUTES, *csharp_exports(), "}", ""])


# ---- Python --------------------------------------------------------------------------------------

PYTHON_START = '''\
"""Records, constants, callbacks and the narrow exports of perilink, made from the public headers by
scripts/make_bindings.py. What each means is told there."""
import ctypes
import enum
from typing import Any

CALLBACK = getattr(ctypes, "WINFUNCTYPE", ctypes.CFUNCTYPE)
'''

PYTHON_NAMES = {"void": "None", "int": "ctypes.c_int", "char*": "ctypes.c_char_p",
                "char**": "ctypes.POINTER(ctypes.c_char_p)",
                "_HIDD_ATTRIBUTES*": "ctypes.c_void_p"}


def python_name(kind):
    """A C type, without const and struct."""
    if kind.endswith("*") and kind not in PYTHON_NAMES:
        return f"ctypes.POINTER({python_name(kind[:-1])})"
    scalar = kind.removesuffix("_t")
    return PYTHON_NAMES.get(kind, f"ctypes.c_{scalar}" if kind in {*SCALARS, "bool"} else kind)


def python_type(kind, count):
    kind = python_name("uint8_t" if kind == "char" else kind)
    return f"{kind} * {count}" if count else kind


def python_parameter(text):
    of_type, _ = re.fullmatch(r"(.*?[* ])(\w+)", text).groups()
    return python_name(of_type.strip().replace("const ", "").replace("struct ", "").replace(" *", "*"))


def python_records():
    for name, members in records():
        yield from ["", "", f"class {name}(ctypes.LittleEndianStructure):", "    _pack_ = 1",
                    "    _fields_ = ["]
        yield from [f'        ("{member}", {python_type(kind, count)}),'
                    for kind, member, count in members]
        yield "    ]"


def python_functions():
    yield from ["", "", "# Of every function: its result, its arguments.",
                "FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {"]
    for result, name, parameters in narrow_exports():
        lines = [f'    "{name}": (', f"        {python_name(result)},", "        ["]
        lines += [f"            {python_parameter(p)}," for p in parameters]
        short = f'    "{name}": ({python_name(result)}, ['
        short += ", ".join(map(python_parameter, parameters)) + "]),"
        yield from [short] if len(short) <= 100 else [*lines, "        ],", "    ),"]
    yield "}"


def make_python():
    lines = [PYTHON_START, f"VERSION = {version()}"]
    lines += [f"{member.removeprefix('PERILINK_')} = {value}"
              for name, members in enums() if not name for member, value in members]
    for name, members in enums():
        if name:
            short, members = short_enum(name, members)
            lines += ["", "", f"class {short}(enum.IntEnum):"]
            lines += [f"    {member} = {value}" for member, value in members]
    lines += [*python_records(), "", ""]
    for result, name, parameters in callbacks():
        kinds = ", ".join([python_name(result), *map(python_parameter, parameters)])
        lines.append(f"{name} = CALLBACK({kinds})")
    return "\n".join([*lines, *python_functions()]) + "\n"


# ---- Against the compiler ------------------------------------------------------------------------

def cpp_layout(folder):
    """{C name: value} as the C++ compiler has it: RECORD: size, RECORD.MEMBER: offset, constants."""
    printed = [member for _, members in enums() for member, _ in members]
    printed = [(name, name) for name in printed]
    for name, members in records():
        printed.append((name, f"sizeof({name})"))
        printed += [(f"{name}.{member}", f"offsetof({name}, {member})") for _, member, _ in members]
    body = "".join(f'std::printf("{name} %lld\\n", static_cast<long long>({value}));\n'
                   for name, value in printed)
    source = f"#include <perilink/perilink.h>\n#include <cstdio>\nint main() {{\n{body}}}\n"
    subprocess.run(["g++", "-std=c++20", f"-I{ROOT / 'include'}", "-xc++", "-", "-o",
                    folder / "layout"], input=source, text=True, check=True)
    return printed_values([folder / "layout"])


def printed_values(command):
    output = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    return {name: int(value) for name, value in map(str.split, output.splitlines())}


def renamed(layout, rename_member, constants):
    """The layout under the names of another language; `constants` stands before a constant."""
    names = {}
    for name, members in enums():
        short, members_short = short_enum(name, members) if name else ("", [])
        for (member, _), (last, _) in zip(members, members_short or members):
            of = f"{short}." if name else constants
            names[member] = of + rename_member(last.removeprefix("PERILINK_"))
    for name, members in records():
        names[name] = name
        names |= {f"{name}.{member}": f"{name}.{rename_member(member)}" for _, member, _ in members}
    return {names[name]: value for name, value in layout.items()}


def csharp_layout(folder):
    program = folder / "layout.exe"
    subprocess.run(["mcs", "-langversion:7.2", "-main:Perilink.Layout", f"-out:{program}", CSHARP,
                    ROOT / "examples/managed/Host.cs", ROOT / "scripts/Layout.cs"], check=True)
    return printed_values(["mono", program])


def python_layout():
    layout = {}
    for name, value in runpy.run_path(str(PYTHON)).items():
        if isinstance(value, int):
            layout[name] = value
        elif hasattr(value, "__members__"):
            layout |= {f"{name}.{member}": int(of) for member, of in value.__members__.items()}
        elif hasattr(value, "_fields_"):
            layout |= {f"{name}.{member}": getattr(value, member).offset
                       for member, _ in value._fields_}
            layout[name] = len(bytes(value()))
    return layout


def check_layouts():
    with tempfile.TemporaryDirectory() as text:
        folder = pathlib.Path(text)
        layout = cpp_layout(folder)
        differences = (
            renamed(layout, camel, "Constants.").items() ^ csharp_layout(folder).items() |
            renamed(layout, str, "").items() ^ python_layout().items())
    if differences:
        sys.exit(f"on one side only: {sorted(differences)}")
    print(f"{len(layout)} sizes, offsets and constants")


def main():
    files = {CSHARP: make_csharp(), PYTHON: make_python()}
    if sys.argv[1:] == ["--check"]:
        for path, text in files.items():
            if not path.exists() or path.read_text() != text:
                sys.exit(f"{path.relative_to(ROOT)} is out of date: run scripts/make_bindings.py")
    elif sys.argv[1:] == ["--layout"]:
        check_layouts()
    else:
        for path, text in files.items():
            path.write_text(text)


main()
