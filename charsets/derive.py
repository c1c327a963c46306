#!/usr/bin/env python3
"""Derives the mapping tables in tables/ and further/ from what the C library on this machine knows.

    derive.py [--check] [DIRECTORY]

writes DIRECTORY/tables/*.tsv and DIRECTORY/further/*.tsv (the directory of this file unless given); with --check it
writes nothing and compares. Every table is compared with a second system (Perl, Python) and, where there is one, a
third. The differences to expect are listed in derivation/ with their reasons; any other stops the derivation. Not
needed to build: the tables are part of the source tree.
"""

import sys
from pathlib import Path

from derivation import (chinese_korean, decomposition, further_chinese_korean, further_japanese, japanese, mainframe,
                        single_byte)
from derivation.sources import SourceMissing

EXIT_DIFFERENT = 1
EXIT_SOURCE_MISSING = 77  # what ctest takes for a skipped test


def main(arguments):
    check = "--check" in arguments
    places = [argument for argument in arguments if argument != "--check"]
    directory = Path(places[0]) if places else Path(__file__).parent
    try:
        tables = [*japanese.tables(), *chinese_korean.tables()]
        base = {table.name: table.mapping() for table in tables}
        tables += [*further_japanese.tables(base), *further_chinese_korean.tables(), *mainframe.tables(),
                   *decomposition.tables()]
        further = [*single_byte.tables()]
    except SourceMissing as missing:
        print(f"derive.py: not on this machine: {missing}", file=sys.stderr)
        return EXIT_SOURCE_MISSING
    texts = {directory / place / f"{table.name}.tsv": table.text().encode()
             for place, found in (("tables", tables), ("further", further)) for table in found}
    different = []
    for path, text in texts.items():
        if not check:
            path.write_bytes(text)
        elif not path.is_file() or path.read_bytes() != text:
            different.append(path)
    strays = {*directory.glob("tables/*.tsv"), *directory.glob("further/*.tsv")} - texts.keys()
    for path in sorted(different):
        print(f"derive.py: {path} is not what the sources say", file=sys.stderr)
    for path in sorted(strays):
        print(f"derive.py: {path} is not derived here", file=sys.stderr)
    return EXIT_DIFFERENT if different or strays else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
