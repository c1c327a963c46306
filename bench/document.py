#!/usr/bin/env python3
"""document.py DOCUMENT DIRECTORY: put the tables that scripts/bench left in DIRECTORY into DOCUMENT.

Each goes between two lines "<!-- NAME -->" and "<!-- end of NAME -->".
"""

import pathlib
import re
import sys

KERNELS = ("avx512", "avx2", "portable")


def read_rows(path):
    """The rows of a table of throughput by pair and text: what stands under each heading."""
    rows, headings = {}, []
    for line in path.read_text().splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if line.startswith("| pair |"):
            headings = cells
        elif " → " in cells[0] and len(cells) == len(headings):
            rows[tuple(cells[:2])] = dict(zip(headings[2:], cells[2:]))
    return rows


def rate(cell):
    return float(cell.split()[0]) if re.match(r"\d", cell) else None


def ratio(one, other):
    return f"{one / other:.2f}" if one and other else ""


def throughput(directory):
    """One table for all sets of kernels; the ratios are those of one run each."""
    measured = {name: read_rows(directory / f"{name}.md") for name in KERNELS}
    lines = ["| pair | text | best peer | AVX-512 | of the peer | of memcpy | exact fit | of before "
             "| AVX2 | of before | portable | of before |", "|---|---|---:|" + "---:|" * 9]
    for key, row in measured["avx512"].items():
        now = rate(row["pvzan"])
        peers = {name: rate(row[name]) for name in ("iconv", "ICU", "encoding_rs", "Python")}
        best = max((name for name in peers if peers[name]), key=peers.get, default=None)
        if now is None or best is None:
            sys.exit(f"{': '.join(key)}: stopped by what it lacks")
        cells = [*key, f"{best} {peers[best]:.0f}", f"{now:.0f}", f"**{ratio(now, peers[best])}**",
                 ratio(now, rate(row["memcpy"])) if key[1] == "ascii" else "",
                 ratio(rate(row["exact fit"]), now), ratio(now, rate(row["before"]))]
        for name in KERNELS[1:]:
            other = measured[name][key]
            cells += [f"{rate(other['pvzan']):.0f}", ratio(rate(other["pvzan"]), rate(other["before"]))]
        lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


def main():
    document, directory = map(pathlib.Path, sys.argv[1:])
    text = document.read_text()
    tables = {"throughput": throughput(directory)}
    for name in ("small", "tool"):
        tables[name] = (directory / f"{name}.md").read_text().strip()
    for name, table in tables.items():
        begin, end = f"<!-- {name} -->\n", f"<!-- end of {name} -->"
        before, rest = text.split(begin)
        text = before + begin + "\n" + table + "\n\n" + end + rest.split(end)[1]
    document.write_text(text)


main()
