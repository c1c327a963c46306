"""The Chinese and Korean sets: code pages 936, 950 and 949 as Windows has them, and GB18030."""

import itertools

from derivation.cross_check import UnexpectedDifference, cross_check, expect_count
from derivation.sources import Iconv, Perl, Python
from derivation.table_text import Grid, Table, any_scalar, is_private

GBK_GRID = "81-FE 40-7E,80-FE"
FOUR_BYTE_GRID = "81-FE 30-39 81-FE 30-39"


def two_bytes(code):
    return code.to_bytes(2, "big")


def four_bytes(code):
    return code.to_bytes(4, "big")


def number(codes, first):
    """Private use scalars for codes, in the order in which they come."""
    return {code: scalar for scalar, code in enumerate(codes, first)}


def code_page(grid, charset, areas):
    """The two-byte codes of a converter of the C library, and the user-defined areas of Windows."""
    codes = list(Grid(grid).codes())
    source = Iconv(charset)
    mapping = {code: source(two_bytes(code)) for code in codes}
    mapping = {code: scalar for code, scalar in mapping.items() if scalar is not None}
    users = areas(codes, mapping)
    for code, scalar in mapping.items():
        if (code in users or is_private(scalar)) and users.get(code) != scalar:
            raise UnexpectedDifference(f"{charset} has another character at {code:X}")
    return codes, mapping | users


# --- Code page 936 ----------------------------------------------------------------------------------------------------

def gbk_areas(codes, mapping):
    users = list(Grid("AA-AF A1-FE").codes()) + list(Grid("F8-FE A1-FE").codes())
    users += list(Grid("A1-A7 40-7E,80-A0").codes())
    rest = [code for code in codes if code not in mapping and code not in set(users)]
    expect_count("GBK codes that nothing uses", rest, 255)
    return number(users + rest, 0xE000)


def gbk():
    codes, mapping = code_page(GBK_GRID, "GBK", gbk_areas)
    cross_check("chinesegbk", mapping, codes, two_bytes, Perl("cp936", [two_bytes(code) for code in codes]))
    cross_check("chinesegbk", mapping, codes, two_bytes, Python("gbk"), refused=is_private)
    expect_count("chinesegbk", mapping, 23940)
    yield Table("chinesegbk", "Code page 936 (GBK), two-byte codes", GBK_GRID, mapping, origin="""
iconv GBK, and the user-defined areas in the order of Windows: AAA1-AFFE, F8A1-FEFE, A140-A7A0, then every code that
is left. Checked against Perl cp936 and, but for these areas, Python gbk.""")
    yield Table("cp936-euro", "The euro sign of code page 936", "80", {0x80: 0x20AC}, origin="""
Decided here (README.md): the one single byte of code page 936 that is neither ASCII nor a lead byte.""")


# --- Code page 950 ----------------------------------------------------------------------------------------------------

BIG5_GRID = "81-FE 40-7E,A1-FE"
# Ten characters have two codes; Windows writes the second.
BIG5_DECODE_ONLY = {0xA2A4: 0xF9F9, 0xA2A5: 0xF9E9, 0xA2A6: 0xF9EA, 0xA2A7: 0xF9EB, 0xA2CC: 0xA451, 0xA2CE: 0xA4CA,
                    0xF9FA: 0xA27E, 0xF9FB: 0xA2A1, 0xF9FC: 0xA2A2, 0xF9FD: 0xA2A3}


def big5_areas(_codes, mapping):
    rows = ("FA-FE 40-7E,A1-FE", "8E-A0 40-7E,A1-FE", "81-8D 40-7E,A1-FE")
    users = [code for row in rows for code in Grid(row).codes()]
    users += [code for code in Grid("C6-C8 40-7E,A1-FE").codes() if code >= 0xC6A1]
    return number(users, 0xE000)


def big5():
    codes, mapping = code_page(BIG5_GRID, "BIG5", big5_areas)
    cross_check("chinesebig5", mapping, codes, two_bytes, Perl("cp950", [two_bytes(code) for code in codes]))
    # Python has other characters where Windows has user-defined ones.
    eten = {code: Python("cp950")(two_bytes(code)) for code in codes if 0xC6A1 <= code <= 0xC7FC}
    eten = {code: scalar for code, scalar in eten.items() if scalar is not None}
    expect_count("Python's other characters", eten, 249)
    cross_check("chinesebig5", mapping, codes, two_bytes, Python("cp950"), eten, refused=is_private)
    expect_count("chinesebig5", mapping, 19720)
    decode_only = {code: mapping.pop(code) for code in BIG5_DECODE_ONLY}
    for code, written in BIG5_DECODE_ONLY.items():
        if decode_only[code] != mapping.get(written):
            raise UnexpectedDifference(f"{code:X} and {written:X} are different characters")
    yield Table("chinesebig5", "Code page 950 (Big5), two-byte codes", BIG5_GRID, mapping, decode_only=decode_only,
                origin="""
iconv BIG5, and the user-defined areas in the order of Windows: FA40-FEFE, 8E40-A0FE, 8140-8DFE, C6A1-C8FE. Checked
against Perl cp950 and, but for these areas, Python cp950. Of two codes for a character Windows writes the one that
also decodes here.""")


# --- Code page 949 ----------------------------------------------------------------------------------------------------

KSC_GRID = "81-FE 41-5A,61-7A,81-FE"


def ksc_areas(_codes, _mapping):
    return number([*Grid("C9 A1-FE").codes(), *Grid("FE A1-FE").codes()], 0xE000)


def ksc():
    codes, mapping = code_page(KSC_GRID, "UHC", ksc_areas)
    cross_check("koreanksc", mapping, codes, two_bytes, Perl("cp949", [two_bytes(code) for code in codes]))
    cross_check("koreanksc", mapping, codes, two_bytes, Python("cp949"), refused=is_private)
    expect_count("koreanksc", mapping, 17236)
    yield Table("koreanksc", "Code page 949 (Unified Hangul Code), two-byte codes", KSC_GRID, mapping, origin="""
iconv UHC, and the user-defined rows C9A1-C9FE and FEA1-FEFE. Checked against Perl cp949 and, but for these rows,
Python cp949.""")


# --- GB18030 ----------------------------------------------------------------------------------------------------------

# Of the 24 codes that had private use characters in 2005, these six have no other character to this day.
STILL_PRIVATE = {0xFE51: 0xE816, 0xFE52: 0xE817, 0xFE53: 0xE818, 0xFE6C: 0xE831, 0xFE76: 0xE83B, 0xFE91: 0xE855}
# The other eighteen: what older software writes for their private use characters is accepted when encoding.
PRIVATE_BEFORE = {0xA6D9: 0xE78D, 0xA6DA: 0xE78E, 0xA6DB: 0xE78F, 0xA6DC: 0xE790, 0xA6DD: 0xE791, 0xA6DE: 0xE792,
                  0xA6DF: 0xE793, 0xA6EC: 0xE794, 0xA6ED: 0xE795, 0xA6F3: 0xE796, 0xFE59: 0xE81E, 0xFE61: 0xE826,
                  0xFE66: 0xE82B, 0xFE67: 0xE82C, 0xFE6D: 0xE832, 0xFE7E: 0xE843, 0xFE90: 0xE854, 0xFEA0: 0xE864}
# Their four-byte codes, which the current edition no longer has; older text may hold them.
FOUR_BYTES_BEFORE = [("82359037", 0x9FB4, 8), ("84318236", 0xFE10, 10)]
# The one four-byte code of the BMP that is out of order: it exchanged its character with A8BC in 2005.
OUT_OF_ORDER = 0x8135F437


def gb18030_two_byte():
    codes = list(Grid(GBK_GRID).codes())
    source = Iconv("GB18030")
    mapping = {code: source(two_bytes(code)) for code in codes} | STILL_PRIVATE
    expect_count("gb18030", set(mapping.values()), 23940)
    # Python has the edition of 2000: private use for all 24 and for A8BC.
    old = PRIVATE_BEFORE | {0xA8BC: 0xE7C7}
    cross_check("gb18030", mapping, codes, two_bytes, Python("gb18030"), old)
    return mapping


def gb18030_bmp(two_byte):
    codes = list(Grid("81-84 30-39 81-FE 30-39").codes())
    source = Iconv("GB18030")
    mapping = {code: source(four_bytes(code)) for code in codes}
    mapping = {code: scalar for code, scalar in mapping.items() if scalar is not None}
    grid = Grid(FOUR_BYTE_GRID)
    for first, scalar, count in FOUR_BYTES_BEFORE:
        code = int(first, 16)
        for offset in range(count):
            mapping[code] = scalar + offset
            code = grid.following(code)
    expect_count("gb18030-4byte", mapping, 39420)
    # Nothing is missing from the BMP, and the codes follow the scalars.
    both = set(mapping.values()) | set(two_byte.values()) | set(PRIVATE_BEFORE.values())
    bmp = set(range(0x80, 0x10000)) - set(range(0xD800, 0xE000))
    if both != bmp:
        raise UnexpectedDifference("GB18030 does not cover the BMP")
    ordered = [scalar for code, scalar in sorted(mapping.items()) if code != OUT_OF_ORDER]
    if ordered != sorted(ordered):
        raise UnexpectedDifference("the four-byte codes do not follow the scalars")
    cross_check("gb18030-4byte", mapping, codes, four_bytes, Python("gb18030"), {OUT_OF_ORDER: 0x1E3F})
    return mapping


def gb18030_supplement():
    codes = itertools.islice(Grid("90-E3 30-39 81-FE 30-39").codes(), 0x100000)
    mapping = dict(zip(codes, range(0x10000, 0x110000)))
    for second in (Iconv("GB18030"), Python("gb18030")):
        cross_check("gb18030-4byte", mapping, mapping, four_bytes, second)
    return mapping


def gb18030():
    two_byte = gb18030_two_byte()
    yield Table("gb18030", "GB18030, two-byte codes", GBK_GRID, two_byte, origin="""
iconv GB18030, but six codes that have no character but one of private use. Checked against Python gb18030, which has
the edition of 2000. The table `pua` adds the private use characters of older software for encoding.""")
    yield Table("gb18030-4byte", "GB18030, four-byte codes", FOUR_BYTE_GRID,
                gb18030_bmp(two_byte) | gb18030_supplement(), linear=any_scalar, counted=True, origin="""
The BMP: iconv GB18030, and the 18 codes which that lacks because their characters have two-byte codes now; encoding
prefers those. Checked against Python gb18030 but for 8135F437, and for gaps: with the two-byte codes all of the BMP is
there. Beyond: linear from 90308130, which is U+10000; checked against iconv GB18030 and Python gb18030.""")
    yield Table("pua", "Extra encode table for GB18030: private use characters of older software", GBK_GRID,
                PRIVATE_BEFORE, extra=True, origin="Decided here (README.md).")


def tables():
    yield from gbk()
    yield from big5()
    yield from ksc()
    yield from gb18030()
