"""Japanese charsets beside those that everything is built around: EUC-JP as Windows and as Unix vendors write it, and
IBM's code page 943."""

from derivation.cross_check import UnexpectedDifference, cross_check, expect_count
from derivation.japanese import JIS_GRID, JIS_READINGS, MICROSOFT_GRID, extra, shift_jis_to_row_cell, two_bytes
from derivation.sources import Iconv, Perl
from derivation.table_text import Grid, Table

SINGLE_SHIFT_3 = 0x8F0000
EUC_GRID = "8E,A1-FE A1-FE"
EUC_3_GRID = "8F A1-FE A1-FE"
NEC_ROW_13 = range(0x2D00, 0x2E00)


def three_bytes(code):
    return code.to_bytes(3, "big")


def as_euc(mapping, single_shift=0):
    """Codes as row and cell, as they stand in EUC."""
    return {code | 0x8080 | single_shift: scalar for code, scalar in mapping.items()}


def read_all(source, grid, to_bytes):
    found = {code: source(to_bytes(code)) for code in Grid(grid).codes()}
    return {code: scalar for code, scalar in found.items() if scalar is not None}


def split_repeated(mapping, is_written):
    """Pairs that go both ways, and those that only decode: of several codes for a character is_written tells one."""
    codes = {}
    for code, scalar in sorted(mapping.items()):
        if scalar not in codes or is_written(code, codes[scalar]):
            codes[scalar] = code
    two_way = {code: scalar for code, scalar in mapping.items() if codes[scalar] == code}
    return two_way, {code: scalar for code, scalar in mapping.items() if codes[scalar] != code}


def never(_code, _before):
    return False


# --- EUC-JP with the characters of vendors ----------------------------------------------------------------------------

def euc_tables(base):
    """base: the tables that all charsets of JIS X 0208 share, by name."""
    jis, nec = base["jis_x0208-1990"], base["nec_extset"]
    row_13 = {code: scalar for code, scalar in nec.items() if code in NEC_ROW_13}
    rows_89_92 = {code: scalar for code, scalar in nec.items() if code not in NEC_ROW_13}
    kana = {0x8E00 | code: scalar for code, scalar in base["jis_x0201kana"].items()}
    user_2 = {code: 0xE000 + number for number, code in enumerate(Grid("F5-FE A1-FE").codes())}
    user_3 = {code: 0xE3AC + number for number, code in enumerate(Grid("8F F5-FE A1-FE").codes())}

    # From code page 932 row by row, and the converter of the C library: they must say the same.
    windows = as_euc(jis) | as_euc(row_13) | kana
    iconv = Iconv("EUC-JP-MS")
    cross_check("eucjp-windows", windows | user_2, Grid(EUC_GRID).codes(), two_bytes, iconv)
    two_way, decode_only = split_repeated(windows, never)
    expect_count("eucjp-windows", windows, 7025)
    expect_count("JIS X 0208 in row 13", decode_only, 9)
    yield Table("eucjp-windows", "JIS X 0208, NEC row 13 and half-width katakana, as in EUC", EUC_GRID, two_way,
                decode_only=decode_only, origin="""
The tables jis_x0208-1990, nec_extset (row 13) and jis_x0201kana with the high bits set; checked against iconv
EUC-JP-MS. Where JIS X 0208 has a character of row 13, its code is written.""")

    expect_count("rows 89 to 92", rows_89_92, 374)
    yield Table("cp51932-ibm", "The IBM characters as NEC placed them, rows 89 to 92, as in EUC", "F9-FC A1-FE",
                as_euc(rows_89_92), origin="The table nec_extset without row 13, with the high bits set.")

    yield Table("eucjp-ms-user", "User-defined characters of eucJP-ms, rows 85 to 94", "F5-FE A1-FE", user_2,
                origin="In the order of the codes; checked against iconv EUC-JP-MS.")

    behind_shift = read_all(iconv, EUC_3_GRID, three_bytes)
    expect_count("eucjp-ms behind 8F", behind_shift, 7113)
    jis_x0212 = as_euc(base["jis_x0212-1990"], SINGLE_SHIFT_3)
    ibm = {code: scalar for code, scalar in behind_shift.items() if 0x8FF3F3 <= code <= 0x8FF4FE}
    cross_check("eucjp-ms", jis_x0212 | ibm | user_3, Grid(EUC_3_GRID).codes(), three_bytes, iconv, {0x8FA2C3: 0xFFE4})
    # The IBM characters are those of code page 932, but for the kanji that JIS X 0212 has, which stand there.
    elsewhere = set(windows.values()) | set(jis_x0212.values()) | {0xFFE4}
    lacking = set(base["ibm_extset"].values()) - elsewhere
    if not lacking <= set(ibm.values()) <= set(base["ibm_extset"].values()):
        raise UnexpectedDifference("the IBM characters behind 8F are others than those of code page 932")
    yield Table("eucjp-3byte", "JIS X 0212 behind single shift 3, as in EUC", "8F A2-ED A1-FE", jis_x0212,
                origin="The table jis_x0212-1990 with the high bits set, behind 8F.")
    _, repeated = split_repeated(behind_shift, never)
    rest = {code: scalar for code, scalar in behind_shift.items()
            if jis_x0212.get(code) != scalar and code not in repeated}
    yield Table("eucjp-ms-3byte", "What eucJP-ms has behind 8F and JIS X 0212 lacks: IBM and user-defined characters",
                EUC_3_GRID, rest, read_only=repeated, origin="""
iconv EUC-JP-MS behind 8F; checked against the tables jis_x0212-1990 (but for 8FA2C3, the broken bar) and \
ibm_extset.""")

    yield Table("yen-overline", "What the Latin half of JIS X 0201 has in place of two characters of ASCII", "5C,7E",
                {0x5C: 0xA5, 0x7E: 0x203E}, origin="JIS X 0201.")
    readings = JIS_READINGS | {0x213D: 0x2014}
    yield extra("eucjp-jis", "Extra encode table for JIS X 0208 in EUC: the readings of the JIS standard", EUC_GRID,
                as_euc(readings))


# --- Code page 943 ----------------------------------------------------------------------------------------------------

# What code page 943 reads otherwise than 932: four as the JIS standard does, the em dash, and the broken bar.
CP943_READINGS = {0x213D: 0x2014, 0x2141: 0x301C, 0x2142: 0x2016, 0x215D: 0x2212, 0x9336: 0xA6}
CP943_DECODE_ONLY = {0x7C7C: 0xA6}


def cp943_tables(base):
    parts = ("jis_x0208-1990", "nec_extset", "ibm_extset", "windows31j-usr")
    whole = {code: scalar for part in parts for code, scalar in base[part].items()}
    whole |= CP943_READINGS | CP943_DECODE_ONLY
    by_code = {code: whole.get(shift_jis_to_row_cell(code)) for code in MICROSOFT_GRID.codes()}
    cross_check("cp943", by_code, by_code, two_bytes, Iconv("IBM943"))
    yield Table("cp943", "What code page 943 reads otherwise than code page 932, as row and cell", "21-7E,93 21-7E",
                CP943_READINGS, decode_only=CP943_DECODE_ONLY, origin="""
Decided by iconv IBM943, which agrees with everything else in the tables of code page 932.""")


# --- The Macintosh ----------------------------------------------------------------------------------------------------

MAC_SINGLE = {0x5C: 0xA5, 0x80: 0x5C, 0xA0: 0xA0, 0xFD: 0xA9, 0xFE: 0x2122, 0xFF: (0x2026, 0xF87F)}


def as_character(text):
    return ord(text) if len(text) == 1 else tuple(map(ord, text))


def mac_tables(base):
    codes = list(MICROSOFT_GRID.codes())
    single = [bytes([code]) for code in range(0x100)]
    perl = Perl("MacJapanese", [*map(two_bytes, codes), *single])
    texts = {shift_jis_to_row_cell(code): perl.text(two_bytes(code)) for code in codes}
    mapping = {code: as_character(text) for code, text in texts.items() if text is not None}
    expect_count("macjapanese", mapping, 7192)
    jis = base["jis_x0208-1990"]
    if {code: mapping.get(code) for code in jis} != jis | JIS_READINGS | {0x213D: 0x2014}:
        raise UnexpectedDifference("the Macintosh has another JIS X 0208")
    mapping = {code: character for code, character in mapping.items() if jis.get(code) != character}
    # Codes for three scalars and more, a hint of the Macintosh before them: there is no room for these.
    longer = [code for code, character in mapping.items() if isinstance(character, tuple) and len(character) > 2]
    expect_count("macjapanese, three scalars or more", longer, 12)
    for code in longer:
        del mapping[code]
    expect_count("macjapanese, besides JIS X 0208", mapping, 308)
    yield Table("macjapanese", "What the Macintosh has besides JIS X 0208, or reads otherwise, as row and cell",
                JIS_GRID, mapping, origin="""
Perl MacJapanese, but for twelve codes that are three scalars or more.""")
    one_byte = {code: code for code in range(0x80)} | base["jis_x0201kana"] | MAC_SINGLE
    said = {code: perl.text(bytes([code])) for code in one_byte if code != 0x7F}
    if any(as_character(text) != one_byte[code] for code, text in said.items()):
        raise UnexpectedDifference("the single bytes of the Macintosh are others")
    yield Table("macjapanese-single", "The single bytes of the Macintosh in Japanese", "00-80,A0-DF,FD-FF", one_byte,
                origin="JIS X 0201 and six codes; checked against Perl MacJapanese, which lacks 7F.")


def tables(base):
    yield from euc_tables(base)
    yield from cp943_tables(base)
    yield from mac_tables(base)
