#!/usr/bin/env python3
"""Draws docs/*.svg from what the build is and does:
    rooms.svg     the rooms, by the link graph that the build states
    frame.svg     a command and its reply, as a virtual mouse has answered it
    image.svg     the map of the configuration image, by the addresses in the headers
    upgrade.svg   an upgrade in virtual time, as its host hears of it
    run.svg       what perictl's demo prints; its times are those of one run

    make_drawings.py BUILD_FOLDER           writes them
    make_drawings.py --check BUILD_FOLDER   fails when one is not what it would draw

(battery.svg is drawn by tools/battery_curve.)
"""
import ctypes
import html
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "python"))
sys.dont_write_bytecode = True
from perilink import native  # noqa: E402  pylint: disable=wrong-import-position

INK, GREY, PALE = "#0f172a", "#64748b", "#f1f5f9"
FILLS = ["#dbeafe", "#dcfce7", "#fef3c7", "#fae8ff", "#fee2e2", "#e0f2fe", "#ede9fe"]


class Picture:
    """An SVG in the making. Coordinates are pixels."""

    def __init__(self, width, height, font="sans-serif", back="#ffffff"):
        self.lines = [
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
            f'font-family="{font}" font-size="12">',
            '<defs><marker id="a" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="7" '
            f'markerHeight="7" orient="auto"><path d="M0 0 L8 4 L0 8 z" fill="{GREY}"/></marker></defs>',
            f'<rect width="{width}" height="{height}" fill="{back}"/>']

    def box(self, x, y, width, height, fill=PALE, stroke=GREY):
        self.lines.append(f'<rect x="{x:g}" y="{y:g}" width="{width:g}" height="{height:g}" '
                          f'fill="{fill}" stroke="{stroke}"/>')

    def text(self, x, y, text, anchor="start", fill=INK, size=12, more=""):
        self.lines.append(f'<text x="{x:g}" y="{y:g}" text-anchor="{anchor}" fill="{fill}" '
                          f'font-size="{size}"{more}>{html.escape(text)}</text>')

    def path(self, path, more=""):
        self.lines.append(f'<path d="{path}" fill="none" stroke="{GREY}"{more}/>')

    def done(self):
        return "\n".join([*self.lines, "</svg>", ""])


def output_of(*command, **environment):
    return subprocess.run(command, env={**os.environ, **environment}, text=True, check=True,
                          stdout=subprocess.PIPE, timeout=120).stdout


# ---- The rooms -----------------------------------------------------------------------------------

def link_graph(build):
    """{room: the rooms that it states}, of the library and of what stands beside it."""
    with tempfile.TemporaryDirectory() as folder:
        dot = pathlib.Path(folder, "graph.dot")
        output_of("cmake", f"--graphviz={dot}", str(build))
        text = dot.read_text()
    names = {}
    for node, label in re.findall(r'"(node\d+)" \[ label = "([^"\\]+)', text):
        found = re.fullmatch(r"room_(\w+)|perilink_(platform|sim|sim_core|sim_kernel|virtual_mouse)",
                             label)
        if found:
            names[node] = found[1] or {"platform": "portable"}.get(found[2], found[2])
    names = {node: name for node, name in names.items() if not name.startswith("arrows")}
    graph = {name: set() for name in names.values()}
    for node, other in re.findall(r'"(node\d+)" -> "(node\d+)"', text):
        if node in names and other in names:
            graph[names[node]].add(names[other])
    return graph


def below(graph, name):
    """All that a room sees, at whatever distance."""
    return graph[name].union(*(below(graph, other) for other in graph[name]))


def reduced(graph):
    """Without the arrows to rooms that are seen through another one, too."""
    return {name: {other for other in rooms
                   if not any(other in below(graph, between) for between in rooms)}
            for name, rooms in graph.items()}


def levels(graph):
    """The rooms by their height: one above the highest that it sees. From the top."""
    def height(name):
        return 1 + max(map(height, graph[name]), default=-1)
    rows = {}
    for name in sorted(graph):
        rows.setdefault(height(name), []).append(name)
    return [rows[height] for height in sorted(rows, reverse=True)]


def with_bends(graph, rows):
    """Graph and rows with a bend in every row that an arrow passes, so that it passes no room."""
    row_of = {name: number for number, row in enumerate(rows) for name in row}
    arrows = []
    for name in sorted(graph):
        for other in sorted(graph[name]):
            way = [name]
            for number in range(row_of[name] + 1, row_of[other]):
                way.append(f"{name}->{other}@{number}")
                rows[number].append(way[-1])
            arrows.append([*way, other])
    return arrows


def draw_rooms(build):
    graph = reduced(link_graph(build))
    rows = levels(graph)
    arrows = with_bends(graph, rows)
    above = {}
    for way in arrows:
        for upper, lower in zip(way, way[1:]):
            above.setdefault(lower, []).append(upper)
    full, step_y, width, height = 760, 66, 124, 32
    picture = Picture(full, step_y * len(rows) + 30)
    place = {}

    # Each row in the order of what stands above it.
    def wish(name):
        users = [place[user][0] for user in above.get(name, [])]
        return (sum(users) / len(users) if users else full, name)

    for number, row in enumerate(rows):
        row.sort(key=wish)
        widths = [40 if "@" in name else 160 for name in row]
        x = (full - sum(widths)) / 2
        for name, wide in zip(row, widths):
            place[name] = (x + wide / 2, step_y * number + 20)
            x += wide
    for way in arrows:
        x, y = place[way[0]]
        path = f"M{x:g} {y + height:g}"
        for name in way[1:]:
            (x1, y1), (x, y) = (x, y + height), place[name]
            bend = (y - y1) / 2
            path += f"C{x1:g} {y1 + bend:g} {x:g} {y - bend:g} {x:g} {y - 2:g}"
            path += f"V{y + height:g}" if name != way[-1] else ""
        picture.path(path, ' stroke-width="1.3" marker-end="url(#a)"')
    for name, (x, y) in sorted(place.items()):
        if "@" not in name:
            outside = name == "portable" or name.startswith(("sim", "virtual"))
            picture.box(x - width / 2, y, width, height, FILLS[1] if outside else PALE)
            picture.text(x, y + 21, name, "middle", size=14)
    picture.text(20, step_y * len(rows) + 20, "An arrow: uses, and may use all that is below it. "
                 "Green: Linux's side of the seam, and the virtual devices.", fill=GREY)
    return picture.done()


# ---- A frame -------------------------------------------------------------------------------------

ASK = """
import perilink, perilink.native as native
frame, reply = native.CommandFrame(8, 0x12), native.CommandFrame()
frame.checksum = (0x55 - sum(bytes(frame))) % 256
path = perilink.find("1234", "abcd")[0].path.encode()
assert perilink.exports().UsbFinderC_GetDeviceData(path, frame, reply)
print(bytes(frame).hex(), bytes(reply).hex())
"""


def draw_frame(build):
    request, reply = output_of(
        sys.executable, "-c", ASK, PYTHONPATH=str(ROOT / "python"), PYTHONDONTWRITEBYTECODE="1",
        PERILINK_LIBRARY=str(build / "src/libperilink.so"),
        LD_PRELOAD=str(build / "sim/portable/libperilink_virtual_mouse.so")).split()
    left, top, step = 90, 50, 38
    picture = Picture(left + 17 * step + 20, 270)
    for number in range(17):
        picture.text(left + (number + 0.5) * step, top - 8, str(number), "middle", GREY)
    for row, (name, text) in enumerate([("request", request), ("reply", reply)]):
        y = top + row * 44
        picture.text(left - 12, y + 21, name, "end")
        for index, (field, kind) in enumerate(native.CommandFrame._fields_):
            offset = getattr(native.CommandFrame, field).offset
            for byte in range(offset, offset + ctypes.sizeof(kind)):
                picture.box(left + byte * step, y, step, 32, FILLS[index % len(FILLS)])
                picture.text(left + (byte + 0.5) * step, y + 21,
                             text[2 * byte:2 * byte + 2].upper(), "middle", size=14)
    lines = 0
    for field, kind in native.CommandFrame._fields_:
        offset = getattr(native.CommandFrame, field).offset
        middle = left + (offset + ctypes.sizeof(kind) / 2) * step
        depth = top + 100 + 17 * (lines % 5)
        picture.path(f"M{middle:g} {top + 78}V{depth - 2:g}")
        picture.text(middle, depth + 10, field.replace("_", " "), "middle")
        lines += 1
    picture.text(left, 258, "“Which firmware?” “1.02.” The checksum is 0x55 minus the sum of bytes "
                 "0 to 15, modulo 256.", fill=GREY)
    return picture.done()


# ---- The configuration image ---------------------------------------------------------------------

def image_parts():
    """(name, address, size) of the parts of the image, in order."""
    n = native
    parts = [("settings", 0, n.DPI_VALUES_ADDRESS),
             ("DPI values", n.DPI_VALUES_ADDRESS, n.DPI_LEVELS * n.DPI_VALUE_SIZE),
             ("DPI colours", n.DPI_COLORS_ADDRESS, n.DPI_LEVELS * n.DPI_COLOR_SIZE),
             ("DPI indicator", n.DPI_LED_ADDRESS, n.DPI_LED_SIZE),
             ("key functions", n.KEY_FUNCTIONS_ADDRESS, n.KEY_FUNCTIONS * n.KEY_FUNCTION_SIZE),
             ("light bar", n.LED_BAR_ADDRESS, n.LED_BAR_SIZE),
             ("settings", n.LED_BAR_ADDRESS + n.LED_BAR_SIZE,
              n.SETTINGS_BLOCK_SIZE - n.LED_BAR_ADDRESS - n.LED_BAR_SIZE),
             ("shortcuts", n.SHORTCUT_ADDRESS, n.SLOTS * n.SHORTCUT_SLOT_SIZE),
             ("macros", n.MACRO_ADDRESS, n.SLOTS * n.MACRO_SLOT_SIZE),
             ("DPI extensions", n.DPI_EXTENSIONS_ADDRESS, n.DPI_LEVELS * n.DPI_EXTENSION_SIZE)]
    for (name, address, size), (_, following, _) in zip(parts, parts[1:]):
        assert address + size <= following, name
    assert parts[-1][1] + parts[-1][2] == n.FLASH_IMAGE_SIZE
    return parts


def draw_image(_build):
    width, left = 860, 20
    picture = Picture(width + 2 * left, 300)

    def strip(y, start, end, parts):
        scale = width / (end - start)
        picture.box(left, y, width, 44, "#ffffff")
        for index, (name, address, size) in enumerate(parts):
            x, wide = left + (address - start) * scale, size * scale
            picture.box(x, y, wide, 44, FILLS[index % len(FILLS)])
            middle = x + wide / 2
            if wide > 60:
                picture.text(middle, y + 19, name, "middle")
                picture.text(middle, y + 35, f"{address}…{address + size - 1}", "middle", GREY, 11)
            else:
                low = y + 62 + 32 * (index % 2)
                picture.path(f"M{middle:g} {y + 44}V{low - 12}")
                anchor = "end" if middle > width - 40 else "start" if middle < 60 else "middle"
                picture.text(middle, low, name, anchor)
                picture.text(middle, low + 14, f"{address}…{address + size - 1}", anchor, GREY, 11)

    parts = image_parts()
    block = native.SHORTCUT_ADDRESS
    slots = [part for part in parts if part[1] >= block]
    strip(30, 0, native.FLASH_IMAGE_SIZE, [("block", 0, block), *slots])
    strip(160, 0, block, [part for part in parts if part[1] < block])
    scale = width / native.FLASH_IMAGE_SIZE
    picture.path(f"M{left} 74L{left} 160M{left + block * scale:g} 74L{left + width} 160",
                 ' stroke-dasharray="3 3"')
    picture.text(left, 20, f"The image: {native.FLASH_IMAGE_SIZE} bytes", fill=GREY)
    picture.text(left, 290, "Values stand before a check byte each; white: no setting.", fill=GREY)
    return picture.done()


# ---- An upgrade ----------------------------------------------------------------------------------

NOTICES = {(native.UpgradeNotice.BOOT, 1): "the device echoes its reset command",
           (native.UpgradeNotice.BOOT, 2): "it is in boot mode",
           (native.UpgradeNotice.DOWNLOAD, 3): "it is ready for the download",
           (native.UpgradeNotice.END, 0): "it has the whole firmware"}


def draw_upgrade(build):
    events = [tuple(map(int, line.split()))
              for line in output_of(build / "bin/upgrade_trace").splitlines()]
    end = events[-1][0]
    left, top, width, height = 60, 30, 800, 180
    picture = Picture(900, 355)

    def x(time):
        return left + time * width / end

    for percent in range(0, 101, 25):
        y = top + height - percent * height / 100
        picture.path(f"M{left} {y:g}h{width}", ' stroke-opacity="0.25"')
        picture.text(left - 8, y + 4, f"{percent} %", "end", GREY)
    for time in range(0, end + 1, 500):
        picture.text(x(time), top + height + 18, f"{time / 1000:g} s", "middle", GREY)
    steps = [(time, code) for time, kind, code, *_ in events if kind == native.UpgradeKind.PROGRESS]
    line = "".join(f"H{x(time):g}V{top + height - percent * height / 100:g}" for time, percent in steps)
    picture.path(f"M{left} {top + height}{line}", ' stroke-width="2.5" style="stroke:#1f5fbf"')
    low = top + height + 42
    for time, kind, code, detail, _ in events:
        if kind == native.UpgradeKind.RESULT:
            text = native.UpgradeResult(code).name.lower()
        elif kind == native.UpgradeKind.NOTICE:
            text = NOTICES.get((code, detail), f"status {code}, {detail}")
        else:
            continue
        anchor, shift = ("end", -6) if x(time) > left + width / 2 else ("start", 6)
        picture.path(f"M{x(time):g} {top}V{low:g}", ' stroke-dasharray="3 3"')
        picture.text(x(time) + shift, low, f"{time / 1000:.3f} s  {text}", anchor)
        low += 16
    return picture.done()


# ---- The demo ------------------------------------------------------------------------------------

TIME = re.compile(r"\d+(?:\.\d+)? m?s\b")


def draw_run(build):
    lines = output_of(build / "bin/perictl", "demo", "--virtual", NO_COLOR="1",
                      COLUMNS="100").splitlines()
    lines = ["$ ./run", *lines]
    picture = Picture(900, 17 * len(lines) + 30, "monospace", "#0f172a")
    for number, line in enumerate(lines):
        heading = line and not line.startswith(" ")
        picture.text(18, 28 + 17 * number, line[:110], fill="#7dd3fc" if heading else "#e2e8f0",
                     more=' xml:space="preserve"')
    return picture.done()


# --------------------------------------------------------------------------------------------------

DRAWINGS = {"rooms": draw_rooms, "frame": draw_frame, "image": draw_image, "upgrade": draw_upgrade,
            "run": draw_run}


def comparable(name, picture):
    """What must be the same. The demo runs in real time: neither how long something took, nor what
    came on its own and when."""
    if name != "run":
        return picture
    lines = re.findall(r"<text.*?>(.*)</text>", picture)
    return [TIME.sub("T", line) for line in lines if not TIME.match(line.strip())]


def main():
    check = sys.argv[1:2] == ["--check"]
    build = pathlib.Path(sys.argv[-1]).resolve()
    for name, draw in DRAWINGS.items():
        path = ROOT / f"docs/{name}.svg"
        picture = draw(build)
        if not check:
            path.write_text(picture)
        elif comparable(name, path.read_text()) != comparable(name, picture):
            sys.exit(f"{path.relative_to(ROOT)} is out of date: run scripts/make_drawings.py")


main()
