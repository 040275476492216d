#!/usr/bin/env python3
"""Runs every shell line of README.md and docs/*.md, compiles their code, and looks for the files that
they name:
    check_docs.py [DOCUMENT...]
Both builds, native and windows, must be there. What the language of a fenced block says:

    sh        every line is a command
    console   a line "$ COMMAND" is a command, what follows is what it prints: "..." stands for
              anything in a line, alone for any number of lines, and a time for any time. Where
              nothing follows, anything may be printed
    cpp, c    compiles in a function, after the public headers; "cpp sketch" is not compiled,
              since it is about code that is yet to be written
    c windows the same, for Windows, after the system's headers too
    csharp    stands in examples/managed/Perilink.cs
    python    runs, with a virtual mouse plugged in
    text      no commands

Every command must succeed. Those of one section run one after another in a folder of the section's
own that looks like the repository; sections run side by side. One that stands twice in its section
runs the second time. DIR is another folder in each block.
A script with arguments between backticks runs too, unless they are placeholders (STAGE, ...). A line
that looks like a command anywhere else is a failure.
"""
import concurrent.futures
import dataclasses
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
LANGUAGES = {"sh", "console", "cpp", "cpp sketch", "c", "c windows", "csharp", "python", "text"}
TIMEOUT = 120

# Commands that are only looked for, and why. Stages that a line names exist.
NOT_RUN = {
    "./test": "it runs this check",
    "scripts/fuzz.sh": "it runs for as long as one likes; the replay of its corpus is a stage of ./test",
    "scripts/simulate.sh": "it runs as many seeds as one likes; some thousands are tests",
    "scripts/coverage.sh": "it runs all tests, in a build of its own",
    "scripts/package.sh": "it builds all once more; the stage package runs it",
    "scripts/make_drawings.py": "it changes the repository; the stage docs has it check",
    "scripts/mutate.sh": "it plants faults, in a build of its own, for an hour if one likes",
    "scripts/soak.sh": "it runs for as many minutes as one likes",
    "scripts/vm.sh": "it starts a virtual machine; the stage kernel runs in one",
    "scripts/bench.sh": "it measures, which wants a machine that does nothing else",
}

SCRIPT = r"(?:\./\w|scripts/\S+\.(?:sh|py)\b|build/\S+/bin/\w)"
TOOL = r"(?:cmake|ctest|g\+\+|gcc|perictl|pkg-config|x86_64-w64-\S+) (?:.* )?-"
LOOKS_LIKE_COMMAND = re.compile(rf"\s*(?:\$ |(?:\w+=\S+ +)*(?:{SCRIPT}|{TOOL}))")
INLINE = re.compile(rf"`({SCRIPT}[^`]*)`")
PLACEHOLDER = re.compile(r"\b[A-Z]{3,}\b|\.\.\.")
LINK = re.compile(r"\]\(([^)#:]+)(?:#[^)]*)?\)")
FILE = re.compile(r"`((?:bench|cmake|docs|examples|fuzz|include|portable|scripts|sim|src|tests|tools)/"
                  r"[\w./]*)`")
TIME = re.compile(r"\d+(?:\\\.\d+)?(\\ m?s\b)")
WINDOWS_HEADERS = "#include <windows.h>\n#include <hidsdi.h>\n"
ANNOUNCEMENT = re.compile(r"^perictl: using (a )?virtual .*\n", re.MULTILINE)


class Failed(Exception):
    pass


@dataclasses.dataclass
class Command:
    line: int
    text: str
    printed: list
    inline: bool = False


@dataclasses.dataclass
class Snippet:
    line: int
    language: str
    text: str


class Document:
    """A document's commands by section, and its pieces of code."""

    def __init__(self, path):
        self.path = path
        self.sections = [[]]
        self.snippets = []
        self.blocks = 0
        block = None
        for line, text in enumerate(path.read_text().splitlines(), 1):
            fence = re.fullmatch(r"\s*```(.*)", text)
            if fence and block is None:
                block = (line, fence[1], [])
            elif fence:
                self.add_block(*block)
                block = None
            elif block is not None:
                block[2].append((line, text))
            else:
                self.add_text(line, text)
        self.require(block is None, "a block does not end", block and block[0])

    def require(self, holds, what, line):
        if not holds:
            raise Failed(f"{self.path.name}:{line}: {what}")

    def add_text(self, line, text):
        if text.startswith("#"):
            self.sections.append([])
        self.require(not LOOKS_LIKE_COMMAND.match(text), "a command outside of its block", line)
        for command in INLINE.findall(text):
            self.sections[-1].append(Command(line, command, [], inline=True))
        for base, pattern in [(self.path.parent, LINK), (ROOT, FILE)]:
            for name in pattern.findall(text):
                self.require((base / name).exists() or PLACEHOLDER.search(name),
                             f"there is no {name}", line)

    def add_block(self, start, language, lines):
        self.require(language in LANGUAGES, f"a block in no known language: '{language}'", start)
        if language == "sh":
            lines = [(line, "$ " + text) for line, text in lines if text.strip()]
        if language in {"sh", "console"}:
            self.add_commands(lines, language)
            return
        for line, text in lines:
            self.require(not LOOKS_LIKE_COMMAND.match(text), "a command outside of its block", line)
        self.snippets.append(Snippet(start, language, "\n".join(text for _, text in lines)))

    def add_commands(self, lines, language):
        """`lines` as in a console block."""
        self.blocks += 1
        commands = []
        for line, text in lines:
            text = text.strip()
            if commands and commands[-1].text.endswith("\\"):
                commands[-1].text = commands[-1].text[:-1] + text.removeprefix("$ ")
            elif text.startswith("$ "):
                commands.append(Command(line, text[2:].split(" #")[0].strip(), []))
            else:
                self.require(commands, "a console block starts with a command", line)
                commands[-1].printed.append(text)
        for command in commands:
            command.text = re.sub(r"\bDIR\b", f"dir{self.blocks}", command.text)
        self.sections[-1] += commands


def look_like_repository(folder):
    """Makes a folder in which the documents' commands find what they name."""
    for name in ["examples", "docs"]:
        shutil.copytree(ROOT / name, folder / name)
    (folder / "build").symlink_to(ROOT / "build")
    for script in [ROOT / "run", ROOT / "test", *ROOT.glob("scripts/*.*")]:
        wrapper = folder / script.relative_to(ROOT)
        wrapper.parent.mkdir(exist_ok=True)
        wrapper.write_text(f'#!/bin/sh\nPATH="{os.environ["PATH"]}" exec "{script}" "$@"\n')
        wrapper.chmod(0o755)
    # Presets are found from the repository alone; and one build at a time, as the scripts have it.
    cmake = folder / "path" / "cmake"
    cmake.parent.mkdir()
    cmake.write_text(f'''#!/bin/sh
exec 9>"{ROOT}/build/lock"
flock 9
case "$*" in *--preset*) cd "{ROOT}" ;; esac
exec "{shutil.which("cmake")}" "$@"
''')
    cmake.chmod(0o755)


def check_not_run(script, arguments):
    if not os.access(ROOT / script, os.X_OK):
        raise Failed(f"there is no command {script}")
    stages = re.findall(r"^stage_(\w+)\(\)", (ROOT / "test").read_text(), re.MULTILINE)
    for stage in arguments if script == "./test" else []:
        if stage not in stages:
            raise Failed(f"./test has no stage {stage}")


def compare(expected, output):
    """Fails when the lines of the output are not the expected ones."""
    printed = [line.strip() for line in ANNOUNCEMENT.sub("", output).splitlines()]
    at = 0
    anywhere = False
    for line in expected:
        if line == "...":
            anywhere = True
            continue
        pattern = TIME.sub(r"\\d+(?:\\.\\d+)?\1", re.escape(line).replace(r"\.\.\.", ".*"))
        last = len(printed) if anywhere else at + 1
        found = [i for i, text in enumerate(printed[:last])
                 if i >= at and re.fullmatch(pattern, text)]
        if not found:
            raise Failed(f"not printed where it should be: {line}\n{output}")
        at = found[0] + 1
        anywhere = False
    if at < len(printed) and not anywhere:
        raise Failed(f"prints more than is shown: {printed[at]}\n{output}")


def run(command, folder):
    words = command.text.split()
    arguments = [word for word in words[1:] if not PLACEHOLDER.search(word)]
    if words[0] in NOT_RUN or (command.inline and not arguments):
        check_not_run(words[0], arguments)
        return
    environment = dict(os.environ, PATH=f"{folder}/path:{os.environ['PATH']}",
                       XDG_STATE_HOME=f"{folder}/state")
    result = subprocess.run(["bash", "-c", command.text], cwd=folder, env=environment, text=True,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, timeout=TIMEOUT, check=False)
    if result.returncode != 0:
        raise Failed(f"exit code {result.returncode}\n{result.stdout}")
    if command.printed:
        compare(command.printed, result.stdout)


def run_section(document, commands):
    """The failure of the first command that fails, or nothing."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        look_like_repository(folder)
        for number, command in enumerate(commands):
            if any(command.text == later.text for later in commands[number + 1:]):
                continue
            try:
                run(command, folder)
            except (Failed, subprocess.TimeoutExpired) as error:
                return f"{document.path.name}:{command.line}: {command.text}\n{error}"
    return ""


def compile_code(language, text):
    """The compiler's complaint, or nothing."""
    headers, start, compiler = "#include <perilink/perilink.h>\n#include <stdio.h>\n", "", "gcc"
    if language == "cpp":
        headers += '#include "sim/mouse.h"\nusing namespace perilink;\n'
        start, compiler = "[[maybe_unused]] sim::Mouse device;\n", "g++"
    if language == "c windows":
        headers, compiler = headers + WINDOWS_HEADERS, "x86_64-w64-mingw32-gcc-posix"
    source = f"{headers}void F(void);\nvoid F(void) {{\n{start}{text}\n}}\n"
    folders = [f"-I{ROOT / name}" for name in
               ["include", "sim/include", "sim/portable/include", "portable/include"]]
    standard = ["-xc++", "-std=c++20"] if language == "cpp" else ["-xc", "-std=c11"]
    return subprocess.run(
        [compiler, *standard, *folders, "-fsyntax-only", "-Wall", "-Wextra", "-Werror", "-"],
        input=source, text=True, capture_output=True, check=False).stderr


def run_python(text):
    """The complaint, or nothing."""
    build = ROOT / "build/native"
    environment = dict(os.environ, PYTHONPATH=str(ROOT / "python"), PYTHONDONTWRITEBYTECODE="1",
                       PERILINK_LIBRARY=str(build / "src/libperilink.so"),
                       LD_PRELOAD=str(build / "sim/portable/libperilink_virtual_mouse.so"))
    result = subprocess.run([sys.executable, "-c", text], env=environment, text=True,
                            capture_output=True, timeout=TIMEOUT, check=False)
    return result.stderr if result.returncode != 0 else ""


def check_snippet(document, snippet):
    """What is wrong with it, or nothing."""
    problem = ""
    if snippet.language in {"c", "c windows", "cpp"}:
        problem = compile_code(snippet.language, snippet.text)
    elif snippet.language == "csharp":
        declarations = (ROOT / "examples/managed/Perilink.cs").read_text().split()
        if " ".join(snippet.text.split()) not in " ".join(declarations):
            problem = "it is not in examples/managed/Perilink.cs"
    elif snippet.language == "python":
        problem = run_python(snippet.text)
    return problem and f"{document.path.name}:{snippet.line}: {problem}"


def main():
    paths = list(map(pathlib.Path, sys.argv[1:]))
    documents = [Document(path)
                 for path in paths or [ROOT / "README.md", *sorted(ROOT.glob("docs/*.md"))]]
    with concurrent.futures.ThreadPoolExecutor(max_workers=os.cpu_count()) as pool:
        tasks = [pool.submit(check_snippet, document, snippet)
                 for document in documents for snippet in document.snippets]
        tasks += [pool.submit(run_section, document, commands)
                  for document in documents for commands in document.sections if commands]
        failures = [task.result() for task in tasks if task.result()]
    for failure in failures:
        print(failure, file=sys.stderr)
    count = sum(len(commands) for document in documents for commands in document.sections)
    print(f"{count} commands in {len(documents)} documents, {len(failures)} failures")
    sys.exit(bool(failures))


try:
    main()
except Failed as failed:
    sys.exit(str(failed))
