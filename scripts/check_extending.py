#!/usr/bin/env python3
"""Adds a setting as docs/extending.md says, in a copy of the project, and holds the copy to what the
page promises: everything builds, fuzz targets and C# included, the tests of what walks the table pass,
and perictl reads and writes the new setting.
    check_extending.py [FOLDER]     the copy, kept for the next time; default: build/extending
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# What the page's section tells to change: file, and pairs of old and new text.
CHANGES = {
    "include/perilink/records.h": [
        ("  uint8_t unused46[2];\n", "  uint8_t setting46;\n  uint8_t unused47;\n"),
        ("PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, unused46) == 46);\n",
         "PERILINK_CHECK_LAYOUT(offsetof(ProtocolData, setting46) == 46);\n"),
    ],
    "include/perilink/protocol.h": [
        ("PERILINK_SETTINGS_BLOCK_SIZE = 233", "PERILINK_SETTINGS_BLOCK_SIZE = 235"),
    ],
    "include/perilink/config_layout.h": [
        ("kSettingCount = 30;", "kSettingCount = 31;"),
        ("    PERILINK_SETTING(setting45, 231, kPlain, true, 0),\n",
         "    PERILINK_SETTING(setting45, 231, kPlain, true, 0),\n"
         "    PERILINK_SETTING(setting46, 233, kPlain, true, 0),\n"),
    ],
    "src/protocol/fields.cpp": [("unused46", "unused47")],
    "sim/src/flash_image.cpp": [("{223, 1, 5}", "{223, 1, 6}")],
    "tests/protocol/image.h": [
        ("add(195, 231, 20);", "add(195, 233, 20);"),
        ("EXPECT_EQ(places.size(), 76u);", "EXPECT_EQ(places.size(), 77u);"),
    ],
    "docs/command-protocol.md": [
        ("| 223 | 10 | settings 41 to 45: fields of 1 byte; the end of the settings block at 233 |",
         "| 223 | 12 | settings 41 to 46: fields of 1 byte; the end of the settings block at 235 |"),
    ],
}

# What the page tells to run.
BINDINGS = "scripts/make_bindings.py"

TESTS = ["protocol_test", "server_simulation", "tools_test", "config_update_test"]
# Of these, the tests that walk the table.
CHOSEN = r"^(protocol_test|tools_test)\.|^server_simulation\.1$|^config_update_test.*/0$"
FUZZ = ["flash_image", "compare", "config_json", "config_record"]

# Prints the size of the record as C# hosts have it.
SIZE_CS = """
class Size {
  static void Main() {
    System.Console.WriteLine(
      System.Runtime.InteropServices.Marshal.SizeOf(typeof(Perilink.ProtocolData)));
  }
}
"""


def fail(message):
    sys.exit(f"check_extending: {message}")


def run(*command, folder, **options):
    """What the command prints. Its failure ends the check."""
    result = subprocess.run(command, cwd=folder, text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, check=False, **options)
    if result.returncode != 0:
        fail(f"{' '.join(map(str, command))} failed\n{result.stdout[-6000:]}")
    return result.stdout


def make_copy(copy):
    """Copies what git knows or would know. A file that is the same keeps its time, for the builds."""
    names = run("git", "ls-files", "-z", "--cached", "--others", "--exclude-standard", folder=ROOT)
    for name in filter(None, names.split("\0")):
        source, target = ROOT / name, copy / name
        if not source.is_file():
            continue
        text = source.read_bytes()
        for old, new in CHANGES.get(name, []):
            if text.count(old.encode()) != 1:
                fail(f"{name} does not hold, once: {old}")
            text = text.replace(old.encode(), new.encode())
        if target.exists() and target.read_bytes() == text:
            continue
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(text)
        shutil.copymode(source, target)


def check_page():
    """The page names the files that are changed here, and no others."""
    section = re.search(r"^## A setting\n(.*?)^## ", (ROOT / "docs/extending.md").read_text(),
                        re.MULTILINE | re.DOTALL)[1]
    named = {name for name in re.findall(r"`([\w/-]+\.\w+)`", section) if (ROOT / name).is_file()}
    if named != {*CHANGES, BINDINGS}:
        fail(f"the page names {sorted(named)}, but {sorted(CHANGES)} change, by {BINDINGS} too")


def build(copy, preset, *targets):
    # Compiling takes all the time: nothing here needs to be fast or to be debugged.
    run("cmake", "-S", copy, "--preset", preset, "-DPERILINK_BENCH=OFF",
        "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O0", "-DCMAKE_CXX_FLAGS_DEBUG=-O0", folder=copy)
    run("cmake", "--build", copy / "build" / preset, "--parallel", str(os.cpu_count()), "--target",
        *targets, folder=copy)


def check_tools(copy, scratch):
    """The new setting in perictl, and a file that was saved before there was one."""
    perictl = copy / "build/native/bin/perictl"
    memory = ["--virtual-time", "--virtual-memory", scratch / "memory.img"]

    def ask(*words):
        return run(perictl, *words, *memory, folder=scratch,
                   env=dict(os.environ, XDG_STATE_HOME=str(scratch)))
    ask("set", "--raw", "setting46=77")
    if "77" not in ask("get", "setting46"):
        fail("perictl does not keep the new setting")
    ask("config", "save", "new.json")
    text = (scratch / "new.json").read_text()
    (scratch / "old.json").write_text(re.sub(r'\s*"setting46": 77,', "", text))
    ask("set", "--raw", "setting46=78", "setting45=1")
    if "not in the file       setting46" not in ask("config", "load", "old.json"):
        fail("a file without the setting does not say so")
    if "78" not in ask("get", "setting46"):
        fail("a file without the setting changed it")


def main():
    copy = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/extending").resolve()
    check_page()
    copy.mkdir(parents=True, exist_ok=True)
    make_copy(copy)
    run(BINDINGS, folder=copy)
    build(copy, "native", "perilink", "perictl", *TESTS)
    run("ctest", "--test-dir", "build/native", "--no-tests=error", "--output-on-failure",
        "--parallel", str(os.cpu_count()), "-R", CHOSEN, folder=copy)
    build(copy, "fuzz", *("fuzz_" + name for name in FUZZ))

    scratch = copy / "scratch"
    shutil.rmtree(scratch, ignore_errors=True)
    scratch.mkdir()
    check_tools(copy, scratch)
    run(BINDINGS, "--layout", folder=copy)
    (scratch / "Size.cs").write_text(SIZE_CS)
    managed = sorted((copy / "examples/managed").glob("*.cs"))
    run("mcs", "-langversion:latest", "-main:Size", "-out:size.exe", "Size.cs", *managed,
        folder=scratch)
    size = run("mono", "size.exe", folder=scratch).strip()
    if size != "10508":
        fail(f"the record of C# hosts has {size} bytes")
    print("a new setting: all of it builds, and perictl reads and writes it")


main()
