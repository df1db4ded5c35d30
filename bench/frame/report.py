"""Results and the forms that they are given out in: text, CSV, SVG, Markdown."""

import csv
import dataclasses
import json
import os
import platform
import re
import sys

from . import plot


@dataclasses.dataclass
class Table:
    name: str  # of the CSV file
    title: str
    header: list
    rows: list  # lists of texts and numbers
    note: str = ""
    kind: str = "table"


@dataclasses.dataclass
class Plot:
    name: str  # of the SVG file
    title: str
    x_label: str
    y_label: str
    series: dict  # name: [[x, y], …]
    kind: str = "plot"


def dump(results, out):
    json.dump([dataclasses.asdict(result) for result in results], out)


def load(text):
    kinds = {"table": Table, "plot": Plot}
    return [kinds[fields["kind"]](**fields) for fields in json.loads(text)]


def shown(value):
    if isinstance(value, float):
        return f"{value:.2f}" if abs(value) < 100 else f"{value:.0f}"
    return "–" if value is None else str(value)


def lines_of(table):
    """The table's lines in Markdown, with columns that stand under each other in a terminal too."""
    cells = [table.header] + [[shown(value) for value in row] for row in table.rows]
    widths = [max(len(row[column]) for row in cells) for column in range(len(table.header))]
    numeric = [all(isinstance(row[column], (int, float, type(None))) for row in table.rows)
               for column in range(len(table.header))]
    align = [str.rjust if number else str.ljust for number in numeric]
    line = lambda row: "| " + " | ".join(a(c, w) for a, c, w in zip(align, row, widths)) + " |"  # noqa: E731
    rule = "|" + "|".join("-" * (w + 1) + (":" if n else "-") for w, n in zip(widths, numeric)) + "|"
    return [line(cells[0]), rule, *(line(row) for row in cells[1:])]


def show(results):
    for result in results:
        if result.kind == "table":
            print(f"\n{result.title}\n")
            print("\n".join(lines_of(result)))
            if result.note:
                print(f"\n{result.note}")
    sys.stdout.flush()


def write_files(results, directory):
    directory.mkdir(exist_ok=True)
    for result in results:
        if result.kind == "table":
            with open(directory / f"{result.name}.csv", "w", newline="", encoding="utf-8") as file:
                csv.writer(file).writerows([result.header, *result.rows])
        else:
            (directory / f"{result.name}.svg").write_text(plot.svg(result), encoding="utf-8")


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        model = re.search(r"^model name\s*: (.*)$", info.read(), re.MULTILINE)
    name = f" ({model[1].strip()})" if model else ""
    release = re.match(r"[0-9.]+", platform.release())[0].rstrip(".")
    return (f"{os.cpu_count()} processors{name}, Linux {release}; a simulated host runs on one of them. "
            "Medians of runs in turn; times in milliseconds unless the column says otherwise.")


def section(results, pictures):
    """The Markdown of one subject; plots are linked from `pictures`."""
    parts = [machine()]
    for result in results:
        if result.kind == "table":
            parts += [f"**{result.title}**", "\n".join(lines_of(result))] + ([result.note] if result.note else [])
        else:
            parts.append(f"![{result.title}]({pictures}/{result.name}.svg)")
    return "\n\n".join(parts)


def write_markdown(subject, results, document):
    """Replaces what stands between the subject's two marks in the document; everything else stays."""
    begin, end = f"<!-- bench/run {subject} -->\n", f"<!-- end of {subject} -->"
    text = document.read_text(encoding="utf-8")
    if begin not in text or end not in text:
        raise SystemExit(f"bench/run: {document.name} has no marks for {subject}: {begin.strip()} … {end}")
    pictures = document.parent / document.stem
    for result in results:
        if result.kind == "plot":
            pictures.mkdir(exist_ok=True)
            (pictures / f"{result.name}.svg").write_text(plot.svg(result), encoding="utf-8")
    before, rest = text.split(begin, 1)
    after = rest.split(end, 1)[1]
    document.write_text(f"{before}{begin}\n{section(results, pictures.name)}\n\n{end}{after}", encoding="utf-8")
