#!/usr/bin/env python3
"""Prints the figures in the benchmarks' results as one Markdown table, and fails when a limit is
passed or a figure is missing:
    bench_table.py RESULTS...
The results are Google Benchmark's JSON. A benchmark is labelled "WHAT | UNIT" and has a counter
`measured`, and a counter `limit` when there is a most that is allowed.
"""
import json
import pathlib
import sys


def number(value):
    return f"{value:.0f}" if value >= 100 else f"{value:.2f}"


def row(benchmark):
    """(cells, whether it holds, whether it has a limit) of one benchmark."""
    what, _, unit = benchmark.get("label", benchmark["name"]).partition(" | ")
    limit = benchmark.get("limit")
    allowed = f"{limit:g} {unit}" if limit else ""
    if "measured" not in benchmark:
        return [what, allowed, "", benchmark.get("error_message", "not measured")], False, True
    measured = benchmark["measured"]
    holds = limit is None or measured <= limit
    verdict = "" if limit is None else "holds" if holds else "over the limit"
    return [what, allowed, f"{number(measured)} {unit}", verdict], holds, limit is not None


def main():
    rows = [row(benchmark) for path in sys.argv[1:]
            for benchmark in json.loads(pathlib.Path(path).read_text())["benchmarks"]]
    print("| what | limit | measured | verdict |\n|---|---|---|---|")
    for cells, _, _ in sorted(rows, key=lambda row: not row[2]):
        print(f"| {' | '.join(cells)} |")
    sys.exit(not (rows and all(holds for _, holds, _ in rows)))


main()
