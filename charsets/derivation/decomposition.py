"""Letters and marks as the file system of the Macintosh takes characters apart: Unicode 3.2 but for three ranges."""

import subprocess
from unicodedata import ucd_3_2_0 as unicode_3_2

from derivation.cross_check import UnexpectedDifference, expect_count
from derivation.sources import SourceMissing
from derivation.table_text import Table

LEFT_WHOLE = (range(0x2000, 0x3000), range(0xF900, 0xFB00))
HANGUL = range(0xAC00, 0xD7A4)  # by arithmetic, in the rule
UNITS = "00-FF 00-FF 00-FF 00-FF"
PERL = "use Unicode::Normalize; print join(' ', map { sprintf '%X', ord } split //, NFD(chr hex)), \"\\n\" for @ARGV"


def decomposition(scalar):
    """The letter and the mark, or the one character that it is another name of."""
    parts = unicode_3_2.decomposition(chr(scalar))
    return [int(part, 16) for part in parts.split()] if parts and not parts.startswith("<") else []


def whole_decomposition(scalar):
    parts = decomposition(scalar)
    return whole_decomposition(parts[0]) + parts[1:] if parts else [scalar]


def tables():
    scalars = [scalar for scalar in range(0x10000)
               if decomposition(scalar) and not any(scalar in whole for whole in LEFT_WHOLE)]
    try:
        said = subprocess.run(["perl", "-e", PERL, *(f"{scalar:X}" for scalar in scalars)],
                              stdout=subprocess.PIPE, check=True)
    except (OSError, subprocess.CalledProcessError) as error:
        raise SourceMissing("Perl Unicode::Normalize") from error
    for scalar, line in zip(scalars, said.stdout.decode().splitlines(), strict=True):
        whole = whole_decomposition(scalar)
        perls = [int(part, 16) for part in line.split()]
        if perls != whole or [ord(c) for c in unicode_3_2.normalize("NFD", chr(scalar))] != whole:
            raise UnexpectedDifference(f"U+{scalar:04X} decomposes otherwise")
    codes = {int("".join(f"{part:04X}" for part in decomposition(scalar)), 16): scalar for scalar in scalars}
    expect_count("decompositions", codes, len(scalars))
    joined = {code: scalar for code, scalar in codes.items()
              if unicode_3_2.normalize("NFC", chr(scalar)) == chr(scalar)}
    parted = {code: scalar for code, scalar in codes.items() if code not in joined}
    expect_count("marked-letters", joined, 873)
    expect_count("parted-letters", parted, 97)
    origin = ("Python's unicodedata, Unicode 3.2; checked against Perl's Unicode::Normalize. "
              "2000-2FFF and F900-FAFF are left whole.")
    for name, title, pairs in (("marked-letters", "Characters that are a letter and a mark", joined),
                               ("parted-letters", "Characters that normal form C has only as a letter and a mark, "
                                "or as another one", parted)):
        yield Table(name, title, UNITS, pairs, origin=origin, counted=True, linear=lambda scalar: False)
